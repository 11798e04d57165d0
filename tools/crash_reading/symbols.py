"""Functions, files and lines of addresses."""
import dataclasses
import json
import os
import shutil
import subprocess
from typing import Any, Iterable, Optional

from crash_reading.images import Image, Images
from crash_reading.modules import Module, module_at

SECONDS = 120   # for one run of the symbolizer
_LONGEST_PATH = 64  # parts; those of source files are recorded in PDBs


def program(*names: str) -> Optional[str]:
    """The first of these programs that is installed, or nothing."""
    return next((path for name in names if (path := shutil.which(name))), None)


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
        """Places below `root`, in whatever folder they were built, are shown relative to it."""
        self.root = root
        self.notes: list[str] = []
        self.images = Images(folders)
        self._symbolizer = program('llvm-symbolizer-14', 'llvm-symbolizer')

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
            if image.is_code(offset):
                questions.setdefault(image.path, []).append((frame, image.base + offset))
        for path, asked in questions.items():
            for (frame, _), calls in zip(asked, self.ask(path, [place for _, place in asked])):
                frame.calls = calls
        return frames

    def _image_of(self, module: Module) -> Optional[Image]:
        """The file that `module` was loaded from, or nothing."""
        image = self.images.find(module)
        paths = self.images.paths.get(module.name.lower(), [])
        if not image and paths:
            self.note(f'{module.name} that crashed is another build than {self._shown(paths[0])}: '
                      'no symbols from it')
        return image

    def ask(self, path: str, places: list[int]) -> list[list[Call]]:
        """The calls at some addresses of a program or DLL that is loaded where it likes best."""
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
