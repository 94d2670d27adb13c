"""Reads a FITS file of the tests with astropy and compares it with what the test wrote.

usage: astropy_reader.py whole|short FILE WIDTH HEIGHT

A whole file has all its pixels; a short one ends 5760 bytes before the last of them.
"""
import sys
import warnings

import numpy
from astropy.io import fits
from astropy.utils.exceptions import AstropyUserWarning

kind, path = sys.argv[1:3]
width, height = int(sys.argv[3]), int(sys.argv[4])

with warnings.catch_warnings(record=True) as caught:
    warnings.simplefilter("always")
    with fits.open(path, memmap=False) as hdus:
        header = hdus[0].header
        expected = {
            "SIMPLE": True, "BITPIX": 16, "NAXIS": 2, "NAXIS1": width, "NAXIS2": height, "EXTEND": True,
            "BSCALE": 1.0, "BZERO": 32768.0, "INSTRUME": "VESTRA VS4040", "SERIAL": "SN-0042",
            "DATE-OBS": "2024-02-29T01:02:03.004005006", "SENSTEMP": -25.3, "ILLSTRDL": -45, "FRAMENUM": 321,
            "GEO_LAT": 50.0, "GEO_LONG": -50.0, "TRKSTPRW": 0,
        }
        found = {keyword: header[keyword] for keyword in expected}
        assert found == expected, found
        assert len(header["COMMENT"]) == 2
        assert header.comments["EXPTIME"] == "Duration of exposure in 10us periods"

        if kind == "whole":
            # Stored as they are, pixels gain 32768 through BZERO, modulo 65536.
            index = numpy.arange(width * height, dtype=numpy.uint64)
            pixels = ((index * 40503 + 12345) & 0xFFFF).astype(numpy.uint16).reshape(height, width)
            data = hdus[0].data
            assert data.dtype == numpy.uint16, data.dtype
            assert (data == pixels + numpy.uint16(32768)).all()
        else:
            try:
                hdus[0].data
            except ValueError as error:
                # What it could read are the pixels before the missing bytes.
                assert f"array of size {width * height - 5760 // 2}" in str(error), error
            else:
                raise AssertionError("the missing pixels were not noticed")

texts = [str(warning.message) for warning in caught if issubclass(warning.category, AstropyUserWarning)]
short = [text for text in texts if "may have been truncated" in text]
assert (len(short) > 0) == (kind == "short"), texts
print("ok")
