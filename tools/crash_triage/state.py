"""What earlier runs read: one SQLite file, so that a run reads only what is new.

It keeps facts alone, nothing that follows from rules or from symbols that may still come: crashes,
their call stacks as modules and offsets, and the names of addresses that have been found.
"""
from __future__ import annotations

import json
import sqlite3
from collections.abc import Iterable, Iterator
from dataclasses import asdict, astuple, dataclass, field
from pathlib import Path

from crash_reading.modules import Module
from crash_reading.symbols import Call
from crash_triage.facts import NOT_THERE, CrashFacts, Stack
from crash_triage.records import CrashRecord, Position

# By a module's identity and an offset in it: the function there, after those inlined into it.
Names = dict[tuple[str, int], list[Call]]

# One more with each change of what is kept; a file of another form is begun anew.
FORM = 2
TABLES = """
create table source (path text primary key, head text, offset integer, line integer);
-- An address is a text: it may have 64 bits, a number of SQLite's only 63 and a sign.
create table crash (
  key text primary key, run integer, time text, user text, software text, version text,
  comment text, document text, dump text,
  fault text, system text, custom text, modules text, code integer, address text, thread integer,
  stack integer);
create table stack (
  id integer primary key, content text unique, lacked text, sample text, sampled text);
create table name (
  module text, offset integer, calls text, primary key (module, offset)) without rowid;
create index crash_stack on crash (stack);
"""


class StateError(Exception):
    """The file cannot be used; the text says why."""


@dataclass(frozen=True)
class KnownCrash:
    """A crash as the state keeps it. `fault` tells why it could not be read; then `stack` is 0."""
    record: CrashRecord
    run: int
    fault: str
    system: str
    custom: str
    modules: tuple[str, ...]  # names of what was loaded
    code: int | None          # of the exception; with `thread`, of the dump alone
    address: int | None
    thread: int | None
    stack: int


@dataclass
class KnownStack:
    """One call stack and what the newest crash that has it looked like."""
    ident: int
    stack: Stack
    sample: dict[str, object] = field(default_factory=dict)
    sampled: str = ''  # key of the crash that the sample is of


