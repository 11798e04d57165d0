"""Lets a host crash in many ways, each in a process of its own, and checks what it leaves: exit
status, files, document, dump (as lldb reads it), and what the reporter was told.

usage: sequence_test.py WINE HOST-FOLDER
"""
import os
import re
import shutil
import socket
import struct
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

WINE, HOST = sys.argv[1], Path(sys.argv[2])
OWN_REPORTER = HOST / 'a folder & more'  # a reporter that is not beside the host
TEMP = HOST / 'temp'
SECONDS = 240  # for one crash on a busy machine


def windows(path):
    return 'Z:' + str(path).replace('/', '\\')


class Outcome:
    """One run of the host: its exit status and words, the files left behind, the report.

    Without a dump, for which Wine takes seconds, unless it is asked for by without=''.
    """

    def __init__(self, commands, meanwhile=None, reporter=HOST, without='dbghelp'):
        for folder in (HOST, OWN_REPORTER):
            for name in ('report.txt', 'restart.txt', 'document.xml', 'dump.dmp'):
                (folder / name).unlink(missing_ok=True)
        shutil.rmtree(TEMP, ignore_errors=True)
        TEMP.mkdir()
        self.folder = reporter
        host = subprocess.Popen(
            [WINE, HOST / 'crash_program.exe', 'temp=' + windows(TEMP)] + commands.split('|'),
            env={**os.environ, 'WINEDLLOVERRIDES': f'mscoree,mshtml,{without}='},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        try:
            if meanwhile:
                meanwhile(host)
            output, _ = host.communicate(timeout=SECONDS)
        finally:
            host.kill()
        self.status = host.returncode
        self.lines = output.splitlines()
        self.words = dict(line.split(' = ', 1) for line in self.lines if ' = ' in line)
        self.left = sorted(os.listdir(TEMP))

    def report(self):
        path = self.folder / 'report.txt'
        return path.read_text('utf-8') if path.exists() else None

    def document(self):
        return ElementTree.fromstring((self.folder / 'document.xml').read_bytes())

    def range(self, name):
        begin, end = (int(word, 16) & 0xFFFFFFFF for word in self.words[name].split())
        return range(begin, end)

    def debugger(self):
        """What lldb says of the dump's current thread: (thread, exception code, address)."""
        text = subprocess.run(
            ['lldb', '--no-lldbinit', '--batch', '--core', self.folder / 'dump.dmp',
             '--one-line', 'thread list'], capture_output=True, text=True, timeout=SECONDS).stdout
        found = re.search(r'^\* thread .*: tid = (\w+), .*'
                          r'stop reason = Exception (\w+) encountered at address (\w+)', text, re.M)
        return tuple(int(word, 16) for word in found.groups()) if found else text


# way | code, whose low byte is the exit status | name | attribute with the address, its value | where:
# in the crashing function unless said otherwise
WAYS = '''
read              | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | read_addr  | 0x00000010 |
write             | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr | 0x00000020 |
execute           | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr | 0x00000030 | 0x30
divide            | 0xC0000094 | EXCEPTION_INT_DIVIDE_BY_ZERO  |            |            |
illegal           | 0xC000001D | EXCEPTION_ILLEGAL_INSTRUCTION |            |            |
breakpoint        | 0x80000003 | EXCEPTION_BREAKPOINT          |            |            |
read@thread       | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | read_addr  | 0x00000010 |
little-stack:40   | 0xC0000005 | EXCEPTION_ACCESS_VIOLATION    | write_addr | 0x00000010 |
raise:0xC0000026  | 0xC0000026 | EXCEPTION_INVALID_DISPOSITION |            |            | raise
raise:0xE0000042  | 0xE0000042 | UNKNOWN_EXCEPTION             |            |            | raise
raise:0xE06D7363  | 0xE06D7363 | Microsoft C++ Exception       |            |            | raise
throw@thread      | 0x20474343 | UNKNOWN_EXCEPTION             |            |            | raise
'''


class SequenceTest(unittest.TestCase):
    maxDiff = None

    def check_way(self, way, code, name, attribute, value, where):
        crash = Outcome(f'create|start|throw-when-asked|crash={way}', without='')
        self.assertEqual(crash.status, code & 0xFF)
        self.assertEqual(crash.left, [], 'the files are deleted unless the host says otherwise')
        document = crash.document()
        self.assertIsNone(document.find('custom_info'))
        exception = dict(document.find('crash_info/exception').attrib)
        stack = [dict(entry.attrib) for entry in document.find('crash_info/call_stack')]
        address = int(exception.pop('addr'), 16)
        module = exception.pop('module', None)
        self.assertEqual(exception, {'type': name, **({attribute: value} if attribute else {})})
        self.assertEqual(crash.report().split(' exceptionAddr=')[1][:10], f'0x{address:08X}')
        thread, seen_code, seen_address = crash.debugger()
        self.assertEqual(thread, int(crash.words['thread'], 16))
        self.assertEqual((seen_code, seen_address & 0xFFFFFFFF), (code, address))
        if where == '0x30':
            self.assertEqual((address, module, stack), (0x30, None, []))
            return
        self.assertEqual(stack[0], {'addr': f'0x{address:08X}', 'module': module})
        if where == 'raise':
            self.assertEqual(module, 'kernelbase.dll')
            return
        self.assertEqual(module, 'crash_program.exe')
        self.assertIn(address, crash.range('crash'))
        self.assertGreaterEqual(len(stack), 3)
        for entry, function in zip(stack[1:], ('caller', 'starter')):
            self.assertIn(int(entry['addr'], 16), crash.range(function))
            self.assertEqual(list(entry), ['addr', 'params', 'module'])
            self.assertEqual(entry['module'], 'crash_program.exe')
            self.assertRegex(entry['params'], '^([0-9a-f]{1,8}, ){4}[0-9a-f]{1,8}$')

    def test_ways(self):
        for line in WAYS.strip().splitlines():
            way, code, *rest = (cell.strip() for cell in line.split('|'))
            with self.subTest(way):
                self.check_way(way, int(code, 16), *rest)

    def test_what_does_not_reach_the_filter(self):
        for way in ('abort', 'throw', 'fast-fail'):
            with self.subTest(way):
                crash = Outcome(f'create|start|crash={way}')
                self.assertNotEqual(crash.status, 0)
                self.assertIsNone(crash.report())
        with self.subTest('crash of the callback'):
            crash = Outcome('create|start|crash-when-asked|crash=divide')
            self.assertEqual((crash.status, crash.report(), crash.left), (5, None, []))

    def test_settings_names_and_command_lines(self):
        """All settings are made after the start, and all count."""
        crash = Outcome('create|start|user=a b%c|server=report.example:65535|keep|auto|lang=7|'
                        f'restart=game.exe -x "y z"|reporter={windows(OWN_REPORTER)}|'
                        'info=stored & <raw>|crash=read', reporter=OWN_REPORTER, without='')
        self.assertEqual(len(crash.left), 2)
        base = re.fullmatch(r'(crash_program_\d{14})_Crash.dmp', crash.left[0]).group(1)
        self.assertEqual(crash.left[1], base + '_CrashInfo.xml')
        raw = (TEMP / crash.left[1]).read_bytes()
        self.assertEqual(raw, (OWN_REPORTER / 'document.xml').read_bytes(), 'incomplete when read')
        self.assertEqual((TEMP / crash.left[0]).read_bytes(),
                         (OWN_REPORTER / 'dump.dmp').read_bytes(), 'incomplete when read')
        self.assertTrue(raw.startswith(
            b'<TAVUCrashInfo>\n\t<custom_info>stored & <raw></custom_info>\n\t<system_info>\n'))
        self.assertNotIn(b'\r', raw)
        program = '"' + windows(OWN_REPORTER) + '\\TAVU_CrashReporter.exe" '
        files = windows(TEMP).replace(' ', '%20') + '\\\\' + base
        address = re.search(rb'<exception addr="(0x\w{8})"', raw).group(1).decode()
        self.assertEqual(crash.report(), (
            f'{program}exceptionInfoFilename={files}_CrashInfo.xml dumpFilename={files}_Crash.dmp '
            f'exceptionAddr={address} userId=a%20b%25c softwareVer=1.0.3 softwareId=crash-program '
            'serverAddr=report.example:65535 aotoReport=true appShowName=The%20"Crash"%20Program '
            'appExeFile=crash_program reportLang=7 '))
        # The host did not wait for this second reporter, which waits for the host.
        restart = OWN_REPORTER / 'restart.txt'
        deadline = time.monotonic() + SECONDS
        while not (restart.exists() and restart.stat().st_size) and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertEqual(restart.read_text(), (
            f'{program}appRestart=true appExecuteCmd=game.exe%20-x%20"y%20z" '
            f'appPid={crash.words["process"]} '))

    def test_missing_system_libraries(self):
        for library, missing in (('version', 'document.xml'), ('dbghelp', 'dump.dmp')):
            with self.subTest(library):
                crash = Outcome('create|start|crash=read', without=library)
                self.assertIsNotNone(crash.report(), 'the reporter starts all the same')
                for name in ('document.xml', 'dump.dmp'):
                    self.assertEqual((HOST / name).exists(), name != missing)

    def test_document(self):
        crash = Outcome('create|start|ask|info=not used|keep|crash=read')
        raw = (HOST / 'document.xml').read_bytes()
        self.assertIn('\t<custom_info>asked & <4095> \u00e9</custom_info>\n'.encode(), raw)
        document = ElementTree.fromstring(re.sub(b'<custom_info>.*\n', b'', raw))
        self.assertEqual([section.tag for section in document],
                         ['system_info', 'crash_info', 'module_list'])
        processor, memory, system = document.find('system_info')
        self.assertEqual(list(processor.attrib), ['count', 'type', 'speed'])
        self.assertEqual(processor.get('count'), str(os.cpu_count()))
        self.assertEqual(processor.get('type'), '8664')
        self.assertEqual(list(memory.attrib), ['physical', 'physical_free', 'virtual',
                                               'virtual_free', 'paging_file', 'paging_file_free'])
        self.assertTrue(all(int(value) < 2**32 for value in memory.attrib.values()))
        self.assertRegex(system.get('version'), r'^\d+\.\d+\.\d+\.2,')
        modules = {module.get('name'): module for module in document.find('module_list')}
        for name in ('crash_program.exe', 'TAVU.dll'):
            module, path = modules[name], HOST / name
            written = time.gmtime(path.stat().st_mtime)
            self.assertEqual(list(module.attrib), ['name', 'path', 'file_size', 'base_addr',
                                                   'base_size', 'file_ver', 'prod_ver',
                                                   'list_modified'])
            self.assertEqual(module.get('path'), windows(path))
            self.assertEqual(module.get('file_size'), str(path.stat().st_size))
            self.assertEqual(module.get('list_modified'),
                             time.strftime('%Y-%m-%d %H:%M:%S', written))
        self.assertEqual(int(modules['crash_program.exe'].get('base_addr'), 16),
                         int(crash.words['base'], 16) & 0xFFFFFFFF)
        self.assertEqual(modules['TAVU.dll'].get('file_ver'), '1.0.0.0')

    def test_who_reports(self):
        cases = (  # commands | whether the crash is reported | results
            ('create|start|stop', False, {'start': '1 0', 'stop': '1 0'}),
            ('create|start|destroy', False, {'destroy': '1 0'}),
            ('create|start|create|destroy', True, {'destroy': '1 0'}),
            ('create|start|create|stop', True, {'stop': '0 0'}),
            ('create|start|start', True, {'start': '0 102'}),
            ('create|start|create|start', True, {'start': '0 102'}),
            ('no-filter|create|start|stop|destroy', False, {'stop': '0 0', 'destroy': '1 0'}),
            ('create|start|stop|start', True, {'start': '1 0'}),
            ('create|start|reporter=C:\\nowhere|restart=x', False, {}),
        )
        for commands, reported, results in cases:
            with self.subTest(commands):
                crash = Outcome(commands + '|crash=read')
                self.assertEqual({name: crash.words[name] for name in results}, results)
                self.assertEqual(crash.report() is not None, reported)
                self.assertEqual((crash.status, crash.left), (5, []))

    def test_guard_of_the_shipped_library(self):
        def entry(commands):
            words = Outcome(commands + '|entry').words
            return words['bytes'], int(words['at'], 16), int(words['library'], 16)

        patched, at, library = entry('create|start')
        self.assertEqual(patched[:2], 'e9')
        displacement, = struct.unpack('<I', bytes.fromhex(patched[2:10]))
        offset = (at + 5 + displacement - library) & 0xFFFFFFFF
        self.assertLess(offset, (HOST / 'TAVU.dll').stat().st_size + 0x10000)
        self.assertEqual(entry('create|start|stop')[0], entry('create')[0])

    def test_crash_while_another_thread_is_inside_an_export(self):
        with socket.create_server(('127.0.0.1', 0)) as server:
            port = server.getsockname()[1]

            def hold_the_export(host):
                connection, _ = server.accept()  # the export now waits for an answer
                host.stdin.write('\n')
                host.stdin.flush()
                while not host.stdout.readline().startswith('thread = '):
                    pass
                time.sleep(1)
                self.assertEqual(os.listdir(TEMP), [], 'the filter did not wait for the export')
                connection.close()

            crash = Outcome(f'create|start|server=127.0.0.1:{port}|send|wait|crash=read',
                            meanwhile=hold_the_export)
        self.assertEqual(crash.status, 5)
        self.assertIsNotNone(crash.report())

    def test_crash_inside_an_export_never_ends(self):
        def expect_silence(host):
            while not host.stdout.readline().startswith('thread = '):
                pass
            time.sleep(3)
            self.assertIsNone(host.poll())
            host.kill()

        crash = Outcome('create|start|crash=inside-export', meanwhile=expect_silence)
        self.assertEqual((crash.left, crash.report()), ([], None))


if __name__ == '__main__':
    OWN_REPORTER.mkdir(exist_ok=True)
    shutil.copy(HOST / 'TAVU_CrashReporter.exe', OWN_REPORTER)
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
