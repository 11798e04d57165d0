"""Reads the files of many crashes, on all processors when there are enough of them."""
from __future__ import annotations

import multiprocessing
import os
import sys
from collections.abc import Iterator, Sequence
from pathlib import Path

from crash_reading.images import Images
from crash_triage.facts import CrashFacts, read_facts
from crash_triage.records import CrashRecord

ENOUGH = 200  # crashes: fewer are read in less time than it takes to start more processes
CHUNK = 50


class Reader:
    """Reads from one store, with one set of images. A forked process shares both."""
    current: Reader | None = None

    def __init__(self, store: Path, images: Images) -> None:
        self.store, self.images = store, images

    def read(self, record: CrashRecord) -> tuple[str, CrashFacts]:
        return record.key, read_facts(record, self.store, self.images)

    def read_all(self, records: Sequence[CrashRecord]) -> Iterator[tuple[str, CrashFacts]]:
        """Key and facts of each, in order."""
        if len(records) < ENOUGH:
            yield from map(self.read, records)
            return
        Reader.current = self
        with multiprocessing.get_context('fork').Pool(os.cpu_count()) as pool:
            yield from pool.imap(_read_forked, records, CHUNK)


def _read_forked(record: CrashRecord) -> tuple[str, CrashFacts]:
    assert Reader.current
    return Reader.current.read(record)


class Progress:
    """A bar on a terminal, within one line of it; nothing anywhere else."""
    WIDEST, NARROWEST = 40, 5
    COLUMNS = 80  # of a terminal that does not tell

    def __init__(self, total: int) -> None:
        self.total, self.done, self.shown = total, 0, -1
        self.line = ''
        self.enabled = total > 0 and sys.stderr.isatty()

    def advance(self) -> None:
        self.done += 1
        percent = 100 * self.done // max(self.total, 1)
        if self.enabled and percent != self.shown:
            self.shown = percent
            self._write(self._bar(percent))

    def clear(self) -> None:
        """Leaves the line to whatever is written next."""
        if self.line:
            self._write('')
            self.shown = -1

    def _bar(self, percent: int) -> str:
        # The last column stays empty: a character there may move on to the next line.
        columns = (os.get_terminal_size(sys.stderr.fileno()).columns or self.COLUMNS) - 1
        text = f'{self.done} of {self.total} crashes'
        width = min(self.WIDEST, columns - len(text) - len('[] '))
        if width >= self.NARROWEST:
            text = f'[{"#" * (width * percent // 100):<{width}}] {text}'
        return text[:columns]

    def _write(self, line: str) -> None:
        """In the place of the line before, with nothing that a simple terminal does not know."""
        sys.stderr.write('\r' + ' ' * len(self.line) + '\r' + line)
        sys.stderr.flush()
        self.line = line
