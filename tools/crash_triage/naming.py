"""From modules and offsets to functions, files and lines, each address once."""
from __future__ import annotations

from collections.abc import Iterable

from crash_reading.symbols import Symbols
from crash_triage.facts import Stack
from crash_triage.signature import NamedFrame
from crash_triage.state import Names


def find_names(stacks: Iterable[Stack], symbols: Symbols, known: Names) -> Names:
    """What can be named now and was not before: one question for each address, however many
    stacks have it."""
    wanted: dict[str, dict[tuple[str, int], int]] = {}
    for stack in stacks:
        for index, frame in enumerate(stack.frames):
            if frame.module < 0:
                continue
            module = stack.modules[frame.module]
            key = module.identity, asked_offset(frame.offset, index)
            image = symbols.images.find(module) if key not in known else None
            # The frame pointers of a document may lead to where no code is.
            if image and image.is_code(key[1]):
                wanted.setdefault(image.path, {})[key] = image.base + key[1]
    found: Names = {}
    for path, asked in wanted.items():
        answers = symbols.ask(path, list(asked.values()))
        found.update((key, calls) for key, calls in zip(asked, answers) if calls)
    return found


def name_frames(stack: Stack, names: Names) -> list[NamedFrame]:
    """The stack with its names; an inlined function is a frame of its own."""
    named = []
    for index, (module, offset) in enumerate(stack.frames):
        if module < 0:
            named.append(NamedFrame('', offset))
            continue
        name = stack.modules[module].name
        calls = names.get((stack.modules[module].identity, asked_offset(offset, index)), [])
        named += [NamedFrame(name, offset, call.function, call.place, number + 1 < len(calls))
                  for number, call in enumerate(calls)] or [NamedFrame(name, offset)]
    return named


def asked_offset(offset: int, index: int) -> int:
    """A return address may be the first of another line, or of another function."""
    return offset if index == 0 else offset - 1
