"""One run: what is new is read, everything is grouped, and the page or the data given out."""
from __future__ import annotations

import argparse
import json
import os
import re
import sys
from collections.abc import Sequence
from datetime import datetime, timedelta, timezone
from functools import partial
from pathlib import Path

from crash_reading.images import Images
from crash_reading.symbols import Symbols
from crash_reading.text import printable
from crash_triage import groups as grouping
from crash_triage.facts import NOT_THERE
from crash_triage.groups import Group
from crash_triage.naming import find_names
from crash_triage.page import write_page
from crash_triage.reading import Progress, Reader
from crash_triage.records import read_crashes
from crash_triage.report import as_data
from crash_triage.signature import BUILT_IN, RuleError, Signer, read_rules
from crash_triage.state import KnownCrash, State, StateError

SUCCESS, FAILURE, NEW_SIGNATURE = 0, 1, 3  # argparse itself ends with 2
ROOT = Path(__file__).resolve().parents[2]
UNITS = {'h': 'hours', 'd': 'days', 'w': 'weeks'}


def main(arguments: Sequence[str] | None = None) -> int:
    options = parse(arguments)
    try:
        return run(options)
    except OSError as fault:
        complain(f'{fault.filename}: {fault.strerror}' if fault.filename else str(fault))
    except (RuleError, StateError) as fault:
        complain(str(fault))
    return FAILURE


def parse(arguments: Sequence[str] | None) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog='triage', description='Groups the crashes that a collector received by where they '
        'happened, on one HTML page.', epilog='Exit codes: 0 done; 1 it could not be; 2 wrong '
        'command line; 3 with --new, when a signature is new. docs/triage.md tells more.')
    parser.add_argument('records', metavar='RECORDS', nargs='+', type=Path,
                        help="the collector's JSON Lines")
    parser.add_argument('--store', metavar='FOLDER', type=Path, required=True,
                        help="the collector's --store")
    parser.add_argument('--symbols', metavar='FOLDER', type=Path, action='append', default=[],
                        help='programs, DLLs and PDBs that crashed, of as many versions as there '
                        'are; subfolders are searched too; may be given again')
    parser.add_argument('--rules', metavar='FILE', type=Path, action='append', default=[],
                        help='which frames of the host say nothing, before the built-in rules; may '
                        'be given again')
    parser.add_argument('--output', metavar='FILE', type=Path,
                        help='the page; triage.html unless told')
    parser.add_argument('--json', action='store_true',
                        help='the groups as JSON on standard output; a page only with --output')
    parser.add_argument('--since', metavar='TIME', type=moment,
                        help='only crashes since then: 2024-02-29, or 12h, 7d, 2w ago')
    parser.add_argument('--version', metavar='VERSION', action='append', default=[],
                        help='only crashes of this version; may be given again')
    parser.add_argument('--new', action='store_true',
                        help='only signatures that no earlier run has seen')
    parser.add_argument('--state', metavar='FILE', type=Path,
                        help='what earlier runs have read; RECORDS.triage unless told')
    return parser.parse_args(arguments)


def moment(text: str) -> str:
    """A time as the collector writes times."""
    match = re.fullmatch(r'(\d+)([hdw])', text)
    try:
        if match:
            time = datetime.now(timezone.utc) - timedelta(**{UNITS[match[2]]: int(match[1])})
        else:
            time = datetime.fromisoformat(text)
        if time.tzinfo:
            time = time.astimezone(timezone.utc)
    except (ValueError, OverflowError):
        raise argparse.ArgumentTypeError(
            f'no time like 2024-02-29, 2024-02-29T12:00, 12h, 7d or 2w: {text!r}') from None
    return time.isoformat(timespec='seconds')[:len('2024-02-29T12:00:00')]


def complain(text: str) -> None:
    print(f'triage: {printable(text)}', file=sys.stderr)


