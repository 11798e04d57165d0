"""The crashes in a folder."""
import dataclasses
import os
import re
from typing import Optional

# The collector's ending of the names before the library's.
_DOCUMENT = re.compile(r'(.*?)(?:[-_.]crash\.xml|_CrashInfo\.xml)', re.I | re.S)
_DUMP = re.compile(r'(.*?)(?:[-_.]crash\.dmp|_Crash\.dmp)', re.I | re.S)


@dataclasses.dataclass
class Crash:
    """One crash: the paths of its document and its dump, of which one may be missing."""
    name: str
    document: Optional[str] = None
    dump: Optional[str] = None

    def files(self) -> list[str]:
        """The paths that are there."""
        return [path for path in (self.document, self.dump) if path is not None]


def find_crashes(path: str) -> list[Crash]:
    """All crashes of a folder, the newest first; or the one that a file belongs to."""
    folder = path if os.path.isdir(path) else os.path.dirname(path) or '.'
    crashes: dict[str, Crash] = {}
    for entry in sorted(os.scandir(folder), key=lambda entry: entry.name):
        if not entry.is_file():  # a pipe would keep its reader waiting
            continue
        if match := _DOCUMENT.fullmatch(entry.name):
            crashes.setdefault(match[1], Crash(match[1])).document = entry.path
        elif match := _DUMP.fullmatch(entry.name):
            crashes.setdefault(match[1], Crash(match[1])).dump = entry.path
    found = list(crashes.values())
    if not os.path.isdir(path):
        found = [crash for crash in found
                 if os.path.basename(path) in [os.path.basename(file) for file in crash.files()]]

    def age(crash: Crash) -> tuple[float, str]:
        return max(map(os.path.getmtime, crash.files())), crash.name
    return sorted(found, key=age, reverse=True)
