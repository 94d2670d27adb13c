#!/usr/bin/env python3
"""Stacks of simulated frames, held to numpy, astropy and ccdproc on the same planes.

usage: stack_oracle.py ORVACAM SCHEMAS FOLDER
"""
import pathlib
import subprocess
import sys
import warnings

import ccdproc
import numpy
from astropy.io import fits
from astropy.nddata import CCDData
from astropy.stats import sigma_clip

TOOL, FOLDER = sys.argv[1], pathlib.Path(sys.argv[3])
FRAMES = 17


def run(*arguments):
    subprocess.run([TOOL, *map(str, arguments)], cwd=FOLDER, check=True)


def stacked(*options):
    run('stack', *[f'f{i}.raw' for i in range(FRAMES)], '-o', 'out.fits', '--overwrite', '--dtype', 'float64', *options)
    return fits.getdata(FOLDER / 'out.fits')


def planes():
    """The merged planes of a sky that grows brighter; a lamp was on in one of them."""
    for i in range(FRAMES):
        run('simulate', 'GSENSE4040', '-o', f'f{i}.raw', '--mode', 'hdr', '--width', 120, '--height', 90, '--pre-rows', 6,
            '--frame-number', i, '--stars', 25, '--background', 9000 if i == 5 else 200 + 40 * i)
    run('convert', *[f'f{i}.raw' for i in range(FRAMES)], '-o', '.', '-f', 'npy', '--planes', 'merged')
    return numpy.array([numpy.load(FOLDER / f'f{i}_MERGED.npy') for i in range(FRAMES)]).astype(float)


def clipped(cube, low, high):
    return sigma_clip(cube, sigma_lower=low, sigma_upper=high, axis=0, maxiters=20, cenfunc='median', stdfunc='std')


def winsorized(column, low, high):
    """A pixel's values by the definition, without numpy's help."""
    stay = sorted(column)
    for _ in range(20):
        centre, deviation = numpy.median(stay), numpy.std(stay)
        limits = centre - low * deviation, centre + high * deviation
        left = [value for value in stay if limits[0] <= value <= limits[1]]
        if len(left) == len(stay):
            break
        stay = left
    return numpy.mean([limits[0] if value < stay[0] else limits[1] if value > stay[-1] else value for value in column])


def same(name, ours, others):
    numpy.testing.assert_allclose(ours, others, rtol=1e-12, err_msg=name)


def combiner(cube):
    return ccdproc.Combiner([CCDData(plane, unit='adu') for plane in cube])


def main():
    cube = planes()
    same('mean', stacked(), cube.mean(axis=0))
    same('sum', stacked('--method', 'sum'), cube.sum(axis=0))
    same('minimum', stacked('--method', 'min'), cube.min(axis=0))
    same('maximum', stacked('--method', 'max'), cube.max(axis=0))
    median = stacked('--method', 'median')
    same('median', median, numpy.median(cube, axis=0))
    same('median of ccdproc', median, combiner(cube).median_combine().data)
    same('mean of ccdproc', stacked(), combiner(cube).average_combine().data)
    for low, high in ((3, 3), (1.5, 2), (1, 4)):
        mask = clipped(cube, low, high).mask
        ours = stacked('--method', 'sigma', '--sigma', f'{low},{high}', '--map-rejected', 'map.fits')
        same('sigma', ours, numpy.ma.masked_array(cube, mask).mean(axis=0).filled())
        numpy.testing.assert_array_equal(fits.getdata(FOLDER / 'map.fits'), mask.sum(axis=0))
        assert 0 < mask.sum() < cube.size
        other = combiner(cube)
        other.data_arr.mask = mask
        same('sigma of ccdproc', ours, other.average_combine().data)
        ours = stacked('--method', 'winsorized', '--sigma', f'{low},{high}', '--memory', '25M')
        some = numpy.s_[10:40]
        same('winsorized', ours[some], numpy.apply_along_axis(winsorized, 0, cube[:, some], low, high))
    scales = [numpy.median(cube[0, 6:]) / numpy.median(plane[6:]) for plane in cube]
    assert min(scales) < 0.7
    scaled = cube * numpy.array(scales)[:, None, None]
    same('multiplicative', stacked('--method', 'median', '--normalize', 'multiplicative'), numpy.median(scaled, axis=0))
    ours = stacked('--method', 'sigma', '--sigma', '2,2', '--normalize', 'multiplicative')
    same('multiplicative sigma', ours, clipped(scaled, 2, 2).mean(axis=0))
    other = combiner(cube)
    other.scaling = scales
    same('multiplicative of ccdproc', stacked('--normalize', 'multiplicative'), other.average_combine().data)
    offsets = [numpy.median(cube[0, 6:]) - numpy.median(plane[6:]) for plane in cube]
    same('additive', stacked('--method', 'max', '--normalize', 'additive'), (cube + numpy.array(offsets)[:, None, None]).max(axis=0))
    print(f'{FRAMES} frames: every method as numpy, astropy and ccdproc have it')


if __name__ == '__main__':
    warnings.simplefilter('ignore')
    main()
