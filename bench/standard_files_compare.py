#!/usr/bin/env python3
"""Standard files of HDR frames, by orvacam and by what a user would take instead; prints seconds and ratios as JSON.

usage: standard_files_compare.py ORVACAM [FRAMES [SIDE [ROUNDS]]]

- "numpy": a script with numpy and astropy that does the same: unpacks, merges, writes three FITS files with sums and
  with the keywords of orvacam's own files, which it is given. Neither its start nor its imports count, and its files
  are not flushed to the disk.
- "cfitsio": CFITSIO (by way of fitsio) writes the same planes from memory.
- "fpack": compresses the same files that are there.
Each figure is the median of the rounds, in turns. Ratios are of processor time with that of the system: a disk that
is waited for says nothing of the program. Wall time stands beside it. All outputs are compared with each other once.
"""
import json
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

import fitsio
import numpy
from astropy.io import fits

ORVACAM = sys.argv[1]
FRAMES, SIDE, ROUNDS = (int(sys.argv[i]) if len(sys.argv) > i else default for i, default in ((2, 20), (3, 2048), (4, 5)))
HEADER, RATIO, PLANES = 384, 6447 / 1024, ('LOW', 'HIGH', 'MERGED')
CORRECTED = numpy.minimum(numpy.rint(numpy.arange(4096) * RATIO), 65535).astype(numpy.uint16)


def processor_time():
    return sum(usage.ru_utime + usage.ru_stime
               for usage in map(resource.getrusage, (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)))


def timed(work):
    start, wall = processor_time(), time.monotonic()
    work()
    return processor_time() - start, time.monotonic() - wall


def median(values):
    values = sorted(values)
    return values[len(values) // 2]


def unpack(packed):
    triples = packed.reshape(-1, 3).astype(numpy.uint16)
    plane = numpy.empty((packed.size * 2 // 3,), numpy.uint16)
    plane[0::2] = triples[:, 0] << 4 | triples[:, 1] >> 4
    plane[1::2] = (triples[:, 1] & 15) << 8 | triples[:, 2]
    return plane


def planes_of(path):
    data = numpy.fromfile(path, numpy.uint8)[HEADER:]
    rows = unpack(data).reshape(SIDE, 2, SIDE)
    low, high = rows[:, 0], rows[:, 1]
    low, high = numpy.ascontiguousarray(low), numpy.ascontiguousarray(high)
    corrected = CORRECTED[low]
    merged = numpy.where((high >= 3700) | (corrected > high + numpy.uint16(128)), corrected, high)
    return low, high, merged


def keywords_of(path):
    """What a file says beyond its structure and its sums."""
    own = ('SIMPLE', 'BITPIX', 'NAXIS', 'NAXIS1', 'NAXIS2', 'EXTEND', 'BZERO', 'BSCALE', 'CHECKSUM', 'DATASUM',
           'COMMENT')
    return [(card.keyword, card.value, card.comment) for card in fits.getheader(path).cards if card.keyword not in own]


def by_numpy(frames, keywords, folder):
    folder.mkdir(exist_ok=True)
    for frame in frames:
        for name, plane in zip(PLANES, planes_of(frame)):
            hdu = fits.PrimaryHDU(plane)
            hdu.header.extend(keywords[name])
            hdu.writeto(folder / f'{frame.stem}_{name}.fits', overwrite=True, checksum=True)


def by_cfitsio(frames, planes, folder):
    folder.mkdir(exist_ok=True)
    for frame in frames:
        for name, plane in zip(PLANES, planes):
            with fitsio.FITS(str(folder / f'{frame.stem}_{name}.fits'), 'rw', clobber=True) as file:
                file.write(plane)
                file[0].write_checksum()


def by_orvacam(frames, folder, *options):
    subprocess.run([ORVACAM, 'convert', *frames, '-o', folder, '--overwrite', *options], check=True)


def by_fpack(folder):
    subprocess.run(['fpack', '-r', '-Y', *sorted(folder.glob('*.fits'))], check=True)
    for file in folder.glob('*.fz'):
        file.unlink()


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        first = folder / 'f0.raw'
        subprocess.run([ORVACAM, 'simulate', 'GSENSE400', '--mode', 'hdr', '--width', str(SIDE), '--height', str(SIDE),
                        '-o', first], check=True)
        frames = [first]
        for i in range(1, FRAMES):
            frames.append(folder / f'f{i}.raw')
            os.link(first, frames[-1])
        times = {name: [] for name in ('orvacam', 'numpy', 'cfitsio', 'orvacam rice', 'fpack')}
        planes = planes_of(first)
        by_orvacam(frames[:1], folder / 'ours')
        keywords = {name: keywords_of(folder / 'ours' / f'f0_{name}.fits') for name in PLANES}
        for _ in range(ROUNDS):
            times['orvacam'].append(timed(lambda: by_orvacam(frames, folder / 'ours')))
            times['numpy'].append(timed(lambda: by_numpy(frames, keywords, folder / 'numpy')))
            times['cfitsio'].append(timed(lambda: by_cfitsio(frames, planes, folder / 'cfitsio')))
            times['orvacam rice'].append(timed(lambda: by_orvacam(frames, folder / 'rice', '--compress', 'rice')))
            times['fpack'].append(timed(lambda: by_fpack(folder / 'cfitsio')))
        for plane_name, plane in zip(PLANES, planes):
            assert len(keywords[plane_name]) > 50, plane_name
            assert keywords_of(folder / 'numpy' / f'f0_{plane_name}.fits') == keywords[plane_name], plane_name
            for made in ('ours', 'numpy', 'cfitsio'):
                data = fitsio.read(str(folder / made / f'f0_{plane_name}.fits'))
                assert numpy.abs(data.astype(int) - plane).max() <= 1, (made, plane_name)
            assert (fitsio.read(str(folder / 'rice' / f'f0_{plane_name}.fits.fz')) ==
                    fitsio.read(str(folder / 'ours' / f'f0_{plane_name}.fits'))).all()
        seconds = {name: median(processor for processor, _ in taken) for name, taken in times.items()}
        walls = {name: median(wall for _, wall in taken) for name, taken in times.items()}
        ratios = {'numpy / orvacam': seconds['numpy'] / seconds['orvacam'],
                  'orvacam / cfitsio': seconds['orvacam'] / seconds['cfitsio'],
                  'orvacam rice / fpack': seconds['orvacam rice'] / seconds['fpack']}
        json.dump({'frames': FRAMES, 'side': SIDE, 'seconds': seconds, 'wall seconds': walls, 'ratios': ratios},
                  sys.stdout, indent=2)
        print()


if __name__ == '__main__':
    main()
