"""The modules of a process that has crashed."""
import dataclasses
import re
from typing import Iterable, Optional

MAX_MODULES = 10_000  # above what any process loads; each is compared with each address

_LOW_32 = (1 << 32) - 1
_LOW_64 = (1 << 64) - 1


@dataclasses.dataclass(frozen=True)
class Module:
    """A module where it was loaded. `base` is its whole address, or the low 32 bits of it. The last
    three tell its build, as far as they are known."""
    name: str  # of its file, without the folder
    base: int
    size: int
    debug_id: str = ''  # GUID and age of its PDB
    timestamp: int = 0  # in the header of its file
    version: str = ''   # of its file; a document may show that of another module

    @classmethod  # pylint: disable-next=redefined-outer-name
    def at(cls, path: str, base: int, size: int, debug_id: str = '', timestamp: int = 0,
           version: str = '') -> 'Module':
        """The module of a Windows path."""
        return cls(re.split(r'[\\/]', path)[-1], base, size, debug_id, timestamp, version)

    @property
    def identity(self) -> str:
        """The same for the same build, wherever it was loaded."""
        build = self.debug_id or (f'{self.timestamp:08x}' if self.timestamp else self.version)
        return f'{self.name.lower()} {self.size:x} {build}'

    def offset_of(self, address: int) -> Optional[int]:
        """How far into the module an address lies; nothing for one outside."""
        offset = (address - self.base) & (_LOW_32 if self.base <= _LOW_32 else _LOW_64)
        return offset if offset < self.size else None


def debug_id(record: bytes) -> str:
    """GUID and age in the record by which a program names its PDB; empty for any other record."""
    if len(record) < 24 or record[:4] != b'RSDS':
        return ''
    return f'{record[4:20].hex()}-{int.from_bytes(record[20:24], "little")}'


def version_text(high: int, low: int) -> str:
    """A file's version from its two words."""
    return f'{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}'


def module_at(address: int, modules: Iterable[Module]) -> Optional[Module]:
    """The first module that holds the address."""
    return next((module for module in modules if module.offset_of(address) is not None), None)
