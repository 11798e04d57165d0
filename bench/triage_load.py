"""Makes many crashes out of a few real ones, to measure tools/triage with.

    bench/triage_load.py MODELS FOLDER [--crashes N] [--signatures N] [--users N]

MODELS has a collector's records.jsonl and attachments, as scripts/demo leaves them in
build/demo/many. FOLDER gets as many crashes as are asked for: whole documents and dumps, each with a
user, a time and a load address of its own, so that no two are the same bytes. What the models lack
in signatures comes from other exception codes.
"""
import argparse
import datetime
import json
import pathlib
import random
import re
import struct

PROGRAM = 'tavu_crashing_host.exe'
THREADS, MODULES, EXCEPTION = 3, 4, 6
CONTEXT_REGISTERS, REGISTERS = 0x78, 17
MADE_CODE = 0xE0010000
FAR = 0x7FF500000000  # where Windows loads programs, and none of the models' other modules lies
BEGIN = datetime.datetime(2024, 1, 1)


class Model:
    """A real crash, and where in its dump lies what changes from crash to crash."""

    def __init__(self, record, store):
        self.record = record
        self.document = (store / record['document_file']['name']).read_text('utf-8')
        self.dump = (store / record['dump_file']['name']).read_bytes()
        count, directory = struct.unpack_from('<II', self.dump, 8)
        streams = {}
        for index in range(count):
            kind, _, place = struct.unpack_from('<III', self.dump, directory + 12 * index)
            streams[kind] = place
        self.exception = streams[EXCEPTION]
        (thread,) = struct.unpack_from('<I', self.dump, self.exception)
        (self.code,) = struct.unpack_from('<I', self.dump, self.exception + 8)
        (context,) = struct.unpack_from('<I', self.dump, self.exception + 164)
        (threads,) = struct.unpack_from('<I', self.dump, streams[THREADS])
        self.words = [(self.exception + 24, 1), (context + CONTEXT_REGISTERS, REGISTERS)]
        for index in range(threads):
            ident, size, place = struct.unpack_from('<I28xII', self.dump,
                                                    streams[THREADS] + 4 + 48 * index)
            if ident == thread:
                self.words.append((place, size // 8))
        (modules,) = struct.unpack_from('<I', self.dump, streams[MODULES])
        for index in range(modules):
            entry = streams[MODULES] + 4 + 108 * index
            base, size, name = struct.unpack_from('<QI8xI', self.dump, entry)
            (length,) = struct.unpack_from('<I', self.dump, name)
            if self.dump[name + 4:name + 4 + length].decode('utf-16-le').endswith(PROGRAM):
                self.base, self.size = base, size
                self.words.append((entry, 1))

    def moved(self, distance, code):
        """Document and dump of the same crash with the program elsewhere."""
        dump = bytearray(self.dump)
        struct.pack_into('<I', dump, self.exception + 8, code)
        for place, count in self.words:
            words = struct.unpack_from(f'<{count}Q', dump, place)
            struct.pack_into(f'<{count}Q', dump, place, *(
                word + distance if 0 <= word - self.base < self.size else word for word in words))

        def move(match):
            address = int(match[2], 16)
            inside = (address - self.base) & 0xFFFFFFFF < self.size
            return f'{match[1]}"0x{(address + distance * inside) & 0xFFFFFFFF:08X}"'
        return re.sub(r'(\b(?:base_)?addr=)"0x([0-9A-F]+)"', move, self.document), bytes(dump)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split('\n', maxsplit=1)[0])
    parser.add_argument('models', type=pathlib.Path)
    parser.add_argument('folder', type=pathlib.Path)
    parser.add_argument('--crashes', type=int, default=10_000)
    parser.add_argument('--signatures', type=int, default=50)
    parser.add_argument('--users', type=int, default=3_000)
    options = parser.parse_args()

    chance = random.Random(1)
    models = {}  # by way: one of each version
    for line in (options.models / 'records.jsonl').read_text('utf-8').splitlines():
        model = Model(json.loads(line), options.models / 'attachments')
        way = re.search('<custom_info>([a-z-]+)', model.document)[1]
        models.setdefault(way, {})[model.record['software_version']] = model
    signatures = [(list(versions.values()), None) for versions in models.values()]
    raised = list(models['raise'].values())
    signatures += [(raised, MADE_CODE + n) for n in range(options.signatures - len(signatures))]
    signatures = signatures[:options.signatures]

    store = options.folder / 'attachments'
    store.mkdir(parents=True)
    with open(options.folder / 'records.jsonl', 'w', encoding='utf-8') as records:
        for number in range(options.crashes):
            # Each signature at least once; then a few that many have, and many that few have.
            place = number if number < len(signatures) else \
                int(len(signatures) * chance.random() ** 3)
            versions, code = signatures[place]
            model = chance.choice(versions)
            document, dump = model.moved(FAR + (chance.randrange(1 << 16) << 16), code or model.code)
            time = BEGIN + datetime.timedelta(seconds=120 * number)
            stem = f'{time:%Y%m%dT%H%M%S}000Z-00000000-{number}-crash'
            (store / f'{stem}.xml').write_text(document, 'utf-8')
            (store / f'{stem}.dmp').write_bytes(dump)
            records.write(json.dumps({
                **model.record, 'time': f'{time:%Y-%m-%dT%H:%M:%S}.000Z',
                'user_id': f'user {chance.randrange(options.users)}',
                'document_file': {'name': f'{stem}.xml', 'size': len(document)},
                'dump_file': {'name': f'{stem}.dmp', 'size': len(dump)}}) + '\n')


if __name__ == '__main__':
    main()
