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
import xml.etree.ElementTree as ElementTree
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

WINE, HOST = sys.argv.pop(1), Path(sys.argv.pop(1))
SECONDS = 240  # for one crash on a busy machine

# way | code, whose low byte is the exit status | name | attribute with the address, its value | where:
# in the crashing function unless said otherwise. The test of the settings crashes by reading.
WAYS = '''
write=@thread     | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr | 0x00000020 |
execute           | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr | 0x00000030 | 0x30
divide            | 0xC0000094 | EXCEPTION_INT_DIVIDE_BY_ZERO  |            |            |
illegal           | 0xC000001D | EXCEPTION_ILLEGAL_INSTRUCTION |            |            |
breakpoint        | 0x80000003 | EXCEPTION_BREAKPOINT          |            |            |
little-stack=40   | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr | 0x00000010 |
raise=0xE06D7363  | 0xE06D7363 | Microsoft C++ Exception       |            |            | raise
throw=@thread     | 0x20474343 | UNKNOWN_EXCEPTION             |            |            | raise
'''


def windows(path):
    return 'Z:' + str(path).replace('/', '\\')


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

    def debugger(self):
        """What lldb says of the dump's current thread: [thread, exception code, address]."""
        text = subprocess.run(
            ['lldb', '--no-lldbinit', '--batch', '--core', self.seen['Crash.dmp'],
             '--one-line', 'thread list'], capture_output=True, text=True, timeout=SECONDS).stdout
        found = re.search(r'^\* thread .*: tid = (\w+), .*'
                          r'stop reason = Exception (\w+) encountered at address (\w+)', text, re.M)
        return [int(word, 16) for word in found.groups()] if found else text


