"""scripts/explain on recorded documents, on broken files and, given --host, on a real crash.

    explain_test.py [--host tavu_crashing_host.exe]
"""
import os
import re
import subprocess
import sys
import tempfile
import unittest

import crashing_host

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
HOST = None
if sys.argv[1:2] == ['--host']:
    HOST = os.path.abspath(sys.argv[2])
    del sys.argv[1:3]

# As the library writes it; the host's own text makes it malformed.
DOCUMENT = '''<TAVUCrashInfo>
\t<custom_info>level 3 < 4 & "x"
\t\t<exception addr="0x00000001" type="NOT_THIS"></exception></custom_info></custom_info>
\t<system_info>
\t\t<windows version="10.0.19045.2,"></windows>
\t</system_info>
\t<crash_info>
\t\t<exception addr="0x12345678" read_addr="0x00000010" type="EXCEPTION_ACCESS_VIOLATION" module="a & b.exe"></exception>
\t\t<call_stack>
\t\t\t<function addr="0x12345678" module="a &amp; b.exe"></function>
\t\t\t<function addr="0x00BA92B0"></function>
\t\t</call_stack>
\t</crash_info>
\t<module_list>
\t\t<module name="a &amp; b.exe" path="C:\\a &amp; b.exe" base_addr="0x12000000" base_size="8388608"></module>
\t</module_list>
</TAVUCrashInfo>
'''


def explain(*arguments):
    return subprocess.run([os.path.join(ROOT, 'scripts', 'explain'), *arguments],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)


class Recorded(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix='explain ')
        self.addCleanup(self.folder.cleanup)

    def write(self, name, content, age):
        path = os.path.join(self.folder.name, name)
        with open(path, 'wb') as file:
            file.write(content)
        os.utime(path, (1000 - age, 1000 - age))
        return path

    def test_a_document_by_itself(self):
        self.write('Game_20111201090503_CrashInfo.xml', DOCUMENT.encode(), 0)
        result = explain(self.folder.name)
        self.assertEqual(result.returncode, 0, result.stdout)
        for line in ('Crash Game_20111201090503',
                     'EXCEPTION_ACCESS_VIOLATION reading 0x00000010 at 0x12345678 in a & b.exe',
                     'level 3 < 4 & "x"',
                     '#0  0x12345678 a & b.exe',
                     '#1  0x00ba92b0 (in no known module)'):
            self.assertIn(line, result.stdout)
        self.assertNotIn('at 0x1 in', result.stdout)

    def test_which_of_several(self):
        self.write('Game_20111201090503_CrashInfo.xml', DOCUMENT.encode(), 50)
        old = self.write('20261124T101112.123Z-ab-1-crash.xml', DOCUMENT.encode(), 100)
        self.write('20261124T101112.123Z-ab-1-crash.dmp', b'MDMP', 100)
        self.write('unrelated.xml', b'', 0)

        def names(*arguments):
            return re.findall(r'^Crash (.*)$', explain(*arguments).stdout, re.M)
        stored = '20261124T101112.123Z-ab-1'
        self.assertEqual(names(self.folder.name), ['Game_20111201090503'])
        self.assertEqual(names(self.folder.name, '--all'), ['Game_20111201090503', stored])
        self.assertEqual(names(old), [stored])

    def test_files_that_are_no_use(self):
        for dump, note in ((b'', 'cut short'), (b'MDMP' + b'\xff' * 28, 'cut short'),
                           (b'not a dump at all, but long enough', 'not a memory dump')):
            self.write('x-crash.dmp', dump, 0)
            self.write('x-crash.xml', b'<TAVUCrashInfo>\n<exception \xff', 0)
            result = explain(self.folder.name)
            self.assertEqual(result.returncode, 0, result.stdout)
            self.assertIn(note, result.stdout)
        for arguments in ([self.folder.name + '/none'], [os.path.join(ROOT, 'scripts')]):
            result = explain(*arguments)
            self.assertNotEqual(result.returncode, 0)
            self.assertIn('explain: ', result.stdout)


@unittest.skipUnless(HOST, 'real crashes need the Windows build')
class RealCrash(unittest.TestCase):
    def test_source_lines_of_a_crash(self):
        with open(os.path.join(ROOT, 'examples', 'crashing_host', 'ways.cc'),
                  encoding='utf-8') as file:
            lines = file.read().splitlines()
        failing = next(n for n, line in enumerate(lines, 1) if '(g_nowhere) = 1;' in line)
        with tempfile.TemporaryDirectory() as folder:
            crashing_host.start(os.path.join(ROOT, 'scripts', 'wine'), HOST, 'thread',
                                folder).wait()
            result = explain(folder, '--symbols', os.path.dirname(HOST))
        self.assertIn('EXCEPTION_ACCESS_VIOLATION writing 0x00000010', result.stdout)
        for stack in ('document', 'dump'):
            part = result.stdout.split(f'Call stack in the {stack}')[1].split('\n\n')[0]
            self.assertRegex(part, rf'Write\n +at examples/crashing_host/ways\.cc:{failing}\n')
            self.assertRegex(part, r'WritingWorker\n +at examples/crashing_host/ways\.cc:\d+\n')


if __name__ == '__main__':
    unittest.main()
