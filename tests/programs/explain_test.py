"""tools/explain on recorded documents and on broken files."""
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

EXPLAIN = pathlib.Path(__file__).resolve().parents[2] / 'tools/explain'

# As the library writes it; the host's own text makes it malformed.
DOCUMENT = b'''<TAVUCrashInfo>
\t<custom_info>level 3 < 4 & "x"
\t\t<exception addr="0x00000001" type="NOT_THIS"></exception></custom_info></custom_info>
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


class ExplainTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix='explain ')
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, content, age=0):
        (self.folder / name).write_bytes(content)
        os.utime(self.folder / name, (1000 - age, 1000 - age))

    def explain(self, *arguments, status=0):
        result = subprocess.run([EXPLAIN, *arguments], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, check=False)
        self.assertEqual(result.returncode, status, result.stdout)
        return result.stdout

    def test_a_document_by_itself(self):
        self.write('Game_20111201090503_CrashInfo.xml', DOCUMENT)
        output = self.explain(self.folder)
        for line in ('Crash Game_20111201090503',
                     'EXCEPTION_ACCESS_VIOLATION reading 0x00000010 at 0x12345678 in a & b.exe',
                     'level 3 < 4 & "x"', '#0  0x12345678 a & b.exe',
                     '#1  0x00ba92b0 (in no known module)'):
            self.assertIn(line, output)
        self.assertNotIn('at 0x1 in', output)

    def test_which_of_several(self):
        stored = '20261124T101112.123Z-ab-1'
        self.write('Game_20111201090503_CrashInfo.xml', DOCUMENT, 50)
        self.write(stored + '-crash.xml', DOCUMENT, 100)
        self.write(stored + '-crash.dmp', b'MDMP', 100)
        self.write('unrelated.xml', b'')
        for arguments, names in (([self.folder], ['Game_20111201090503']),
                                 ([self.folder, '--all'], ['Game_20111201090503', stored]),
                                 ([self.folder / (stored + '-crash.xml')], [stored])):
            self.assertEqual(re.findall(r'^Crash (.*)$', self.explain(*arguments), re.M), names)

    def test_files_that_are_no_use(self):
        self.write('x-crash.xml', b'<TAVUCrashInfo>\n<exception \xff')
        for dump, note in ((b'', 'cut short'), (b'MDMP' + b'\xff' * 28, 'cut short'),
                           (b'not a dump at all, but long enough', 'not a memory dump')):
            self.write('x-crash.dmp', dump)
            self.assertIn(note, self.explain(self.folder))
        for nothing in (self.folder / 'none', EXPLAIN.parent):
            self.assertIn('explain: ', self.explain(nothing, status=1))


if __name__ == '__main__':
    unittest.main()
