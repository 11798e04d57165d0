"""What the crash handler does not see, as docs/crashes.md tables it: the ends that a runtime gives its
process; that a crash of the host's own callback costs its text only; and the source lines that
tools/explain finds. The other ways to crash are the crash handler's own tests.

    crashing_host_test.py WINE tavu_crashing_host.exe
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
WINE, HOST = sys.argv.pop(1), pathlib.Path(sys.argv.pop(1)).resolve()
SECONDS = 240  # for one crash on a busy machine
WINE_LOST = 125  # the runner's word for an end that was not the program's own

# Exit status under Wine: 1 is the host's own word for "survived"; that of a thread which Wine aborts
# varies.
UNSEEN = {'throw': 3, 'abort': 3, 'purecall': 3, 'fastfail': 9, 'invalid-parameter': 1, 'heap': 1,
          'stack': None}
SEEN_WITH_HANDLERS = ('throw', 'abort', 'purecall')


class CrashingHostTest(unittest.TestCase):
    def start(self, way, options='', program=HOST):
        """A host on its way, its temporary and application data in a folder of its own."""
        folder = tempfile.TemporaryDirectory(prefix='host')
        self.addCleanup(folder.cleanup)
        windows_folder = 'Z:' + folder.name.replace('/', '\\')
        # Wine takes these variables from nobody but a program of its own; a batch file needs no
        # quoting that survives the way through two systems' shells.
        pathlib.Path(folder.name, 'run.bat').write_text(
            f'@set TMP={windows_folder}\n@set LOCALAPPDATA={windows_folder}\n@"Z:{program}" {way} '
            f'127.0.0.1 9 --keep-files --no-restart --auto-report {options}\n',
            encoding='utf-8', newline='\r\n')
        return folder.name, subprocess.Popen(
            [WINE, 'cmd', '/c', windows_folder + '\\run.bat'], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def test_ends_that_a_runtime_gives(self):
        seen = 0xE0000002 & 0xFF, ['Crash.dmp', 'CrashInfo.xml']
        cases = [('callback', '', (5, seen[1])),
                 *((way, '', (status, [])) for way, status in UNSEEN.items()),
                 *((way, '--handlers', seen) for way in SEEN_WITH_HANDLERS)]
        for (*case, expected), (folder, host) in [(c, self.start(*c[:2])) for c in cases]:
            with self.subTest(case):
                status = host.wait(SECONDS)
                self.assertNotEqual(status, WINE_LOST)
                left = sorted(name.rsplit('_', 1)[1] for name in os.listdir(folder)
                              if name.startswith('tavu_crashing_host_'))
                self.assertEqual((status if expected[0] else None, left), expected)

    def test_source_lines_of_a_crash(self):
        lines = (ROOT / 'examples/crashing_host/ways.cc').read_text('utf-8').splitlines()
        failing = next(n for n, line in enumerate(lines, 1) if '(g_nowhere) = 1;' in line)
        folder, host = self.start('thread')
        self.assertEqual(host.wait(SECONDS), 5)
        # A name that a debugger would take for an expression and the end of a text.
        crash = pathlib.Path(folder, 'a `1` "b')
        crash.mkdir()
        for file in pathlib.Path(folder).glob('tavu_crashing_host_*'):
            file.rename(crash / file.name)
        output = subprocess.run([ROOT / 'tools/explain', crash, '--symbols', HOST.parent],
                                stdout=subprocess.PIPE, text=True, check=True).stdout
        self.assertIn('EXCEPTION_ACCESS_VIOLATION writing 0x00000010', output)
        for stack in ('document', 'dump'):
            part = output.split(f'Call stack in the {stack}')[1].split('\n\n')[0]
            self.assertRegex(part, rf'Write\n +at examples/crashing_host/ways\.cc:{failing}\n')
            self.assertRegex(part, r'WritingWorker\n +at examples/crashing_host/ways\.cc:\d+\n')

    def test_triage_of_two_versions(self):
        """What the document's stack does not tell (a call to nowhere) and what lies in a module that
        is not at hand, named by the symbols of the right version."""
        following = HOST.parent / 'next' / HOST.name
        crashes = [(way, version, *self.start(way, program=program)) for way, version, program in (
            ('raise', '1.0.0', HOST), ('raise', '1.1.0', following), ('execute', '1.1.0', following))]
        with tempfile.TemporaryDirectory() as name:
            store = pathlib.Path(name)
            with open(store / 'records.jsonl', 'w', encoding='utf-8') as records:
                for way, version, folder, host in crashes:
                    host.wait(SECONDS)
                    record = {'kind': 'crash', 'time': version, 'software_version': version}
                    for kind, ending in (('document', 'CrashInfo.xml'), ('dump', 'Crash.dmp')):
                        file, = pathlib.Path(folder).glob(f'*_{ending}')
                        stored = file.rename(store / f'{way}-{version}-{ending}')
                        record[f'{kind}_file'] = {'name': stored.name}
                    print(json.dumps(record), file=records)
            output = subprocess.run(
                [ROOT / 'tools/triage', store / 'records.jsonl', '--store', store, '--symbols',
                 HOST.parent, '--json'], stdout=subprocess.PIPE, text=True, check=True).stdout
        source = (ROOT / 'examples/crashing_host/ways.cc').read_text('utf-8').splitlines()
        groups = {group['signature'][0]: group for group in json.loads(output)['groups']}
        for function, statement, versions in (
                ('Raise', '::RaiseException(setting.code', ['1.1.0', '1.0.0']),
                ('Execute', '(g_nowhere)();', ['1.1.0'])):
            group = groups.pop(f'crashing_host::{function}')
            self.assertEqual([v['version'] for v in group['versions']], versions)
            died = next(frame for frame in group['stack'] if frame['host'])
            line = int(died['place'].removeprefix('examples/crashing_host/ways.cc:'))
            # After the call a compiler may give the next line.
            self.assertIn(statement, '\n'.join(source[line - 2:line]))
            self.assertEqual(group['signature'][1:],
                             ['crashing_host::UpdateWorld', 'crashing_host::PlayFrame'])
        self.assertEqual(groups, {})


if __name__ == '__main__':
    unittest.main()
