"""The groups as data, for programs."""
from __future__ import annotations

from collections.abc import Sequence
from typing import Any

from crash_triage.groups import Group, VersionCount
from crash_triage.signature import NamedFrame
from crash_triage.state import KnownCrash


def as_data(groups: Sequence[Group], unreadable: Sequence[KnownCrash]) -> dict[str, Any]:
    crashes = [crash for group in groups for crash in group.crashes]
    return {
        'crashes': len(crashes),
        'users': len({crash.record.user for crash in crashes}),
        'groups': [_group(group) for group in groups],
        'unreadable': [{**_crash(crash), 'fault': crash.fault} for crash in unreadable],
    }


def _group(group: Group) -> dict[str, Any]:
    return {
        'id': group.signature.ident,
        'new': group.is_new,
        'kind': group.signature.kind,
        'signature': list(group.signature.frames),
        'crashes': len(group.crashes),
        'users': len(group.users),
        'first': group.first,
        'last': group.last,
        'versions': [_version(group, count) for count in group.versions],
        'systems': dict(group.systems),
        'custom': dict(group.custom),
        'distinctions': group.distinctions,
        'stack_source': group.look.source,
        'stack': [_frame(frame, is_host)
                  for frame, is_host in zip(group.look.frames, group.look.of_host)],
        'registers': dict(group.look.sample.get('registers', {})),
        'modules': [dict(zip(('name', 'base', 'size', 'version'), module))
                    for module in group.look.sample.get('modules', [])],
        'list': [_crash(crash) for crash in group.crashes],
    }


def _version(group: Group, count: VersionCount) -> dict[str, Any]:
    top = group.looks[count.stack].top
    return {'version': count.version, 'crashes': count.crashes, 'users': len(count.users),
            'first': count.first, 'last': count.last, 'function': top.label, 'place': top.place}


def _frame(frame: NamedFrame, is_host: bool) -> dict[str, Any]:
    return {'module': frame.module, 'offset': frame.offset, 'function': frame.function,
            'place': frame.place, 'inlined': frame.inlined, 'host': is_host}


def _crash(crash: KnownCrash) -> dict[str, Any]:
    record = crash.record
    return {'time': record.time, 'user': record.user, 'software': record.software,
            'version': record.version, 'system': crash.system, 'custom': crash.custom,
            'comment': record.comment, 'document': record.document, 'dump': record.dump,
            'code': crash.code, 'address': crash.address, 'thread': crash.thread}
