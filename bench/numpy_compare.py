#!/usr/bin/env python3
"""What numpy takes for the same work: prints the medians of processor time in microseconds as JSON.

usage: numpy_compare.py [SIDE [REPEATS]]
"""
import json
import sys
import time

import numpy

SIDE = int(sys.argv[1]) if len(sys.argv) > 1 else 4096
REPEATS = int(sys.argv[2]) if len(sys.argv) > 2 else 5


def median_time(work):
    times = []
    for _ in range(REPEATS):
        start = time.process_time()
        work()
        times.append(time.process_time() - start)
    return sorted(times)[len(times) // 2] * 1e6


def unpack(packed, plane):
    triples = packed.reshape(SIDE, SIDE // 2, 3)
    b0, b1, b2 = (triples[:, :, place].astype(numpy.uint16) for place in range(3))
    plane[:, 0::2] = b0 << 4 | b1 >> 4
    plane[:, 1::2] = (b1 & 15) << 8 | b2


def statistics(plane):
    histogram = numpy.bincount(plane.reshape(-1), minlength=65536)
    return (plane.mean(), plane.std(), histogram.argmax(), numpy.unravel_index(plane.argmin(), plane.shape),
            numpy.unravel_index(plane.argmax(), plane.shape))


def main():
    random = numpy.random.default_rng(7)
    plane = numpy.minimum(random.normal(100, 3, (SIDE, SIDE)), 4095).astype(numpy.uint16)
    packed = numpy.empty((SIDE, SIDE // 2, 3), numpy.uint8)
    first, second = plane[:, 0::2], plane[:, 1::2]
    packed[:, :, 0] = first >> 4
    packed[:, :, 1] = (first & 15) << 4 | second >> 8
    packed[:, :, 2] = second & 255
    packed = packed.reshape(-1)
    unpacked = numpy.empty_like(plane)
    sums = numpy.zeros((SIDE, SIDE))

    def add_frame():
        numpy.add(sums, plane, out=sums)

    times = {'unpack 12-bit': median_time(lambda: unpack(packed, unpacked)),
             'statistics': median_time(lambda: statistics(plane)),
             'StackNextFrame, 16-bit': median_time(add_frame),
             'Finish of a stack': median_time(lambda: (sums / REPEATS).astype(numpy.uint16))}
    assert numpy.array_equal(plane, unpacked), 'unpacked plane'
    assert numpy.array_equal(sums, plane.astype(float) * REPEATS), 'sums'
    assert statistics(plane)[0] == plane.sum(dtype=numpy.int64) / plane.size, 'mean'
    json.dump(times, sys.stdout)


if __name__ == '__main__':
    main()
