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


def unpack(packed, planes):
    triples = packed.reshape(SIDE, 2, SIDE // 2, 3)
    for index, plane in enumerate(planes):
        b0, b1, b2 = (triples[:, index, :, place].astype(numpy.uint16) for place in range(3))
        plane[:, 0::2] = b0 << 4 | b1 >> 4
        plane[:, 1::2] = (b1 & 15) << 8 | b2


def statistics(plane):
    histogram = numpy.bincount(plane.reshape(-1), minlength=65536)
    return (plane.mean(), plane.std(), histogram.argmax(), numpy.unravel_index(plane.argmin(), plane.shape),
            numpy.unravel_index(plane.argmax(), plane.shape))


def main():
    random = numpy.random.default_rng(7)
    planes = [numpy.minimum(random.normal(100 * gain, 3, (SIDE, SIDE)), 4095).astype(numpy.uint16) for gain in (1, 6)]
    packed = numpy.empty((SIDE, 2, SIDE // 2, 3), numpy.uint8)
    for index, plane in enumerate(planes):
        first, second = plane[:, 0::2], plane[:, 1::2]
        packed[:, index, :, 0] = first >> 4
        packed[:, index, :, 1] = (first & 15) << 4 | second >> 8
        packed[:, index, :, 2] = second & 255
    packed = packed.reshape(-1)
    unpacked = [numpy.empty_like(plane) for plane in planes]
    sums = numpy.zeros((SIDE, SIDE))

    def add_frame():
        numpy.add(sums, planes[0], out=sums)

    times = {'unpack 12-bit': median_time(lambda: unpack(packed, unpacked)),
             'statistics': median_time(lambda: statistics(planes[0])),
             'StackNextFrame, 16-bit': median_time(add_frame),
             'Finish of a stack': median_time(lambda: (sums / REPEATS).astype(numpy.uint16))}
    assert all(numpy.array_equal(*pair) for pair in zip(planes, unpacked)), 'unpacked planes'
    assert numpy.array_equal(sums, planes[0].astype(float) * REPEATS), 'sums'
    assert statistics(planes[0])[0] == planes[0].sum(dtype=numpy.int64) / planes[0].size, 'mean'
    json.dump(times, sys.stdout)


if __name__ == '__main__':
    main()
