"""The collector as its users meet it: a real process, spoken to over real sockets.

usage: collector_test.py COLLECTOR... [-- UNITTEST-ARGUMENT...]
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
COMMAND = []
PATIENCE = 120  # seconds for what takes milliseconds, so that a busy machine is no failure

SUCCESS = bytes.fromhex("cf10000400057201004e7a0000")
NOT_KEPT = 1


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
    raw = service.encode() if isinstance(service, str) else service
    body = b"c\x01\x00m" + struct.pack(">H", len(raw)) + raw + argument + b"z"
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
    """A running collector: its ports, and what it writes, line by line."""

    def __init__(self, *arguments, stdout=subprocess.PIPE, limits=None, first_says=()):
        arguments = [f"Z:{argument}" if isinstance(argument, pathlib.Path) and on_windows()
                     else str(argument) for argument in arguments]
        self.process = subprocess.Popen(
            [*COMMAND, "--port", "0", *arguments], stdout=stdout, stderr=subprocess.PIPE,
            preexec_fn=limits, pipesize=1 << 20)  # so that it never waits for its reader
        for pattern in first_says:
            self.explanation(pattern)
        listening = self.explanation(r"listening on .* tcp \d+ udp \d+\s*$")
        self.tcp_port, self.udp_port = map(int, re.findall(r" (?:tcp|udp) (\d+)", listening))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with self.process:
            if self.process.poll() is None:
                self.process.send_signal(signal.SIGINT)
            self.process.wait(PATIENCE)
            self.unread = [stream.read().decode() if stream else ""
                           for stream in (self.process.stdout, self.process.stderr)]

    def line(self):
        return json.loads(self.process.stdout.readline())

    def explanation(self, pattern):
        """The next line on standard error, which has to match."""
        line = self.process.stderr.readline().decode()
        if not re.search(pattern, line):
            raise AssertionError(f"{line!r} does not match {pattern!r}")
        return line

    def connect(self):
        peer = socket.create_connection(("127.0.0.1", self.tcp_port), PATIENCE)
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        return peer

    def datagrams(self):
        peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        peer.connect(("127.0.0.1", self.udp_port))
        return peer

    def send(self, request):
        """One request over a connection of its own; the reply's bytes."""
        with self.connect() as peer:
            peer.sendall(request)
            return read_reply(peer)


def read_exactly(peer, size):
    data = b""
    while len(data) < size:
        piece = peer.recv(size - len(data))
        if not piece:
            raise AssertionError(f"the connection ended after {data!r}")
        data += piece
    return data


