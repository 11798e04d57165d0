"""Fuzzes what reads the bytes of strangers in Python: tools/explain, and the example reader of
requests. Each input is a real file (a crash, a request of the test data), mutated. A reader may
refuse it, with its own error and within a bound of time and memory; what it prints must be harmless
to a terminal, and what it makes of a request must be JSON.

    python_readers.py [--seed N] [--count N] [CRASHES]

CRASHES is a folder with documents and dumps of real crashes; without it small ones of the tests are
taken. An input at fault is kept in the current folder under the name that is printed.
"""
import argparse
import importlib.machinery
import json
import os
import pathlib
import random
import resource
import signal
import sys
import tempfile
import types
from typing import Callable, Iterator

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ('tools', 'examples/python_reader',
                                                  'tests/programs')]
import collector_test  # noqa: E402  these are found only now
import explain_test  # noqa: E402
import read_requests  # noqa: E402
from crash_reading.folder import Crash, find_crashes  # noqa: E402
from crash_reading.symbols import Symbols  # noqa: E402
from crash_reading.text import printable  # noqa: E402

SECONDS = 20            # for one input, on a busy machine
MEMORY = 1 << 30        # bytes of address space
NUMBERS = (0, 1, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF)
PIECES = (b'\0', b'\xff', b'%', b'%41', b'"', b'<', b'>', b'\n', b'\x1b[2J', b'&#x1b;', b'z', b'M',
          b'<custom_info>', b'</custom_info>', b'0x', b'\xed\xa0\x80')


def mutated(data: bytes, chance: random.Random) -> bytes:
    """A few changes, of the kinds that tell on lengths, counts, offsets and nesting."""
    out = bytearray(data)
    # Half of the changes go where headers are: in a dump, all but its first kilobytes is stacks.
    for _ in range(chance.choice((1, 1, 2, 4, 16))):
        reach = len(out) if chance.random() < 0.5 else min(len(out), 4096)
        at = chance.randrange(reach + 1)
        end = min(len(out), at + chance.choice((1, 2, 4, 8, 64, 1024)))
        kind = chance.randrange(7)
        if kind == 0 and at < len(out):
            out[at] ^= 1 << chance.randrange(8)
        elif kind == 1:
            size = chance.choice((1, 2, 4))
            number = chance.choice((*NUMBERS, chance.randrange(len(out) + 1)))
            out[at:at + size] = (number & ((1 << 8 * size) - 1)).to_bytes(
                size, 'little' if chance.random() < 0.5 else 'big')
        elif kind == 2:
            del out[at:end]
        elif kind == 3:
            out[at:at] = out[at:end]
        elif kind == 4:
            out[at:at] = chance.choice(PIECES) * chance.choice((1, 1, 2, 300, 20000))
        elif kind == 5:
            source = chance.randrange(len(out) + 1)
            out[at:end] = out[source:source + end - at]
        else:
            del out[chance.randrange(len(out) + 1):]
    return bytes(out)


def load_explain() -> types.ModuleType:
    """The program as a module."""
    loader = importlib.machinery.SourceFileLoader('explain', str(ROOT / 'tools/explain'))
    module = types.ModuleType('explain')
    module.__file__ = loader.path
    loader.exec_module(module)
    return module


def request_check(data: bytes) -> None:
    """A request of any kind."""
    try:
        line = read_requests.json_line(*read_requests.decode(data))
    except read_requests.BadRequest as fault:
        assert '\n' not in str(fault)
        return
    assert isinstance(json.loads(line), dict) and line.isprintable()


def explain_check(folder: str) -> Callable[[str, bytes], None]:
    """A check of a document or a dump, beside an untouched other one or alone. Without lldb: what
    explain itself makes of the bytes is asked here."""
    explain, symbols = load_explain(), Symbols([], str(ROOT))
    os.environ['PATH'] = ''

    def check(kind: str, data: bytes) -> None:
        path = os.path.join(folder, 'mutated')
        pathlib.Path(path).write_bytes(data)
        lines = list(explain.lines_about(Crash('mutated', **{kind: path}), symbols))
        assert lines[0] == 'Crash mutated' and all(printable(line).isprintable() for line in lines)
    return check


def seeds(crashes: str) -> Iterator[tuple[str, bytes]]:
    """(kind, bytes) of the files to start from."""
    for case in collector_test.records('log', 'file', 'crash', 'luadump'):
        request = collector_test.bytes_of(case['request'])
        if len(request) < 100_000:
            yield 'request', request
    if not crashes:
        yield from (('document', explain_test.DOCUMENT), ('dump', explain_test.DUMP))
    for crash in find_crashes(crashes) if crashes else ():
        for kind, path in (('document', crash.document), ('dump', crash.dump)):
            if path:
                yield kind, pathlib.Path(path).read_bytes()


def too_long(*_: object) -> None:
    """A reader is still at it."""
    raise TimeoutError(f'more than {SECONDS} seconds')


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--seed', type=int, default=1)
    parser.add_argument('--count', type=int, default=300, help='inputs for each kind of file')
    parser.add_argument('crashes', nargs='?', default='', metavar='CRASHES')
    options = parser.parse_args()

    files: dict[str, list[bytes]] = {'request': [], 'document': [], 'dump': []}
    for kind, data in seeds(options.crashes):
        files[kind].append(data)
    if not all(files.values()):
        sys.exit(f'python_readers: no whole crash in {options.crashes}')
    signal.signal(signal.SIGALRM, too_long)
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    with tempfile.TemporaryDirectory() as folder:
        check = explain_check(folder)
        for kind, originals in files.items():
            for index in range(options.count):
                chance = random.Random(f'{options.seed} {kind} {index}')
                data = mutated(chance.choice(originals), chance)
                signal.alarm(SECONDS)
                try:
                    if kind == 'request':
                        request_check(data)
                    else:
                        check(kind, data)
                except BaseException:
                    name = f'fault-{kind}-{options.seed}-{index}'
                    pathlib.Path(name).write_bytes(data)
                    print(f'python_readers: a fault by {name}', file=sys.stderr)
                    raise
            signal.alarm(0)
            print(f'{options.count} inputs of the kind {kind}: no faults')
    print('peak memory:', resource.getrusage(resource.RUSAGE_SELF).ru_maxrss >> 10, 'MiB')


if __name__ == '__main__':
    main()
