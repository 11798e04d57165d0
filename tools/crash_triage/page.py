"""The groups as one HTML file that needs nothing else, not even a network."""
from __future__ import annotations

import base64
import hashlib
import os
from collections.abc import Sequence
from datetime import datetime, timedelta, timezone
from pathlib import Path
from typing import Any
from urllib.parse import quote

import jinja2
from markupsafe import Markup

from crash_triage.groups import Group, Look, VersionCount, count_versions
from crash_triage.signature import NamedFrame
from crash_triage.state import KnownCrash

HERE = Path(__file__).parent
FEWEST_BINS, MOST_BINS = 30, 60
MINUTE = 60_000  # milliseconds
STEPS = [MINUTE * n for n in (1, 5, 10, 30, 60, 180, 360, 720, 1440, 7 * 1440, 28 * 1440)]
CALLERS = 2
MOST_STACKS = 8  # of one group, each of another version
ZEROS = datetime(1970, 1, 1, tzinfo=timezone.utc)


def write_page(path: Path, groups: Sequence[Group], unreadable: Sequence[KnownCrash],
               store: Path) -> None:
    """Writes the page, or leaves the old one whole when it cannot."""
    environment = jinja2.Environment(loader=jinja2.FileSystemLoader(HERE), autoescape=True,
                                     undefined=jinja2.StrictUndefined, trim_blocks=True)
    environment.filters['minute'] = minute
    text = environment.get_template('page.html.j2').render(_page(path, groups, unreadable, store))
    unfinished = path.with_name(path.name + '.part')
    try:
        unfinished.write_text(text, 'utf-8', 'replace')
        unfinished.replace(path)
    except OSError:
        unfinished.unlink(missing_ok=True)
        raise


def _page(path: Path, groups: Sequence[Group], unreadable: Sequence[KnownCrash],
          store: Path) -> dict[str, Any]:
    crashes = [crash for group in groups for crash in group.crashes]
    versions = [count.version for count in count_versions(crashes)]
    span = Span(crashes)
    all_new = all(group.is_new for group in groups)  # a first run's page: nothing to tell apart
    style, script = (HERE / 'page.css').read_text('utf-8'), (HERE / 'page.js').read_text('utf-8')
    return {
        # The two texts that are markup: the page's own, named by their hashes in its policy.
        'style': Markup(style), 'style_hash': _hash(style),
        'script': Markup(script), 'script_hash': _hash(script),
        'generated': datetime.now(timezone.utc).strftime('%Y-%m-%d %H:%M'),
        'software': ', '.join(sorted({crash.record.software for crash in crashes} - {''})),
        'versions': versions,
        'totals': {'users': len({crash.record.user for crash in crashes}), 'crashes': len(crashes),
                   'bins': span.bins(crashes)},
        'span': {'first': minute(span.first), 'last': minute(span.last),
                 'start': clock(span.start)},
        'groups': [_group(group, span, versions, group.is_new and not all_new) for group in groups],
        'unreadable': unreadable,
        'data': _data(path, groups, versions, span, store),
    }


