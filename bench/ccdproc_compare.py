#!/usr/bin/env python3
"""What ccdproc takes to average a stack: prints the median of processor time in microseconds a frame as JSON.

usage: ccdproc_compare.py [--without-bottleneck] [SIDE [REPEATS]]

With ccdproc's defaults, which are sums in doubles. It computes deviations and masks, too, whether asked for or not. It
is faster where the package bottleneck is installed; --without-bottleneck does as if that were not.
"""
import json
import sys
import time

arguments = sys.argv[1:]
if '--without-bottleneck' in arguments:
    arguments.remove('--without-bottleneck')
    sys.modules['bottleneck'] = None  # makes its import fail

import ccdproc  # noqa: E402
import numpy  # noqa: E402
from astropy.nddata import CCDData  # noqa: E402

SIDE = int(arguments[0]) if arguments else 4096
REPEATS = int(arguments[1]) if len(arguments) > 1 else 5
FRAMES = 8


def average(frames):
    return ccdproc.Combiner(frames).average_combine()


def main():
    random = numpy.random.default_rng(7)
    sky = numpy.minimum(random.normal(600, 3, (SIDE, SIDE)), 4095).astype(numpy.uint16)
    planes = [numpy.roll(sky, index) for index in range(FRAMES)]
    frames = [CCDData(plane, unit='adu') for plane in planes]
    assert numpy.array_equal(average(frames).data, sum(plane.astype(float) for plane in planes) / FRAMES), 'mean'
    times = []
    for _ in range(REPEATS):
        start = time.process_time()
        average(frames)
        times.append(time.process_time() - start)
    json.dump({'frames': FRAMES, 'us a frame': sorted(times)[len(times) // 2] / FRAMES * 1e6}, sys.stdout)


if __name__ == '__main__':
    main()
