"""The collector under attack, and killed: what it must hold, at the size that one asks for.

usage: collector_siege.py COLLECTOR [--hostile N] [--kills N] [--trickle SECONDS] [--seed N]

--hostile   so many hostile requests over TCP and UDP beside good records: every good one is
            answered and printed, memory stays within its bounds, every line is JSON that jq reads
--kills     so many SIGKILLs under load with --durable: every acknowledged record is in the output,
            every acknowledged attachment whole
--trickle   two hundred connections that send a byte now and then, for so long: good records are
            served throughout
"""

import argparse
import contextlib
import hashlib
import json
import multiprocessing
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import types

import collector_test as test

MEMORY = 64 << 20  # of unfinished requests over TCP, and over UDP
# A process of its own needs some, and so do values while they are decoded. Sanitizers keep several
# times what they watch.
MOST_RESIDENT = {False: 320 << 20, True: 1200 << 20}
FIRST_TRICKLE = 12  # seconds until those that came first have used up the time of their request


def require(condition, what):
    if not condition:
        sys.exit(f"collector_siege: {what}")


def depth_of(value):
    inner = value.values() if isinstance(value, dict) else value if isinstance(value, list) else None
    return 0 if inner is None else 1 + max(map(depth_of, inner), default=0)


def check_lines(path):
    """All lines of the file, after checking what any reader of them relies on."""
    lines = path.read_bytes().split(b"\n")
    require(lines.pop() == b"", "the output ends inside a line")
    records = [json.loads(line) for line in lines]
    require(max(map(depth_of, records), default=0) <= 64, "a line is nested too deeply")
    require(max(map(len, lines), default=0) < 2 << 20, "a line is too long")
    if shutil.which("jq"):
        read = subprocess.run(["jq", "-c", ".time"], stdin=path.open("rb"), capture_output=True)
        require(read.returncode == 0 and read.stdout.count(b"\n") == len(lines), "jq stops")
    return records


class Good(threading.Thread):
    """A host that logs, at a pace, and notes what was acknowledged."""

    def __init__(self, collector, name, pause, files=False):
        super().__init__()
        self.collector, self.host, self.pause, self.files = collector, name, pause, files
        self.acknowledged, self.failed, self.slowest, self.ended = {}, [], 0, threading.Event()

    def run(self):
        number = 0
        while not self.ended.wait(self.pause):
            number += 1
            name = f"{self.host}-{number}"
            content = (name * 2000).encode() if self.files and number % 3 == 0 else None
            fields = {5: test.string("1" if content else "0"), 3: test.string("4"),
                      8: test.string(name)}
            if content:
                fields[103] = test.binary(content)
            begun = time.monotonic()
            try:
                answered = self.collector.send(test.call(test.record(fields), "tavu_server"))
            except (OSError, AssertionError):
                answered = None
            self.slowest = max(self.slowest, time.monotonic() - begun)
            if answered == test.SUCCESS:
                self.acknowledged[name] = content
            else:
                self.failed.append(name)


@contextlib.contextmanager
def good_hosts(collector, count, pause, files=False):
    hosts = [Good(collector, f"{time.monotonic_ns()}-{i}", pause, files) for i in range(count)]
    for host in hosts:
        host.start()
    try:
        yield hosts
    finally:
        for host in hosts:
            host.ended.set()
        for host in hosts:
            host.join()


def hostile_requests(count, seed):
    """Real requests with something changed, and some made to hurt."""
    chance = random.Random(seed)
    real = [request for case in test.records("log", "file", "crash", "luadump")
            if len(request := test.bytes_of(case["request"])) < 40000]
    key = b"V" + b"V" * 20 + b"z" * 20 + b"z"
    made = [test.call(argument) for argument in (
        b"V" * 300 + test.string("x") + b"z" * 300,
        b"V" * 999 + b"z" * 999,
        b"M" + b"".join(key + b"N" for _ in range(900)) + b"z",
        b"M" + b"".join(test.number(i) + b"N" for i in range(1000)) + b"z",
        b"V" + b"B\0\1x" * 100 + b"z",
        b"V" + b"Vz" * 30000 + b"z",
        b"V" + test.string("\0\x1f\x7f\"\\" * 9000) * 12 + b"z",
        test.record({5: test.string("9"), **{i: test.binary(b"x") for i in range(1000, 1100)}}),
    )]
    for _ in range(count):
        request = bytearray(chance.choice(made if chance.random() < 0.2 else real))
        for _ in range(chance.randrange(4)):
            at = chance.randrange(len(request))
            change = chance.randrange(4)
            if change == 0:
                request[at] = chance.choice(b"NTFCILDdSsBbVlMZzt\0\xff\xcf")
            elif change == 1:
                del request[at:at + chance.randrange(1, 40)]
            elif change == 2:
                request[at:at] = request[at:at + chance.randrange(1, 400)]
            else:
                request = request[:max(at, 1)]
            request = request or bytearray(b"\xcf")
        yield bytes(request), chance.random() < 0.3


