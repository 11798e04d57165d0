#!/usr/bin/env python3
"""Makes one table of what the benchmarks printed: table.py BENCHMARK.json... ROWS.tsv... DLL.

The JSON files are Google Benchmark's with repetitions, of which the medians are taken; the others
hold the rows that pairs.h prints. Ratios are of figures taken in the same run."""
import json
import os
import sys

# How a ratio reads: the time that ours takes in times of the other's, or how often ours is done while
# the other's is done once.
TIME, SPEED = '{:.2f} × the time', '{:.2f} × as fast'

SHAPES = {'log': 'a log record', 'attachment': 'a 1 MiB attachment',
          'nested': 'a nested value (both below)', 'numbers': '— a list of 1,000 ints',
          'named_numbers': '— a map of 1,000 strings to doubles'}
LIBRARIES = {'msgpack': 'msgpack-c++, its own object', 'cbor': 'nlohmann/json, CBOR',
             'converted': 'msgpack-c++, into C++ containers', 'memcpy': 'malloc and memcpy'}


def codec_rows():
    """(what, ours, compared with, other, ratio, goal)"""
    for step in ('build', 'encode', 'decode'):
        for shape, name in SHAPES.items():
            peers = ['msgpack', 'converted', 'cbor'] if step == 'decode' else ['msgpack', 'cbor']
            for peer in peers:
                # Like is compared with like where the tree finds its keys and owns what it holds.
                counts = step == 'encode' or (step == 'decode' and peer != 'msgpack')
                goal = 1.5 if counts and shape != 'attachment' else None
                yield (f'{step} {name}', f'{step}/{shape}/lumo', LIBRARIES[peer],
                       f'{step}/{shape}/{peer}', SPEED, goal)
            if shape == 'attachment' and step != 'build':
                yield (f'{step} {name}', f'{step}/{shape}/lumo', LIBRARIES['memcpy'],
                       'copy/attachment/memcpy', SPEED, 0.9)
    yield ('format a line of text and numbers', 'format/line/lumo', 'snprintf',
           'format/line/snprintf', SPEED, None)


# (what, row, compared with, ratio, goal of the ratio)
PAIRS = (
    ('log call over TCP', 'log/tcp', 'connect, send, receive, close', TIME, 1.05),
    ('log call over TCP', 'log/tcp_timeouts', 'the same with time-outs and reset', TIME, None),
    ('log call over UDP', 'log/udp', 'connect, send, close', TIME, 1.10),
    ('upload of 64 MiB', 'upload', 'a send loop', SPEED, 0.95),
    ('upload of 64 MiB', 'upload/packets', 'the same packets, sent bare', SPEED, None),
    ('— its memory beyond the block', 'upload/memory', '', None, None),
    ('post a LuaDump, few queued', 'post/few_queued', 'new of 1,200 bytes', TIME, None),
    ('post a LuaDump, 50,000 queued', 'post/50000_queued', 'new of 1,200 bytes', TIME, None),
    ('post a LuaDump to a waiting worker', 'post/idle_worker', '', None, None),
    ('set a number (TAVU_SetTimeout)', 'setter/number', '', None, None),
    ('set a text (TAVU_SetUserIDW)', 'setter/text', '', None, None),
    ('TAVU_GetLastError', 'last_error', '', None, None),
    ('thread that waits for the lock', 'waiting', '', None, None),
    ('load and free the DLL', 'load', 'an empty DLL', TIME, None),
    ('size of the DLL', 'size', '', None, None),
    ('crash to reporter start', 'crash', 'dump, module walk, process start', TIME, 1.15),
    ('collector, a connection a record', 'collector/short', 'a bare Asio server', SPEED, 0.95),
    ('collector, one connection', 'collector/records', 'a bare Asio server', SPEED, 0.9),
    ('collector, one upload', 'collector/upload', 'a bare Asio server', SPEED, 0.4),
)

# The most that a figure itself may be.
BOUNDS = {'upload/memory': 1, 'post/few_queued': 2, 'post/50000_queued': 2, 'setter/number': 150,
          'setter/text': 150, 'waiting': 0.1}


def read(paths):
    """Name → (ours, other or None, unit); of Google Benchmark, name → nanoseconds."""
    pairs, times = {}, {}
    for path in paths:
        if path.endswith('.json'):
            with open(path, encoding='utf-8') as file:
                for run in json.load(file)['benchmarks']:
                    if run.get('aggregate_name') == 'median':
                        times[run['run_name']] = run['cpu_time']
        elif path.endswith('.dll'):
            pairs['size'] = (os.path.getsize(path), None, 'bytes')
        else:
            with open(path, encoding='utf-8') as file:
                for row in file:
                    name, ours, other, unit = row.rstrip('\r\n').split('\t')
                    pairs[name] = (float(ours), None if other == '-' else float(other), unit)
    return pairs, times


def figure(value, unit):
    if unit == 'ns' and value >= 10000:
        value, unit = value / 1000, 'µs'
    digits = 0 if value >= 1000 else 1 if value >= 10 else 2
    return f'{value:,.{digits}f} {unit}'.replace('us', 'µs')


def line(what, ours, peer, other, unit, ratio, goal, bound=None):
    """One row, with a goal of the ratio or a bound of our figure, if there is one."""
    shown, aim, met = '', '', ''
    if other is not None:
        value = other / ours if ratio == SPEED else ours / other
        shown = ratio.format(value)
    if goal is not None:
        aim = f'{"≥" if ratio == SPEED else "≤"} {goal:g}'
        met = 'yes' if (value >= goal if ratio == SPEED else value <= goal) else 'no'
    if bound is not None:
        aim = f'≤ {bound:g} {unit}'.replace('us', 'µs')
        met = 'yes' if ours <= bound else 'no'
    return (what, figure(ours, unit), peer, '' if other is None else figure(other, unit), shown,
            aim, met)


def main():
    pairs, times = read(sys.argv[1:])
    table = [line(what, times[ours], peer, times[other], 'ns', ratio, goal)
             for what, ours, peer, other, ratio, goal in codec_rows()]
    for what, row, peer, ratio, goal in PAIRS:
        ours, other, unit = pairs[row]
        table.append(line(what, ours, peer, other, unit, ratio, goal, BOUNDS.get(row)))
    header = ('what', 'TAVU', 'compared with', 'its figure', 'ratio', 'goal', 'met')
    widths = [max(len(row[i]) for row in [header, *table]) for i in range(len(header))]
    for index, row in enumerate([header, *table]):
        print('| ' + ' | '.join(cell.ljust(width) for cell, width in zip(row, widths)) + ' |')
        if index == 0:
            print('|' + '|'.join('-' * (width + 2) for width in widths) + '|')


if __name__ == '__main__':
    main()
