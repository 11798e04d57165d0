"""The memory dump."""
import dataclasses
import os
import struct
from typing import Any, BinaryIO, Optional

from crash_reading.modules import MAX_MODULES, Module, debug_id, version_text

MAX_STREAMS = 1000  # writers of dumps make some 20
MAX_PARAMETERS = 15
_THREADS, _MODULES, _EXCEPTION, _SYSTEM = 3, 4, 6, 7
_HAS_VERSION = 0xFEEF04BD
_LONGEST_RECORD = 1024  # bytes: a path and a little more

# The registers in the order of the processor's numbers for them, as a saved context holds them.
REGISTERS = ('rax', 'rcx', 'rdx', 'rbx', 'rsp', 'rbp', 'rsi', 'rdi',
             'r8', 'r9', 'r10', 'r11', 'r12', 'r13', 'r14', 'r15', 'rip')
_CONTEXT_FLAGS, _CONTEXT_REGISTERS, _CONTEXT_SIZE = 0x44, 0x78, 1232


@dataclasses.dataclass(frozen=True)
class Memory:
    """A piece of the crashed process's memory."""
    start: int = 0
    data: bytes = b''

    def word(self, address: int) -> Optional[int]:
        """The eight bytes there as a number, or nothing when the dump does not hold them."""
        offset = address - self.start
        if not 0 <= offset <= len(self.data) - 8:
            return None
        return int.from_bytes(self.data[offset:offset + 8], 'little')


class _Input:
    """The one way to the bytes of a dump: nothing outside the file is read, or reserved."""

    def __init__(self, file: BinaryIO) -> None:
        self.file = file
        self.size = os.fstat(file.fileno()).st_size

    def take(self, offset: int, count: int) -> bytes:
        """`count` bytes. ValueError when the file does not hold them."""
        if offset + count > self.size:
            raise ValueError('the dump is cut short')
        self.file.seek(offset)
        data = self.file.read(count)
        if len(data) != count:
            raise ValueError('the dump is cut short')
        return data

    def unpack(self, offset: int, layout: str) -> tuple[Any, ...]:
        """The little-endian numbers of a layout of struct."""
        return struct.unpack('<' + layout, self.take(offset, struct.calcsize('<' + layout)))


class Minidump:
    """The few streams of a memory dump that are needed here: exception, modules, the failing thread
    and the system."""

    def __init__(self, path: str) -> None:
        """Reads a file. ValueError for one that is no dump, is cut short, or announces more than a
        process has."""
        self.thread: Optional[int] = None       # that failed
        self.code: Optional[int] = None         # of the exception
        self.address = 0
        self.parameters: tuple[int, ...] = ()
        self.registers: dict[str, int] = {}     # REGISTERS and `flags`; none without a context
        self.stack = Memory()                   # of the thread that failed
        self.threads = 0                        # how many there were
        self.modules: list[Module] = []
        self.windows = ''                       # its version
        with open(path, 'rb') as file:
            dump = _Input(file)
            streams = self._directory(dump)
            if _EXCEPTION in streams:
                self._read_exception(dump, streams[_EXCEPTION])
            if _MODULES in streams:
                self._read_modules(dump, streams[_MODULES])
            if _THREADS in streams:
                self._read_threads(dump, streams[_THREADS])
            if _SYSTEM in streams:
                self.windows = '{}.{}.{}'.format(*dump.unpack(streams[_SYSTEM] + 8, 'III'))

    @staticmethod
    def _directory(dump: _Input) -> dict[int, int]:
        """Where each kind of stream begins."""
        magic, _, count, directory = dump.unpack(0, '4sIII')
        if magic != b'MDMP':
            raise ValueError('not a memory dump')
        if count > MAX_STREAMS:
            raise ValueError(f'the dump is cut short or announces {count} streams')
        streams: dict[int, int] = {}
        for kind, _, offset in struct.iter_unpack('<III', dump.take(directory, 12 * count)):
            streams.setdefault(kind, offset)
        return streams

    def _read_exception(self, dump: _Input, offset: int) -> None:
        self.thread, _, self.code, _, _, self.address, count, _ = dump.unpack(offset, 'IIIIQQII')
        self.parameters = dump.unpack(offset + 40, f'{min(count, MAX_PARAMETERS)}Q')
        size, context = dump.unpack(offset + 160, 'II')
        if size >= _CONTEXT_SIZE:
            words = dump.unpack(context + _CONTEXT_REGISTERS, f'{len(REGISTERS)}Q')
            self.registers = dict(zip(REGISTERS, words))
            (self.registers['flags'],) = dump.unpack(context + _CONTEXT_FLAGS, 'I')

    def _read_modules(self, dump: _Input, offset: int) -> None:
        (count,) = dump.unpack(offset, 'I')
        if count > MAX_MODULES:
            raise ValueError(f'the dump announces {count} modules')
        names = 0  # bytes; many modules may claim the same long name
        entries = struct.iter_unpack('<QI4xIII4xII36xII24x', dump.take(offset + 4, 108 * count))
        for base, size, timestamp, name, signature, high, low, length, record in entries:
            path = self._text(dump, name)
            names += len(path)
            if names > dump.size:
                raise ValueError('the names of the modules are longer than the dump')
            self.modules.append(Module.at(
                path, base, size, debug_id(dump.take(record, min(length, _LONGEST_RECORD))),
                timestamp, version_text(high, low) if signature == _HAS_VERSION else ''))

    @staticmethod
    def _text(dump: _Input, offset: int) -> str:
        (length,) = dump.unpack(offset, 'I')
        return dump.take(offset + 4, length).decode('utf-16-le', 'replace')

    def _read_threads(self, dump: _Input, offset: int) -> None:
        (self.threads,) = dump.unpack(offset, 'I')
        entries = dump.take(offset + 4, 48 * self.threads)
        for thread, start, size, place in struct.iter_unpack('<I20xQII8x', entries):
            if thread == self.thread:
                self.stack = Memory(start, dump.take(place, size))
                break
