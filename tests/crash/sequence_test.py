"""Lets a host crash in many ways, each in a process of its own, and checks what it leaves: exit
status, files, document, dump (as lldb reads it), and what the reporter was told.

usage: sequence_test.py WINE HOST-FOLDER
"""
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / 'support'))
from dump_reader import failing_thread  # noqa: E402  these are found only now
from wine_path import windows  # noqa: E402

WINE, HOST = sys.argv.pop(1), Path(sys.argv.pop(1))
SECONDS = 240  # for one crash on a busy machine
WINE_LOST = 125  # the runner's word for an end that was not the program's own
MEMORY = 'physical', 'virtual', 'paging_file'

# way | code, whose low byte is the exit status | name | the data's address | where: in the crashing
# function unless said otherwise. The test of the settings crashes by reading.
WAYS = '''
write=@thread    | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr="0x00000020" |
execute          | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr="0x00000030" | 0x30
little-stack=40  | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr="0x00000010" |
raise=0xE06D7363 | 0xE06D7363 | Microsoft C++ Exception       |                         | raise
throw=@thread    | 0x20474343 | UNKNOWN_EXCEPTION             |                         | raise
'''
IN_PROGRAM = ' module="crash_program.exe"'


class Crash:
    """One run of a host in a folder of its own: exit status, words, files left behind, report.

    Without a dump, for which Wine takes seconds, unless it is asked for by without=''.
    """

    def __init__(self, folder, commands, meanwhile=None, reporter='', without='dbghelp'):
        self.host, self.temp = Path(folder, 'host'), Path(folder, 'temp')
        self.reporter = self.host / reporter
        self.temp.mkdir()
        self.reporter.mkdir(parents=True)
        for name, to in (('crash_program.exe', self.host), ('TAVU.dll', self.host),
                         ('TAVU_CrashReporter.exe', self.reporter)):
            shutil.copy(HOST / name, to)
        host = subprocess.Popen(
            [WINE, self.host / 'crash_program.exe', 'temp=' + windows(self.temp),
             *commands.format(reporter=windows(self.reporter)).split('|')],
            env={**os.environ, 'WINEDLLOVERRIDES': f'mscoree,mshtml,{without}='},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        try:
            if meanwhile:
                meanwhile(host, self.temp)
            self.lines = host.communicate(timeout=SECONDS)[0].splitlines()
        finally:
            host.kill()
        self.status = host.returncode
        if self.status == WINE_LOST:
            raise AssertionError('the end of the host was not its own')
        self.words = dict(line.split(' = ', 1) for line in self.lines if ' = ' in line)
        self.left = sorted(os.listdir(self.temp))
        report, seen = self.reporter / 'report.txt', self.reporter / 'seen'
        self.report = report.read_text('utf-8') if report.exists() else None
        self.seen = {path.name.rsplit('_', 1)[1]: path for path in
                     (seen.iterdir() if seen.exists() else ())}

    def document(self):
        return self.seen['CrashInfo.xml'].read_bytes()

    def range(self, name):
        begin, end = (int(word, 16) & 0xFFFFFFFF for word in self.words[name].split())
        return range(begin, end)



class SequenceTest(unittest.TestCase):
    maxDiff = None

    def crash(self, commands, **options):
        folder = tempfile.TemporaryDirectory(prefix='a crash & more ')
        self.addCleanup(folder.cleanup)
        return Crash(folder.name, commands, **options)

    def check_way(self, crash, code, name, target, where):
        self.assertEqual((crash.status, crash.left), (code & 0xFF, []), 'nothing is to be kept')
        text = crash.document().decode()
        self.assertNotIn('<custom_info>', text)
        number = re.search(' addr="(.*?)"', text).group(1)
        address = int(number, 16)
        module = {'raise': ' module="kernelbase.dll"', '0x30': ''}.get(where, IN_PROGRAM)
        first = f'\n\t\t\t<function addr="{number}"{module}></function>' if module else '</call_stack>'
        stack = f'\t\t<call_stack>{first}\n'
        self.assertIn(
            f'<exception addr="{number}"{target} type="{name}"{module}></exception>\n{stack}', text)
        self.assertIn(f' exceptionAddr={number} ', crash.report)
        *seen, seen_address = failing_thread(crash.seen['Crash.dmp'], SECONDS)
        self.assertEqual([*seen, seen_address & 0xFFFFFFFF],
                         [int(crash.words['thread'], 16), code, address])
        if where == '0x30':
            self.assertEqual(address, 0x30)
        elif not where:
            caller = (r'\t\t\t<function addr="(\w+)" params="(?:[0-9a-f]{1,8}, ){4}[0-9a-f]{1,8}"'
                      + IN_PROGRAM + r'></function>\n')
            callers = re.search(stack + caller + caller, text).groups()
            for function, at in zip(('crash', 'caller', 'starter'), (number, *callers)):
                self.assertIn(int(at, 16), crash.range(function))

    def test_ways(self):
        ways = [[cell.strip() for cell in line.split('|')] for line in WAYS.strip().splitlines()]
        with ThreadPoolExecutor(2) as pool:
            crashes = list(pool.map(
                lambda way: self.crash(f'create|start|throw-when-asked|{way[0]}', without=''),
                ways))
        for (way, code, name, target, where), crash in zip(ways, crashes):
            with self.subTest(way):
                self.check_way(crash, int(code, 16), name, target and ' ' + target, where)

    def test_settings_document_and_command_lines(self):
        """All settings are made after the start, and all count."""
        crash = self.crash(
            'create|start|user=a b%c|server=report.example:65535|keep|auto|lang=7|'
            'restart=game.exe -x "y z"|reporter={reporter}|ask|info=not used|read',
            reporter='own & other', without='')
        base = re.fullmatch(r'(crash_program_\d{14})_Crash.dmp', crash.left[0]).group(1)
        self.assertEqual(crash.left[1:], [base + '_CrashInfo.xml'])
        for name in crash.left:
            self.assertEqual((crash.temp / name).read_bytes(),
                             (crash.reporter / 'seen' / name).read_bytes(), 'incomplete when read')
        address = re.search(' addr="(.*?)"', crash.document().decode()).group(1)
        program = '"' + windows(crash.reporter) + '\\TAVU_CrashReporter.exe" '
        files = windows(crash.temp).replace(' ', '%20') + '\\\\' + base
        self.assertEqual(crash.report, (
            f'{program}exceptionInfoFilename={files}_CrashInfo.xml dumpFilename={files}_Crash.dmp '
            f'exceptionAddr={address} userId=a%20b%25c softwareVer=1.0.3 '
            'softwareId=crash-program serverAddr=report.example:65535 aotoReport=true '
            'appShowName=The%20"Crash"%20Program appExeFile=crash_program reportLang=7 '))
        # The host did not wait for this second reporter, which waits for the host.
        restart, deadline = crash.reporter / 'restart.txt', time.monotonic() + SECONDS
        while not (restart.exists() and restart.stat().st_size) and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertEqual(restart.read_text(), (
            f'{program}appRestart=true appExecuteCmd=game.exe%20-x%20"y%20z" '
            f'appPid={crash.words["process"]} '))

        def module(name, version, base):
            file = (crash.host / name).stat()
            when = time.strftime('%Y-%m-%d %H:%M:%S', time.gmtime(file.st_mtime))
            path = re.escape(windows(crash.host / name).replace('&', '&amp;'))
            return (rf'\t\t<module name="{name}" path="{path}" file_size="{file.st_size}" '
                    rf'base_addr="{base}" base_size="\d+" file_ver="{version}" '
                    rf'prod_ver="{version}" list_modified="{when}"></module>\n')

        base = int(crash.words['base'], 16) & 0xFFFFFFFF
        self.assertRegex(crash.document().decode(), rf"""^<TAVUCrashInfo>
\t<custom_info>asked & <4095> \u00e9</custom_info>
\t<system_info>
\t\t<processor count="{os.cpu_count()}" type="8664" speed="\d+"></processor>
\t\t<memory {' '.join(f'{kind}="[0-9]+" {kind}_free="[0-9]+"' for kind in MEMORY)}></memory>
\t\t<windows version="\d+\.\d+\.\d+\.2,.*" explore=".*"></windows>
\t</system_info>
\t<crash_info>
\t\t<exception addr="{address}" read_addr="0x00000010" type="EXCEPTION_ACCESS_VIOLATION" .*
\t\t<call_stack>
(\t\t\t<function addr="0x.*></function>\n)+\t\t</call_stack>
\t</crash_info>
\t<module_list>
{module('crash_program.exe', '0.0.0.0', f'0x{base:08X}')}(\t\t<module .*></module>
)*{module('TAVU.dll', '1.0.0.0', '0x[0-9A-F]{8}')}(\t\t<module .*></module>
)*\t</module_list>
</TAVUCrashInfo>
$""")

    def test_without_the_libraries_for_versions_and_dumps(self):
        crash = self.crash('create|start|read', without='version,dbghelp')
        self.assertIn(' exceptionAddr=', crash.report, 'the reporter starts all the same')
        self.assertEqual(crash.seen, {})

    def test_who_reports(self):
        cases = (  # commands | results | the host's own text, if the crash is reported
            ('create|start|start|create|start|stop|info=stored & <raw>|destroy',
             ['1 0', '0 102', '1 102', '0 102', '0 102', '1 102', '1 102'], 'stored & <raw>'),
            ('create|guarded|start|guarded|stop|guarded|start|destroy',
             ['0 0', '1 0', '1 0', '1 0', '0 0', '1 0', '1 0'], None),
            ('create|start|reporter=C:\\nowhere|restart=x', ['1 0'] * 3, None),
            ('create|no-filter|start', ['1 0', '0 0'], None),
            # A start resets the folder; each form of the callback replaces the other.
            ('create|reporter=C:\\nowhere|start|ask|askA|keep|delete', ['1 0'] * 6,
             'asked in 8 bits <4095> \u00e9'),
            ('create|start|askA|ask', ['1 0'] * 3, 'asked & <4095> \u00e9'),
            # The folder by the code page, the text by the C runtime.
            ('create|start|reporterA={reporter}|infoA=\u20ac', ['1 0'] * 3, '\u0080'),
        )
        for commands, results, text in cases:
            with self.subTest(commands):
                crash = self.crash(commands + '|read',
                                   reporter='own \u20ac' if '{reporter}' in commands else '')
                self.assertEqual([line.split(' = ')[1] for line in crash.lines[2:]][
                    :len(results)], results)
                self.assertEqual((crash.report is not None, crash.status, crash.left),
                                 (text is not None, 5, []))
                if text is not None:  # without the library for dumps
                    self.assertEqual(list(crash.seen), ['CrashInfo.xml'])
                    self.assertIn(f'<custom_info>{text}</custom_info>'.encode(), crash.document())

    def test_crash_while_a_thread_is_inside_an_export(self):
        def expect_no_evidence(host, temp):
            while not host.stdout.readline().startswith('thread = '):
                pass
            time.sleep(2)
            self.assertEqual((host.poll(), os.listdir(temp)), (None, []))

        def hold_the_export(host, temp):
            with server.accept()[0]:  # the export now waits for an answer
                host.stdin.write('\n')
                host.stdin.flush()
                expect_no_evidence(host, temp)

        def give_up(host, temp):
            expect_no_evidence(host, temp)
            host.kill()

        with socket.create_server(('127.0.0.1', 0)) as server:
            another = self.crash(
                f'create|start|server=127.0.0.1:{server.getsockname()[1]}|send|wait|read',
                meanwhile=hold_the_export)
        self.assertEqual((another.status, another.report is None), (5, False))
        itself = self.crash('create|start|inside-export', meanwhile=give_up)
        self.assertEqual((itself.left, itself.report), ([], None))


if __name__ == '__main__':
    unittest.main(verbosity=2)
