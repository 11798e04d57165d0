"""What the document and the dump of one crash tell, without symbols."""
from __future__ import annotations

from collections.abc import Callable, Sequence
from dataclasses import dataclass, field, replace
from pathlib import Path
from typing import Any, NamedTuple, TypeVar

from crash_reading.document import Document, number
from crash_reading.images import Images
from crash_reading.minidump import Minidump
from crash_reading.modules import Module, module_at
from crash_reading.unwind import unwind
from crash_triage.kinds import crash_kind
from crash_triage.records import CrashRecord

Kind = TypeVar('Kind')
LOW_32 = 0xFFFFFFFF
NOT_THERE = 'not in the store'  # the fault of a file that may still come
MOST_CUSTOM = 4096  # characters of the host's own text: more than the library lets through


class Frame(NamedTuple):
    """An address as its place in a module, the same wherever the module was loaded. Without a
    module `module` is -1 and `offset` the address."""
    module: int  # in the stack's modules
    offset: int


@dataclass(frozen=True)
class Stack:
    """What a crash is grouped by: the kind of exception, and the call stack, innermost first."""
    kind: str
    modules: tuple[Module, ...]  # those of the frames, with `base` 0
    frames: tuple[Frame, ...]
    source: str                  # `dump` or `document`

    @staticmethod
    def from_json(values: dict[str, Any]) -> Stack:
        return Stack(values['kind'], tuple(Module(**module) for module in values['modules']),
                     tuple(Frame(*frame) for frame in values['frames']), values['source'])


@dataclass
class CrashFacts:
    """`stack` is missing when neither file could be read; `fault` says what was wrong with them,
    and may stand beside a stack when one of the two was good."""
    stack: Stack | None = None
    fault: str = ''
    system: str = ''
    custom: str = ''
    module_names: tuple[str, ...] = ()
    code: int | None = None     # of the exception; only the dump tells it, and the thread
    address: int | None = None  # where it happened; its low half without a dump
    thread: int | None = None
    lacked: list[Module] = field(default_factory=list)  # of the frames, those without an image
    sample: dict[str, Any] = field(default_factory=dict)  # what is shown of one crash in a group


def read_facts(record: CrashRecord, store: Path, images: Images) -> CrashFacts:
    """Never raises for what stands in the files."""
    faults: list[str] = []
    document = _read(Document.read, record.document, store, faults)
    if document and not document.exception:
        faults.append(f'{record.document}: no crash document')
        document = None
    dump = _read(Minidump, record.dump, store, faults)
    if not record.document and not record.dump:
        faults.append('the record names neither a document nor a dump')
    facts = CrashFacts(fault='; '.join(faults))
    if not document and not dump:
        return facts
    modules = dump.modules if dump and dump.modules else document.modules if document else []
    kind = crash_kind(document.exception if document else {}, dump)
    facts.stack = _choose_stack(kind, document, dump, images)
    facts.lacked = [module for module in facts.stack.modules if not images.find(module)]
    facts.system = _system(document, dump)
    facts.custom = (document.custom or '')[:MOST_CUSTOM] if document else ''
    if dump and dump.code is not None:
        facts.code, facts.address, facts.thread = dump.code, dump.address, dump.thread
    elif document:
        facts.address = number(document.exception.get('addr'))
    facts.module_names = tuple(sorted({m.name.lower().replace('\n', ' ') for m in modules}))
    facts.sample = _sample(dump, modules)
    return facts


def _read(reader: Callable[[str], Kind], name: str, store: Path,
          faults: list[str]) -> Kind | None:
    if not name:
        return None
    if not (store / name).is_file():  # a pipe would keep its reader waiting
        faults.append(f'{name}: {NOT_THERE}')
        return None
    try:
        return reader(str(store / name))
    except OSError as fault:
        faults.append(f'{name}: {fault.strerror}')
    except ValueError as fault:
        faults.append(f'{name}: {fault}')
    return None


def _choose_stack(kind: str, document: Document | None, dump: Minidump | None,
                  images: Images) -> Stack:
    """The dump's stack when its caller could be found; the document's, which follows frame pointers
    and may have gaps, when not."""
    from_dump = unwind(dump, images.find) if dump else []
    if dump and (len(from_dump) > 1 or not document or not document.stack):
        return _located('dump', kind, from_dump or [dump.address], dump.modules)
    assert document
    addresses = document.stack or [number(document.exception.get('addr'))]
    # The dump names the same modules with what identifies them; the document has them by the low
    # half of their addresses.
    known = {m.base & LOW_32: replace(m, base=m.base & LOW_32) for m in dump.modules} if dump else {}
    modules = [known.get(module.base, module) for module in document.modules]
    return _located('document', kind, addresses, modules)


def _located(source: str, kind: str, addresses: Sequence[int],
             modules: Sequence[Module]) -> Stack:
    used: dict[Module, int] = {}
    frames = []
    for address in addresses:
        module = module_at(address, modules)
        if module:
            index = used.setdefault(replace(module, base=0), len(used))
            frames.append(Frame(index, module.offset_of(address) or 0))
        else:
            frames.append(Frame(-1, address))
    return Stack(kind, tuple(used), tuple(frames), source)


def _system(document: Document | None, dump: Minidump | None) -> str:
    """The dump knows better: to a program that does not say it knows them, Windows gives itself out
    as an older version, and the document believes it."""
    if dump and dump.windows:
        return f'Windows {dump.windows}'
    values = document.windows if document else {}
    numbers = values.get('version', '').split(',')[0].split('.')[:3]
    return 'Windows ' + '.'.join(numbers) if any(numbers) else ''


def _sample(dump: Minidump | None, modules: Sequence[Module]) -> dict[str, Any]:
    return {
        'thread': dump.thread if dump else None,
        'registers': dump.registers if dump else {},
        'modules': [[m.name, m.base, m.size, m.version] for m in modules],
    }
