"""Crashes with one signature, and what they have in common that others have not."""
from __future__ import annotations

import re
from collections import Counter
from collections.abc import Iterable, Mapping, Sequence
from dataclasses import dataclass, field
from functools import cached_property
from typing import Any

from crash_triage.naming import name_frames
from crash_triage.signature import NamedFrame, Signature, Signer
from crash_triage.state import KnownCrash, KnownStack, Names

MOST_CUSTOM_LINES = 5
LONGEST_CUSTOM_LINE = 200
FEW = 2               # crashes: too few to tell a group from others by
MOSTLY, RARELY = 0.8, 0.2


@dataclass
class VersionCount:
    version: str
    crashes: int = 0
    users: set[str] = field(default_factory=set)
    first: str = ''
    last: str = ''
    stack: int = 0  # of the newest crash

    def add(self, crash: KnownCrash) -> None:
        """The crashes come in the order of their times."""
        time = crash.record.time
        self.crashes += 1
        self.users.add(crash.record.user)
        self.first = min(self.first or time, time)
        self.last = max(self.last, time)
        self.stack = crash.stack


@dataclass(frozen=True)
class Look:
    """A call stack with its names, and what the newest crash that has it looked like."""
    frames: list[NamedFrame]
    of_host: list[bool]
    source: str
    sample: Mapping[str, Any]

    @property
    def top(self) -> NamedFrame:
        """Where it died: the first frame of the host, or the innermost where there is none."""
        hosts = (frame for frame, is_host in zip(self.frames, self.of_host) if is_host)
        return next(hosts, self.frames[0])


@dataclass
class Group:
    """`crashes` are ordered by time and never empty; `looks` has an entry for the stack of each."""
    signature: Signature
    looks: dict[int, Look] = field(default_factory=dict)
    crashes: list[KnownCrash] = field(default_factory=list)
    is_new: bool = False
    distinctions: list[str] = field(default_factory=list)

    @property
    def look(self) -> Look:
        """That of the newest crash."""
        return self.looks[self.crashes[-1].stack]

    @cached_property
    def users(self) -> set[str]:
        return {crash.record.user for crash in self.crashes}

    @cached_property
    def versions(self) -> list[VersionCount]:
        """The newest version first."""
        return count_versions(self.crashes)

    @cached_property
    def systems(self) -> list[tuple[str, int]]:
        return Counter(c.system or 'unknown' for c in self.crashes).most_common()

    @cached_property
    def custom(self) -> list[tuple[str, int]]:
        """Lines of the host's own text that more than one crash has."""
        lines = Counter(line for crash in self.crashes for line in custom_lines(crash))
        return [(line, count) for line, count in lines.most_common(MOST_CUSTOM_LINES) if count > 1]

    @property
    def first(self) -> str:
        return self.crashes[0].record.time

    @property
    def last(self) -> str:
        return self.crashes[-1].record.time


def group_crashes(crashes: Iterable[KnownCrash], stacks: Iterable[KnownStack], names: Names,
                  signer: Signer, run: int) -> list[Group]:
    """All groups, those that hit the most people first. A group is new when all its crashes were
    read in this run."""
    of_stack: dict[int, Group] = {}
    groups: dict[Signature, Group] = {}
    for known in stacks:
        frames = name_frames(known.stack, names)
        signature, of_host = signer.sign(known.stack.kind, frames)
        group = groups.setdefault(signature, Group(signature))
        group.looks[known.ident] = Look(frames, of_host, known.stack.source, known.sample)
        of_stack[known.ident] = group
    for crash in crashes:
        of_stack[crash.stack].crashes.append(crash)
    for group in groups.values():
        group.is_new = all(crash.run == run for crash in group.crashes)
    return ordered(group for group in groups.values() if group.crashes)


def ordered(groups: Iterable[Group]) -> list[Group]:
    return sorted(groups, key=lambda g: (-len(g.users), -len(g.crashes), g.signature.ident))


def count_versions(crashes: Iterable[KnownCrash]) -> list[VersionCount]:
    counts: dict[str, VersionCount] = {}
    for crash in crashes:
        version = crash.record.version
        counts.setdefault(version, VersionCount(version)).add(crash)
    return sorted(counts.values(), key=lambda count: version_order(count.version), reverse=True)


def version_order(version: str) -> list[tuple[int, str]]:
    """1.10 comes after 1.9."""
    return [(int(number), text) for number, text in
            ((n or '0', t) for n, t in re.findall(r'(\d*)(\D*)', version)[:-1])]


def custom_lines(crash: KnownCrash) -> set[str]:
    return {line.strip()[:LONGEST_CUSTOM_LINE] for line in crash.custom.splitlines()} - {''}


# ---- What distinguishes a group ------------------------------------------------------------------

def find_distinctions(groups: Sequence[Group]) -> None:
    """Compares each group with all the others."""
    total = sum(len(group.crashes) for group in groups)
    versions = count_versions(crash for group in groups for crash in group.crashes)
    systems = Counter(crash.system for group in groups for crash in group.crashes)
    inside = [_count_traits(group) for group in groups]
    overall: Counter[tuple[str, str]] = Counter()
    for counts in inside:
        overall.update(counts)
    for group, counts in zip(groups, inside):
        if len(group.crashes) < FEW:
            continue
        group.distinctions = [
            *_only(group, versions, systems),
            *_frequent(counts, overall, len(group.crashes), total - len(group.crashes))]


def _only(group: Group, versions: Sequence[VersionCount],
          systems: Mapping[str, int]) -> Iterable[str]:
    mine = group.versions
    if len(versions) > 1:
        if len(mine) == 1:
            yield f'Only in version {mine[0].version or "unknown"}'
        elif mine[-1].version != versions[-1].version:
            yield f'Not before version {mine[-1].version}'
        elif mine[0].version != versions[0].version:
            yield f'Not after version {mine[0].version}'
    if len(systems) > 1 and len(group.systems) == 1:
        yield f'Only on {group.systems[0][0]}'


def _count_traits(group: Group) -> Counter[tuple[str, str]]:
    traits: Counter[tuple[str, str]] = Counter()
    for crash in group.crashes:
        traits.update(('custom', line) for line in custom_lines(crash))
        traits.update(('module', name) for name in crash.modules)
    return traits


def _frequent(counts: Mapping[tuple[str, str], int], overall: Mapping[tuple[str, str], int],
              mine: int, others: int) -> Iterable[str]:
    if others < FEW:
        return
    for (what, value), count in sorted(counts.items(), key=lambda item: -item[1]):
        here, elsewhere = count / mine, (overall[what, value] - count) / others
        if here >= MOSTLY and elsewhere <= RARELY:
            text = f'Module {value} loaded' if what == 'module' else f'“{value}”'
            yield f'{text} in {here:.0%} of these crashes, {elsewhere:.0%} of the others'
