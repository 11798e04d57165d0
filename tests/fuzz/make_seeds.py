"""What the fuzzers start from: the reference vectors, each as the input of its fuzzer.

usage: make_seeds.py VECTORS FOLDER
"""
import json
import pathlib
import sys

VECTORS, FOLDER = map(pathlib.Path, sys.argv[1:])


def cases(file, *members):
    vectors = json.loads((VECTORS / (file + ".json")).read_text())
    return [case for member in members for case in vectors[member]]


def bytes_of(file, *members, key="bytes"):
    """Of each case whose bytes are spelled out in full, which all short ones are."""
    return [bytes.fromhex(case[key]) for case in cases(file, *members) if isinstance(case[key], str)]


def write(fuzzer, inputs):
    folder = FOLDER / fuzzer
    folder.mkdir(parents=True, exist_ok=True)
    for number, data in enumerate(sorted(set(inputs))):
        (folder / f"seed_{number}").write_bytes(data)


values = bytes_of("codec", "encode", "decode", "refused")
requests = bytes_of("records", "cases", key="request") + bytes_of("framing", "requests")
dates = cases("dates", "parse")

write("codec", values)
write("skip", values)
# A first byte says how: into which type and in which mode, a value or (with its top bit) a text.
write("convert", [bytes([how]) + data for how, data in enumerate(values[:48])] +
      [bytes([0x80 + how]) + case["text"].encode() for how, case in enumerate(dates[:48])])
write("date", [f"{case['kind']}{case['text']}".encode() for case in dates])
write("format", [case["format"].encode() for case in cases("strings", "format")])
write("pairs", [case["line"].encode("latin-1", "replace")
                for case in cases("texts", "reporter_command_line", "restart_command_line")])
write("reply", bytes_of("replies", "replies"))
write("request", requests)
write("scan", [b"\2" + request for request in requests])