class Span:
    """The time from the first crash to the last, cut into bins that begin with a day or an hour."""

    def __init__(self, crashes: Sequence[KnownCrash]) -> None:
        times = [crash.record.time for crash in crashes]
        self.first, self.last = min(times, default=''), max(times, default='')
        first, last = milliseconds(self.first), milliseconds(self.last)
        self.step = next((step for step in STEPS if (last - first) // step < MOST_BINS - 1),
                         (last - first) // (MOST_BINS - 1) + 1)
        # Few bins would be wide ones: time without crashes is shown before the first then.
        self.count = max(last // self.step - first // self.step + 1, FEWEST_BINS)
        self.start = (last // self.step - self.count + 1) * self.step

    def bins(self, crashes: Sequence[KnownCrash]) -> list[int]:
        counts = [0] * self.count
        for crash in crashes:
            counts[(milliseconds(crash.record.time) - self.start) // self.step] += 1
        return counts


def _group(group: Group, span: Span, all_versions: Sequence[str],
           is_new: bool) -> dict[str, Any]:
    look, top = group.look, group.look.top
    hosts = [frame for frame, is_host in zip(look.frames, look.of_host) if is_host]
    names = [count.version or 'unknown' for count in group.versions]
    sample = look.sample
    return {
        'ident': group.signature.ident, 'kind': group.signature.kind, 'is_new': is_new,
        'users': len(group.users), 'crashes': len(group.crashes),
        'top': _frame(top, True),
        'callers': [_short(frame) for frame in hosts[1:1 + CALLERS]],
        'bins': span.bins(group.crashes),
        'versions': [_version(group, count, all_versions) for count in group.versions],
        'version_range': names[0] if len(names) == 1 else f'{names[-1]} – {names[0]}',
        'last': group.last, 'systems': group.systems, 'custom': group.custom,
        'distinctions': group.distinctions,
        'badges': [text.replace('Only in version', 'only').replace('Only on', 'only')
                   for text in group.distinctions if text.startswith('Only')],
        'stacks': _stacks(group, all_versions),
        'thread': f'{sample["thread"]:#x}' if sample.get('thread') is not None else '',
        'registers': [(register, f'{value:016x}' if register != 'flags' else f'{value:08x}')
                      for register, value in sample.get('registers', {}).items()],
        'modules': [{'name': name, 'base': f'{base:#x}', 'size': f'{size:,}', 'version': version}
                    for name, base, size, version in sample.get('modules', [])],
    }


def _version(group: Group, count: VersionCount, all_versions: Sequence[str]) -> dict[str, Any]:
    return {'count': count, 'number': all_versions.index(count.version),
            'top': _frame(group.looks[count.stack].top, True)}


def _stacks(group: Group, all_versions: Sequence[str]) -> list[dict[str, Any]]:
    """That of the newest crash, and those of the newest crash of other versions."""
    newest = group.crashes[-1]
    of_versions = sorted(group.versions, key=lambda count: count.version != newest.record.version)
    return [{'version': all_versions.index(count.version),
             'frames': [_frame(frame, is_host) for frame, is_host in zip(look.frames, look.of_host)],
             'note': _stack_note(look, count.version)}
            for count in of_versions[:MOST_STACKS] for look in [group.looks[count.stack]]]


def _frame(frame: NamedFrame, is_host: bool) -> dict[str, Any]:
    label, short = frame.label, _short(frame)
    return {'function': frame.function, 'label': frame.label, 'short': short,
            'scope': label[:-len(short)] if label.endswith(short) else '',
            'place': frame.place,
            'module': frame.module, 'offset': f'{frame.offset:#x}', 'inlined': frame.inlined,
            'is_host': is_host}


def _short(frame: NamedFrame) -> str:
    """The function without the namespaces and classes around it."""
    name = frame.label
    if not frame.function:
        return name
    depth = 0
    for index in range(len(name) - 1, 0, -1):
        depth += {'>': 1, '<': -1, '}': 1, '{': -1}.get(name[index], 0)
        if depth <= 0 and name[index - 1:index + 1] == '::':
            return name[index + 1:]
    return name


def _stack_note(look: Look, version: str) -> str:
    how = {'dump': 'unwound from the dump', 'document':
           "from the document, which follows frame pointers and may have gaps"}[look.source]
    of = f'Of the newest crash of version {version}' if version else 'Of the newest crash'
    return f'{of}, {how}. Pale frames are left out of the signature.'


def _data(path: Path, groups: Sequence[Group], versions: Sequence[str], span: Span,
          store: Path) -> dict[str, Any]:
    """What the script needs to filter and to list crashes."""
    users, systems = Numbers(), Numbers()
    rows = [{'id': group.signature.ident,
             'crashes': [_row(crash, versions, users, systems) for crash in group.crashes]}
            for group in groups]
    way = os.path.relpath(store, path.resolve().parent)
    return {'groups': rows, 'versions': list(versions), 'users': list(users.of),
            'systems': list(systems.of), 'crashes': sum(len(group.crashes) for group in groups),
            'start': span.start, 'step': span.step, 'store': './' + quote(way) + '/'}


def _row(crash: KnownCrash, versions: Sequence[str], users: Numbers,
         systems: Numbers) -> list[object]:
    record = crash.record
    text = ' · '.join(filter(None, (crash.custom, record.comment)))
    return [record.time, versions.index(record.version), users[record.user],
            systems[crash.system or 'unknown'], record.document, record.dump, text]


class Numbers:
    """Numbers for texts, in the order of their first use."""

    def __init__(self) -> None:
        self.of: dict[str, int] = {}

    def __getitem__(self, text: str) -> int:
        return self.of.setdefault(text, len(self.of))


def milliseconds(time: str) -> int:
    """Since 1970. A time that is none counts as the beginning: the record may come from elsewhere."""
    try:
        moment = datetime.fromisoformat(time.replace('Z', '+00:00'))
    except ValueError:
        return 0
    return int((moment.replace(tzinfo=moment.tzinfo or timezone.utc) - ZEROS).total_seconds() * 1000)


def minute(time: str) -> str:
    return time[:16].replace('T', ' ')


def clock(time: int) -> str:
    return (ZEROS + timedelta(milliseconds=time)).strftime('%Y-%m-%d %H:%M')


def _hash(text: str) -> str:
    return base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()
