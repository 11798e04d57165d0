"""The memory dump."""
import os
import struct
from typing import Any, BinaryIO, Optional

from crash_reading.modules import MAX_MODULES, Module

MAX_STREAMS = 1000  # writers of dumps make some 20
MAX_PARAMETERS = 15
_MODULES, _EXCEPTION = 4, 6


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
    """The few streams of a memory dump that are needed here: exception and modules."""

    def __init__(self, path: str) -> None:
        """Reads a file. ValueError for one that is no dump, is cut short, or announces more than a
        process has."""
        self.thread: Optional[int] = None       # that failed
        self.code: Optional[int] = None         # of the exception
        self.address = 0
        self.parameters: tuple[int, ...] = ()
        self.modules: list[Module] = []
        with open(path, 'rb') as file:
            dump = _Input(file)
            streams = self._directory(dump)
            if _EXCEPTION in streams:
                self._read_exception(dump, streams[_EXCEPTION])
            if _MODULES in streams:
                self._read_modules(dump, streams[_MODULES])

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

    def _read_modules(self, dump: _Input, offset: int) -> None:
        (count,) = dump.unpack(offset, 'I')
        if count > MAX_MODULES:
            raise ValueError(f'the dump announces {count} modules')
        names = 0  # bytes; many modules may claim the same long name
        entries = struct.iter_unpack('<QIIII84x', dump.take(offset + 4, 108 * count))
        for base, size, _, _, name in entries:
            (length,) = dump.unpack(name, 'I')
            names += length
            if names > dump.size:
                raise ValueError('the names of the modules are longer than the dump')
            text = dump.take(name + 4, length).decode('utf-16-le', 'replace')
            self.modules.append(Module.at(text, base, size))
