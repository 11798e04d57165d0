"""Functions, files and lines of addresses."""
import dataclasses
import json
import os
import shutil
import struct
import subprocess
from typing import Any, Iterable, Optional

from crash_reading.modules import Module, module_at

SECONDS = 120   # for one run of the symbolizer
_MAY_RUN = 0x20000000
_LONGEST_PATH = 64  # parts; those of source files are recorded in PDBs


def program(*names: str) -> Optional[str]:
    """The first of these programs that is installed, or nothing."""
    return next((path for name in names if (path := shutil.which(name))), None)


class Image:
    """What the headers of a program or DLL tell. The size is 0 for a file that is neither."""

    def __init__(self, path: str) -> None:
        self.path, self.base, self.size = path, 0, 0
        self.code: list[range] = []
        with open(path, 'rb') as file:
            header = file.read(4096)
        try:
            (start,) = struct.unpack_from('<I', header, 60)
            sections, optional = struct.unpack_from('<H12xH', header, start + 6)
            base, = struct.unpack_from('<Q', header, start + 24 + 24)
            size, = struct.unpack_from('<I', header, start + 24 + 56)
            for index in range(sections):
                place = start + 24 + optional + 40 * index
                length, offset = struct.unpack_from('<II', header, place + 8)
                (flags,) = struct.unpack_from('<I', header, place + 36)
                if flags & _MAY_RUN:
                    self.code.append(range(offset, offset + length))
        except struct.error:
            return
        self.base, self.size = base, size


@dataclasses.dataclass(frozen=True)
class Call:
    """A function, and the file and line that it had reached, or an empty text."""
    function: str
    place: str


@dataclasses.dataclass
class Frame:
    """An address on a call stack. More than one call: all but the last were inlined."""
    address: int
    module: Optional[Module]
    calls: list[Call]


class Symbols:
    """Names functions, files and lines, from the modules and PDBs in a few folders. What it had to
    leave out it tells in `notes`."""

    def __init__(self, folders: Iterable[str], root: str) -> None:
        """Of the folders the first that has a module holds. Places below `root`, in whatever folder
        they were built, are shown relative to it."""
        self.root = root
        self.notes: list[str] = []
        self.files: dict[str, str] = {}         # path by the module's name in lower case
        self._images: dict[str, Image] = {}     # by path
        self._symbolizer = program('llvm-symbolizer-14', 'llvm-symbolizer')
        for folder in folders:
            for entry in sorted(os.scandir(folder), key=lambda entry: entry.name):
                if entry.name.lower().endswith(('.exe', '.dll')) and entry.is_file():
                    self.files.setdefault(entry.name.lower(), entry.path)

    def note(self, text: str) -> None:
        """Adds a note that is not there yet."""
        if text not in self.notes:
            self.notes.append(text)

    def describe(self, addresses: list[int], modules: list[Module]) -> list[Frame]:
        """The frames of a call stack, innermost first, whose first address is where it happened and
        whose others are return addresses."""
        frames = [Frame(address, module_at(address, modules), []) for address in addresses]
        questions: dict[str, list[tuple[Frame, int]]] = {}
        for index, frame in enumerate(frames):
            image = self._image_of(frame.module) if frame.module else None
            if not frame.module or not image:
                continue
            offset = frame.module.offset_of(frame.address) or 0
            # A return address may be the first of another line, or of another function.
            offset -= 1 if index else 0
            # The frame pointers of a document may lead to where no code is.
            if any(offset in section for section in image.code):
                questions.setdefault(image.path, []).append((frame, image.base + offset))
        for path, asked in questions.items():
            for (frame, _), calls in zip(asked, self._ask(path, [place for _, place in asked])):
                frame.calls = calls
        return frames

    def _image_of(self, module: Module) -> Optional[Image]:
        """The file that `module` was loaded from, or nothing."""
        path = self.files.get(module.name.lower())
        if not path:
            return None
        if path not in self._images:
            try:
                self._images[path] = Image(path)
            except OSError as fault:
                self.note(f'{path}: {fault.strerror}')
                return None
        if self._images[path].size != module.size:
            self.note(f'{module.name} that crashed is another build than {self._shown(path)}: '
                      'no symbols from it')
            return None
        return self._images[path]

    def _ask(self, path: str, places: list[int]) -> list[list[Call]]:
        if not self._symbolizer:
            self.note('llvm-symbolizer is missing: no functions, files and lines')
            return []
        try:
            # The file as an argument: among the questions its name would be read as one.
            answer = subprocess.run(
                [self._symbolizer, f'--obj={path}', '--output-style=JSON'],
                input=''.join(f'0x{place:X}\n' for place in places), stdout=subprocess.PIPE,
                stderr=subprocess.DEVNULL, encoding='utf-8', errors='replace', check=False,
                timeout=SECONDS)
            return [[self._call(symbol) for symbol in json.loads(line).get('Symbol', [])
                     if symbol['FunctionName']] for line in answer.stdout.splitlines()]
        except (subprocess.TimeoutExpired, ValueError, KeyError):
            self.note(f'llvm-symbolizer cannot read the symbols of {self._shown(path)}')
            return []

    def _call(self, symbol: dict[str, Any]) -> Call:
        line = symbol['Line']
        return Call(symbol['FunctionName'],
                    f"{self._shown(symbol['FileName'])}:{line}" if line else '')

    def _shown(self, path: str) -> str:
        path = os.path.normpath(path)
        parts = path.split(os.sep)
        for start in range(1, min(len(parts) - 1, _LONGEST_PATH)):
            relative = os.path.join(*parts[start:])
            if os.path.exists(os.path.join(self.root, relative)):
                return relative
        return path
