"""What lldb makes of a memory dump."""
import dataclasses
import os
import re
import subprocess
import tempfile
from typing import Iterable

from crash_reading.symbols import program

SECONDS = 120       # for one dump
MAX_FRAMES = 256

# No command holds a name from outside: lldb's quotes do not keep it from evaluating what stands
# between backticks. The dump and the modules get to it by links in its working folder.
_COMMANDS = (
    'settings set frame-format "FRAME ${frame.pc}\\n"',
    'settings set thread-format "THREAD ${thread.id%tid}\\n"',
    'settings append target.exec-search-paths modules',
    'target create --core crash.dmp',
    'thread list',
    f'thread backtrace --count {MAX_FRAMES}',
)


@dataclasses.dataclass
class Unwound:
    """The call stack of the failing thread; or why there is none."""
    addresses: list[int] = dataclasses.field(default_factory=list)  # innermost first
    threads: int = 0
    fault: str = ''


def unwind(dump: str, modules: Iterable[str]) -> Unwound:
    """Unwinds a dump, given the paths of programs and DLLs."""
    lldb = program('lldb-14', 'lldb')
    if not lldb:
        return Unwound(fault='lldb is missing: the dump was not unwound')
    with tempfile.TemporaryDirectory() as folder:
        os.symlink(os.path.abspath(dump), os.path.join(folder, 'crash.dmp'))
        # The modules without their PDBs: lldb 14 needs only the former to unwind, and dies of some
        # of the latter.
        os.mkdir(os.path.join(folder, 'modules'))
        for path in modules:
            link = os.path.join(folder, 'modules', os.path.basename(path))
            if not os.path.lexists(link):  # one file may go by two names, or lie in two folders
                os.symlink(os.path.abspath(path), link)
        arguments = [lldb, '--batch', '--no-lldbinit']
        for command in _COMMANDS:
            arguments += ['-o', command]
        try:
            output = subprocess.run(arguments, cwd=folder, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                    encoding='utf-8', errors='replace', check=False,
                                    timeout=SECONDS).stdout
        except subprocess.TimeoutExpired:
            return Unwound(fault=f'lldb did not unwind {dump} within {SECONDS} seconds')
    addresses = [int(pc, 16) for pc in re.findall(r'^.*FRAME 0x([0-9a-f]{1,16})$', output, re.M)]
    if not addresses:
        return Unwound(fault=f'lldb could not unwind {dump}')
    return Unwound(addresses[:MAX_FRAMES], len(set(re.findall(r'THREAD (\S+)', output))))
