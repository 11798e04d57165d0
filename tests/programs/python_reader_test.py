"""The reader of requests in Python: what it decodes and refuses, and one request over a socket."""
import contextlib, hashlib, json, pathlib, socket, subprocess, sys, unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
READER = ROOT / "examples/python_reader/read_requests.py"
sys.dont_write_bytecode = True
sys.path.insert(0, str(READER.parent))
import read_requests

def joined(pieces):
    pieces = [pieces] if isinstance(pieces, str) else pieces
    return b"".join(bytes.fromhex(p if isinstance(p, str) else p[1] * p[2]) for p in pieces)

def plain(kind, *content):
    if kind == "string":
        return content[0]
    data = bytes.fromhex(content[0]) * (content[1] if kind.endswith("-repeat") else 1)
    return data.decode() if kind.startswith("string") else data

CASES = json.loads((ROOT / "tests/data/records.json").read_text("ascii"))["cases"]
REQUESTS = {case["name"]: joined(case["request"]) for case in CASES}
SUCCESS = bytes.fromhex("CF 10 00 04 00 05 72 01 00 4E 7A 00 00")  # as docs/wire.md gives it

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

    def test_serves_a_request_in_two_pieces(self):
        command = [sys.executable, READER, "--count", "1"]
        with (subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as server,
              contextlib.ExitStack() as at_exit):
            at_exit.callback(server.kill)  # so that a failure below does not wait for its end
            port = int(server.stderr.readline().rpartition(b":")[2])
            with socket.create_connection(("127.0.0.1", port), timeout=60) as client:
                client.sendall(REQUESTS["small file"][:100])
                client.settimeout(0.2)  # nothing is answered to a part
                self.assertRaises(socket.timeout, client.recv, 1)
                client.settimeout(60)
                client.sendall(REQUESTS["small file"][100:])
                self.assertEqual(client.makefile("rb").read(), SUCCESS)
            output, errors = server.communicate(timeout=60)
        self.assertEqual((server.returncode, errors), (0, b""))
        record, digest = json.loads(output), hashlib.sha256(bytes.fromhex("000102ff")).hexdigest()
        self.assertEqual(record["message"], "a message")
        self.assertEqual(record["content"], {"size": 4, "sha256": digest})

if __name__ == "__main__":
    unittest.main()
