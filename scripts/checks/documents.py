#!/usr/bin/env python3
"""Checks what the documents point to: scripts/checks/documents.py

1. Links lead to files of the project and to headings that exist.
2. Files and folders named in backticks exist: from the root, from src/, or by their base name.
3. docs/architecture.md maps each function of the public header, once, to a file that defines it.
4. The README and the package's README show the same host, which the package's test compiles.

Prints one line for each offence and ends with 1, or prints nothing and ends with 0.
"""
import fnmatch
import re
import subprocess
import sys
from pathlib import Path
from typing import Iterator

ROOT = Path(__file__).resolve().parents[2]
MAP = 'docs/architecture.md'
HEADER = 'include/tavu/tavu.h'

# Packed into the zip's root, so its links are those of the zip.
PACKAGE_README = 'docs/package/README.md'

LINK = re.compile(r'\]\(([^)\s]+)\)')
FENCE = re.compile(r'^```.*?^```', re.M | re.S)
CODE = re.compile(r'`([^`\n]+)`')
SOURCE_NAME = re.compile(r'[\w.*/-]+\.(?:h|cc|c|py|cmake|inc|json)|[\w.*-]+(?:/[\w.*-]+)*/')
EXPORT = re.compile(r'TAVU_CALL (TAVU_\w+)\(')
MAP_ROW = re.compile(r'^\| `(TAVU_\w+)` \| `([^`]+)`', re.M)


def tracked() -> list[str]:
    listed = subprocess.run(['git', 'ls-files', '-z'], cwd=ROOT, check=True, capture_output=True,
                            text=True)
    return [name for name in listed.stdout.split('\0') if name]


def anchors(path: Path) -> set[str]:
    headings = re.findall(r'^#+ (.*)$', path.read_text(encoding='utf-8'), re.M)
    return {re.sub(r'[^\w -]', '', heading.lower()).replace(' ', '-') for heading in headings}


def prose(path: str) -> str:
    return FENCE.sub('', (ROOT / path).read_text(encoding='utf-8'))


def broken_links(path: str) -> Iterator[str]:
    base = ROOT if path == PACKAGE_README else (ROOT / path).parent
    for link in LINK.findall(prose(path)):
        if '://' in link:
            continue
        name, _, anchor = link.partition('#')
        target = base / name if name else ROOT / path
        if not target.exists():
            yield f'{path}: links to {link}, which does not exist'
        elif anchor and anchor not in anchors(target):
            yield f'{path}: links to {link}, but there is no such heading'


def missing_names(path: str, files: list[str]) -> Iterator[str]:
    folders = {f'{parent}/' for name in files for parent in Path(name).parents}
    known = set(files) | folders
    for code in CODE.findall(prose(path)):
        if not SOURCE_NAME.fullmatch(code) or code.startswith(('build/', 'bin/', 'lib/')):
            continue  # what a build makes
        patterns = (code, f'src/{code}', f'{Path(path).parent}/{code}', f'*/{code}')
        if not any(fnmatch.filter(known, pattern) for pattern in patterns):
            yield f'{path}: names {code}, which does not exist'


def unmapped_exports() -> Iterator[str]:
    exports = EXPORT.findall((ROOT / HEADER).read_text(encoding='utf-8'))
    rows = MAP_ROW.findall((ROOT / MAP).read_text(encoding='utf-8'))
    mapped = [name for name, _ in rows]
    if not exports:
        yield f'{HEADER}: no function was found in it'
    for name in exports:
        if mapped.count(name) != 1:
            yield f'{MAP}: maps {name} {mapped.count(name)} times instead of once'
    for name, file in rows:
        if name not in exports:
            yield f'{MAP}: maps {name}, which {HEADER} does not declare'
        definition = ROOT / 'src' / file
        if not definition.is_file() or f'{name}(' not in definition.read_text(encoding='utf-8'):
            yield f'{MAP}: maps {name} to {file}, which does not define it'


def different_hosts() -> Iterator[str]:
    hosts = [re.findall(r'^```c\n.*?^```', (ROOT / path).read_text(encoding='utf-8'), re.M | re.S)
             for path in ('README.md', PACKAGE_README)]
    if not hosts[0] or hosts[0] != hosts[1]:
        yield f'{PACKAGE_README}: shows another host than README.md'


def main() -> int:
    files = tracked()
    offences = [*unmapped_exports(), *different_hosts()]
    for path in (name for name in files if name.endswith('.md')):
        offences += [*broken_links(path), *missing_names(path, files)]
    for offence in offences:
        print(offence)
    return 1 if offences else 0


if __name__ == '__main__':
    sys.exit(main())