def read_reply(peer):
    """A reply whose body is one packet."""
    start = read_exactly(peer, 6)
    return start + read_exactly(peer, struct.unpack(">H", start[4:])[0] + 2)


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
        files = {}
        if case["kind"] == "crash":
            files = {"document_file": expected.pop("document").encode(),
                     "dump_file": expected.pop("content")}
        elif case["kind"] == "file":
            files = {"content_file": expected.pop("content")}
        elif case["kind"] == "luadump":
            files = {"dump_file": expected["dump"]}
            expected["dump"] = expected["dump"].decode()
        expected |= {"transport": transport, "service": case["service"], "kind": case["kind"]}
        kept = {name: line.pop(name) for name in [*line] if name.endswith("_file")}
        self.assertEqual(line, expected)
        self.assertEqual(kept.keys(), files.keys())
        for name, data in files.items():
            self.check_kept(kept[name], data)

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
            self.assertEqual([path for path in self.store.iterdir() if path.suffix == ".part"], [])

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
            peer.send(b"x")
            collector.explanation("udp .*: not a request")
            peer.send(b"more of it is nothing new")
            peer.send(two[:2048])
            peer.send(log_line("whole"))
            collector.explanation("udp .*: a request given up after 2048 bytes: another one begins")
            self.assertEqual(collector.line()["message"], "whole")
            # A continuation may look like a beginning at first.
            data = b"\xcf\x10\x00\x04" + bytes(2000)
            request = call(binary(bytes(900) + data))
            start = request.index(data)
            peer.send(request[:start])
            peer.send(request[start:])
            self.assertEqual(collector.line()["argument"]["binary"]["size"], 2904)
            peer.send(log_line("and") + b"!")
            collector.explanation("udp .*: bytes behind the end of the request")
            with collector.datagrams() as silent:
                silent.send(two[:2048])
            collector.explanation("udp .*: a request given up after 2048 bytes: no more datagrams")

    def test_requests_in_other_shapes(self):
        one, two = log_line("one"), log_line("two")
        bare = bytes.fromhex("cf10000a800000000101") + b"c\x01\x00m\x00\x01s" + string("bare") + b"z"
        with Collector() as collector, collector.connect() as peer:
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            peer.sendall(one + bare + two[:9])
            self.assertEqual([read_reply(peer) for _ in range(2)], [SUCCESS] * 2)
            for byte in two[9:]:
                peer.sendall(bytes([byte]))
            self.assertEqual(read_reply(peer), SUCCESS)
            lines = [collector.line() for _ in range(3)]
            self.assertEqual([line.get("message", line.get("argument")) for line in lines],
                             ["one", "bare", "two"])
            peer.sendall(one[:9])
            collector.process.send_signal(signal.SIGINT)
            self.assertEqual(collector.process.wait(PATIENCE), 0)

    def test_bad_bytes_end_that_connection_only(self):
        whole = request_named("plain")
        cases = [
            (b"GET / HTTP/1.1\r\n\r\n", "not a request"),
            (call(b"V" + b"Mz" * 70000 + b"z"), "too many values"),
            (call(b"ZVl\xff\xff\xff\xffS\0\1at\0\3intzVzz"), "values that cannot be decoded"),
            (b"\xcf\x10\x00\x0a\x80\x00\x00\x00\xff1c\x01\x00m\x00\x01sNz",  # a field too long
             "values that cannot be decoded"),
        ]
        with Collector() as collector, collector.connect() as bystander:
            bystander.sendall(whole[:50])
            for request, reason in cases:
                with self.subTest(reason), collector.connect() as peer:
                    with contextlib.suppress(ConnectionError):  # it may hear no more already
                        peer.sendall(request)
                    self.assertTrue(ends(peer))
                    collector.explanation(r"tcp 127\.0\.0\.1:\d+: " + reason)
            for end in ("reset", "close"):
                with collector.connect() as peer:
                    # The reply shows that the collector has what came along with the whole one.
                    peer.sendall(whole + whole[:-1])
                    self.assertEqual(read_reply(peer), SUCCESS)
                    collector.line()
                    if end == "close":
                        peer.shutdown(socket.SHUT_WR)
                        self.assertTrue(ends(peer))
                collector.explanation(rf"ended inside a request, after {len(whole) - 1} bytes")
            collector.connect().close()  # one that says nothing is not spoken of
            bystander.sendall(whole[50:])
            self.assertEqual(read_reply(bystander), SUCCESS)
            self.assertEqual(collector.line()["message"], "m")
        self.assertEqual(collector.unread, ["", ""])

    def test_limits(self):
        request = log_line("x" * 5000)
        with Collector("--max-request", str(len(request)), "--max-memory", "64K",
                       "--idle-timeout", "3") as collector:
            self.assertEqual(collector.send(request), SUCCESS)
            with collector.connect() as peer:
                peer.sendall(log_line("x" * 6000)[:-1])  # not even whole, and too much already
                self.assertTrue(ends(peer))
                collector.explanation(f"request larger than {len(request)} bytes")
            peers = [collector.connect() for _ in range(16)]
            for peer in peers[1:]:
                peer.sendall(request[:-1])
            said = [collector.explanation("memory for unfinished requests|idle inside a request")
                    for _ in peers[1:]]
            self.assertIn("memory", said[0])
            self.assertIn("idle", said[-1])
            self.assertTrue(all(ends(peer) for peer in peers))  # the silent first without a word
            for peer in peers:
                peer.close()
            self.assertEqual(collector.send(request), SUCCESS)
        self.assertEqual(collector.unread[1], "")

    def test_fault_answers(self):
        for argument, code, message in (("7:no", 7, "no"), ("-2147483648", -2147483648, ""),
                                        ("1:a:b é", 1, "a:b é")):
            with Collector("--fault", argument) as collector:
                self.assertEqual(collector.send(log_line("m")), fault(code, message))
                self.assertEqual(collector.line()["message"], "m")

    def test_wrong_command_lines(self):
        with Collector() as collector:
            for status, *arguments in (
                    (2, "--fault", "x"), (2, "--fault", "1x:m"), (2, "--port", "65536"),
                    (2, "--max-request", "-1"), (2, "--count", "-1"), (2, "--idle-timeout", "-1"),
                    (2, "--what"), (1, "--port", str(collector.tcp_port))):
                ended = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=PATIENCE)
                self.assertEqual((ended.returncode, ended.stdout), (status, b""), arguments)
                self.assertNotEqual(ended.stderr, b"", arguments)
            self.assertIn(b"cannot listen", ended.stderr)  # on the port in use

    def test_count_ends_it_after_the_last_reply(self):
        with Collector("--count", "3") as collector, collector.connect() as idle:
            idle.sendall(b"\xcf")
            with collector.datagrams() as peer:
                peer.send(log_line("1"))
                lines = [collector.line()]
            with collector.connect() as last:
                last.sendall(log_line("2") + log_line("3") + log_line("4"))
                self.assertEqual([read_reply(last), read_reply(last)], [SUCCESS] * 2)
                self.assertTrue(ends(last))
            self.assertEqual(collector.process.wait(PATIENCE), 0)
        lines += map(json.loads, collector.unread[0].splitlines())
        self.assertEqual([line["message"] for line in lines], ["1", "2", "3"])

    def test_values_of_any_service(self):
        cases = [
            (b"N", None), (b"T", True), (b"C\xff", -1), (number(-5), -5),
            (b"L" + struct.pack(">q", 2**62), 2**62), (b"D" + struct.pack(">d", 0.5), 0.5),
            (b"D" + struct.pack(">d", float("inf")), "inf"),
            (b"D" + struct.pack(">d", float("nan")), "nan"),
            (b"d" + struct.pack(">q", 951827400250), "2000-02-29T12:30:00.250Z"),
            (b"d" + struct.pack(">q", 2**63 - 1), 2**63 - 1),
            (b"V" + string("\u4e2d\0") + b"Vzz", ["\u4e2d\0", []]),
            (b"M" + string("k") + number(1) + number(2) + b"Nz", {"k": 1, "2": None}),
            (b"M" + number(5) + number(0) + b"z", {"5": 0}),
            (b"M" + b"TNz", {"map": [[True, None]]}),
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

    def test_texts_that_are_none_and_fields_that_nobody_knows(self):
        bad = b"a\xff\xe4\xb8"
        fields = {5: string("9"), 3: string("03"), 8: string("%ff%4%zz"), 1: string(bad), 4: b"N",
                  77: string("kept"), 78: binary(bad), 79: number(7), -1: b"T"}
        with Collector() as collector:
            self.assertEqual(collector.send(call(record(fields), bad)), SUCCESS)
            line = collector.line()
            del line["time"], line["peer"], line["transport"], line["78_file"]
            self.assertEqual(line, {
                "service": "a\ufffd\ufffd", "kind": "unknown", "kind_code": "9", "level": "03",
                "message": "\ufffd%4%zz", "software_id": "a\ufffd\ufffd", "log_type": None,
                "77": "kept", "79": 7, "-1": True})

    def test_long_texts_and_many_files(self):
        text = "\u00e9" + "x" * 70000
        with Collector("--store", self.store) as collector:
            extra = binary(text.encode())
            extra = b"s" + extra[1:].replace(b"b\x80\0", b"s\x80\0").replace(b"B", b"S")
            dump = b"\xff" + bytes(9)
            fields = {5: string("4"), 301: extra, 403: binary(dump)}
            self.assertEqual(collector.send(call(record(fields))), SUCCESS)
            line = collector.line()
            self.assertEqual(line["extra_data"], text[:65535])
            self.check_kept(line["extra_data_file"], text.encode())
            self.assertNotIn("dump", line)  # it is no text
            self.check_kept(line["dump_file"], dump)

            many = [b"%d" % i * i for i in range(101)]
            collector.send(call(b"V" + b"".join(map(binary, many)) + b"z"))
            collector.explanation("too many in one call")
            kept = [entry["binary"] for entry in collector.line()["argument"]]
            for entry, data in zip(kept[:100], many):
                self.check_kept(entry, data)
            self.assertIn("error", kept[100])

    def test_large_files_come_whole_while_others_are_served(self):
        data = {i: bytes([i]) * (3 << 20) + b"end" for i in range(3)}
        with Collector("--store", self.store) as collector, contextlib.ExitStack() as stack:
            peers = [stack.enter_context(collector.connect()) for _ in data]
            for peer, content in zip(peers, data.values()):
                peer.sendall(call(record({5: string("1"), 103: binary(content)})))
            self.assertEqual(collector.send(log_line("between")), SUCCESS)
            self.assertEqual([read_reply(peer) for peer in peers], [SUCCESS] * 3)
            for line in [collector.line() for _ in range(4)]:
                if "content_file" in line:
                    entry = line["content_file"]
                    self.check_kept(entry, data.pop((self.store / entry["name"]).read_bytes()[0]))
            self.assertEqual(data, {})

    def test_store_that_fails_and_recovers(self):
        upload, blocked = request_named("small file"), self.store.parent
        blocked.write_text("a file, not a folder")
        with Collector("--store", self.store, first_says=["attachments are lost"]) as collector:
            self.assertNotEqual(collector.send(upload), SUCCESS)
            collector.explanation("attachment not stored: ")
            entry = collector.line()["content_file"]
            self.assertEqual(entry.keys(), {"size", "sha256", "error"})
            self.assertEqual(entry["size"], 4)
            self.assertEqual(collector.send(log_line("without files all is well")), SUCCESS)
            collector.line()
            blocked.unlink()
            self.assertEqual(collector.send(upload), SUCCESS)
            self.check_kept(collector.line()["content_file"], b"\0\1\2\xff")


class LinuxTest(unittest.TestCase):
    def setUp(self):
        if on_windows():
            self.skipTest("limits and full disks are made with means of Linux")

    def test_thousands_of_peers_at_once(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))

        def soft_limit():
            resource.setrlimit(resource.RLIMIT_NOFILE, (256, hard))

        with Collector(limits=soft_limit, stdout=subprocess.DEVNULL) as collector:
            peers = [collector.connect() for _ in range(min(4000, hard - 200))]
            for half in (slice(0, 60), slice(60, None)):
                for i, peer in enumerate(peers):
                    peer.sendall(log_line(str(i))[half])
            for peer in peers:
                self.assertEqual(read_reply(peer), SUCCESS)
                peer.close()
        self.assertRegex(collector.unread[1], r"^(.*connections have to wait: .*\n)*$")

    def test_disk_full(self):
        def small_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000))

        with tempfile.TemporaryDirectory() as store, \
                Collector("--store", store, limits=small_files) as collector:
            self.assertEqual(collector.send(request_named("file of 100000 bytes"))[9:10], b"f")
            collector.explanation("attachment not stored: ")
            self.assertIn("error", collector.line()["content_file"])
            self.assertEqual(list(pathlib.Path(store).iterdir()), [])
            self.assertEqual(collector.send(request_named("file of 32768 bytes")), SUCCESS)

    def test_output_that_takes_nothing(self):
        with open("/dev/full", "wb") as full, Collector(stdout=full) as collector:
            for _ in range(2):
                reply = collector.send(log_line("m"))
                self.assertEqual(reply, fault(NOT_KEPT, "the collector could not keep this record"))
                collector.explanation("a record is lost: standard output: ")
        self.assertEqual(collector.process.returncode, 0)

    def test_reader_of_the_output_gone(self):
        reader, writer = os.pipe()
        with os.fdopen(writer, "wb") as output, Collector(stdout=output) as collector:
            os.close(reader)
            self.assertNotEqual(collector.send(log_line("m")), SUCCESS)
            self.assertEqual(collector.process.wait(PATIENCE), 1)
            collector.explanation("Broken pipe")


def main():
    arguments = sys.argv[1:]
    split = arguments.index("--") if "--" in arguments else len(arguments)
    COMMAND.extend(arguments[:split])
    if not COMMAND:
        sys.exit(__doc__)
    unittest.main(argv=[sys.argv[0], *arguments[split + 1:]])


if __name__ == "__main__":
    main()
