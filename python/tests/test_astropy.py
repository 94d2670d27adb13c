"""Planes for astropy."""

import pathlib
import subprocess
import sys

import numpy
import pytest
from astropy.io import fits
from astropy.nddata import CCDData

import orvacam
from conftest import assert_same, build_dir


@pytest.mark.parametrize('sensor,mode', [('GSENSE400', 'hdr'), ('GSENSE2020', 'cms'), ('CCD230-42', 'single')])
def test_ccddata_says_what_our_fits_files_say(sensor: str, mode: str, tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'frame.raw'
    path.write_bytes(orvacam.simulate(sensor, mode=mode, width=64, height=48))
    subprocess.run([build_dir() / 'tools' / 'orvacam' / 'orvacam', 'convert', path, '-o', tmp_path, '--quiet',
                    '--reproducible'], check=True)
    frame = orvacam.read(path)
    for name in frame.planes:
        ccd = orvacam.to_ccddata(frame, name)
        assert isinstance(ccd, CCDData) and str(ccd.unit) == 'adu'
        suffix = '' if frame.planes == ('image',) else '_' + name.upper()
        with fits.open(tmp_path / f'frame{suffix}.fits') as file:
            assert_same(ccd.data, file[0].data)
            of_file = {card.keyword: (card.value, card.comment) for card in file[0].header.cards}
        own = {card.keyword: (card.value, card.comment) for card in ccd.header.cards}
        # A file says how its numbers lie, and which program wrote them.
        ignored = {'SIMPLE', 'BITPIX', 'NAXIS', 'NAXIS1', 'NAXIS2', 'EXTEND', 'BZERO', 'BSCALE', 'CHECKSUM', 'DATASUM',
                   'HISTORY', 'DATE', 'COMMENT'}
        assert set(of_file) - ignored == set(own) - ignored
        for keyword in set(own) - ignored:
            expected = of_file[keyword][0]
            # Files have 15 digits.
            assert own[keyword][0] == (pytest.approx(expected, rel=1e-14) if type(expected) is float else expected)
        assert ccd.mask is not None and (ccd.mask == (ccd.data >= own['SATURATE'][0])).all()


def test_saturated_pixels_are_masked(hdr: bytes) -> None:
    frame = orvacam.read(hdr)
    ccd = orvacam.to_ccddata(frame, plane='high')
    assert ccd.mask is not None and ccd.mask.sum() == (frame.high == 4095).sum() > 0
    ccd.data[0, 0] = 1  # a copy


def test_takes_the_best_plane_and_refuses_others(hdr: bytes, single: bytes) -> None:
    assert orvacam.to_ccddata(orvacam.read(hdr)).header['EXTNAME'] == 'MERGED'
    assert orvacam.to_ccddata(orvacam.read(single)).header['EXTNAME'] == 'IMAGE'
    with pytest.raises(ValueError):
        orvacam.to_ccddata(orvacam.read(single), plane='merged')
    with pytest.raises(orvacam.Truncated):
        orvacam.to_ccddata(orvacam.read(hdr[:-1]))


def test_without_astropy_says_what_to_install() -> None:
    script = '''
import sys
sys.modules['astropy'] = None
import orvacam
try:
    orvacam.to_ccddata(orvacam.read(orvacam.simulate('GSENSE400', width=16, height=8)))
except ImportError as error:
    print('python3-astropy' in str(error))
'''
    done = subprocess.run([sys.executable, '-P', '-c', script], stdout=subprocess.PIPE, text=True)
    assert done.stdout == 'True\n'