def attack(ports, count, seed):
    with test.Collector.datagrams(ports) as datagrams:
        kept_open = []
        for request, over_udp in hostile_requests(count, seed):
            with contextlib.suppress(OSError):
                if over_udp:
                    for at in range(0, len(request), 2048):
                        datagrams.send(request[at:at + 2048])
                    continue
                peer = test.Collector.connect(ports)
                kept_open.append(peer)
                peer.sendall(request)
            while len(kept_open) > 50:  # many without their end
                kept_open.pop(0).close()
        for peer in kept_open:
            peer.close()


def hostile(count, seed):
    with tempfile.TemporaryDirectory() as folder:
        output = pathlib.Path(folder) / "records.jsonl"
        with test.Collector("--output", output, "--store", pathlib.Path(folder) / "store",
                            "--max-memory", MEMORY, "--max-files", "2000",
                            watched=False) as collector:
            # Processes, because threads of one would wait for each other more than for the collector.
            # New ones, because a fork would take along the locks that threads hold.
            ports = types.SimpleNamespace(tcp_port=collector.tcp_port, udp_port=collector.udp_port)
            attackers = [multiprocessing.get_context("spawn").Process(
                target=attack, args=(ports, count // 2, seed + i)) for i in range(2)]
            with good_hosts(collector, 4, 0.004) as hosts:
                for attacker in attackers:
                    attacker.start()
                for attacker in attackers:
                    attacker.join()
            require(all(attacker.exitcode == 0 for attacker in attackers), "an attacker gave up")
            require(collector.process.poll() is None, "the collector has ended")
            status = pathlib.Path(f"/proc/{collector.process.pid}/status").read_text(encoding="utf-8")
            resident = int(status.split("VmHWM:")[1].split()[0]) << 10
            maps = pathlib.Path(f"/proc/{collector.process.pid}/maps").read_text(encoding="utf-8")
        failed = [name for host in hosts for name in host.failed]
        require(not failed, f"good records without an answer: {failed[:3]}")
        good = {name for host in hosts for name in host.acknowledged}
        printed = {line.get("message") for line in check_lines(output)}
        require(good <= printed, f"{len(good - printed)} records acknowledged and not printed")
        require(resident < MOST_RESIDENT["asan" in maps], f"{resident >> 20} MiB of memory")
    print(f"{count} hostile requests beside {len(good)} records, the slowest answered in "
          f"{max(host.slowest for host in hosts) * 1000:.0f} ms; {resident >> 20} MiB at the most")


def kills(count, seed):
    chance = random.Random(seed)
    acknowledged = {}
    with tempfile.TemporaryDirectory() as folder:
        output, store = pathlib.Path(folder) / "records.jsonl", pathlib.Path(folder) / "store"
        for _ in range(count):
            with test.Collector("--output", output, "--store", store, "--durable",
                                watched=False) as collector:
                with good_hosts(collector, 8, 0, files=True) as hosts:
                    while not any(host.acknowledged for host in hosts):
                        time.sleep(0.01)
                    time.sleep(chance.random() / 4)
                    collector.status = -signal.SIGKILL
                    collector.process.send_signal(signal.SIGKILL)
                    collector.process.wait()
            for host in hosts:
                acknowledged |= host.acknowledged
        with test.Collector("--output", output):  # mends what the last one left
            pass
        lines = {line["message"]: line for line in check_lines(output)}
        for name, content in acknowledged.items():
            require(name in lines, f"{name} was acknowledged and is not there")
            if content:
                kept = lines[name]["content_file"]
                data = (store / kept["name"]).read_bytes()
                require(hashlib.sha256(data).digest() == hashlib.sha256(content).digest(),
                        f"the attachment of {name} is not whole")
    print(f"{count} kills: {len(acknowledged)} records acknowledged, "
          f"{sum(map(bool, acknowledged.values()))} of them with a file, all there")


def trickle(seconds):
    request = test.log_line("x" * 5000)[:-1]

    def run(collector, ended):
        peers = {}
        while not ended.wait(1):
            for i in range(200):
                try:
                    if i not in peers:
                        peers[i] = [collector.connect(), 0]
                    peer, sent = peers[i]
                    peer.sendall(request[sent:sent + 1])
                    peers[i][1] += 1
                except OSError:
                    peers.pop(i)[0].close()

    with test.Collector("--max-memory", 1 << 20, "--request-time", FIRST_TRICKLE - 2,
                        stdout=subprocess.DEVNULL, watched=False) as collector:
        ended = threading.Event()
        trickling = threading.Thread(target=run, args=(collector, ended))
        trickling.start()
        with good_hosts(collector, 2, 0.01) as hosts:
            time.sleep(seconds)
        ended.set()
        trickling.join()
    failed = [name for host in hosts for name in host.failed]
    require(not failed, f"records without an answer: {failed[:3]}")
    print(f"200 trickling connections for {seconds} s: {sum(len(h.acknowledged) for h in hosts)} "
          f"records, the slowest answered in {max(h.slowest for h in hosts) * 1000:.0f} ms")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("collector")
    parser.add_argument("--hostile", type=int, default=0)
    parser.add_argument("--kills", type=int, default=0)
    parser.add_argument("--trickle", type=int, default=0)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    test.COMMAND.append(arguments.collector)
    if arguments.hostile:
        hostile(arguments.hostile, arguments.seed)
    if arguments.kills:
        kills(arguments.kills, arguments.seed)
    if arguments.trickle:
        trickle(arguments.trickle)


if __name__ == "__main__":
    main()
