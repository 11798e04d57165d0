"""The collector as its users meet it: a real process, spoken to over real sockets.

usage: collector_test.py COLLECTOR...
COLLECTOR is the program with what has to stand in front of it to run it.
"""

import contextlib
import fcntl
import hashlib
import io
import json
import os
import pathlib
import re
import resource
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import unittest.mock
import urllib.parse
import urllib.request

VECTORS = pathlib.Path(__file__).resolve().parents[1] / "data"
COMMAND: list[str] = []
PATIENCE = 120  # seconds for what takes milliseconds, so that a busy machine is no failure

SUCCESS = bytes.fromhex("cf10000400057201004e7a0000")


def on_windows():
    return COMMAND[-1].endswith(".exe")


def bytes_of(notation):
    if isinstance(notation, str):
        return bytes.fromhex(notation)
    if len(notation) == 3 and notation[0] == "repeat":
        return bytes.fromhex(notation[1]) * notation[2]
    return b"".join(bytes_of(piece) for piece in notation)


def plain(kind, *content):
    """The content of a record's field: bytes of a binary value, else a text."""
    if kind == "string":
        return content[0]
    data = bytes.fromhex(content[0]) * (content[1] if kind.endswith("-repeat") else 1)
    return data.decode() if kind.startswith("string") else data


FIELDS = {0: "reserved", 1: "software_id", 2: "software_version", 3: "level", 4: "log_type",
          5: "kind_code", 6: "user_id", 7: "local_address", 8: "message", 101: "description",
          102: "document", 103: "content", 301: "extra_data", 401: "extra", 402: "dump_number",
          403: "dump"}
# Where the data of a record's fields is told.
FILES = {"crash": {"document": "document_file", "content": "dump_file"},
         "file": {"content": "content_file"}, "luadump": {"dump": "dump_file"}}


def records(*kinds):
    cases = json.loads((VECTORS / "records.json").read_text())["cases"]
    return [case for case in cases if case["kind"] in kinds]


def request_named(name):
    return next(bytes_of(case["request"]) for case in records("log", "file") if case["name"] == name)


def string(text):
    raw = text.encode() if isinstance(text, str) else text
    return b"S" + struct.pack(">H", len(raw)) + raw


def number(value):
    return b"I" + struct.pack(">i", value)


def record(fields):
    return b"M" + b"".join(number(key) + value for key, value in fields.items()) + b"z"


def call(argument, service="s"):
    """A request with its body in packets of an odd size."""
    body = b"c\x01\x00m" + string(service)[1:] + argument + b"z"
    packets = [body[at:at + 3001] for at in range(0, len(body), 3001)]
    return b"\xcf\x10\x00\x04" + b"".join(
        struct.pack(">H", len(packet)) + packet for packet in packets) + b"\0\0"


def binary(data):
    chunks = [data[at:at + 32768] for at in range(0, len(data), 32768)] or [b""]
    tags = b"b" * (len(chunks) - 1) + b"B"
    return b"".join(
        tags[i:i + 1] + struct.pack(">H", len(chunk)) + chunk for i, chunk in enumerate(chunks))


def log_line(message):
    return call(record({5: string("0"), 3: string("4"), 8: string(message)}), "tavu_server")


# Whoever starts this may ignore interrupts, and what it starts would inherit that; one ends the
# collector.
signal.signal(signal.SIGINT, signal.default_int_handler)


