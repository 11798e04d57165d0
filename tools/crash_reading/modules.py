"""The modules of a process that has crashed."""
import dataclasses
import re
from typing import Iterable, Optional

MAX_MODULES = 10_000  # above what any process loads; each is compared with each address

_LOW_32 = (1 << 32) - 1
_LOW_64 = (1 << 64) - 1


@dataclasses.dataclass(frozen=True)
class Module:
    """A module where it was loaded. `base` is its whole address, or the low 32 bits of it."""
    name: str  # of its file, without the folder
    base: int
    size: int

    @classmethod
    def at(cls, path: str, base: int, size: int) -> 'Module':
        """The module of a Windows path."""
        return cls(re.split(r'[\\/]', path)[-1], base, size)

    def offset_of(self, address: int) -> Optional[int]:
        """How far into the module an address lies; nothing for one outside."""
        offset = (address - self.base) & (_LOW_32 if self.base <= _LOW_32 else _LOW_64)
        return offset if offset < self.size else None


def module_at(address: int, modules: Iterable[Module]) -> Optional[Module]:
    """The first module that holds the address."""
    return next((module for module in modules if module.offset_of(address) is not None), None)
