"""The collector as its users meet it: a real process, spoken to over real sockets.

usage: collector_test.py COLLECTOR...
COLLECTOR is the program with what has to stand in front of it to run it.
"""

import contextlib
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
import unittest
import urllib.parse

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


class Collector:
    """A running collector: its ports, and what it writes, line by line. It has to end
    with `status`, however much of the test it served."""

    def __init__(self, *arguments, stdout=subprocess.PIPE, limits=None, status=0):
        self.status = status
        arguments = [f"Z:{argument}" if isinstance(argument, pathlib.Path) and on_windows()
                     else str(argument) for argument in arguments]
        self.process = subprocess.Popen(
            [*COMMAND, "--port", "0", *arguments], stdout=stdout, stderr=subprocess.PIPE,
            preexec_fn=limits, pipesize=1 << 20)  # so that it never waits for its reader
        listening = self.explanation(r"listening on .* tcp \d+ udp \d+\s*$")
        self.tcp_port, self.udp_port = map(int, re.findall(r" (?:tcp|udp) (\d+)", listening))

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
                    ([log_line("and") + b"!"], "bytes behind the end of the request"),
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
            (call(b"ZVl\xff\xff\xff\xffS\0\1at\0\3intzVzz"), "values that cannot be decoded"),
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
        with Collector("--max-request", str(len(request)), "--max-memory", "64K",
                       "--idle-timeout", "3") as collector, contextlib.ExitStack() as open_peers:
            with collector.connect() as peer:
                peer.sendall(log_line("x" * 6000)[:-1])  # not even whole, and too much already
                self.assertTrue(ends(peer))
                collector.explanation(f"request larger than {len(request)} bytes")
            peers = [open_peers.enter_context(collector.connect()) for _ in range(16)]
            for peer in peers[1:]:
                peer.sendall(request[:-1])
            said = [collector.explanation("memory for unfinished requests|idle inside a request")
                    for _ in peers[1:]]
            self.assertIn("memory", said[0])
            self.assertIn("idle", said[-1])
            self.assertTrue(all(ends(peer) for peer in peers))  # the silent first without a word
            self.assertEqual(collector.send(request), SUCCESS)
        self.assertEqual(collector.unread[1], "")

    def test_faults_and_wrong_command_lines(self):
        with Collector("--fault", "-2147483648:a:b é") as collector:
            self.assertEqual(collector.send(log_line("m")), fault(-2147483648, "a:b é"))
            self.assertEqual(collector.line()["message"], "m")
            for status, *arguments in (
                    (2, "--fault", "1x:m"), (2, "--port", "65536"), (2, "--max-request", "-1"),
                    (2, "--what"), (1, "--port", str(collector.tcp_port))):
                ended = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=PATIENCE)
                self.assertEqual((ended.returncode, ended.stdout), (status, b""), arguments)
                self.assertNotEqual(ended.stderr, b"", arguments)
            self.assertIn(b"cannot listen", ended.stderr)  # on the port in use

    def test_values_of_any_service(self):
        cases = [
            (b"C\xff", -1), (b"L" + struct.pack(">q", 2**62), 2**62),
            (b"D" + struct.pack(">d", 0.5), 0.5), (b"D" + struct.pack(">d", float("nan")), "nan"),
            (b"d" + struct.pack(">q", 951827400250), "2000-02-29T12:30:00.250Z"),
            (b"d" + struct.pack(">q", 2**63 - 1), 2**63 - 1),
            (b"V" + string("\u4e2d\0") + b"Vzz", ["\u4e2d\0", []]),
            (b"M" + string("k") + number(1) + number(5) + b"Nz", {"k": 1, "5": None}),
            (b"M" + string("1") + b"N" + number(1) + b"Tz", {"map": [["1", None], [1, True]]}),
            (b"ZVl\0\0\0\1S\0\1at\0\3intz" + b"VV" + number(1) + b"zVNzzz",
             {"columns": [{"name": "a", "type": "int"}], "rows": [[1], [None]]}),
            (b"V" * 900 + b"z" * 900, json.loads("[" * 900 + "]" * 900)),
        ]
        with Collector() as collector:
            for argument, expected in cases:
                with self.subTest(str(expected)):
                    self.assertEqual(collector.send(call(argument, "any thing")), SUCCESS)
                    line = collector.line()
                    self.assertEqual(line["service"], "any thing")
                    if isinstance(expected, dict) and "map" in expected:
                        line["argument"]["map"].sort(key=str)
                    self.assertEqual(line["argument"], expected)
            # A record of texts that are none, and fields that nobody knows.
            bad = b"a\xff\xe4\xb8"
            fields = {5: string("9"), 3: string("03"), 8: string("%ff%4%zz"), 1: string(bad),
                      4: b"N", 77: string("kept"), -1: b"T"}
            self.assertEqual(collector.send(call(record(fields), bad)), SUCCESS)
            line = collector.line()
            del line["time"], line["peer"], line["transport"]
            self.assertEqual(line, {
                "service": "a\ufffd\ufffd", "kind": "unknown", "kind_code": "9", "level": "03",
                "message": "\ufffd%4%zz", "software_id": "a\ufffd\ufffd", "log_type": None,
                "77": "kept", "-1": True})

    def test_long_texts_and_many_files(self):
        text = "x" + "\u00e9" * 70000
        many = [b"%d" % i * i for i in range(101)]
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
            collector.send(call(b"V" + b"".join(map(binary, many)) + b"z"))
            collector.explanation("too many in one call")
            *kept, last = [entry["binary"] for entry in collector.line()["argument"]]
            for entry, data in zip(kept, many):
                self.check_kept(entry, data)
            self.assertIn("error", last)


class LinuxTest(unittest.TestCase):
    def setUp(self):
        if on_windows():
            self.skipTest("limits and full disks are made with means of Linux")

    def test_thousands_of_peers_at_once(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        with Collector(limits=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (256, hard)),
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
                collector.explanation("a record is lost: standard output: ")
            with Collector(stdout=pipe, status=1) as collector:
                os.close(reader)
                self.assertNotEqual(collector.send(log_line("m")), SUCCESS)
                collector.process.wait(PATIENCE)
                collector.explanation("Broken pipe")


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    COMMAND.extend(sys.argv[1:])
    unittest.main(argv=sys.argv[:1])
