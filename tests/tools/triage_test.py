"""tools/triage on crashes that were counted by hand: its data, its page, and the page in a browser."""
import html.parser
import json
import os
import pathlib
import pty
import subprocess
import tempfile
import termios
import unittest

import browser

TRIAGE = pathlib.Path(__file__).resolve().parents[2] / 'tools/triage'
MARKUP = '</script><script>alert(1)</script><b onclick=alert(2)>&amp;"\''

DOCUMENT = '''<TAVUCrashInfo>
\t<custom_info>{custom}</custom_info>
\t<system_info>
\t\t<windows version="{system}.2,Service Pack 1"></windows>
\t</system_info>
\t<crash_info>
\t\t<exception addr="0x40001234" read_addr="0x00000010" type="EXCEPTION_ACCESS_VIOLATION"></exception>
\t\t<call_stack>
\t\t\t<function addr="0x7B001000"></function>
\t\t\t<function addr="{address}"></function>
\t\t\t<function addr="0x40002000"></function>
\t\t</call_stack>
\t</crash_info>
\t<module_list>
\t\t<module name="{module}" base_addr="0x40000000" base_size="65536" file_ver="1.0.0.0"></module>
\t\t<module name="NTDLL.dll" base_addr="0x7B000000" base_size="65536" file_ver="1.0.0.0"></module>
\t</module_list>
</TAVUCrashInfo>
'''

# time | user | version | address | the host's text | system. Two groups: 0x40001234 hit two people
# in three crashes, 0x40005678 three people in three; of the others one each.
CRASHES = '''
2026-11-01T10:00:00.000Z | ann | 1.9  | 0x40001234 | level 1 | 10.0.19045
2026-11-02T10:00:00.000Z | ann | 1.10 | 0x40001234 | level 1 | 10.0.19045
2026-11-05T10:00:00.000Z | bob | 1.10 | 0x40001234 | level 2 | 10.0.22631
2026-11-03T10:00:00.000Z | ann | 1.10 | 0x40005678 | level 9 | 10.0.22631
2026-11-03T11:00:00.000Z | bob | 1.10 | 0x40005678 | level 9 | 10.0.22631
2026-11-04T10:00:00.000Z | cid | 1.10 | 0x40005678 | level 9 | 10.0.22631
'''


class Texts(html.parser.HTMLParser):
    """The texts of a page by the id or class of their element, and the elements that there are."""

    def __init__(self, page):
        super().__init__()
        self.texts, self.elements, self.current = {}, [], None
        self.feed(page)

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.elements.append((tag, attributes))
        self.current = attributes.get('id') or attributes.get('class')

    def handle_endtag(self, tag):
        self.current = None

    def handle_data(self, data):
        if self.current:
            self.texts.setdefault(self.current, []).append(data)


class TriageTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix='triage ')
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.store = self.folder / 'the store'
        self.store.mkdir()
        self.records = self.folder / 'records.jsonl'
        self.records.write_text('{"kind":"log","message":"\\"crash\\""}\n')
        self.number = 0

    def add(self, time, user, version, address, custom, system, module='game.exe', comment=''):
        """One crash, as the collector leaves it."""
        self.number += 1
        name = f'{time[:10].replace("-", "")}T000000000Z-ab-{self.number}-crash.xml'
        (self.store / name).write_text(DOCUMENT.format(address=address, custom=custom,
                                                       system=system, module=module))
        self.add_line(json.dumps({
            'time': time, 'kind': 'crash', 'user_id': user, 'software_id': 'my-game',
            'software_version': version, 'message': comment, 'document_file': {'name': name}}))
        return self.store / name

    def add_table(self):
        for line in CRASHES.strip().splitlines():
            self.add(*(word.strip() for word in line.split('|')))

    def add_line(self, line, end='\n'):
        with open(self.records, 'a', encoding='utf-8') as file:
            file.write(line + end)

    def triage(self, *options, status=0):
        self.page = self.folder / 'page.html'
        result = subprocess.run([TRIAGE, self.records, '--store', self.store, *options],
                                cwd=self.folder, capture_output=True, text=True,
                                check=False)
        self.assertEqual(result.returncode, status, result.stderr)
        self.errors = result.stderr.splitlines()
        return result.stdout

    def data(self, *options, status=0):
        return json.loads(self.triage('--json', *options, status=status))

    def write_page(self):
        self.triage('--output', self.folder / 'page.html')
        self.assertEqual(self.errors, [])
        return Texts(self.page.read_text('utf-8'))

    def test_data_equals_a_count_by_hand(self):
        self.add_table()
        data = self.data()
        self.assertEqual((data['crashes'], data['users'], data['unreadable']), (6, 3, []))
        second, first = data['groups'][1], data['groups'][0]
        self.assertEqual([(g['users'], g['crashes'], g['signature']) for g in (first, second)], [
            (3, 3, ['game.exe+0x5678', 'game.exe+0x2000']),
            (2, 3, ['game.exe+0x1234', 'game.exe+0x2000'])])
        self.assertEqual(second['kind'], 'Access violation reading')
        self.assertEqual([frame['host'] for frame in second['stack']], [False, True, True])
        self.assertEqual([[v[key] for key in ('version', 'crashes', 'users', 'first', 'last')]
                          for v in second['versions']], [
            ['1.10', 2, 2, '2026-11-02T10:00:00.000Z', '2026-11-05T10:00:00.000Z'],
            ['1.9', 1, 1, '2026-11-01T10:00:00.000Z', '2026-11-01T10:00:00.000Z']])
        self.assertEqual(second['systems'], {'Windows 10.0.19045': 2, 'Windows 10.0.22631': 1})
        self.assertEqual(second['custom'], {'level 1': 2})
        self.assertEqual(second['distinctions'], [])
        self.assertEqual(first['distinctions'], [
            'Only in version 1.10', 'Only on Windows 10.0.22631',
            '“level 9” in 100% of these crashes, 0% of the others'])

    def test_filters_on_the_command_line(self):
        self.add_table()
        for options, crashes in ((['--version', '1.9'], [1]), (['--since', '2026-11-04'], [1, 1]),
                                 (['--since', '2026-11-03T10:30:00+00:00'], [2, 1]),
                                 (['--since', '1h'], []), (['--version', '1.1'], [])):
            with self.subTest(options):
                self.assertEqual([g['crashes'] for g in self.data(*options)['groups']], crashes)
        for no_time in ('yesterday', '9999999d'):
            self.triage('--since', no_time, status=2)

    def test_rules_of_the_host(self):
        self.add_table()
        rules = self.folder / 'my.rules'
        rules.write_text('# mine\nhost module ntdll.dll\nskip module GAME.*\n')
        self.assertEqual([g['signature'] for g in self.data('--rules', rules)['groups']],
                         [['NTDLL.dll+0x1000']])
        rules.write_text('skip everything\n')
        self.triage('--rules', rules, status=1)
        self.assertIn('my.rules:1:', self.errors[0])

    def test_a_second_run_reads_only_what_is_new(self):
        self.add_table()
        first = self.data()
        for document in self.store.iterdir():
            document.unlink()
        same_again = self.data()
        for data in (first, same_again):
            for group in data['groups']:
                del group['new']
        self.assertEqual(same_again, first)
        self.assertEqual(self.triage('--new').splitlines()[0][:9], '0 crashes')

        known = '2026-11-06T10:00:00.000Z', 'dan', '1.10', '0x40001234', '', '10.0.22631'
        self.add(*known)
        self.triage('--new', status=0)
        # A file that comes after its record: its crash is new then.
        late = self.add(*known[:3], '0x4000AAAA', *known[4:])
        aside = late.rename(self.folder / late.name)
        self.triage('--new', status=0)
        self.assertIn('not in the store', self.errors[0])
        aside.rename(late)
        self.assertIn('game.exe+0xaaaa', self.triage('--new', status=3))
        self.add(*known[:3], '0x40009999', *known[4:])
        self.add_line('{"time":"2026-11-07T10:00:00.000Z","kind":"crash","user', end='')
        self.assertIn('new: 1 crash of 1 user: Access violation reading: game.exe+0x9999',
                      self.triage('--new', status=3))
        self.assertEqual((self.errors, self.data()['crashes']), ([], 9))
        # The records again under another name, as after a rotation: nothing counts twice.
        self.records = self.records.rename(self.folder / 'records.jsonl.1')
        self.assertEqual(self.data('--state', self.folder / 'records.jsonl.triage')['crashes'], 9)

    def test_what_is_broken_costs_a_line(self):
        self.add_table()
        cut = self.add(*CRASHES.split('\n')[1].split(' | '))
        cut.write_bytes(b'<TAVUCrashInfo>\n<exception \xff\x1b[2J')
        cut.with_suffix('.dmp').write_bytes(b'MDMP' + b'\xff' * 28)
        self.add_line('{"kind":"crash"')
        self.add_line('["crash"]')
        for name in ('gone-crash.dmp', '../records.jsonl'):
            self.add_line(json.dumps({'kind': 'crash', 'user_id': 'half \ud83d',
                                      'dump_file': {'name': name}}))
        data = self.data()
        self.assertEqual((data['crashes'], len(data['unreadable']), len(self.errors)), (6, 3, 5))
        for expected in ('records.jsonl:9: not a record', 'no crash document',
                         'gone-crash.dmp: not in the store', 'neither a document nor a dump'):
            self.assertIn(expected, '\n'.join(self.errors))
        self.assertTrue(all(line.isprintable() for line in self.errors))

    def test_progress_on_a_terminal(self):
        self.add_table()
        for columns in (0, 30):  # 0: it does not tell
            terminal, other_end = pty.openpty()
            termios.tcsetwinsize(other_end, (24, columns))
            subprocess.run([TRIAGE, self.records, '--store', self.store, '--state', f'{columns}'],
                           cwd=self.folder, stdout=subprocess.DEVNULL, stderr=other_end, check=True)
            os.close(other_end)
            with open(terminal, 'rb', buffering=0) as shown:
                lines = shown.read(1 << 16).decode().split('\r')
            self.assertIn('] 6 of 6 crashes', '\n'.join(lines))
            self.assertLess(max(map(len, lines)), columns or 80)
            self.assertEqual([line.strip() for line in lines[-2:]], ['', ''], 'cleared at the end')

    def test_the_page_equals_a_count_by_hand(self):
        self.add_table()
        page = self.write_page()
        totals = {name: page.texts[f'total-{name}'][0]
                  for name in ('users', 'crashes', 'groups', 'versions')}
        self.assertEqual(totals, {'users': '3', 'crashes': '6', 'groups': '2', 'versions': '2'})
        self.assertEqual((page.texts['users'], page.texts['crashes']), (['3', '2'], ['3', '3']))
        links = [a[key] for _, a in page.elements for key in ('src', 'href') if key in a]
        self.assertEqual([link for link in links if link[0] != '#'], ['data:,'])

    def add_hostile(self):
        self.add('2026-11-01T10:00:00.000Z', MARKUP, MARKUP, '0x40001234', MARKUP, MARKUP,
                 module=MARKUP.replace('"', '').replace('<', '&lt;'), comment=MARKUP)

    def test_what_comes_from_a_crash_is_text(self):
        self.add_hostile()
        page = self.write_page()
        elements = [tag for tag, _ in page.elements]
        self.assertEqual((elements.count('script'), [a for _, a in page.elements if 'onclick' in a]),
                         (2, []))
        self.assertIn(MARKUP, [text.strip() for text in page.texts['range']])

    def test_in_a_browser(self):
        if not browser.CHROMIUM:
            self.skipTest('Chromium is not installed')
        self.add_table()
        self.add_hostile()
        self.write_page()
        ident = self.data()['groups'][0]['id']
        totals = "return ['users', 'crashes', 'groups'].map((n) => " \
            "Number(document.getElementById('total-' + n).textContent))"
        with browser.Page(f'{self.page.as_uri()}#{ident}') as page:
            self.assertEqual(page.run(totals), [4, 7, 3])
            opened = "return [...document.querySelectorAll('.group[open]')].map((g) => g.id)"
            self.assertEqual(page.run(opened), [ident])
            links = page.run("return [...document.querySelectorAll('.group[open] .list a')]"
                             ".map((a) => new URL(a.href).pathname)")
            self.assertEqual(len(links), 3)
            for link in links:
                self.assertIn('the%20store', link)
            for filters, expected in (({'text': 'LEVEL 9 bob'}, [1, 1, 1]),
                                      ({'text': '0x5678'}, [3, 3, 1]),
                                      ({'from': '2026-11-04'}, [2, 2, 2]),
                                      ({'version': '0', 'to': '2026-11-03'}, [2, 3, 2])):
                with self.subTest(filters):
                    page.run("document.getElementById('filters').reset()")
                    page.run(f'Object.entries({json.dumps(filters)}).forEach(([id, value]) => {{ '
                             "document.getElementById(id).value = value; "
                             "document.getElementById(id).dispatchEvent(new Event('input', "
                             '{bubbles: true})); })')
                    self.assertEqual(page.run(totals), expected)
            shown = "[...document.querySelectorAll('.group:not([hidden]) [data-version]:not([hidden])')]"
            self.assertEqual(page.run(f'return {shown}.map((part) => part.dataset.version)'),
                             ['0'] * 4, 'a row and a stack of each group')
            page.press('Escape')
            self.assertEqual(page.run(totals), [4, 7, 3])
            page.press('j')
            page.press('j')
            page.press('Enter')
            self.assertEqual(len(page.run(opened)), 2)
            self.assertEqual(page.complaints, [])


if __name__ == '__main__':
    unittest.main()
