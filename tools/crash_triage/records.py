"""The collector's JSON Lines, as far as they tell of crashes, read from where the last run ended."""
from __future__ import annotations

import hashlib
import json
import os
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Callable

LONGEST_LINE = 16 << 20  # bytes; the collector shows no text of more than 64 KiB


@dataclass(frozen=True)
class CrashRecord:
    """One crash as the collector's record tells it. `document` and `dump` are plain names of files
    in the store; empty when the record names none."""
    key: str        # the same whenever the same record is read
    time: str       # UTC, ISO 8601: when the collector had it
    user: str       # the user identifier, or the host's own address where it sets none
    software: str
    version: str
    comment: str    # what the user wrote into the crash reporter
    document: str
    dump: str


@dataclass(frozen=True)
class Position:
    """How far a file was read. `head` tells whether it is still the same file."""
    head: str = ''
    offset: int = 0
    line: int = 0


def read_crashes(path: Path, start: Position, complain: Callable[[str], None],
                 arrived: Callable[[Position], None]) -> Iterator[CrashRecord]:
    """The crashes of one file from `start` on, or from its beginning when it is another file by
    now. A line that is no record is complained of and skipped; one without its end is left for the
    next run, because the collector may still be writing it. Calls `arrived` at the end."""
    with open(path, 'rb') as file:
        head = hashlib.sha256(file.readline(LONGEST_LINE)).hexdigest()
        size = os.fstat(file.fileno()).st_size
        if start.head != head or start.offset > size:
            start = Position(head)
        file.seek(start.offset)
        offset, number = start.offset, start.line
        for line in file:
            if not line.endswith(b'\n'):
                break
            offset, number = offset + len(line), number + 1
            if b'"crash"' not in line:  # most lines are logs; decoding them all costs minutes
                continue
            try:
                record = json.loads(line)
                crash = crash_of(record, line) if record.get('kind') == 'crash' else None
            except (ValueError, AttributeError, RecursionError):
                complain(f'{path}:{number}: not a record')
                continue
            if crash:
                yield crash
        # A file of less than one line has no head yet to be recognised by.
        arrived(Position(head, offset, number) if offset else Position())


def crash_of(record: dict[str, Any], line: bytes) -> CrashRecord:
    document, dump = attachment(record, 'document_file'), attachment(record, 'dump_file')
    key = os.path.splitext(document or dump)[0] or hashlib.sha256(line).hexdigest()
    return CrashRecord(key, time=text(record, 'time'),
                       user=text(record, 'user_id') or text(record, 'local_address'),
                       software=text(record, 'software_id'),
                       version=text(record, 'software_version'), comment=text(record, 'message'),
                       document=document, dump=dump)


def text(record: dict[str, Any], key: str) -> str:
    return whole(record.get(key) or '')


def whole(value: object) -> str:
    """As a text that can be written: JSON can hold half a character."""
    return str(value).encode('utf-8', 'replace').decode()


def attachment(record: dict[str, Any], key: str) -> str:
    """The name of an attachment; never a way out of the store."""
    value = record.get(key)
    name = value.get('name') if isinstance(value, dict) else None
    if not isinstance(name, str) or name in ('', '.', '..') or '/' in name or '\0' in name:
        return ''
    return whole(name)
