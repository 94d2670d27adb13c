"""Frames that the tests share. They are made by the package itself; what is expected of them comes from elsewhere."""

import os
import pathlib
from typing import Any, Dict, Tuple

import numpy
import pytest
from numpy.typing import NDArray

import orvacam

Pixels = NDArray[numpy.uint16]

#: Every sensor in every mode that it has, and the planes of its frames.
PAIR = ('low', 'high', 'merged')
MODES: Dict[Tuple[str, str], Tuple[str, ...]] = {
    ('GSENSE400', 'single'): ('image',), ('GSENSE400', 'hdr'): PAIR,
    ('GSENSE2020', 'single'): ('image',), ('GSENSE2020', 'hdr'): PAIR, ('GSENSE2020', 'cms'): ('image',),
    ('GSENSE2020', '16bit'): ('image',),
    ('GSENSE4040', 'single'): ('image',), ('GSENSE4040', 'hdr'): PAIR, ('GSENSE4040', '16bit'): ('image',),
    ('GSENSE6060', 'single'): ('image',), ('GSENSE6060', 'hdr'): PAIR,
    ('CCD230-42', 'single'): ('image',), ('CCD230-84', 'single'): ('image',), ('CCD4320', 'single'): ('image',),
    ('IMX183', 'single'): ('image',), ('GENERIC', 'single'): ('image',),
}


@pytest.fixture(scope='session')
def hdr() -> bytes:
    """A GSENSE400 frame of 64 x 48 pixels with both gains."""
    return orvacam.simulate('GSENSE400', mode='hdr', width=64, height=48)


@pytest.fixture(scope='session')
def single() -> bytes:
    """The same of one gain."""
    return orvacam.simulate('GSENSE400', mode='single', width=64, height=48)


@pytest.fixture
def hdr_file(hdr: bytes, tmp_path: pathlib.Path) -> pathlib.Path:
    path = tmp_path / 'hdr.raw'
    path.write_bytes(hdr)
    return path


def assert_same(actual: Any, expected: Any) -> None:
    """Arrays of the same shape and values; None is no array."""
    assert actual is not None and expected is not None
    numpy.testing.assert_array_equal(actual, expected)


def build_dir() -> pathlib.Path:
    """The build that is tested: its program and its fuzz seeds."""
    return pathlib.Path(os.environ['ORVACAM_BUILD_DIR'])


def unpacked_pair(frame: bytes, rows: int, columns: int) -> Tuple[Pixels, Pixels]:
    """Low and high of packed 12-bit rows behind a header of 384 bytes, two pixels in three bytes, a low row ahead of
    each high one: by numpy."""
    packed = numpy.frombuffer(frame, numpy.uint8, offset=384).reshape(rows, 2, columns // 2, 3).astype(numpy.uint16)
    pixels = numpy.empty((rows, 2, columns), numpy.uint16)
    pixels[:, :, 0::2] = packed[..., 0] << 4 | packed[..., 1] >> 4
    pixels[:, :, 1::2] = (packed[..., 1] & 15) << 8 | packed[..., 2]
    return pixels[:, 0], pixels[:, 1]