class State:
    """One run's view. Life: opened, written to within the run, closed; nothing of a run that is
    broken off remains. One run at a time: a second one fails to open."""

    def __init__(self, path: Path | None) -> None:
        try:
            self.database = sqlite3.connect(path or ':memory:', isolation_level=None, timeout=1)
            self.database.execute('begin immediate')
            if self._form() != FORM:
                self._begin_anew()
        except sqlite3.Error as fault:
            raise StateError(f'{path}: {fault}') from None
        self.run = 1 + int(self._value('select coalesce(max(run), 0) from crash'))

    def _value(self, query: str, *arguments: object) -> str:
        row = self.database.execute(query, arguments).fetchone()
        return str(row[0]) if row else ''

    def _form(self) -> int:
        return int(self._value('pragma user_version'))

    def _begin_anew(self) -> None:
        tables = self.database.execute("select name from sqlite_master where type = 'table'")
        for (name,) in tables.fetchall():
            self.database.execute(f'drop table "{name}"')
        for statement in TABLES.split(';'):
            self.database.execute(statement)
        self.database.execute(f'pragma user_version = {FORM}')

    def close(self) -> None:
        """Keeps what was written."""
        self.database.execute('commit')
        self.database.close()

    # ---- Records ---------------------------------------------------------------------------------

    def position(self, path: Path) -> Position:
        row = self.database.execute('select head, offset, line from source where path = ?',
                                    (str(path.resolve()),)).fetchone()
        return Position(*row) if row else Position()

    def set_position(self, path: Path, position: Position) -> None:
        self.database.execute('insert or replace into source values (?, ?, ?, ?)',
                              (str(path.resolve()), position.head, position.offset, position.line))

    def add_record(self, record: CrashRecord) -> None:
        """A record that is there already stays as it is: a log file may be read again, under
        another name."""
        self.database.execute(
            'insert or ignore into crash (key, run, time, user, software, version, comment,'
            ' document, dump) values (?, ?, ?, ?, ?, ?, ?, ?, ?)',
            (record.key, self.run, record.time, record.user, record.software, record.version,
             record.comment, record.document, record.dump))

    # ---- Crashes ---------------------------------------------------------------------------------

    def unread(self) -> list[CrashRecord]:
        """The records whose files have not been read yet."""
        return [CrashRecord(*row) for row in self.database.execute(
            'select key, time, user, software, version, comment, document, dump from crash'
            ' where stack is null order by key')]

    def set_facts(self, key: str, facts: CrashFacts) -> None:
        stack = self._stack(key, facts) if facts.stack else 0
        self.database.execute(
            'update crash set fault = ?, system = ?, custom = ?, modules = ?, code = ?,'
            ' address = ?, thread = ?, stack = ? where key = ?',
            (facts.fault, facts.system, facts.custom, '\n'.join(facts.module_names), facts.code,
             None if facts.address is None else f'{facts.address:#x}', facts.thread, stack, key))

    def _stack(self, key: str, facts: CrashFacts) -> int:
        assert facts.stack
        content = json.dumps(asdict(facts.stack), separators=(',', ':'))
        self.database.execute('insert or ignore into stack (content, lacked, sampled) values'
                              " (?, ?, '')",
                              (content, json.dumps([asdict(module) for module in facts.lacked])))
        self.database.execute('update stack set sample = ?, sampled = ? where content = ?'
                              ' and sampled < ?', (json.dumps(facts.sample), key, content, key))
        return int(self._value('select id from stack where content = ?', content))

    def crashes(self, where: str = '') -> Iterator[KnownCrash]:
        """All that were read, the oldest first."""
        rows = self.database.execute(
            'select key, time, user, software, version, comment, document, dump,'
            ' run, fault, system, custom, modules, code, address, thread, stack'
            f' from crash {where} order by time, key')
        for row in rows:
            run, fault, system, custom, modules, code, address, thread, stack = row[8:]
            yield KnownCrash(CrashRecord(*row[:8]), run, fault, system, custom,
                             tuple(modules.split('\n')) if modules else (), code,
                             int(address, 16) if address else None, thread, stack)

    def stacks(self) -> list[KnownStack]:
        rows = self.database.execute('select id, content, sample, sampled from stack')
        return [KnownStack(ident, Stack.from_json(json.loads(content)), json.loads(sample), sampled)
                for ident, content, sample, sampled in rows]

    def lacking(self) -> list[tuple[int, list[Module]]]:
        """The stacks that were found without the images of some of their modules, and these."""
        rows = self.database.execute("select id, lacked from stack where lacked != '[]'")
        return [(ident, [Module(**module) for module in json.loads(lacked)])
                for ident, lacked in rows]

    def missing(self) -> list[KnownCrash]:
        """The crashes of which a file was not in the store."""
        return list(self.crashes(f"where fault like '%{NOT_THERE}%'"))

    def read_again(self, crashes: Iterable[KnownCrash]) -> None:
        """Makes these crashes unread. One that had no stack is as new as if it came now."""
        self.database.executemany(
            'update crash set stack = null, run = iif(stack, run, ?) where key = ?',
            [(self.run, crash.record.key) for crash in crashes])

    def unwind_again(self, stacks: Iterable[int]) -> None:
        """Makes the crashes with these stacks unread."""
        for ident in stacks:
            self.database.execute('update crash set stack = null where stack = ?', (ident,))
            self.database.execute('delete from stack where id = ?', (ident,))

    # ---- Names of addresses ----------------------------------------------------------------------

    def names(self) -> Names:
        rows = self.database.execute('select module, offset, calls from name')
        return {(module, offset): [Call(*call) for call in json.loads(calls)]
                for module, offset, calls in rows}

    def add_names(self, names: Names) -> None:
        self.database.executemany('insert or replace into name values (?, ?, ?)',
                                  ((*key, json.dumps([astuple(call) for call in calls]))
                                   for key, calls in names.items()))
