"""What the hosts were told, against what is in the stream."""
from __future__ import annotations

import hashlib
import json
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Iterator

SIZE_STEP, SIZE_BOUND = 7919, 300007  # as in host.cc


@dataclass(frozen=True)
class Call:
    """One call of a host; times in milliseconds."""
    kind: str
    identifier: str
    kept: bool
    begun: int
    taken: int

    @property
    def end(self) -> int:
        return self.begun + self.taken


@dataclass
class Told:
    """All that the hosts tell: the calls of each record and upload in their order, and datagrams."""
    calls: dict[str, list[Call]] = field(default_factory=dict)
    datagrams: set[str] = field(default_factory=set)
    ended: int = 0


def read_hosts(logs: list[Path]) -> Told:
    told = Told()
    for log in logs:
        for line in log.read_text().splitlines():
            kind, identifier, _, kept, begun, taken = line.split()
            if kind == 'end':
                told.ended += 1
            elif kind == 'datagram':
                told.datagrams.add(identifier)
            else:
                call = Call(kind, identifier, kept == '1', int(begun), int(taken))
                told.calls.setdefault(identifier, []).append(call)
    return told


def content_of(identifier: str) -> bytes:
    size = int(identifier[-6:]) * SIZE_STEP % SIZE_BOUND
    lines, length, number = [], 0, 0
    while length < size:
        lines.append(f'{identifier} {number}\n')
        length += len(lines[-1])
        number += 1
    return ''.join(lines)[:size].encode()


def read_records(path: Path) -> list[dict[str, Any]]:
    with open(path, encoding='utf-8') as file:
        return [json.loads(line) for line in file]


def faults_of_records(told: Told, records: list[dict[str, Any]]) -> Iterator[str]:
    """A call that returned true has put its record into the stream exactly once. One that returned
    false, of which nobody knows whether the answer was lost, at most once."""
    found = Counter(record['message'] for record in records)
    for identifier, calls in told.calls.items():
        kept = sum(call.kept for call in calls)
        failed = len(calls) - kept
        if kept != 1:
            yield f'{identifier}: {kept} calls of {len(calls)} returned true'
        elif not 1 <= found[identifier] <= 1 + failed:
            yield f'{identifier}: {found[identifier]} times in the stream after {failed} failed calls'
    for identifier in told.datagrams:
        if found[identifier] > 1:
            yield f'{identifier}: {found[identifier]} times in the stream, sent as one datagram'
    for identifier in found.keys() - told.calls.keys() - told.datagrams:
        yield f'{identifier}: in the stream, and no host has sent it'


def faults_of_attachments(records: list[dict[str, Any]], folder: Path) -> Iterator[str]:
    """The content of each record that names one, whether or not its call returned true."""
    for record in records:
        if record['kind'] != 'file':
            continue
        told, identifier = record['content_file'], record['message']
        content = content_of(identifier)
        if 'name' not in told:
            continue  # its sender was told; the upload came again
        stored = folder / told['name']
        if not stored.is_file() or stored.read_bytes() != content:
            yield f'{identifier}: {told["name"]} is not what was sent'
        if told['sha256'] != hashlib.sha256(content).hexdigest():
            yield f'{identifier}: its record tells another SHA-256'


def faults_of_uploads(told: Told, records: list[dict[str, Any]]) -> Iterator[str]:
    """Each upload that returned true has a record with its content."""
    whole = {record['message'] for record in records
             if record['kind'] == 'file' and 'name' in record['content_file']}
    for identifier, calls in told.calls.items():
        if calls[0].kind == 'upload' and identifier not in whole:
            yield f'{identifier}: returned true, and no record names its content'


def doubled(told: Told, records: list[dict[str, Any]]) -> int:
    found = Counter(record['message'] for record in records)
    return sum(found[identifier] - 1 for identifier in told.calls if found[identifier] > 1)


@dataclass(frozen=True)
class Outage:
    """What failed from a fault on: how many calls, and how long until the last of them had
    succeeded when it was repeated, in seconds."""
    failed: int
    hosts: int
    longest: float
    until: float


def outage(told: Told, since: int, until: int) -> Outage:
    """Of a fault at `since`; the next one comes at `until` (milliseconds since 1970)."""
    failed, hosts, longest, last = 0, set(), 0, since
    for identifier, calls in told.calls.items():
        misses = [call for call in calls if not call.kept and since <= call.end < until]
        if not misses:
            continue
        failed += len(misses)
        hosts.add(identifier.split('-', maxsplit=1)[0])
        longest = max(longest, calls[-1].end - misses[0].begun)
        last = max(last, calls[-1].end)
    return Outage(failed, len(hosts), longest / 1000, (last - since) / 1000)


def by_version_and_level(records: list[dict[str, Any]]) -> Counter[tuple[str, int]]:
    return Counter((record['software_version'], record['level']) for record in records)