class SequenceTest(unittest.TestCase):
    maxDiff = None

    def crash(self, commands, **options):
        folder = tempfile.TemporaryDirectory(prefix='a crash & more ')
        self.addCleanup(folder.cleanup)
        return Crash(folder.name, commands, **options)

    def check_way(self, crash, code, name, attribute, value, where):
        self.assertEqual(crash.status, code & 0xFF)
        self.assertEqual(crash.left, [], 'the files are deleted unless the host says otherwise')
        document = ElementTree.fromstring(crash.document())
        self.assertIsNone(document.find('custom_info'))
        exception = dict(document.find('crash_info/exception').attrib)
        stack = [dict(entry.attrib) for entry in document.find('crash_info/call_stack')]
        address = int(exception.pop('addr'), 16)
        module = exception.pop('module', None)
        self.assertEqual(exception, {'type': name, **({attribute: value} if attribute else {})})
        self.assertIn(f' exceptionAddr=0x{address:08X} ', crash.report)
        *seen, seen_address = crash.debugger()
        self.assertEqual([*seen, seen_address & 0xFFFFFFFF],
                         [int(crash.words['thread'], 16), code, address])
        if where == '0x30':
            self.assertEqual((address, module, stack), (0x30, None, []))
            return
        self.assertEqual(stack[0], {'addr': f'0x{address:08X}', 'module': module})
        if where == 'raise':
            self.assertEqual(module, 'kernelbase.dll')
            return
        self.assertIn(address, crash.range('crash'))
        self.assertGreaterEqual(len(stack), 3)
        for entry, function in zip(stack[1:], ('caller', 'starter')):
            self.assertIn(int(entry['addr'], 16), crash.range(function))
            self.assertEqual(list(entry), ['addr', 'params', 'module'])
            self.assertEqual((entry['module'], module), ('crash_program.exe',) * 2)
            self.assertRegex(entry['params'], '^([0-9a-f]{1,8}, ){4}[0-9a-f]{1,8}$')

    def test_ways(self):
        ways = [[cell.strip() for cell in line.split('|')] for line in WAYS.strip().splitlines()]
        with ThreadPoolExecutor(2) as pool:
            crashes = list(pool.map(
                lambda way: self.crash(f'create|start|throw-when-asked|{way[0]}', without=''),
                ways))
        for (way, code, *rest), crash in zip(ways, crashes):
            with self.subTest(way):
                self.check_way(crash, int(code, 16), *rest)

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
        raw = crash.document()
        self.assertTrue(raw.startswith(
            '<TAVUCrashInfo>\n\t<custom_info>asked & <4095> \u00e9</custom_info>\n'.encode()))
        self.assertNotIn(b'\r', raw)
        document = ElementTree.fromstring(re.sub(b'<custom_info>.*\n', b'', raw))
        exception = document.find('crash_info/exception').attrib
        program = '"' + windows(crash.reporter) + '\\TAVU_CrashReporter.exe" '
        files = windows(crash.temp).replace(' ', '%20') + '\\\\' + base
        self.assertEqual(crash.report, (
            f'{program}exceptionInfoFilename={files}_CrashInfo.xml dumpFilename={files}_Crash.dmp '
            f'exceptionAddr={exception["addr"]} userId=a%20b%25c softwareVer=1.0.3 '
            'softwareId=crash-program serverAddr=report.example:65535 aotoReport=true '
            'appShowName=The%20"Crash"%20Program appExeFile=crash_program reportLang=7 '))
        # The host did not wait for this second reporter, which waits for the host.
        restart, deadline = crash.reporter / 'restart.txt', time.monotonic() + SECONDS
        while not (restart.exists() and restart.stat().st_size) and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertEqual(restart.read_text(), (
            f'{program}appRestart=true appExecuteCmd=game.exe%20-x%20"y%20z" '
            f'appPid={crash.words["process"]} '))

        self.assertEqual([section.tag for section in document],
                         ['system_info', 'crash_info', 'module_list'])
        self.assertEqual(list(exception), ['addr', 'read_addr', 'type', 'module'])
        self.assertEqual(exception['read_addr'], '0x00000010')
        processor, memory, system = document.find('system_info')
        self.assertEqual(list(processor.attrib), ['count', 'type', 'speed'])
        self.assertEqual(processor.get('count'), str(os.cpu_count()))
        self.assertEqual(processor.get('type'), '8664')
        self.assertEqual(list(memory.attrib), ['physical', 'physical_free', 'virtual',
                                               'virtual_free', 'paging_file', 'paging_file_free'])
        self.assertTrue(all(int(value) < 2**32 for value in memory.attrib.values()))
        self.assertRegex(system.get('version'), r'^\d+\.\d+\.\d+\.2,')
        modules = {module.get('name'): module.attrib for module in document.find('module_list')}
        for name in ('crash_program.exe', 'TAVU.dll'):
            module, file = modules[name], (crash.host / name).stat()
            self.assertEqual(list(module), ['name', 'path', 'file_size', 'base_addr', 'base_size',
                                            'file_ver', 'prod_ver', 'list_modified'])
            self.assertEqual(
                (module['path'], module['file_size'], module['list_modified']),
                (windows(crash.host / name), str(file.st_size),
                 time.strftime('%Y-%m-%d %H:%M:%S', time.gmtime(file.st_mtime))))
        self.assertEqual(int(modules['crash_program.exe']['base_addr'], 16),
                         int(crash.words['base'], 16) & 0xFFFFFFFF)
        self.assertEqual(modules['TAVU.dll']['file_ver'], '1.0.0.0')

    def test_without_the_libraries_for_versions_and_dumps(self):
        crash = self.crash('create|start|read', without='version,dbghelp')
        self.assertIn(' exceptionAddr=', crash.report, 'the reporter starts all the same')
        self.assertEqual(crash.seen, {})

    def test_who_reports(self):
        cases = (  # commands | results | whether the crash is reported
            ('create|start|start|create|start|stop|info=stored & <raw>|destroy',
             ['1 0', '0 102', '1 102', '0 102', '0 102', '1 102', '1 102'], True),
            ('create|guarded|start|guarded|stop|guarded|start|destroy',
             ['0 0', '1 0', '1 0', '1 0', '0 0', '1 0', '1 0'], False),
            ('create|start|reporter=C:\\nowhere|restart=x', ['1 0'] * 3, False),
        )
        for commands, results, reported in cases:
            with self.subTest(commands):
                crash = self.crash(commands + '|read')
                self.assertEqual([line.split(' = ')[1] for line in crash.lines[2:]][
                    :len(results)], results)
                self.assertEqual((crash.report is not None, crash.status, crash.left),
                                 (reported, 5, []))
                if reported:  # without the library for dumps
                    self.assertEqual(list(crash.seen), ['CrashInfo.xml'])
                    self.assertIn(b'<custom_info>stored & <raw></custom_info>', crash.document())

    def expect_no_evidence(self, host, temp):
        """Once the host has begun to crash: it goes on waiting, and leaves nothing so far."""
        while not host.stdout.readline().startswith('thread = '):
            pass
        time.sleep(2)
        self.assertEqual((host.poll(), os.listdir(temp)), (None, []))

    def test_crash_while_another_thread_is_inside_an_export(self):
        def hold_the_export(host, temp):
            connection, _ = server.accept()  # the export now waits for an answer
            with connection:
                host.stdin.write('\n')
                host.stdin.flush()
                self.expect_no_evidence(host, temp)

        with socket.create_server(('127.0.0.1', 0)) as server:
            port = server.getsockname()[1]
            crash = self.crash(f'create|start|keep|server=127.0.0.1:{port}|send|wait|read',
                               meanwhile=hold_the_export)
        self.assertEqual(crash.status, 5)
        self.assertIsNotNone(crash.report)

    def test_crash_inside_an_export_never_ends(self):
        def expect_silence(host, temp):
            self.expect_no_evidence(host, temp)
            host.kill()

        crash = self.crash('create|start|inside-export', meanwhile=expect_silence)
        self.assertEqual((crash.left, crash.report), ([], None))


if __name__ == '__main__':
    unittest.main(verbosity=2)
