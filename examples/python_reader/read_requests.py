#!/usr/bin/env python3
"""Reads the requests that TAVU.dll sends, as docs/wire.md describes them, over TCP or from files.
Prints one JSON line for each record: a starting point for a collector in another language."""
import argparse, hashlib, io, json, socketserver, sys, threading
from typing import BinaryIO, Dict, List, Tuple, Union
from urllib.parse import unquote_to_bytes

Record = Dict[int, Union[str, bytes]]

MAX_REQUEST, MAX_ENTRIES, BLOCK = 256 << 20, 1000, 1 << 16
SUCCESS = bytes.fromhex("CF100004 0005 720100 4E 7A 0000")
NAMES = {0: "reserved", 1: "software_identifier", 2: "software_version", 3: "level", 4: "log_type",
         5: "kind", 6: "user_identifier", 7: "client_address", 8: "message", 101: "description",
         102: "document", 103: "content", 301: "extra_data", 401: "extra_text", 402: "dump_number",
         403: "dump"}
ENCODED, BINARY = {4, 6, 8, 401}, {103, 403}

class BadRequest(ValueError):
    """The bytes are not the request of a record, not a whole one, or one beyond the bounds."""

def require(condition: bool, complaint: str) -> None:
    if not condition:
        raise BadRequest(complaint)

def exactly(stream: BinaryIO, size: int) -> bytes:
    data = stream.read(size)
    require(len(data) == size, "the input ends too early")
    return data

def number(data: bytes) -> int:  # lengths have two bytes and no sign, ints four and one
    return int.from_bytes(data, "big", signed=len(data) == 4)

def has_packets(stream: BinaryIO) -> bool:
    """Reads the transport header."""
    require(exactly(stream, 1) == b"\xCF", "no transport header")
    size = number(exactly(stream, 3)[1:]) - 4  # without the version, which is not checked
    require(size >= 0, "a header of less than 4 bytes")
    fields = io.BytesIO(exactly(stream, size))
    masks: List[int] = []
    while len(masks) < 2 and fields.tell() < size:
        masks.append(int.from_bytes(exactly(fields, 4), "big"))
        for _ in range(bin(masks[-1] >> 1).count("1")):  # bit 0 stands for no field
            exactly(fields, exactly(fields, 1)[0])
    return not (masks and masks[0] >> 31)

class Body:
    """The bytes of a body, read as they are asked for and freed of the borders of packets."""
    def __init__(self, stream: BinaryIO) -> None:
        self.stream, self.total, self.packets = stream, 0, has_packets(stream)
        self.left = 0 if self.packets else MAX_REQUEST  # bytes until the next packet begins

    def take(self, size: int) -> bytes:
        self.total += size
        require(self.total <= MAX_REQUEST, f"a body above {MAX_REQUEST} bytes")
        data = bytearray()
        while len(data) < size:
            if self.left == 0:
                self.left = number(exactly(self.stream, 2))
                require(self.left > 0, "the end packet cuts the body short")
            part = exactly(self.stream, min(size - len(data), self.left))
            self.left -= len(part)
            data += part
        return bytes(data)

    def end(self) -> None:
        if self.packets:
            require(self.left == 0 and exactly(self.stream, 2) == b"\0\0", "bytes after the call")

def read_string_or_binary(body: Body) -> Union[str, bytes]:
    tag, data = body.take(1), bytearray()
    last = tag.upper()
    require(last in (b"S", b"B"), f"{tag!r} where a string or a binary must stand")
    while tag != last:
        size = number(body.take(2))
        require(size <= 32768, f"a chunk of {size} bytes that is not the last one")
        data += body.take(size)
        tag = body.take(1)
        require(tag.upper() == last, f"{tag!r} between the chunks of a value")
    data += body.take(number(body.take(2)))
    # The bytes of a string need not be UTF-8: the escapes keep those that are not.
    return bytes(data) if last == b"B" else data.decode("utf-8", "surrogateescape")

