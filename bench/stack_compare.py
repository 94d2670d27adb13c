#!/usr/bin/env python3
"""What selecting from many frames takes, beside ccdproc (with bottleneck, where it is installed).

usage: stack_compare.py LIBRARY ORVACAM [SIDE [FRAMES]]

Processor time in the same run: orva_combine of LIBRARY on planes in memory, the program from raw files to a FITS file,
and ccdproc on planes in memory. ccdproc's sigma clipping makes one round, ours up to 20. All outputs are compared first.
"""
import ctypes
import importlib.util
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import ccdproc
import numpy
from astropy.io import fits
from astropy.nddata import CCDData
from astropy.stats import sigma_clip

SIDE = int(sys.argv[3]) if len(sys.argv) > 3 else 2048
FRAMES = int(sys.argv[4]) if len(sys.argv) > 4 else 32
METHODS = {'median': 2, 'sigma': 5}


class Combining(ctypes.Structure):
    _fields_ = [('size', ctypes.c_size_t), ('method', ctypes.c_int), ('sigma_low', ctypes.c_double),
                ('sigma_high', ctypes.c_double), ('scales', ctypes.c_void_p), ('offsets', ctypes.c_void_p),
                ('weights', ctypes.c_void_p)]


class Combined(ctypes.Structure):
    _fields_ = [('size', ctypes.c_size_t), ('values', ctypes.c_void_p), ('deviations', ctypes.c_void_p),
                ('rejected', ctypes.c_void_p)]


def combine(library, planes, method):
    how = Combining(ctypes.sizeof(Combining), METHODS[method], 3, 3, None, None, None)
    values = numpy.empty(planes[0].shape)
    out = Combined(ctypes.sizeof(Combined), values.ctypes.data, None, None)
    rows = (ctypes.c_void_p * len(planes))(*[plane.ctypes.data for plane in planes])
    status = library.orva_combine(ctypes.byref(how), 0, rows, ctypes.c_size_t(len(planes)),
                                  ctypes.c_size_t(values.size), ctypes.byref(out))
    assert status == 0, status
    return values


def by_ccdproc(planes, method):
    combiner = ccdproc.Combiner([CCDData(plane, unit='adu') for plane in planes])
    if method == 'median':
        return combiner.median_combine().data
    combiner.sigma_clipping(low_thresh=3, high_thresh=3, func='median', dev_func='std')
    return combiner.average_combine().data


def timed(work):
    """Its result, and the processor time of this process and its children in seconds."""
    before = os.times()
    result = work()
    after = os.times()
    return result, sum(after[:4]) - sum(before[:4])


def make_frames(tool, folder):
    names = [f'f{i}.raw' for i in range(FRAMES)]
    for i, name in enumerate(names):
        subprocess.run([tool, 'simulate', 'GSENSE2020', '--mode', '16bit', '--width', str(SIDE), '--height', str(SIDE),
                        '--frame-number', str(i), '--stars', '20', '-o', name], cwd=folder, check=True)
    subprocess.run([tool, 'convert', *names, '-o', '.', '-f', 'npy'], cwd=folder, check=True)
    return names, [numpy.load(pathlib.Path(folder) / name.replace('.raw', '.npy')) for name in names]


def main():
    library, tool = ctypes.CDLL(os.path.abspath(sys.argv[1])), os.path.abspath(sys.argv[2])
    bottleneck = importlib.util.find_spec('bottleneck') is not None
    report = {'frames': FRAMES, 'side': SIDE, 'bottleneck': bottleneck}
    with tempfile.TemporaryDirectory() as folder:
        names, planes = make_frames(tool, folder)
        for method in METHODS:
            ours = min((timed(lambda: combine(library, planes, method)) for _ in range(3)), key=lambda run: run[1])
            program = timed(lambda: subprocess.run([tool, 'stack', *names, '--method', method, '--dtype', 'float64', '-o',
                                                    'out.fits', '--overwrite'], cwd=folder, check=True))
            others = timed(lambda: by_ccdproc(planes, method))
            numpy.testing.assert_array_equal(fits.getdata(pathlib.Path(folder) / 'out.fits'), ours[0])
            some = numpy.s_[: max(1, SIDE // 16)]
            cube = numpy.array([plane[some] for plane in planes]).astype(float)
            clipped = sigma_clip(cube, sigma=3, axis=0, maxiters=20, cenfunc='median', stdfunc='std')
            expected = numpy.median(cube, axis=0) if method == 'median' else clipped.mean(axis=0)
            numpy.testing.assert_allclose(ours[0][some], expected, rtol=1e-12)
            if method == 'median':
                numpy.testing.assert_array_equal(others[0], ours[0])
            report[method] = {'combine ms': ours[1] * 1e3, 'program ms': program[1] * 1e3, 'ccdproc ms': others[1] * 1e3,
                              'ccdproc over combine': others[1] / max(ours[1], 1e-9),
                              'ccdproc over program': others[1] / max(program[1], 1e-9)}
    json.dump(report, sys.stdout, indent=1)
    print()


if __name__ == '__main__':
    main()
