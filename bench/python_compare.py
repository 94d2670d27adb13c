#!/usr/bin/env python3
"""The Python package beside the C++ face and beside numpy, on one HDR frame; prints medians and ratios as JSON.

usage: python_compare.py READ_MERGED [SIDE [ROUNDS]]

- "read": orvacam.read(path).merged; "face": the same by the C++ face (the program READ_MERGED), in turns.
- "one": decodes of a frame in memory by one thread, into an array of its own; "two": twice as many by two threads.
- "numpy": the same frame from the same bytes by numpy: unpacked, then merged by a table.
Times are seconds of wall time; "processor" is the same by processor time, which says more on a busy machine. All outputs are compared with each other once. READ_MERGED is a program of the build.
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import threading
import time

import numpy

import orvacam

READ_MERGED = sys.argv[1]
SIDE, ROUNDS = (int(sys.argv[i]) if len(sys.argv) > i else default for i, default in ((2, 4096), (3, 9)))
HEADER = 384


def timed(work, times=1):
    """Seconds of wall time and of processor time, system included, of each time."""
    start, processor = time.perf_counter(), time.process_time()
    work()
    return (time.perf_counter() - start) / times, (time.process_time() - processor) / times


def median(values):
    return sorted(values)[len(values) // 2]


def unpack(packed):
    triples = packed.reshape(-1, 3).astype(numpy.uint16)
    plane = numpy.empty(packed.size * 2 // 3, numpy.uint16)
    plane[0::2] = triples[:, 0] << 4 | triples[:, 1] >> 4
    plane[1::2] = (triples[:, 1] & 15) << 8 | triples[:, 2]
    return plane


def by_numpy(data, corrected):
    rows = unpack(numpy.frombuffer(data, numpy.uint8, offset=HEADER)).reshape(SIDE, 2, SIDE)
    high, terms = rows[:, 1], corrected[rows[:, 0]]
    return numpy.where((high >= 3700) | (terms > high + numpy.uint16(128)), terms, high)


def in_threads(count, frame, decodes):
    """Decodes of each of so many threads, each with its own decoder and array."""
    tools = [(orvacam.Decoder(), numpy.empty(frame.shape, numpy.uint16)) for _ in range(count)]

    def decode(decoder, array):
        for _ in range(decodes):
            decoder.decode(frame, planes=('merged',), out={'merged': array})

    threads = [threading.Thread(target=decode, args=pair) for pair in tools]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def large_frame():
    """A small sky, over and over: simulating is what takes long."""
    tile = min(SIDE, 512)
    sky = orvacam.simulate('GSENSE4040', mode='hdr', width=tile, height=tile)
    head = bytearray(orvacam.simulate('GSENSE4040', mode='hdr', width=SIDE, height=1)[:HEADER])
    head[83:85] = SIDE.to_bytes(2, 'big')         # rows
    head[126:128] = (SIDE - 1).to_bytes(2, 'big')  # the last of them
    rows = numpy.frombuffer(sky, numpy.uint8, offset=HEADER).reshape(tile, 2, tile * 3 // 2)
    return bytes(head) + numpy.tile(rows, (SIDE // tile, 1, SIDE // tile)).tobytes()


def main():
    data = large_frame()
    frame = orvacam.read(data)
    ratio = orvacam.Decoder().merge_info(frame.header)['gain_ratio']
    corrected = numpy.minimum(numpy.rint(numpy.arange(4096) * ratio), 65535).astype(numpy.uint16)
    assert frame.shape == (SIDE, SIDE), frame.shape
    assert numpy.array_equal(by_numpy(data, corrected), frame.merged), 'numpy gives another picture'
    numbers = {name: [] for name in ('read', 'face', 'one', 'two', 'numpy')}
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / 'frame.raw'
        path.write_bytes(data)
        in_threads(2, frame, 1)
        for _ in range(ROUNDS):
            face = subprocess.run([READ_MERGED, path, '2'], check=True, stdout=subprocess.PIPE, text=True)
            numbers['face'].append(tuple(map(float, face.stdout.split()[2:])))
            orvacam.read(path).merged
            numbers['read'].append(timed(lambda: orvacam.read(path).merged))
            numbers['one'].append(timed(lambda: in_threads(1, frame, 8), 8))
            numbers['two'].append(timed(lambda: in_threads(2, frame, 8), 16))
            numbers['numpy'].append(timed(lambda: by_numpy(data, corrected)))
    wall, processor = ({name: median([value[kind] for value in values]) for name, values in numbers.items()}
                       for kind in (0, 1))
    json.dump({'side': SIDE, 'wall': {name: round(value, 5) for name, value in wall.items()},
               'processor': {name: round(value, 5) for name, value in processor.items()},
               'read to face': round(wall['read'] / wall['face'], 3),
               'read to face, processor': round(processor['read'] / processor['face'], 3),
               'two threads to one': round(wall['one'] / wall['two'], 3),
               'numpy to one': round(wall['numpy'] / wall['one'], 1)}, sys.stdout, indent=1)
    print()


if __name__ == '__main__':
    main()
