"""Counts the crashes of the demo by itself, from its records and the texts of its documents alone,
and compares what tools/triage made of them: each way to die is one group, with the function and line
where it died, and its page shows the same numbers.

    scripts/checks/demo_count.py FOLDER
"""
import collections
import json
import pathlib
import re
import sys

# Where each way dies.
FUNCTIONS = {
    'read': 'Read', 'write': 'Write', 'execute': 'Execute', 'divide': 'Divide',
    'illegal': 'IllegalInstruction', 'breakpoint': 'Breakpoint', 'raise': 'Raise',
    'thread': 'Write', 'thread-throw': 'Throw', 'busy': 'Write', 'throw': 'Throw',
    'abort': 'Abort', 'purecall': 'MoveFromConstructor'}
VERSIONS = {'1.0.0', '1.1.0'}
SOURCE = pathlib.Path(__file__).resolve().parents[2] / 'examples/crashing_host/ways.cc'


def lines_of(function):
    """The numbers of a function's lines in the source."""
    lines = SOURCE.read_text('utf-8').splitlines()
    first = next(n for n, line in enumerate(lines) if re.match(rf' *void {function}\(', line))
    indent = re.match(' *', lines[first])[0]
    last = next(n for n in range(first, len(lines))
                if lines[n] == indent + '}' or '}' in lines[first])
    return range(first + 1, last + 2)


def check(holds, *what):
    if not holds:
        sys.exit(f'demo_count: {what}')


def count(folder):
    """The crashes of each way and version, and the users of each way."""
    crashes, users = collections.Counter(), collections.defaultdict(set)
    for line in (folder / 'records.jsonl').read_text('utf-8').splitlines():
        record = json.loads(line)
        document = (folder / 'attachments' / record['document_file']['name']).read_text('utf-8')
        way = re.search('<custom_info>([a-z-]+): ', document)[1]
        crashes[way, record['software_version']] += 1
        users[way].add(record['user_id'])
    return crashes, users


def main():
    folder = pathlib.Path(sys.argv[1])
    crashes, users = count(folder)
    expected = {(way, version) for way in FUNCTIONS for version in VERSIONS}
    check(set(crashes) == expected, 'missing or too many', set(crashes) ^ expected)
    page = (folder / 'crashes.html').read_text('utf-8')
    seen = []
    for group in json.loads((folder / 'groups.json').read_text('utf-8'))['groups']:
        ways = {crash['custom'].split(':')[0] for crash in group['list']}
        check(len(ways) == 1, 'several ways in one group', ways)
        way, = ways
        seen.append(way)
        counted = {version: crashes[way, version] for version in VERSIONS}
        told = {version['version']: version['crashes'] for version in group['versions']}
        check(told == counted, way, told, counted)
        check(group['users'] == len(users[way]), way, group['users'], users[way])
        element = page.split(f'id="{group["id"]}"')[1].split('</summary>')[0]
        numbers = [int(n) for n in re.findall(r'<b class="(?:users|crashes)">(\d+)</b>', element)]
        check(numbers == [len(users[way]), sum(counted.values())], 'on the page', way, numbers)
        died = next(frame for frame in group['stack'] if frame['host'])
        file, _, line = died['place'].rpartition(':')
        check(died['function'].endswith('::' + FUNCTIONS[way]) and file.endswith('ways.cc') and
              int(line) in lines_of(FUNCTIONS[way]), way, died)
    check(sorted(seen) == sorted(FUNCTIONS), 'not one group for each way', seen)
    print(f'{sum(crashes.values())} crashes counted: {len(FUNCTIONS)} ways in {len(VERSIONS)} '
          'versions, one group for each way, each with the function and line where it died')


if __name__ == '__main__':
    main()