def run(options: argparse.Namespace) -> int:
    rules = read_rules([*options.rules, BUILT_IN])
    for folder in (options.store, *options.symbols):
        if not folder.is_dir():
            raise NotADirectoryError(f'{folder} is no folder')
    for path in options.records:
        path.stat()  # one that is missing is to leave no state
    symbols = Symbols(subfolders(options.symbols), str(ROOT))
    state = State(options.state or Path(f'{options.records[0]}.triage'))
    read_new(state, options, symbols.images)
    all_crashes = list(state.crashes())
    stacks = state.stacks()
    names = state.names()
    found = find_names((known.stack for known in stacks), symbols, names)
    state.add_names(found)
    names.update(found)
    for note in symbols.notes:
        complain(note)

    # New is what no earlier run has seen, whatever is left out of this one's page.
    everything = grouping.group_crashes((c for c in all_crashes if c.stack), stacks, names,
                                        Signer(rules), state.run)
    shown = select(everything, options)
    grouping.find_distinctions(shown)
    if options.new:
        shown = [group for group in shown if group.is_new]
    unreadable = [crash for crash in all_crashes if not crash.stack and is_wanted(crash, options)]
    give_out(shown, unreadable, options)
    state.close()  # last: a run that gave nothing out has not seen anything either
    return NEW_SIGNATURE if options.new and shown else SUCCESS


def subfolders(folders: Sequence[Path]) -> list[str]:
    """The folders and all below them."""
    return [place for folder in folders for place, _, _ in os.walk(folder)]


def read_new(state: State, options: argparse.Namespace, images: Images) -> None:
    for path in options.records:
        for record in read_crashes(path, state.position(path), complain,
                                   partial(state.set_position, path)):
            state.add_record(record)
    # So may the store be completed later, or a run have been given another one.
    state.read_again(crash for crash in state.missing() if has_more(crash, options.store))
    # Symbols that came later than a crash may lead further down its stack.
    state.unwind_again([ident for ident, lacked in state.lacking() if any(map(images.find, lacked))])
    unread = state.unread()
    progress = Progress(len(unread))
    for key, facts in Reader(options.store, images).read_all(unread):
        if facts.fault:
            progress.clear()
            complain(f'{key}: {facts.fault}')
        state.set_facts(key, facts)
        progress.advance()
    progress.clear()


def has_more(crash: KnownCrash, store: Path) -> bool:
    """Whether the store holds a file that it lacked when the crash was read."""
    return any(f'{name}: {NOT_THERE}' in crash.fault and (store / name).is_file()
               for name in (crash.record.document, crash.record.dump) if name)


def is_wanted(crash: KnownCrash, options: argparse.Namespace) -> bool:
    return crash.record.time >= (options.since or '') and \
        (not options.version or crash.record.version in options.version)


def select(groups: Sequence[Group], options: argparse.Namespace) -> list[Group]:
    """The groups with the crashes that are asked for, and without those that have none."""
    selected = []
    for group in groups:
        crashes = [crash for crash in group.crashes if is_wanted(crash, options)]
        if crashes:
            selected.append(Group(group.signature, group.looks, crashes, group.is_new))
    return grouping.ordered(selected)


def give_out(groups: Sequence[Group], unreadable: Sequence[KnownCrash],
             options: argparse.Namespace) -> None:
    output = options.output or (None if options.json else Path('triage.html'))
    if output:
        write_page(output, groups, unreadable, options.store)
    if options.json:
        json.dump(as_data(groups, unreadable), sys.stdout, indent=1)
        print()
        return
    for group in groups if options.new else ():
        print(printable(f'new: {counted(len(group.crashes), "crash", "crashes")} of '
                        f'{counted(len(group.users), "user", "users")}: {group.signature.kind}: '
                        f'{" < ".join(group.signature.frames)}'))
    crashes = [crash for group in groups for crash in group.crashes]
    users = {crash.record.user for crash in crashes}
    print(f'{counted(len(crashes), "crash", "crashes")} of {counted(len(users), "user", "users")} in '
          f'{counted(len(groups), "group", "groups")}' +
          (f', {len(unreadable)} unreadable' if unreadable else '') + f': {output}')


def counted(number: int, one: str, many: str) -> str:
    """A number with its noun."""
    return f'{number} {one if number == 1 else many}'
