"""Counts the crashes of the demo by itself, from its records and the texts of its documents alone,
and compares what tools/triage made of them: each way to die is in each version in exactly one group,
with the function and line where it died there, and the page shows the same numbers.

    scripts/checks/demo_count.py FOLDER
"""
import collections
import json
import pathlib
import re
import sys

# Each way to die that is reported: the code of its exception, and the function that it dies in.
WAYS = {
    'execute': (0xC0000005, 'Execute'), 'raise': (0xE0000001, 'Raise'),
    'thread': (0xC0000005, 'Write'), 'throw': (0xE0000002, 'Throw'),
    'callback': (0xC0000005, 'Write'), 'abort': (0xE0000002, 'Abort'),
    'thread-throw': (0x20474343, 'Throw'), 'purecall': (0xE0000002, 'MoveFromConstructor'),
    'busy': (0xC0000005, 'Write'), 'breakpoint': (0x80000003, 'Breakpoint'),
    'illegal': (0xC000001D, 'IllegalInstruction'), 'read': (0xC0000005, 'Read'),
    'divide': (0xC0000094, 'Divide'), 'write': (0xC0000005, 'Write')}
VERSIONS = ('1.0.0', '1.1.0')
SOURCE = pathlib.Path(__file__).resolve().parents[2] / 'examples/crashing_host/ways.cc'


def is_in(function, place):
    """Whether a file and line lie inside a function of the source."""
    lines = SOURCE.read_text('utf-8').splitlines()
    first = next(n for n, line in enumerate(lines) if re.match(rf' *void {function}\(', line))
    indent = re.match(' *', lines[first])[0]
    last = next(n for n in range(first, len(lines))
                if lines[n] == indent + '}' or '}' in lines[first])
    file, _, line = place.rpartition(':')
    return file.endswith('crashing_host/ways.cc') and first < int(line) <= last + 1


def way_of(custom):
    """The way in the host's own text; a crash in its callback leaves none."""
    return custom.split(':')[0] or 'callback'


def check(holds, *what):
    if not holds:
        sys.exit(f'demo_count: {what}')


def count(folder):
    """The users of the crashes of each way and version."""
    users = collections.defaultdict(list)
    for line in (folder / 'records.jsonl').read_text('utf-8').splitlines():
        record = json.loads(line)
        if record['kind'] == 'crash':
            document = (folder / 'attachments' / record['document_file']['name']).read_text('utf-8')
            custom = re.search('<custom_info>(.*)</custom_info>', document)
            users[way_of(custom[1] if custom else ''),
                  record['software_version']].append(record['user_id'])
    return users


def compare(folder, users):
    """Triage's data and page with the count. Ends at the first difference."""
    page = (folder / 'crashes.html').read_text('utf-8')
    seen = collections.Counter()
    for group in json.loads((folder / 'groups.json').read_text('utf-8'))['groups']:
        ways = {way_of(crash['custom']) for crash in group['list']}
        check(len(ways) == 1, 'several ways in one group', ways)
        way, = ways
        summary, body = page.split(f'id="{group["id"]}"')[1].split('</summary>', 1)
        rows = re.findall(r'<tbody data-version="\d+"><tr><td>(.*?)<td class="n">(\d+)<td class="n">(\d+)'
                          r'(?s:.*?)<td class="died".*?>(.*?)</tr>', body.split('</table>')[0])
        check(len(rows) == len(group['versions']), way, 'rows on the page', rows)
        everybody = []
        for told, (*shown, died) in zip(group['versions'], rows):
            mine = users[way, told['version']]
            everybody += mine
            seen[way, told['version']] += 1
            numbers = [len(mine), len(set(mine))]
            check([told['crashes'], told['users']] == numbers, way, told, mine)
            check(shown == [told['version'], *map(str, numbers)], way, 'on the page', shown)
            function = WAYS[way][1]
            check(told['function'].endswith('::' + function) and is_in(function, told['place']),
                  way, told)
            check(re.sub('<.*?>', ' ', died).split() == [function, told['place']], way, died)
        check(group['users'] == len(set(everybody)), way, group['users'], everybody)
        numbers = [int(n) for n in re.findall(r'<b class="(?:users|crashes)">(\d+)</b>', summary)]
        check(numbers == [len(set(everybody)), len(everybody)], way, 'on the page', numbers)
    check(seen == dict.fromkeys(users, 1), 'not one group for each way and version', seen)


def main():
    folder = pathlib.Path(sys.argv[1])
    users = count(folder)
    expected = {(way, version) for way in WAYS for version in VERSIONS}
    check(set(users) == expected, 'missing or too many', set(users) ^ expected)
    compare(folder, users)
    print(f'{sum(map(len, users.values()))} crashes counted: each of {len(WAYS)} ways in each of '
          f'{len(VERSIONS)} versions in exactly one group, with the function and line where it died')


if __name__ == '__main__':
    main()
