"""The parts of a fleet, as processes of this machine with the configuration files of docs/fleet."""
from __future__ import annotations

import json
import os
import re
import shutil
import signal
import subprocess
import time
import urllib.request
from pathlib import Path
from typing import Any, Callable, Optional

ROOT = Path(__file__).resolve().parents[2]
CONFIGURATION = ROOT / 'docs' / 'fleet'
COLLECTOR = ROOT / 'build/linux/bin/tavu_collector'
RECORDS = ROOT / 'tools/records'

STREAM = 'TAVU'
NODES = (1, 2, 3)
BALANCER_PORT = 17000
COLLECTOR_PORTS = (17001, 17002, 17003)
CLICKHOUSE_PORT = 19000
SERVERS = ','.join(f'nats://127.0.0.1:{14220 + node}' for node in NODES)
PATIENCE = 60.0  # seconds, for a part to be ready


class Trouble(Exception):
    """What ends the proof."""


def wait_for(what: str, ready: Callable[[], bool]) -> None:
    end = time.monotonic() + PATIENCE
    while not ready():
        if time.monotonic() > end:
            raise Trouble(f'{what} is not ready after {PATIENCE:.0f} s')
        time.sleep(0.1)


class Part:
    """One process, which can be killed and started again. What it prints is added to NAME.log."""

    def __init__(self, work: Path, name: str, command: list[str],
                 environment: Optional[dict[str, str]] = None,
                 output: Optional[Path] = None) -> None:
        self.name = name
        self.work = work
        self.log = work / f'{name}.log'
        self._command = command
        self._environment = {**os.environ, **(environment or {})}
        self._output = output
        self._process: Optional[subprocess.Popen[bytes]] = None

    def start(self) -> None:
        with open(self.log, 'ab') as log, open(self._output or os.devnull, 'ab') as output:
            self._process = subprocess.Popen(
                self._command, cwd=self.work, env=self._environment, stdin=subprocess.DEVNULL,
                stdout=output if self._output else log, stderr=log)

    def kill(self) -> None:
        assert self._process
        self._process.kill()
        self._process.wait()

    def stop(self) -> None:
        if not self._process or self._process.poll() is not None:
            return
        self._process.send_signal(signal.SIGTERM)
        try:
            self._process.wait(20)
        except subprocess.TimeoutExpired:
            self.kill()

    def wait(self) -> int:
        assert self._process
        return self._process.wait()

    @property
    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None


def nats_server(work: Path, node: int) -> Part:
    routes = ', '.join(f'nats://127.0.0.1:{16220 + other}' for other in NODES)
    return Part(work, f'nats-{node}', ['nats-server', '-c', str(CONFIGURATION / 'nats-server.conf')],
                {'NODE': f'n{node}', 'CLIENT_PORT': str(14220 + node),
                 'CLUSTER_PORT': str(16220 + node), 'HTTP_PORT': str(18220 + node),
                 'ROUTES': f'[{routes}]', 'STORE': str(work / f'nats-{node}-store')})


def collector(work: Path, number: int) -> Part:
    port = COLLECTOR_PORTS[number - 1]
    return Part(work, f'collector-{number}', [
        str(COLLECTOR), '--port', str(port), '--proxy', '127.0.0.1', '--nats', SERVERS, '--stream',
        STREAM, '--metrics-port', str(port + 100), '--address-connections', '0'])


def balancer(work: Path) -> Part:
    return Part(work, 'nginx', ['/usr/sbin/nginx', '-p', str(work), '-e', 'stderr', '-c',
                                str(CONFIGURATION / 'nginx.conf')])


def clickhouse(work: Path) -> Part:
    folder = work / 'clickhouse-server'
    folder.mkdir(exist_ok=True)
    for name in ('clickhouse.xml', 'users.xml'):
        shutil.copy(CONFIGURATION / name, folder)
    return Part(folder, 'clickhouse', ['clickhouse-server', '--config-file=clickhouse.xml'])


def has_line(part: Part, pattern: str) -> bool:
    return bool(re.search(pattern, part.log.read_text(errors='replace')))


def monitor(node: int, path: str) -> Any:
    """What a server's monitoring port says; nothing while it is down."""
    try:
        with urllib.request.urlopen(f'http://127.0.0.1:{18220 + node}/{path}', timeout=2) as answer:
            return json.load(answer)
    except (OSError, ValueError):
        return None


def streams_of(node: int) -> dict[str, Any]:
    """The streams that a server knows, by their names."""
    answer = monitor(node, 'jsz?streams=true') or {}
    return {stream['name']: stream for account in answer.get('account_details') or []
            for stream in account.get('stream_detail') or []}


def is_elected(node: int) -> bool:
    answer = monitor(node, 'jsz') or {}
    return bool((answer.get('meta_cluster') or {}).get('leader'))


def leader_of_stream() -> Optional[int]:
    for node in NODES:
        name = (streams_of(node).get(STREAM, {}).get('cluster') or {}).get('leader', '')
        if name:
            return int(name[1:])
    return None


def records_in_stream() -> int:
    return max(streams_of(node).get(STREAM, {}).get('state', {}).get('messages', 0)
               for node in NODES)


class Fleet:
    """Three servers, three collectors and a balancer."""

    def __init__(self, work: Path) -> None:
        self.servers = {node: nats_server(work, node) for node in NODES}
        self.collectors = {number: collector(work, number) for number in NODES}
        self.balancer = balancer(work)

    def start_servers(self) -> None:
        for server in self.servers.values():
            server.start()
        wait_for('the NATS cluster', lambda: all(map(is_elected, NODES)))
        subprocess.run([RECORDS, '--nats', SERVERS, '--stream', STREAM, '--create', '3'], check=True)
        wait_for('the stream', lambda: leader_of_stream() is not None)

    def start_collector(self, number: int) -> None:
        part = self.collectors[number]
        part.start()
        wait_for(part.name, lambda: has_line(part, 'listening on.*\n(.*\n)*.*connected to'))

    def start(self) -> None:
        self.start_servers()
        for number in self.collectors:
            self.start_collector(number)
        self.balancer.start()

    def stop(self) -> None:
        for part in (self.balancer, *self.collectors.values(), *self.servers.values()):
            part.stop()
