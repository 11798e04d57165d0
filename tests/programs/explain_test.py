"""tools/explain on recorded documents and on broken and hostile files."""
import os
import pathlib
import re
import resource
import struct
import subprocess
import sys
import tempfile
import unittest

EXPLAIN = pathlib.Path(__file__).resolve().parents[2] / 'tools/explain'
sys.path.insert(0, str(EXPLAIN.parent))
from crash_reading.minidump import Minidump  # noqa: E402  found only now

# As the library writes it; the host's own text makes it malformed.
DOCUMENT = b'''<TAVUCrashInfo>
\t<custom_info>level 3 < 4 & "x" \x1b]0;title\x07
\t\t<exception addr="0x00000001" type="NOT_THIS"></exception></custom_info></custom_info>
\t<crash_info>
\t\t<exception addr="0x12345678" read_addr="0x00000010" type="EXCEPTION_ACCESS_VIOLATION" module="a & b.exe"></exception>
\t\t<call_stack>
\t\t\t<function addr="0x12345678" module="a &amp; b.exe"></function>
\t\t\t<function addr="0x00BA92B0"></function>
\t\t</call_stack>
\t</crash_info>
\t<module_list>
\t\t<module name="a &amp; b\xc2\x9b.exe" path="C:\\a &amp; b.exe" base_addr="0x12000000" base_size="8388608"></module>
\t</module_list>
</TAVUCrashInfo>
'''


def dump_of(names, entries, count=None):
    """A memory dump: an exception, and a list of modules as (base, size, index of the name)."""
    header = struct.pack('<4sIIIIIQ', b'MDMP', 0xA793, 2, 32, 0, 0, 0)
    exception = struct.pack('<IIIIQQIIQQ', 7, 0, 0xC0000005, 0, 0, 0x12345678, 2, 0, 8, 16)
    at, places, texts = 56 + len(exception), [], b''
    for name in names:
        places.append(at + len(texts))
        texts += struct.pack('<I', 2 * len(name)) + name.encode('utf-16-le')
    directory = struct.pack('<IIIIII', 6, len(exception), 56, 4, 0, at + len(texts))
    modules = b''.join(struct.pack('<QIIII84x', base, size, 0, 0, places[name])
                       for base, size, name in entries)
    return (header + directory + exception + texts
            + struct.pack('<I', len(entries) if count is None else count) + modules)


DUMP = dump_of(['C:\\a & b.exe', 'ntdll.dll'], [(0x12000000, 0x800000, 0), (1 << 40, 4096, 1)])


class ExplainTest(unittest.TestCase):
    def setUp(self):
        # With what a shell or a debugger would take for more than a name.
        folder = tempfile.TemporaryDirectory(prefix='explain `1` "\'\n\x1b')
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, content, age=0):
        (self.folder / name).write_bytes(content)
        os.utime(self.folder / name, (1000 - age, 1000 - age))

    def explain(self, *arguments, status=0):
        """What it prints, whose only control characters are the ends of its own lines."""
        result = subprocess.run(
            [EXPLAIN, *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            check=False)
        self.assertEqual(result.returncode, status, result.stdout)
        self.assertNotIn('Traceback', result.stdout)
        self.assertRegex(result.stdout, r'\A[^\x00-\x09\x0b-\x1f\x7f-\x9f]*\Z')
        return result.stdout

    def test_a_document_by_itself(self):
        self.write('Game_20111201090503_CrashInfo.xml', DOCUMENT)
        output = self.explain(self.folder)
        for line in ('Crash Game_20111201090503',
                     'EXCEPTION_ACCESS_VIOLATION reading 0x00000010 at 0x12345678 in a & b.exe',
                     'level 3 < 4 & "x" \\x1b]0;title\\x07\n', '#0  0x12345678 a & b\\x9b.exe',
                     '#1  0x00ba92b0 (in no known module)'):
            self.assertIn(line, output)
        self.assertNotIn('at 0x1 in', output)

    def test_which_of_several(self):
        stored = '20261124T101112.123Z-ab-1'
        self.write('Game_20111201090503_CrashInfo.xml', DOCUMENT, 50)
        self.write(stored + '-crash.xml', DOCUMENT, 100)
        self.write(stored + '-crash.dmp', b'MDMP', 100)
        self.write('unrelated.xml', b'')
        os.mkfifo(self.folder / 'pipe-crash.dmp')
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
        self.assertIn('explain: ', self.explain(self.folder, '--symbols', 'none', status=1))

    def test_a_dump_costs_no_more_than_its_size(self):
        self.write('x.dmp', DUMP)
        dump = Minidump(self.folder / 'x.dmp')
        self.assertEqual((dump.thread, dump.code, dump.address, dump.parameters),
                         (7, 0xC0000005, 0x12345678, (8, 16)))
        self.assertEqual([(m.name, m.base, m.size) for m in dump.modules],
                         [('a & b.exe', 0x12000000, 0x800000), ('ntdll.dll', 1 << 40, 4096)])
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        for content in (dump_of(['n' * 500000], [(0, 0, 0)] * 9000),  # 9 GB of names
                        dump_of([], [], count=0xFFFFFFFF)):
            self.write('x.dmp', content)
            self.assertRaises(ValueError, Minidump, self.folder / 'x.dmp')
        self.assertLess(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before, 64 << 10)


if __name__ == '__main__':
    unittest.main()
