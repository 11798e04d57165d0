"""The reader of requests in Python: what it decodes and refuses, and one request over a socket."""
import contextlib
import hashlib
import json
import pathlib
import socket
import subprocess
import sys
import tracemalloc
import unittest

from collector_test import SUCCESS, bytes_of, plain, records

READER = pathlib.Path(__file__).resolve().parents[2] / "examples/python_reader/read_requests.py"
sys.path.insert(0, str(READER.parent))
import read_requests  # found only now

CASES = records("log", "file", "crash", "luadump")
REQUESTS = {case["name"]: bytes_of(case["request"]) for case in CASES}


class PythonReaderTest(unittest.TestCase):
    def test_decodes_every_request(self):
        for case in CASES:
            with self.subTest(case["name"]):
                service, record = read_requests.decode(REQUESTS[case["name"]])
                self.assertEqual(service, case["service"])
                self.assertEqual(record, {int(k): plain(*v) for k, v in case["fields"].items()})
                self.assertEqual(list(record), case["order"])
                read_requests.json_line(service, record)

    def test_refuses_cut_and_overlong_requests(self):
        for name in "small file", "message of two packets":
            request = REQUESTS[name]
            for size in range(len(request)):
                with self.assertRaises(read_requests.BadRequest, msg=size):
                    read_requests.decode(request[:size])
            with self.assertRaises(read_requests.BadRequest):
                read_requests.decode(request + b"\0")

    def test_percent_forms_cost_no_more_than_their_bytes(self):
        for shift in range(4):  # so that each place of a form meets the border of a block
            decoded = read_requests.percent_decoded(b"x" * shift + b"%E4%" * (1 << 16) + b"%4")
            self.assertEqual(decoded, b"x" * shift + b"\xe4%" * (1 << 16) + b"%4")
        data = b"%E4%" * (1 << 17)
        tracemalloc.start()
        read_requests.percent_decoded(data)
        self.assertLess(tracemalloc.get_traced_memory()[1], 25 * len(data))  # 100 without blocks
        tracemalloc.stop()

    def test_serves_a_request(self):
        command = [sys.executable, READER, "--count", "1"]
        with (subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as server,
              contextlib.ExitStack() as at_exit):
            at_exit.callback(server.kill)  # so that a failure below does not wait for its end
            port = int(server.stderr.readline().rpartition(b":")[2])
            with socket.create_connection(("127.0.0.1", port), timeout=60) as client:
                client.sendall(REQUESTS["small file"])
                self.assertEqual(client.makefile("rb").read(), SUCCESS)
            output, errors = server.communicate(timeout=60)
        self.assertEqual((server.returncode, errors), (0, b""))
        record = json.loads(output)
        self.assertEqual((record["message"], record["content"]), (
            "a message", {"size": 4, "sha256": hashlib.sha256(b"\0\1\2\xff").hexdigest()}))


if __name__ == "__main__":
    unittest.main()
