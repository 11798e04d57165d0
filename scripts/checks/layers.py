#!/usr/bin/env python3
"""Checks that includes follow the layers: scripts/checks/layers.py

1. A file includes only files of its own target and of the targets that its CMakeLists.txt links,
   directly or through another. That holds for src/, programs/ and examples/; tests may look
   everywhere.
2. The layers of src/ link downwards only, in the order of LAYERS. crash and delivery stand side by
   side, so neither may link the other.
3. The portable layers see no Windows header, not even through a header of another layer.

Prints one line for each offence and ends with 1, or prints nothing and ends with 0.
"""
import re
import subprocess
import sys
from pathlib import Path
from typing import Iterator, Optional

ROOT = Path(__file__).resolve().parents[2]

# Folder, target and height of each layer. Layers of one height do not know each other.
LAYERS = {
    'src/base': ('tavu_base', 0),
    'src/lumo': ('tavu_lumo', 1),
    'src/delivery/record': ('tavu_delivery_record', 1),
    'src/net/wire': ('tavu_net_wire', 2),
    'src/net/client': ('tavu_net_client', 3),
    'src/api/frame': ('tavu_api_frame', 4),
    'src/crash': ('tavu_crash', 5),
    'src/delivery': ('tavu_delivery', 5),
    'src/api/exports': ('tavu_exports', 6),
}
PORTABLE = ('src/lumo', 'src/net/wire', 'src/delivery/record')
PUBLIC_HEADER = 'include/tavu/tavu.h'  # for the frame, what stands on it, and those who link the DLL

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.M)
WINDOWS_HEADER = re.compile(
    r'(win\w*|ws2\w*|mswsock|tlhelp32|dbghelp|psapi|shl\w*|shell\w*|process|io|direct|intrin)\.h$', re.I)
WINDOWS_ONLY = re.compile(r'_windows\.(cc|h)$')
LINK = re.compile(r'target_link_libraries\(\s*(\w+|\$\{\w+\})([^)]*)\)')
TARGET = re.compile(r'add_(?:library|executable)\(\s*(\w+)')


def tracked(*patterns: str) -> list[str]:
    listed = subprocess.run(['git', 'ls-files', '-z', '--', *patterns], cwd=ROOT, check=True,
                            capture_output=True, text=True)
    return [name for name in listed.stdout.split('\0') if name]


def includes(path: str) -> Iterator[tuple[int, bool, str]]:
    """Line, whether it is in quotation marks, and name of each include of a file."""
    text = (ROOT / path).read_text(encoding='utf-8')
    for match in INCLUDE.finditer(text):
        yield text.count('\n', 0, match.start(2)) + 1, match[1] == '"', match[2]


def resolve(includer: str, name: str) -> Optional[str]:
    """The project's file that an include means, if it is one of the project's."""
    for folder in (str(Path(includer).parent), 'src', 'include', 'programs'):
        candidate = f'{folder}/{name}'
        if (ROOT / candidate).is_file():
            return candidate
    return None


class Targets:
    """What the build declares: the targets of each folder, and what each of them links."""

    def __init__(self) -> None:
        self.links: dict[str, set[str]] = {}
        self.of_folder: dict[str, set[str]] = {folder: {name} for folder, (name, _) in LAYERS.items()}
        for path in tracked('src/*CMakeLists.txt', 'programs/*CMakeLists.txt',
                            'examples/*CMakeLists.txt'):
            text = re.sub(r'#.*', '', (ROOT / path).read_text(encoding='utf-8'))
            for match in LINK.finditer(text):
                names = set(match[2].split()) - {'PUBLIC', 'PRIVATE', 'INTERFACE'}
                self.links.setdefault(match[1], set()).update(names)
            if not path.startswith('src/'):
                # A function of the file may make the targets, so the folder stands for all of them.
                folder = str(Path(path).parent)
                self.of_folder[folder] = {folder, *TARGET.findall(text)}
                self.links[folder] = {name for match in LINK.finditer(text) for name in match[2].split()}

    def reachable(self, folder: str) -> set[str]:
        """The targets of a folder and all that they link. The DLL hides what it is made of."""
        found, pending = set(), set(self.of_folder[folder])
        while pending:
            target = pending.pop()
            found.add(target)
            if target != 'TAVU':
                pending |= self.links.get(target, set()) - found
        return found

    def folder(self, path: str) -> Optional[str]:
        """The folder with targets that a file belongs to: the innermost one."""
        inside = [folder for folder in self.of_folder if path.startswith(folder + '/')]
        return max(inside, key=len) if inside else None


def upward_links(targets: Targets) -> Iterator[str]:
    height = dict(LAYERS.values())
    for folder, (target, own) in LAYERS.items():
        for linked in sorted(targets.links.get(target, set())):
            if height.get(linked, -1) >= own:
                yield f'{folder}: {target} links {linked}, which is no lower layer'


def upward_includes(targets: Targets) -> Iterator[str]:
    for path in tracked('src/*.h', 'src/*.cc', 'programs/*.h', 'programs/*.cc', 'examples/*.h',
                        'examples/*.cc'):
        folder = targets.folder(path)
        if folder is None:
            yield f'{path}: belongs to no target that this check knows'
            continue
        reachable = targets.reachable(folder)
        for line, _, name in includes(path):
            included = resolve(path, name)
            if included is None:
                continue
            if included == PUBLIC_HEADER:
                if not reachable & {'TAVU', 'tavu_api_frame'}:
                    yield f'{path}:{line}: includes the public header, which {folder} must not know'
                continue
            owner = targets.folder(included)
            if owner != folder and (owner is None or not targets.of_folder[owner] & reachable):
                yield f'{path}:{line}: includes {name}, but {folder} does not link {owner}'


def windows_headers(path: str, seen: dict[str, Optional[str]]) -> Optional[str]:
    """How a file comes to a Windows header, if it does."""
    if path not in seen:
        seen[path] = None
        for line, _, name in includes(path):
            included = resolve(path, name)
            if included is None and WINDOWS_HEADER.match(name):
                seen[path] = f'{path}:{line}: <{name}>'
            elif included is not None and windows_headers(included, seen):
                seen[path] = f'{path}:{line}: {windows_headers(included, seen)}'
    return seen[path]


def platform_leaks() -> Iterator[str]:
    seen: dict[str, Optional[str]] = {}
    for path in tracked(*(f'{folder}/*' for folder in PORTABLE)):
        if path.endswith(('.h', '.cc')) and not WINDOWS_ONLY.search(path):
            way = windows_headers(path, seen)
            if way:
                yield f'{way}: a Windows header in a portable layer'


def main() -> int:
    targets = Targets()
    offences = [*upward_links(targets), *upward_includes(targets), *platform_leaks()]
    for offence in offences:
        print(offence)
    return 1 if offences else 0


if __name__ == '__main__':
    sys.exit(main())
