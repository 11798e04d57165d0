"""The collector as its users meet it: a real process, spoken to over real sockets.

usage: collector_test.py COLLECTOR... [-- UNITTEST-ARGUMENT...]
COLLECTOR is the program with what has to stand in front of it to run it.
"""

import contextlib
import hashlib
import json
import os
import pathlib
import queue
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

try:
    import resource
except ImportError:
    resource = None

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


def text_of(notation):
    return notation if isinstance(notation, str) else notation[1] * notation[2]


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
        self.process = subprocess.Popen(
            [*COMMAND, "--port", "0", *arguments], stdout=stdout, stderr=subprocess.PIPE,
            preexec_fn=limits)
        self.lines, self.explanations = queue.Queue(), queue.Queue()
        self.threads = [
            threading.Thread(target=self._read, args=(stream, lines), daemon=True)
            for stream, lines in ((self.process.stdout, self.lines),
                                  (self.process.stderr, self.explanations)) if stream]
        for thread in self.threads:
            thread.start()
        for pattern in first_says:
            self.explanation(pattern)
        listening = self.explanation("listening on")
        self.tcp_port, self.udp_port = map(
            int, re.search(r" tcp (\d+) udp (\d+)$", listening).groups())

    @staticmethod
    def _read(stream, lines):
        for line in stream:
            lines.put(line.decode().rstrip("\r\n"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        self.process.wait(PATIENCE)
        for thread in self.threads:
            thread.join(PATIENCE)
        for stream in (self.process.stdout, self.process.stderr):
            if stream:
                stream.close()

    def line(self):
        return json.loads(self.lines.get(timeout=PATIENCE))

    def explanation(self, pattern):
        """The next line on standard error, which has to match."""
        line = self.explanations.get(timeout=PATIENCE)
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
    reply = read_exactly(peer, 4)
    while True:
        length = read_exactly(peer, 2)
        packet = read_exactly(peer, struct.unpack(">H", length)[0])
        reply += length + packet
        if not packet:
            return reply


def fault(code, message):
    body = (b"r\x01\x00f" + string("code") + number(code) + string("message") + string(message) +
            string("detail") + b"NzNz")
    return b"\xcf\x10\x00\x04" + struct.pack(">H", len(body)) + body + b"\0\0"


def nested(depth):
    value = []
    for _ in range(depth - 1):
        value = [value]
    return value


def ends(peer):
    """Whether the collector ends the connection without a reply."""
    try:
        return peer.recv(1) == b""
    except ConnectionError:
        return True


class CollectorTest(unittest.TestCase):
    maxDiff = None

    def check_line(self, line, case, transport, store):
        given, kind = case["given"], case["kind"]
        self.assertRegex(line.pop("time"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        self.assertRegex(line.pop("peer"), r"^127\.0\.0\.1:\d+$")
        expected = {"transport": transport, "service": case["service"], "kind": kind,
                    "message": text_of(given["message"]), "reserved": "0"}
        files = {}
        if kind == "luadump":
            for name in ("message", "extra", "user", "dump"):
                expected[name] = text_of(given[name]) if given[name] else "-"
            files["dump_file"] = expected["dump"].encode()
            user = expected.pop("user")
            expected |= {
                "kind_code": "4", "level": 0, "log_type": "LuaDump", "local_address": "0.0.0.0",
                "user_id": "USER_SERVER" if given["user"] is None else user,
                "software_id": given["software_id_number"],
                "software_version": str(given["software_ver_number"]),
                "dump_number": given["dump_number"]}
        else:
            expected |= {
                "kind_code": "1", "user_id": given["user_id"] or "",
                "software_id": given["software_id"], "software_version": given["software_ver"],
                "local_address": given["local_address"]}
        if kind == "log":
            expected |= {"level": given["level"], "log_type": given["log_type"], "kind_code": "0"}
            if given["extra"] is not None:
                expected |= {"kind_code": "3", "extra_data": text_of(given["extra"])}
        elif kind == "file":
            expected |= {"level": 5, "log_type": "customfile", "document": "<root></root>",
                         "message": text_of(given["message"]) or "-",
                         "description": given["description"]}
            files["content_file"] = bytes_of(given["data"])
        elif kind == "crash":
            expected |= {"level": 0, "log_type": "crash", "description": given["description"]}
            files["document_file"] = bytes_of(given["document"])
            files["dump_file"] = bytes_of(given["dump"])
        kept = {name: line.pop(name) for name in [*line] if name.endswith("_file")}
        self.assertEqual(line, expected)
        self.assertEqual(kept.keys(), files.keys())
        for name, data in files.items():
            self.check_kept(kept[name], data, store)

    def check_kept(self, kept, data, store):
        self.assertEqual(kept["size"], len(data))
        self.assertEqual(kept["sha256"], hashlib.sha256(data).hexdigest())
        self.assertEqual((store / kept["name"]).read_bytes(), data)

    @contextlib.contextmanager
    def store(self):
        with tempfile.TemporaryDirectory() as folder:
            yield pathlib.Path(folder) / "é" / "attachments"

    def store_argument(self, store):
        return f"Z:{store}" if on_windows() else str(store)

    def test_records_over_tcp(self):
        with self.store() as store, Collector("--store", self.store_argument(store)) as collector:
            for case in records("log", "file", "crash", "luadump"):
                with self.subTest(case["name"]):
                    self.assertEqual(collector.send(bytes_of(case["request"])), SUCCESS)
                    self.check_line(collector.line(), case, "tcp", store)
            self.assertEqual([path for path in store.iterdir() if path.suffix == ".part"], [])

    def test_records_over_udp(self):
        with Collector() as collector:
            parts = []
            for case in records("log"):
                request, sizes = bytes_of(case["request"]), case["datagrams"]
                starts = [sum(sizes[:i]) for i in range(len(sizes))]
                parts.append([request[start:start + size] for start, size in zip(starts, sizes)])
            cases = records("log")
            for case, datagrams in zip(cases, parts):
                with self.subTest(case["name"]), collector.datagrams() as peer:
                    for datagram in datagrams:
                        peer.send(datagram)
                    self.check_line(collector.line(), case, "udp", None)
            # All at once, a datagram of each peer in turn: they get whole in the order of their
            # lengths.
            peers = [collector.datagrams() for _ in cases]
            for turn in range(max(map(len, parts))):
                for peer, datagrams in zip(peers, parts):
                    if turn < len(datagrams):
                        peer.send(datagrams[turn])
            order = sorted(range(len(cases)), key=lambda i: len(parts[i]))
            for i in order:
                line = collector.line()
                self.assertEqual(line["peer"], "127.0.0.1:%d" % peers[i].getsockname()[1])
                self.check_line(line, cases[i], "udp", None)
            for peer in peers:
                peer.close()

    def test_udp_requests_that_come_to_nothing(self):
        two = request_named("message of two packets")
        with Collector() as collector, collector.datagrams() as peer:
            peer.send(b"x")
            collector.explanation("udp .*: not a request")
            for _ in range(3):
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
        with Collector() as collector, collector.connect() as peer, collector.connect() as dribble:
            peer.sendall(one + two + bare + one[:9])
            self.assertEqual(read_exactly(peer, 3 * len(SUCCESS)), SUCCESS * 3)
            peer.sendall(one[9:])
            self.assertEqual(read_exactly(peer, len(SUCCESS)), SUCCESS)
            lines = [collector.line() for _ in range(4)]
            self.assertEqual([line.get("message", line.get("argument")) for line in lines],
                             ["one", "two", "bare", "one"])
            dribble.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for byte in two:
                dribble.sendall(bytes([byte]))
            self.assertEqual(read_reply(dribble), SUCCESS)
            self.assertEqual(collector.line()["message"], "two")

    def test_bad_bytes_end_that_connection_only(self):
        whole = request_named("plain")
        cases = [
            (b"GET / HTTP/1.1\r\n\r\n", "not a request"),
            (SUCCESS, "not a call"),
            (whole[:20] + b"\xff" * 40, "unknown value tag|bytes behind"),
            (call(b"NN"), "more than one argument"),
            (call(b"V" * 2000), "values nested too deeply"),
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
                    collector.explanation(r"tcp 127\.0\.0\.1:\d+: (" + reason + ")")
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
            with collector.connect() as peer:  # one that says nothing is not spoken of
                pass
            bystander.sendall(whole[50:])
            self.assertEqual(read_reply(bystander), SUCCESS)
            self.assertEqual(collector.line()["message"], "m")
        self.assertEqual(list(collector.explanations.queue), [])
        self.assertEqual(list(collector.lines.queue), [])

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
        self.assertEqual(list(collector.explanations.queue), [])

    def test_fault_answers(self):
        for argument, code, message in (("7:no", 7, "no"), ("-2147483648", -2147483648, ""),
                                        ("1:a:b é", 1, "a:b é")):
            with Collector("--fault", argument) as collector:
                self.assertEqual(collector.send(log_line("m")), fault(code, message))
                self.assertEqual(collector.line()["message"], "m")

    def test_wrong_command_lines(self):
        for arguments in (["--fault", "x"], ["--fault", "1x:m"], ["--port", "65536"], ["--what"],
                          ["--max-request", "-1"], ["--count", "-1"], ["--idle-timeout", "-1"]):
            ended = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=PATIENCE)
            self.assertEqual((ended.returncode, ended.stdout), (2, b""), arguments)
            self.assertNotEqual(ended.stderr, b"", arguments)

    def test_count_ends_it_after_the_last_reply(self):
        with Collector("--count", "3") as collector, collector.connect() as idle:
            idle.sendall(b"\xcf")
            with collector.datagrams() as peer:
                peer.send(log_line("first"))
                self.assertEqual(collector.line()["message"], "first")
            self.assertEqual(collector.send(log_line("second")), SUCCESS)
            with collector.connect() as last:
                last.sendall(log_line("third") + log_line("fourth"))
                self.assertEqual(read_reply(last), SUCCESS)
                self.assertTrue(ends(last))
            self.assertEqual(collector.process.wait(PATIENCE), 0)
        self.assertEqual([json.loads(collector.lines.get())["message"] for _ in range(2)],
                         ["second", "third"])
        self.assertEqual(list(collector.lines.queue), [])

    def test_interrupt_ends_it(self):
        with Collector() as collector, collector.connect() as idle:
            idle.sendall(b"\xcf\x10")
            self.assertEqual(collector.send(log_line("m")), SUCCESS)
            collector.process.send_signal(signal.SIGINT)
            self.assertEqual(collector.process.wait(PATIENCE), 0)

    def test_port_in_use(self):
        with Collector() as collector:
            ended = subprocess.run([*COMMAND, "--port", str(collector.tcp_port)],
                                   capture_output=True, timeout=PATIENCE)
            self.assertEqual(ended.returncode, 1)
            self.assertIn(b"cannot listen", ended.stderr)

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
            (b"M" + string("1") + b"N" + number(1) + b"Tz", {"map": [[1, True], ["1", None]]}),
            (b"ZVl\0\0\0\1S\0\1at\0\3intz" + b"VV" + number(1) + b"zVNzzz",
             {"columns": [{"name": "a", "type": "int"}], "rows": [[1], [None]]}),
            (b"V" * 900 + b"z" * 900, nested(900)),
        ]
        with Collector() as collector:
            for argument, expected in cases:
                with self.subTest(str(expected)):
                    self.assertEqual(collector.send(call(argument, "any thing")), SUCCESS)
                    line = collector.line()
                    self.assertEqual(line["service"], "any thing")
                    if isinstance(expected, dict) and "map" in expected:
                        self.assertCountEqual(line["argument"]["map"], expected["map"])
                    else:
                        self.assertEqual(line["argument"], expected)

    def test_texts_that_are_none_and_fields_that_nobody_knows(self):
        bad = b"a\xff\xe4\xb8"
        fields = {5: string("9"), 3: string("03"), 8: string("%ff%4%zz"), 1: string(bad), 4: b"N",
                  77: string("kept"), 78: binary(bad), 79: number(7), -1: b"T"}
        with Collector() as collector:
            self.assertEqual(collector.send(call(record(fields), bad)), SUCCESS)
            line = collector.line()
            del line["time"], line["peer"], line["transport"]
            del line["78_file"]
            self.assertEqual(line, {
                "service": "a\ufffd\ufffd", "kind": "unknown", "kind_code": "9", "level": "03",
                "message": "\ufffd%4%zz", "software_id": "a\ufffd\ufffd", "log_type": None,
                "77": "kept", "79": 7, "-1": True})

    def test_long_texts_and_many_files(self):
        text = "\u00e9" + "x" * 70000
        with self.store() as store, Collector("--store", self.store_argument(store)) as collector:
            extra = binary(text.encode())
            extra = b"s" + extra[1:].replace(b"b\x80\0", b"s\x80\0").replace(b"B", b"S")
            dump = b"\xff" + bytes(9)
            fields = {5: string("4"), 301: extra, 403: binary(dump)}
            self.assertEqual(collector.send(call(record(fields))), SUCCESS)
            line = collector.line()
            self.assertEqual(line["extra_data"], text[:65535])
            self.check_kept(line["extra_data_file"], text.encode(), store)
            self.assertNotIn("dump", line)  # it is no text
            self.check_kept(line["dump_file"], dump, store)

            many = call(b"V" + b"".join(binary(b"%d" % i) for i in range(101)) + b"z")
            self.assertEqual(collector.send(many)[:4], SUCCESS[:4])
            collector.explanation("too many in one call")
            kept = [entry["binary"] for entry in collector.line()["argument"]]
            for i, entry in enumerate(kept[:100]):
                self.check_kept(entry, b"%d" % i, store)
            self.assertIn("error", kept[100])

    def test_large_files_come_whole_while_others_are_served(self):
        data = [bytes([i]) * (3 << 20) + b"end" for i in range(3)]
        with self.store() as store, Collector("--store", self.store_argument(store)) as collector:
            peers = [collector.connect() for _ in data]
            for peer, content in zip(peers, data):
                peer.sendall(call(record({5: string("1"), 103: binary(content)})))
            self.assertEqual(collector.send(log_line("between")), SUCCESS)
            for peer in peers:
                self.assertEqual(read_reply(peer), SUCCESS)
                peer.close()
            lines = [collector.line() for _ in range(4)]
            kept = [line["content_file"] for line in lines if "content_file" in line]
            by_first = {(store / entry["name"]).read_bytes()[0]: entry for entry in kept}
            for i, content in enumerate(data):
                self.check_kept(by_first[i], content, store)

    def test_store_that_fails_and_recovers(self):
        upload = request_named("small file")
        with tempfile.TemporaryDirectory() as folder:
            blocked = pathlib.Path(folder) / "blocked"
            blocked.write_text("a file, not a folder")
            with Collector("--store", self.store_argument(blocked / "store"),
                           first_says=["attachments are lost"]) as collector:
                self.assertNotEqual(collector.send(upload), SUCCESS)
                collector.explanation("attachment not stored: ")
                line = collector.line()["content_file"]
                self.assertNotIn("name", line)
                self.assertIn("error", line)
                self.assertEqual(line["size"], 4)
                self.assertEqual(collector.send(log_line("without files all is well")), SUCCESS)
                collector.line()
                blocked.unlink()
                self.assertEqual(collector.send(upload), SUCCESS)
                self.check_kept(collector.line()["content_file"], b"\0\1\2\xff", blocked / "store")


@unittest.skipIf(resource is None, "limits and full disks are made with means of Linux")
class LinuxTest(unittest.TestCase):
    def setUp(self):
        if on_windows():
            self.skipTest("limits and full disks are made with means of Linux")
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        self.files = hard
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))

    def test_thousands_of_peers_at_once(self):
        def soft_limit():
            resource.setrlimit(resource.RLIMIT_NOFILE, (256, self.files))

        count = min(4000, self.files - 200)
        with Collector(limits=soft_limit) as collector:
            peers = [collector.connect() for _ in range(count)]
            for half in (slice(0, 60), slice(60, None)):
                for i, peer in enumerate(peers):
                    peer.sendall(log_line(str(i))[half])
            for peer in peers:
                self.assertEqual(read_reply(peer), SUCCESS)
                peer.close()
            messages = [int(collector.line()["message"]) for _ in range(count)]
            self.assertEqual(sorted(messages), list(range(count)))
        self.assertEqual(list(collector.explanations.queue), [])

    def test_more_peers_than_the_system_allows(self):
        def few():
            resource.setrlimit(resource.RLIMIT_NOFILE, (40, 40))

        with Collector(limits=few) as collector:
            # Looked at once, types need no further look: UndefinedBehaviorSanitizer looks through a
            # pipe, which it cannot have later.
            self.assertEqual(collector.send(log_line("m")), SUCCESS)
            peers = [collector.connect() for _ in range(100)]  # the backlog holds the rest
            collector.explanation("connections have to wait: ")
            for peer in peers:
                peer.sendall(log_line("m"))
                self.assertEqual(read_reply(peer), SUCCESS)
                peer.close()
        while not collector.explanations.empty():
            collector.explanation("connections have to wait: ")

    def test_disk_full(self):
        def small_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000))

        with tempfile.TemporaryDirectory() as store, \
                Collector("--store", store, limits=small_files) as collector:
            self.assertEqual(collector.send(request_named("file of 100000 bytes"))[4:10][-1:], b"f")
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
