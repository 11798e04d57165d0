"""What makes two crashes the same: the kind of exception and the first frames of the host."""
from __future__ import annotations

import fnmatch
import hashlib
import re
from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from functools import lru_cache
from pathlib import Path

BUILT_IN = Path(__file__).with_name('frames.rules')
ACTIONS = ('skip', 'end', 'host')
SUBJECTS = ('module', 'function')
ANONYMOUS = re.compile(r"\(anonymous namespace\)::|`anonymous namespace'::")
DEPTH = 3  # frames of the host in a signature: enough to tell callers apart, few enough to group


@dataclass(frozen=True)
class NamedFrame:
    """One entry of a call stack, innermost first. `function` is empty without symbols; `offset` is
    the address itself where no module is known."""
    module: str
    offset: int
    function: str = ''
    place: str = ''  # file and line
    inlined: bool = False

    @property
    def label(self) -> str:
        """How a signature names the frame: the same for each build when there are symbols."""
        if self.function:
            return ANONYMOUS.sub('', without_arguments(self.function))
        return f'{self.module}+{self.offset:#x}' if self.module else f'{self.offset:#x}'


@dataclass(frozen=True)
class Signature:
    kind: str
    frames: tuple[str, ...]

    @property
    def ident(self) -> str:
        """Short, fit for an address, and the same in every run."""
        whole = '\n'.join((self.kind, *self.frames))
        return hashlib.sha256(whole.encode('utf-8', 'surrogatepass')).hexdigest()[:12]


@dataclass(frozen=True)
class Rule:
    action: str
    subject: str
    pattern: re.Pattern[str]


class RuleError(ValueError):
    """A rules file has a line that is no rule; the text names file and line."""


def read_rules(paths: Iterable[Path]) -> list[Rule]:
    """The rules of all files, in order. Raises RuleError, and OSError for a file that is not there."""
    rules = []
    for path in paths:
        for number, line in enumerate(path.read_text('utf-8').splitlines(), 1):
            words = line.split(None, 2)
            if not words or words[0].startswith('#'):
                continue
            if len(words) != 3 or words[0] not in ACTIONS or words[1] not in SUBJECTS:
                raise RuleError(f'{path}:{number}: no rule: {line.strip()}')
            pattern = re.compile(fnmatch.translate(words[2].strip()), re.IGNORECASE)
            rules.append(Rule(words[0], words[1], pattern))
    return rules


class Signer:
    """Applies one set of rules."""

    def __init__(self, rules: Sequence[Rule]) -> None:
        self.rules = rules
        self.action = lru_cache(None)(self._action)

    def sign(self, kind: str, frames: Sequence[NamedFrame]) -> tuple[Signature, list[bool]]:
        """The signature, and for each frame whether it belongs to the host. A stack that has no
        frame of the host is signed by its innermost frame, so that it still has a group."""
        mine = self.host_frames(frames)
        labels = [frame.label for frame, is_host in zip(frames, mine) if is_host]
        return Signature(kind, tuple(labels[:DEPTH] or [f.label for f in frames[:1]])), mine

    def host_frames(self, frames: Sequence[NamedFrame]) -> list[bool]:
        """What has no source line among frames of its module that have is a library that was linked
        in without its symbols: its names are those of whatever public function lies before it."""
        with_lines = {frame.module for frame in frames if frame.place}
        mine = []
        ended = False
        for frame in frames:
            action = self.action(frame.module, frame.label if frame.function else '')
            ended = ended or action == 'end'
            mine.append(not ended and action != 'skip' and bool(frame.module) and
                        (bool(frame.place) or frame.module not in with_lines))
        return mine

    def _action(self, module: str, function: str) -> str:
        subjects = {'module': module, 'function': function}
        return next((rule.action for rule in self.rules
                     if subjects[rule.subject] and rule.pattern.match(subjects[rule.subject])), '')


def without_arguments(function: str) -> str:
    """A function's name up to its arguments. The parentheses of "(anonymous namespace)", of
    operator() and of what stands in template arguments are part of the name."""
    depth = 0
    for index, character in enumerate(function):
        if character in '<{' and not function[:index].endswith('operator'):
            depth += 1
        elif character in '>}' and depth:
            depth -= 1
        elif character == '(' and not depth and index:
            rest = function[index:]
            if not rest.startswith('(anonymous namespace)') and \
                    not function[:index].endswith('operator'):
                return function[:index].rstrip()
    return function
