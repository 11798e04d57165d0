"""Programs and DLLs on disk: their identity, their code, and how their functions are unwound."""
import bisect
import dataclasses
import os
import struct
from typing import Iterable, Optional

from crash_reading.modules import Module, debug_id, version_text

MAX_BYTES = 1 << 30
_MAY_RUN = 0x20000000           # a section's flag
_EXCEPTIONS, _DEBUG = 3, 6      # entries of the directory
_CODEVIEW = 2                   # a debug entry's type
_MOST_DEBUG_ENTRIES = 64
_CALL, _JUMP_BY_POINTER = 0xE8, b'\xff\x25'
_FIXED_VERSION = b'\xbd\x04\xef\xfe'

Function = tuple[int, int, int]  # start, end and unwind information, as offsets in the image


@dataclasses.dataclass(frozen=True)
class Section:
    """A part of an image."""
    start: int  # in memory
    size: int
    place: int  # in the file
    length: int
    may_run: bool


class Image:
    """A program or DLL for 64-bit Windows. Raises ValueError for another file."""

    def __init__(self, path: str) -> None:
        self.path = path
        with open(path, 'rb') as file:
            self.data = file.read(MAX_BYTES)
        try:
            self._read_headers()
        except struct.error:
            raise ValueError(f'{path} is no program for 64-bit Windows') from None

    def _read_headers(self) -> None:
        (start,) = struct.unpack_from('<I', self.data, 60)
        if self.data[:2] != b'MZ' or self.data[start:start + 4] != b'PE\0\0':
            raise struct.error
        sections, self.timestamp, optional = struct.unpack_from('<HI8xH', self.data, start + 6)
        header = start + 24
        magic, self.base, self.size, count = struct.unpack_from('<H22xQ24xI48xI', self.data, header)
        if magic != 0x20B:
            raise struct.error
        self.sections = []
        for index in range(sections):
            size, offset, length, place, flags = struct.unpack_from(
                '<IIII12xI', self.data, header + optional + 40 * index + 8)
            self.sections.append(Section(offset, size, place, length, bool(flags & _MAY_RUN)))
        directory = [struct.unpack_from('<II', self.data, header + 112 + 8 * index)
                     for index in range(min(count, 16))]
        self.debug_id = self._read_debug_id(*directory[_DEBUG]) if count > _DEBUG else ''
        self._read_functions(*directory[_EXCEPTIONS] if count > _EXCEPTIONS else (0, 0))
        self.version = self._read_version()

    def bytes_at(self, offset: int, length: int) -> bytes:
        """Bytes by their place in memory; fewer, or none, where the file has no more."""
        for section in self.sections:
            inside = offset - section.start
            if 0 <= inside < section.length:
                length = min(length, section.length - inside)
                return self.data[section.place + inside:section.place + inside + length]
        return b''

    def is_code(self, offset: int) -> bool:
        return any(section.may_run and 0 <= offset - section.start < section.size
                   for section in self.sections)

    def follows_far_call(self, offset: int) -> bool:
        """Whether a call to another image leaves `offset` as its return address: one by a pointer,
        or one of the jumps by a pointer that linkers make for imported functions."""
        before = self.bytes_at(offset - 7, 7) if self.is_code(offset - 7) else b''
        if len(before) < 7:
            return False
        if before[2] == _CALL:
            target = offset + int.from_bytes(before[3:], 'little', signed=True)
            return self.bytes_at(target, 2) == _JUMP_BY_POINTER
        return any(before[-length] == 0xFF and before[1 - length] & 0x38 == 0x10 and
                   length == _indirect_call_length(before[-length:]) for length in (2, 3, 4, 6, 7))

    def _read_debug_id(self, offset: int, size: int) -> str:
        for entry in range(0, min(size, 28 * _MOST_DEBUG_ENTRIES), 28):
            record = self.bytes_at(offset + entry, 28)
            if len(record) < 28:
                break
            kind, length, place = struct.unpack_from('<III', record, 12)
            if kind == _CODEVIEW:
                return debug_id(self.bytes_at(place, min(length, 4096)))
        return ''

    def _read_version(self) -> str:
        found = self.data.find(_FIXED_VERSION)
        if found < 0 or len(self.data) < found + 16:
            return ''
        high, low = struct.unpack_from('<II', self.data, found + 8)
        return version_text(high, low)

    def _read_functions(self, offset: int, size: int) -> None:
        table = self.bytes_at(offset, size)
        self._functions: list[Function] = [
            (start, end, unwind) for start, end, unwind
            in struct.iter_unpack('<III', table[:len(table) // 12 * 12]) if end]
        self._starts = [function[0] for function in self._functions]

    def function_at(self, offset: int) -> Optional[Function]:
        """Start, end and unwind information of the function there; nothing for one that has none,
        which then neither moves the stack pointer nor saves a register."""
        index = bisect.bisect_right(self._starts, offset) - 1
        if index >= 0 and offset < self._functions[index][1]:
            return self._functions[index]
        return None


def _indirect_call_length(code: bytes) -> int:
    """The length of an indirect call that begins with these bytes, FF first."""
    mode, operand = code[1] >> 6, code[1] & 7
    if mode == 3:
        return 2
    length = 2 + (operand == 4) + (1 if mode == 1 else 4 if mode == 2 else 0)
    if mode == 0 and (operand == 5 or (operand == 4 and len(code) > 2 and code[2] & 7 == 5)):
        length += 4
    return length


class Images:
    """The programs and DLLs of a few folders, found by a module's identity. Several builds of one
    module may be there."""

    def __init__(self, folders: Iterable[str]) -> None:
        self.paths: dict[str, list[str]] = {}   # by the name in lower case
        self._images: dict[str, Optional[Image]] = {}  # by path
        self._found: dict[Module, Optional[Image]] = {}
        for folder in folders:
            for entry in sorted(os.scandir(folder), key=lambda entry: entry.name):
                if entry.name.lower().endswith(('.exe', '.dll')) and entry.is_file():
                    self.paths.setdefault(entry.name.lower(), []).append(entry.path)
        for paths in self.paths.values():  # of files that are the same, one with a PDB
            paths.sort(key=lambda path: not os.path.exists(os.path.splitext(path)[0] + '.pdb'))

    def find(self, module: Module) -> Optional[Image]:
        """The very build of `module`, or nothing: a wrong name is worse than none. The identity of
        the PDB decides; without it the image's time stamp and size; without that the size, and of
        several with this size the version."""
        anywhere = dataclasses.replace(module, base=0)
        if anywhere not in self._found:
            self._found[anywhere] = self._find(anywhere)
        return self._found[anywhere]

    def _find(self, module: Module) -> Optional[Image]:
        builds = [image for path in self.paths.get(module.name.lower(), [])
                  if (image := self._image(path)) and image.size == module.size]
        if module.debug_id:
            return next((b for b in builds if b.debug_id == module.debug_id), None)
        if module.timestamp:
            return next((b for b in builds if b.timestamp == module.timestamp), None)
        # A document may show the version of another module, so that it decides nothing by itself.
        if len({(b.timestamp, b.debug_id) for b in builds}) > 1:
            builds = [b for b in builds if b.version == module.version]
        return builds[0] if len({(b.timestamp, b.debug_id) for b in builds}) == 1 else None

    def _image(self, path: str) -> Optional[Image]:
        if path not in self._images:
            try:
                self._images[path] = Image(path)
            except (OSError, ValueError):
                self._images[path] = None
        return self._images[path]