class Collector:
    """A running collector: its ports, and what it writes, line by line. It has to end
    with `status`, however much of the test it served."""

    def __init__(self, *arguments, stdout=subprocess.PIPE, limits=None, status=0, watched=True):
        self.status = status
        arguments = [f"Z:{argument}" if isinstance(argument, pathlib.Path) and on_windows()
                     else str(argument) for argument in arguments]
        self.process = subprocess.Popen(
            [*COMMAND, "--port", "0", *arguments], stdout=stdout, stderr=subprocess.PIPE,
            preexec_fn=limits, pipesize=1 << 20)  # so that it never waits for its reader
        listening = self.explanation(r"listening on .* tcp \d+ udp \d+( metrics \d+)?\s*$")
        self.tcp_port, self.udp_port, *self.metrics_port = map(
            int, re.findall(r" (?:tcp|udp|metrics) (\d+)", listening))
        if not watched:  # what it says is read, and lost
            threading.Thread(target=self.process.stderr.read, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        with self.process:
            if self.process.poll() is None:
                self.process.send_signal(signal.SIGINT)
            status = self.process.wait(PATIENCE)
            self.unread = [stream.read().decode() if stream else ""
                           for stream in (self.process.stdout, self.process.stderr)]
        if failure is None and status != self.status:
            raise AssertionError(f"the collector ended with status {status}: {self.unread[1]}")

    def line(self):
        return json.loads(self.process.stdout.readline())

    def explanation(self, pattern):
        """The next line on standard error, which has to match."""
        line = self.process.stderr.readline().decode()
        if not re.search(pattern, line):
            raise AssertionError(f"{line!r} does not match {pattern!r}")
        return line

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.tcp_port), PATIENCE)

    def datagrams(self):
        peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        peer.connect(("127.0.0.1", self.udp_port))
        return peer

    def send(self, request):
        """One request over a connection of its own; the reply's bytes."""
        with self.connect() as peer:
            peer.sendall(request)
            return read_reply(peer)


def read_reply(peer):
    """A reply whose body is one packet."""
    reply, size = b"", 6
    while len(reply) < size:
        piece = peer.recv(size - len(reply))
        if not piece:
            raise AssertionError(f"the connection ended after {reply!r}")
        reply += piece
        size = struct.unpack(">H", reply[4:6])[0] + 8 if len(reply) >= 6 else 6
    return reply


def fault(code, message):
    body = (b"r\x01\x00f" + string("code") + number(code) + string("message") + string(message) +
            string("detail") + b"NzNz")
    return b"\xcf\x10\x00\x04" + struct.pack(">H", len(body)) + body + b"\0\0"


def ends(peer):
    """Whether the collector ends the connection without a reply."""
    try:
        return peer.recv(1) == b""
    except ConnectionError:
        return True


class CollectorTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.store = pathlib.Path(folder.name) / "é" / "attachments"

    def check_line(self, line, case, transport):
        self.assertRegex(line.pop("time"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        self.assertRegex(line.pop("peer"), r"^127\.0\.0\.1:\d+$")
        expected = {FIELDS[int(key)]: plain(*value) for key, value in case["fields"].items()}
        for name in expected.keys() & {"log_type", "user_id", "message", "extra"}:
            expected[name] = urllib.parse.unquote(expected[name])
        for name in expected.keys() & {"level", "dump_number"}:
            expected[name] = int(expected[name])
        for field, name in FILES.get(case["kind"], {}).items():
            data = expected.pop(field)
            self.check_kept(line.pop(name), data.encode() if isinstance(data, str) else data)
            if case["kind"] == "luadump":
                expected[field] = data.decode()
        expected |= {"transport": transport, "service": case["service"], "kind": case["kind"]}
        self.assertEqual(line, expected)

    def check_kept(self, kept, data):
        self.assertEqual(kept["size"], len(data))
        self.assertEqual(kept["sha256"], hashlib.sha256(data).hexdigest())
        self.assertEqual((self.store / kept["name"]).read_bytes(), data)

    def test_records_over_tcp(self):
        with Collector("--store", self.store) as collector:
            for case in records("log", "file", "crash", "luadump"):
                with self.subTest(case["name"]):
                    self.assertEqual(collector.send(bytes_of(case["request"])), SUCCESS)
                    self.check_line(collector.line(), case, "tcp")

    def test_records_over_udp(self):
        cases = records("log")
        with Collector() as collector, contextlib.ExitStack() as peers:
            senders = []
            for case in cases:
                request = io.BytesIO(bytes_of(case["request"]))
                peer = peers.enter_context(collector.datagrams())
                senders.append((peer, [request.read(size) for size in case["datagrams"]]))
            # All at once, a datagram of each peer in turn.
            for turn in range(max(len(datagrams) for _, datagrams in senders)):
                for peer, datagrams in senders:
                    for datagram in datagrams[turn:turn + 1]:
                        peer.send(datagram)
            lines = {line["peer"]: line for line in (collector.line() for _ in cases)}
            for case, (peer, _) in zip(cases, senders):
                with self.subTest(case["name"]):
                    line = lines["127.0.0.1:%d" % peer.getsockname()[1]]
                    self.check_line(line, case, "udp")

    def test_udp_requests_that_come_to_nothing(self):
        two = request_named("message of two packets")
        with Collector() as collector, collector.datagrams() as peer:
            for sent, said in (
                    ([b"x"], "not a request"),
                    ([two[:2048], log_line("whole")],
                     "a request given up after 2048 bytes: another one begins"),
                    ([log_line("and") + b"!"], "bytes after the end of the request"),
                    ([two[:2048]], "a request given up after 2048 bytes: no more datagrams")):
                for datagram in sent:
                    peer.send(datagram)
                collector.explanation("udp .*: " + said)
            # A continuation may look like a beginning at first.
            data = b"\xcf\x10\x00\x04" + bytes(2000)
            request = call(binary(bytes(900) + data))
            peer.send(request[:request.index(data)])
            peer.send(request[request.index(data):])
            self.assertEqual(collector.line()["message"], "whole")
            self.assertEqual(collector.line()["argument"]["binary"]["size"], 2904)

    def test_requests_in_pieces_until_enough_or_interrupted(self):
        requests = [log_line(text) for text in ("one", "two", "three")]
        for count, rest in (2, requests[2]), (0, requests[2][:9]):
            with Collector("--count", str(count)) as collector, collector.connect() as peer:
                peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                for byte in requests[0]:
                    peer.sendall(bytes([byte]))
                peer.sendall(requests[1] + rest)
                self.assertEqual([read_reply(peer) for _ in range(2)], [SUCCESS] * 2)
                if not count:
                    collector.process.send_signal(signal.SIGINT)
                self.assertTrue(ends(peer))
                collector.process.wait(PATIENCE)
            self.assertEqual(
                [json.loads(line)["message"] for line in collector.unread[0].splitlines()],
                ["one", "two"])

    def test_bad_bytes_end_that_connection_only(self):
        whole = request_named("plain")
        cases = [
            (b"GET / HTTP/1.1\r\n\r\n", "not a request"),
            (call(b"ZVl\xff\xff\xff\xffS\0\1at\0\3intzVzz"), "malformed table"),
            (whole[:-1], f"the connection ended inside a request, after {len(whole) - 1} bytes"),
        ]
        with Collector() as collector, collector.connect() as bystander:
            bystander.sendall(whole[:50])
            for request, reason in cases:
                with self.subTest(reason), collector.connect() as peer:
                    peer.sendall(request)
                    with contextlib.suppress(OSError):  # it may have been ended already
                        peer.shutdown(socket.SHUT_WR)
                    self.assertTrue(ends(peer))
                    collector.explanation(r"tcp 127\.0\.0\.1:\d+: " + reason)
            collector.connect().close()  # one that says nothing is not spoken of
            bystander.sendall(whole[50:])
            self.assertEqual(read_reply(bystander), SUCCESS)
            self.assertEqual(collector.line()["message"], "m")
        self.assertEqual(collector.unread, ["", ""])

    def test_limits(self):
        request = log_line("x" * 5000)
        with Collector("--max-request", str(len(request)), "--max-memory", "64K", "--idle-timeout",
                       "3", "--address-connections", "6") as collector, \
                contextlib.ExitStack() as open_peers:
            with collector.connect() as peer:
                peer.sendall(log_line("x" * 6000)[:-1])  # not even whole, and too much already
                self.assertTrue(ends(peer))
                collector.explanation(f"request larger than {len(request)} bytes")
            # Each holds a block of 4 KiB and one of 8, and a silent one the first.
            peers = []
            for sent, said in ([(request[:-1], None)] * 5 + [(request[:-1], "memory .* is used up"),
                               (b"", None), (request[:-1], "address has too many")]):
                peers.append(open_peers.enter_context(collector.connect()))
                peers[-1].sendall(sent)
                if said:
                    collector.explanation(f"given up to make room, 5... bytes of a request: .*{said}")
                    self.assertTrue(ends(peers.pop(0)))
            self.assertEqual(collector.send(request), SUCCESS)  # again the oldest makes room
            collector.explanation("given up to make room")
            self.assertTrue(all(map(ends, peers)))
            for _ in range(4):
                collector.explanation("idle inside a request, after 5... bytes")
        self.assertEqual(collector.unread[1], "")

    def test_proxy_headers(self):
        cases = [
            (b"PROXY TCP4 203.0.113.7 10.0.0.1 56324 7000\r\n", "203.0.113.7:56324"),
            (b"PROXY TCP6 2001:db8::7 ::1 9 7000\r\n", "[2001:db8::7]:9"),
            (b"PROXY UNKNOWN\r\n", "127.0.0.1:"),
            (bytes.fromhex("0d0a0d0a000d0a515549540a 21 11 000f cb007107 0a000001 dc04 1b58 040000"),
             "203.0.113.7:56324"),
            (bytes.fromhex("0d0a0d0a000d0a515549540a 21 21 0024") + bytes(15) + b"\7" + bytes(16) +
             b"\0\x09\0\0", "[::7]:9"),
            (bytes.fromhex("0d0a0d0a000d0a515549540a 20 00 0000"), "127.0.0.1:"),
            (b"PROXY TCP4 203.0.113.7 10.0.0.1 99999 7000\r\n", None),
            (bytes.fromhex("0d0a0d0a000d0a515549540a 21 11 0004 cb007107"), None),
            (b"PROXY TCP4 " + b"1" * 97, None), (b"", None)]
        with Collector("--proxy", "127.0.0.1") as collector:
            for header, peer_told in cases:
                with self.subTest(header), collector.connect() as peer:
                    peer.sendall(header + log_line("m"))
                    if peer_told:
                        self.assertEqual(read_reply(peer), SUCCESS)
                        self.assertTrue(collector.line()["peer"].startswith(peer_told))
                    else:
                        self.assertTrue(ends(peer))
                        collector.explanation("no PROXY header")
        self.assertEqual(collector.unread, ["", ""])

    def test_faults_and_wrong_command_lines(self):
        with Collector("--fault", "-2147483648:a:b é") as collector:
            self.assertEqual(collector.send(log_line("m")), fault(-2147483648, "a:b é"))
            self.assertEqual(collector.line()["message"], "m")
            for status, *arguments in (
                    (2, "--fault", "1x:m"), (2, "--port", "65536"), (2, "--max-request", "-1"),
                    (2, "--what"), (2, "--durable"), (1, "--output", "/"),
                    (1, "--port", str(collector.tcp_port))):
                ended = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=PATIENCE)
                self.assertEqual((ended.returncode, ended.stdout), (status, b""), arguments)
                self.assertNotEqual(ended.stderr, b"", arguments)
            self.assertIn(b"cannot listen", ended.stderr)  # on the port in use

    def test_values_of_any_service(self):
        cases = [
            (b"D" + struct.pack(">d", float("nan")), "nan"),
            (b"d" + struct.pack(">q", 951827400250), "2000-02-29T12:30:00.250Z"),
            (b"d" + struct.pack(">q", 2**63 - 1), 2**63 - 1),
            (b"M" + string("k") + number(1) + number(5) + b"Nz", {"k": 1, "5": None}),
            (b"ZVl\0\0\0\1S\0\1at\0\3intz" + b"VV" + number(1) + b"zVNzzz",
             {"columns": [{"name": "a", "type": "int"}], "rows": [[1], [None]]}),
            (b"V" * 61 + b"z" * 61, json.loads("[" * 61 + "]" * 61)),
            (b"V" * 62 + b"z" * 62, json.loads("[" * 61 + '{"omitted":"nesting"}' + "]" * 61)),
        ]
        with Collector() as collector:
            for argument, expected in cases:
                with self.subTest(str(expected)):
                    self.assertEqual(collector.send(call(argument, "any thing")), SUCCESS)
                    line = collector.line()
                    self.assertEqual((line["service"], line["argument"]), ("any thing", expected))
            # A record of texts that are none, and fields that nobody knows.
            bad = b"a\xff\xe4\xb8"
            fields = {5: string("9"), 3: string("03"), 8: string("%ff%4%zz"), 1: string(bad),
                      4: b"N", 77: string("there"), -1: b"T", 6: string("%00\x7f%22%5c")}
            self.assertEqual(collector.send(call(record(fields), bad)), SUCCESS)
            line = collector.line()
            del line["time"], line["peer"], line["transport"]
            self.assertEqual(line, {
                "service": "a\ufffd\ufffd", "kind": "unknown", "kind_code": "9", "level": "03",
                "message": "\ufffd%4%zz", "software_id": "a\ufffd\ufffd", "log_type": None,
                "user_id": "\0\x7f\"\\", "77": "there", "-1": True})

    def test_long_texts(self):
        text = "x" + "\u00e9" * 70000
        with Collector("--store", self.store) as collector:
            extra = b"s" + binary(text.encode())[1:].replace(b"b\x80\0", b"s\x80\0")
            collector.send(call(record({5: string("4"), 301: extra.replace(b"B", b"S")})))
            line = collector.line()
            self.assertEqual(line["extra_data"], text[:32768])  # no part of a character
            self.check_kept(line["extra_data_file"], text.encode())
            for no_text in (b"\x80", b"\xc0\xaf", b"\xe0\x9f\xbf", b"\xed\xa0\x80", b"\xe4\xb8A",
                            b"\xf0\x8f\xbf\xbf", b"\xf4\x90\x80\x80"):
                collector.send(call(record({5: string("4"), 403: binary(no_text)})))
                line = collector.line()
                self.assertNotIn("dump", line)
                self.check_kept(line["dump_file"], no_text)

    def test_what_has_no_place_in_a_line_is_kept_once(self):
        deep = b"Vl\0\0\0\1" * 300 + string("x") + b"z" * 300
        cases = [  # what, and the end of the line before the attachment
            (deep, [{"omitted": "nesting"}]),
            (b"Vl\0\0\0\x64" + b"B\0\1x" * 100 + b"z", {"binary": {"size": 1}}),
            (b"Vl\0\0\0\x14" + string("\x01" * 30000) * 20 + b"z", {"omitted": "size"}),
        ]
        with Collector("--store", self.store) as collector:
            for argument, last in cases:
                collector.send(call(argument))
                line = collector.line()
                self.check_kept(line["argument_file"], argument)
                found = line["argument"]
                while isinstance(found, list) and found != last:
                    found = found[-1]
                self.assertEqual(found, last)
            made = {5: string("9"), **{i: binary(b"x") for i in range(1000, 1100)}}
            collector.send(call(record(made)))
            self.assertEqual(collector.line()["1050"], {"binary": {"size": 1}})
        self.assertEqual(len(list(self.store.iterdir())), len(cases) + 1)

    def test_a_store_with_bounds(self):
        file = request_named("file of 32768 bytes")
        for bound, said in ((("--max-files", "1"), "--max-files"), (("--max-store", "40K"), "max-store"),
                            (("--min-free", "1000000G"), "min-free")):
            with tempfile.TemporaryDirectory() as store, \
                    Collector("--store", pathlib.Path(store), *bound) as collector:
                if said == "min-free":
                    collector.explanation("--store: too little space is left")
                else:
                    self.assertEqual(collector.send(file), SUCCESS)
                    collector.line()
                self.assertEqual(collector.send(file),
                                 fault(1, "the collector could not keep this record"))
                collector.explanation(f"attachment not stored: .*{said}")
                self.assertIn("error", collector.line()["content_file"])
                self.assertEqual(len(list(pathlib.Path(store).iterdir())), said != "min-free")


class LinuxTest(unittest.TestCase):
    def setUp(self):
        if on_windows():
            self.skipTest("limits and full disks are made with means of Linux")

    def test_thousands_of_peers_at_once(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        with Collector("--address-connections", "9999",
                       limits=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (256, hard)),
                       stdout=subprocess.DEVNULL) as collector:
            peers = [collector.connect() for _ in range(min(4000, hard - 200))]
            for half in (slice(0, 60), slice(60, None)):
                for i, peer in enumerate(peers):
                    peer.sendall(log_line(str(i))[half])
            for peer in peers:
                self.assertEqual(read_reply(peer), SUCCESS)
                peer.close()
        self.assertRegex(collector.unread[1], r"^(.*connections have to wait: .*\n)*$")

    def test_disk_full(self):
        with tempfile.TemporaryDirectory() as store, Collector(
                "--store", store,
                limits=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000))) as collector:
            self.assertEqual(collector.send(request_named("file of 100000 bytes"))[9:10], b"f")
            collector.explanation("attachment not stored: ")
            self.assertEqual(collector.line()["content_file"].keys(), {"size", "sha256", "error"})
            self.assertEqual(list(pathlib.Path(store).iterdir()), [])
            self.assertEqual(collector.send(request_named("file of 32768 bytes")), SUCCESS)

    def test_output_that_takes_nothing(self):
        reader, writer = os.pipe()
        with open("/dev/full", "wb") as full, os.fdopen(writer, "wb") as pipe:
            with Collector(stdout=full) as collector:
                self.assertEqual(collector.send(log_line("m")),
                                 fault(1, "the collector could not keep this record"))
                collector.explanation("a record is lost: the output: ")
            with Collector(stdout=pipe, status=1) as collector:
                os.close(reader)
                self.assertNotEqual(collector.send(log_line("m")), SUCCESS)
                collector.process.wait(PATIENCE)
                collector.explanation("Broken pipe")

    def test_pipes_that_nobody_reads(self):
        with Collector() as collector:
            fcntl.fcntl(collector.process.stderr, fcntl.F_SETPIPE_SZ, 4096)
            fcntl.fcntl(collector.process.stdout, fcntl.F_SETPIPE_SZ, 4096)
            for _ in range(200):
                with collector.connect() as peer:
                    peer.sendall(b"x" * 100)
                    self.assertTrue(ends(peer))
            # More than the pipe takes, so that there is no reply until somebody reads.
            with collector.connect() as peer, collector.connect() as other:
                peer.sendall(log_line("x" * 9000))
                other.sendall(b"x")
                self.assertTrue(ends(other))  # served meanwhile
                self.assertEqual(len(collector.line()["message"]), 9000)
                self.assertEqual(read_reply(peer), SUCCESS)
                peer.sendall(log_line("x" * 9000))
                collector.process.send_signal(signal.SIGTERM)
                self.assertNotEqual(peer.recv(100), SUCCESS)
                self.assertEqual(collector.process.wait(PATIENCE), 0)

    def test_a_file_of_records(self):
        with tempfile.TemporaryDirectory() as folder:
            output = pathlib.Path(folder) / "records.jsonl"
            output.write_text('{"a":1}\n{"time":"2024-')  # killed inside a line
            with Collector("--output", output, "--durable", "--store", folder) as collector:
                self.assertEqual(collector.send(log_line("one")), SUCCESS)
                output.rename(output.with_suffix(".1"))
                collector.process.send_signal(signal.SIGHUP)
                while not output.exists():
                    time.sleep(0.01)
                self.assertEqual(collector.send(request_named("file of 32768 bytes")), SUCCESS)
            self.assertRegex(output.with_suffix(".1").read_text(),
                             r'^\{"a":1\}\n\{"time":[^\n]*"one"\}\n$')
            kept = json.loads(output.read_text())["content_file"]["name"]
            for path in output, pathlib.Path(folder) / kept:
                self.assertEqual(path.stat().st_mode & 0o777, 0o600)

    def test_metrics_and_the_service_manager(self):
        with tempfile.TemporaryDirectory() as folder, \
                socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(folder + "/notify")
            with unittest.mock.patch.dict(os.environ, NOTIFY_SOCKET=folder + "/notify"):
                collector = Collector("--metrics-port", "0", "--store", folder)
            with collector:
                self.assertEqual(manager.recv(99), b"READY=1")
                self.assertEqual(collector.send(request_named("file of 32768 bytes")), SUCCESS)
                url = f"http://127.0.0.1:{collector.metrics_port[0]}/metrics"
                with urllib.request.urlopen(url, timeout=PATIENCE) as answer:
                    text = answer.read().decode()
                for line in ('tavu_collector_requests_total{outcome="kept"} 1',
                             "tavu_collector_store_files 1", "tavu_collector_connections 0"):
                    self.assertIn("\n" + line + "\n", text)

    def test_a_short_siege(self):
        siege = pathlib.Path(__file__).resolve().parents[2] / "scripts/siege"
        done = subprocess.run([sys.executable, siege, COMMAND[-1], "--hostile", "400", "--kills", "3",
                               "--trickle", "15"], capture_output=True, timeout=600)
        self.assertEqual(done.returncode, 0, done.stderr.decode())


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    COMMAND.extend(sys.argv[1:])
    unittest.main(argv=sys.argv[:1])