def read_request(stream: BinaryIO) -> Tuple[str, Record]:
    """The service and the argument, a dict from int to str or bytes. Reads no byte beyond them."""
    body, entries = Body(stream), 0
    record: Record = {}
    require(body.take(3) == b"c\1\0", "no call of envelope version 1.0")
    require(body.take(1) == b"m", "no service in the call")
    service = body.take(number(body.take(2))).decode("utf-8", "surrogateescape")
    require(body.take(1) == b"M", "an argument that is no map")
    while (tag := body.take(1)) != b"z":
        require(tag == b"I", f"{tag!r} where an int key must stand")
        key = number(body.take(4))
        record.setdefault(key, read_string_or_binary(body))  # of equal keys the first one holds
        entries += 1
        require(entries <= MAX_ENTRIES, f"a map of more than {MAX_ENTRIES} entries")
    require(body.take(1) == b"z", "no end after the argument")
    body.end()
    return service, record

def decode(data: bytes) -> Tuple[str, Record]:
    """The same of bytes that hold one request and nothing else."""
    stream = io.BytesIO(data)
    request = read_request(stream)
    require(stream.tell() == len(data), "bytes after the request")
    return request

def percent_decoded(data: bytes) -> bytes:
    """In blocks, because unquote_to_bytes() keeps some hundred bytes for each form that it sees."""
    decoded, start = bytearray(), 0
    while start < len(data):
        end = min(start + BLOCK, len(data))
        if end < len(data) and (form := data.find(b"%", end - 2, end)) >= 0:
            end = form  # the block would end inside it
        decoded += unquote_to_bytes(data[start:end])
        start = end
    return bytes(decoded)

def json_line(service: str, record: Record) -> str:
    require(service in ("tavu_server", "LuaDump"), f"an unknown service: {service!r}")
    named: Dict[str, object] = {"service": service}
    for key in sorted(NAMES.keys() & record.keys()):  # the order on the wire means nothing
        name, value = NAMES[key], record[key]
        require(isinstance(value, bytes) == (key in BINARY), f"{name} has the wrong type")
        if isinstance(value, bytes):
            named[name] = {"size": len(value), "sha256": hashlib.sha256(value).hexdigest()}
        else:
            raw = value.encode("utf-8", "surrogateescape")
            named[name] = (percent_decoded(raw) if key in ENCODED else raw).decode("utf-8", "replace")
    return json.dumps(named)

class Server(socketserver.ThreadingTCPServer):  # threads: a silent client must not delay the others
    daemon_threads = allow_reuse_address = True

    def __init__(self, port: int, count: int) -> None:
        super().__init__(("127.0.0.1", port), Handler)
        self.lock, self.remaining = threading.Lock(), count

class Handler(socketserver.StreamRequestHandler):
    timeout = 60  # seconds of silence
    server: Server

    def handle(self) -> None:
        try:
            line = json_line(*read_request(self.rfile))
            with self.server.lock:
                if self.server.remaining != 0:
                    print(line, flush=True)  # before the answer, which says that the record is safe
                    self.server.remaining -= 1
                    self.wfile.write(SUCCESS)
        except (BadRequest, OSError) as error:  # the end of this connection, not of the others
            print("dropped:", error, file=sys.stderr)
        if self.server.remaining == 0:
            self.server.shutdown()

def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("files", nargs="*", metavar="FILE", help="the bytes of one request")
    parser.add_argument("--port", type=int, default=0, help="of 127.0.0.1; 0: a free one")
    parser.add_argument("--count", type=int, default=-1, help="end after so many records")
    options = parser.parse_args()
    for name in options.files:
        try:
            with open(name, "rb") as file:
                print(json_line(*decode(file.read())))
        except (BadRequest, OSError) as error:
            sys.exit(f"{name}: {error}")
    if not options.files:
        with Server(options.port, options.count) as server:
            print(f"listening on 127.0.0.1:{server.server_address[1]}", file=sys.stderr, flush=True)
            server.serve_forever(poll_interval=0.1)

if __name__ == "__main__":
    main()
