#!/usr/bin/env python3
"""Loads a fleet on this machine, breaks parts of it, and counts. Started by scripts/fleet."""
from __future__ import annotations

import argparse
import json
import shutil
import subprocess
import sys
import time
from collections import Counter
from pathlib import Path
from typing import Any, Callable

import counting
import parts
from parts import ROOT, SERVERS, STREAM, Fleet, Part, Trouble

HOST = ROOT / 'build/windows/bin/tavu_fleet_host.exe'
CLIENTS = ROOT / 'build/bench/bin/tavu_clients'
DOWN = 5.0  # seconds for which a killed part is away


def say(text: str) -> None:
    print(text, flush=True)


def clock() -> int:
    return int(time.time() * 1000)


class Load:
    """Hosts under Wine, all at once."""

    def __init__(self, work: Path, hosts: int, records: int, uploads: int) -> None:
        each = [str(number // hosts) for number in (records, uploads, records // 20)]
        self.records = records // hosts * hosts
        self.uploads = uploads // hosts * hosts
        self.logs = [work / f'host-{number}.calls' for number in range(hosts)]
        self._hosts = [Part(work, log.stem, [str(ROOT / 'scripts/wine'), str(HOST),
                                             str(parts.BALANCER_PORT), f'h{number}', *each],
                            output=log)
                       for number, log in enumerate(self.logs)]

    def start(self) -> None:
        for host in self._hosts:
            host.start()

    def wait(self) -> None:
        for host in self._hosts:
            if host.wait() != 0:
                raise Trouble(f'{host.name} did not end well, see {host.log}')

    def stop(self) -> None:
        for host in self._hosts:
            host.stop()

    @property
    def running(self) -> bool:
        return any(host.running for host in self._hosts)


def await_progress(load: Load, share: float) -> None:
    wanted = int((load.records + load.uploads) * share)
    while parts.records_in_stream() < wanted:
        if not load.running:
            raise Trouble('the hosts ended before all parts were broken: give them more records')
        time.sleep(0.05)


def break_and_mend(part: Part, start: Callable[[], None]) -> int:
    """Returns when it was killed."""
    when = clock()
    part.kill()
    say(f'  {part.name} is killed, with {parts.records_in_stream()} records in the stream')
    time.sleep(DOWN)
    start()
    say(f'  {part.name} is back')
    return when


def break_parts(fleet: Fleet, load: Load) -> list[tuple[str, int]]:
    faults = []
    await_progress(load, 0.2)
    when = break_and_mend(fleet.collectors[2], lambda: fleet.start_collector(2))
    faults.append(('a collector', when))
    await_progress(load, 0.5)
    leader = parts.leader_of_stream()
    if leader is None:
        raise Trouble('the stream has no leader')
    server = fleet.servers[leader]
    faults.append(("the NATS server with the stream's leader", break_and_mend(server, server.start)))
    return faults


def read_stream(work: Path, durable: str) -> list[dict[str, Any]]:
    lines = work / f'{durable}.jsonl'
    with open(lines, 'wb') as output:
        subprocess.run([parts.RECORDS, '--nats', SERVERS, '--stream', STREAM, '--durable', durable,
                        '--attachments', work / 'attachments'], stdout=output, check=True)
    return counting.read_records(lines)


def report(faults: list[str], what: str) -> None:
    if faults:
        raise Trouble('\n'.join([f'{len(faults)} faults, {what}:', *faults[:20]]))


def check_records(work: Path, load: Load, told: counting.Told) -> list[dict[str, Any]]:
    records = read_stream(work, 'fleet')
    if told.ended != len(load.logs) or len(told.calls) != load.records + load.uploads:
        raise Trouble(f'the hosts tell of {len(told.calls)} records and uploads')
    report(list(counting.faults_of_records(told, records)), 'records')
    report(list(counting.faults_of_uploads(told, records)), 'uploads')
    report(list(counting.faults_of_attachments(records, work / 'attachments')), 'attachments')
    found = {record['message'] for record in records}
    arrived = len(told.datagrams & found)
    uploads = sum(record['kind'] == 'file' for record in records)
    say(f'  {len(records)} records are in the stream, {uploads} of them uploads: each of the '
        f'{load.records + load.uploads} whose call returned true, and '
        f'{counting.doubled(told, records)} once more, after a call that failed')
    say(f'  {arrived} of {len(told.datagrams)} datagrams arrived, none of them twice')
    say('  every attachment is whole')
    return records


def check_other_reader(work: Path, records: list[dict[str, Any]]) -> None:
    """The client of another language, with libraries of its own for stream and bucket."""
    folder = work / 'node'
    shutil.copy(ROOT / 'bench/fleet/reader.mjs', folder)
    done = subprocess.run(['node', 'reader.mjs', SERVERS, STREAM, str(work / 'node.jsonl')],
                          cwd=folder, check=True, stdout=subprocess.PIPE)
    found = json.loads(done.stdout)
    lines = [Counter((work / name).read_text().splitlines()) for name in ('fleet.jsonl', 'node.jsonl')]
    attachments = {told['name']: {'size': told['size'], 'sha256': told['sha256']}
                   for record in records for key, told in record.items()
                   if key.endswith('_file') and 'name' in told}
    if lines[0] != lines[1] or found['attachments'] != attachments:
        raise Trouble('the reader in JavaScript sees something else')
    say(f'  the reader in JavaScript sees the same {found["records"]} records and '
        f'{len(attachments)} attachments')


def check_database(work: Path, records: list[dict[str, Any]]) -> None:
    server = parts.clickhouse(work)
    client = ['clickhouse-client', '--port', str(parts.CLICKHOUSE_PORT)]

    def ask(*query: str, **more: Any) -> str:
        return subprocess.run([*client, *query], check=True, text=True, capture_output=True,
                              **more).stdout

    def answers() -> bool:
        return subprocess.run([*client, '-q', 'select 1'], check=False, capture_output=True,
                              timeout=20).returncode == 0
    server.start()
    try:
        parts.wait_for('ClickHouse', answers)
        ask('-q', (parts.CONFIGURATION / 'records.sql').read_text())
        # As docs/fleet.md has it: into a file first, which is the reader's to acknowledge.
        read_stream(work, 'clickhouse')
        with open(work / 'clickhouse.jsonl', 'rb') as lines:
            ask('--input_format_skip_unknown_fields', '1', '-q',
                'insert into records format JSONEachRow', stdin=lines)
        rows = ask('-q', 'select software_version, level, count() from records '
                         'group by software_version, level')
    finally:
        server.stop()
    counted = {(version, int(level)): int(count)
               for version, level, count in map(str.split, rows.splitlines())}
    if counted != counting.by_version_and_level(records):
        raise Trouble(f'ClickHouse counts otherwise: {counted}')
    say(f'  ClickHouse counts the same {sum(counted.values())} by version and level, in '
        f'{len(counted)} groups')


def prove(work: Path, arguments: argparse.Namespace) -> None:
    fleet = Fleet(work)
    load = Load(work, arguments.hosts, arguments.records, arguments.uploads)
    try:
        say('three NATS servers, three collectors and nginx start')
        fleet.start()
        say(f'{arguments.hosts} hosts send {load.records} records and {load.uploads} uploads')
        begun = time.monotonic()
        load.start()
        faults = break_parts(fleet, load)
        load.wait()
        seconds = time.monotonic() - begun
        say(f'  all calls have returned true, after {seconds:.0f} s')
        told = counting.read_hosts(load.logs)
        ends = [when for _, when in faults[1:]] + [clock()]
        for (what, when), end in zip(faults, ends):
            seen = counting.outage(told, when, end)
            say(f'  without {what}: {seen.failed} calls of {seen.hosts} hosts failed; the longest '
                f'time until a repeated call succeeded was {seen.longest:.1f} s, and '
                f'{seen.until:.1f} s after the kill the last of them had')
        say('what is in the stream')
        records = check_records(work, load, told)
        check_other_reader(work, records)
        check_database(work, records)
    finally:
        load.stop()
        fleet.stop()


def measure_one(label: str, port: int, seconds: float) -> None:
    for clients in (1, 100, 1000):
        done = subprocess.run([CLIENTS, str(port), str(clients), str(seconds)], check=True, text=True,
                              stdout=subprocess.PIPE)
        rate, median, late, longest, _, failures = done.stdout.split()
        say(f'{label:<34}{clients:>8}{rate:>12}{median:>10}{late:>10}{longest:>10}{failures:>9}')


def measure(work: Path, arguments: argparse.Namespace) -> None:
    """One collector, spoken to by itself, in each of its ways to keep records."""
    common = [str(parts.COLLECTOR), '--address-connections', '0']
    ways: dict[str, list[str]] = {
        'standard output': [],
        'a file': ['--output', 'records.jsonl'],
        'a file, --durable': ['--output', 'durable.jsonl', '--durable'],
        'a stream of three servers': ['--nats', SERVERS, '--stream', STREAM],
    }
    fleet = Fleet(work)
    say(f'{"records go to":<34}{"clients":>8}{"records/s":>12}{"median ms":>10}{"99 % ms":>10}'
        f'{"max ms":>10}{"failed":>9}')
    try:
        for port, (label, way) in enumerate(ways.items(), 17004):
            if '--nats' in way:
                fleet.start_servers()
            part = Part(work, f'measured-{port}', [*common, '--port', str(port), *way],
                        output=work / 'printed.jsonl')
            part.start()
            try:
                ready = 'connected to' if '--nats' in way else 'listening on'
                parts.wait_for(label, lambda: parts.has_line(part, ready))  # pylint: disable=cell-var-from-loop
                measure_one(label, port, arguments.seconds)
            finally:
                part.stop()
    finally:
        fleet.stop()


def main() -> int:
    parser = argparse.ArgumentParser(prog='scripts/fleet', description=__doc__)
    parser.add_argument('--records', type=int, default=20000)
    parser.add_argument('--uploads', type=int, default=200)
    parser.add_argument('--hosts', type=int, default=4)
    parser.add_argument('--measure', action='store_true',
                        help='rates and latencies of one collector instead of the proof')
    parser.add_argument('--seconds', type=float, default=10, help='of each measurement')
    parser.add_argument('--work', type=Path, default=ROOT / 'build/fleet', help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    try:
        (measure if arguments.measure else prove)(arguments.work.resolve(), arguments)
    except (Trouble, subprocess.CalledProcessError) as trouble:
        print(f'scripts/fleet: {trouble} (see {arguments.work})', file=sys.stderr)
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
