"""Frames for astropy."""

from typing import TYPE_CHECKING, Any, Optional

import numpy

from . import _core
from ._frame import Frame

if TYPE_CHECKING:
    CCDData = Any


def best_plane(frame: Frame, plane: Optional[str] = None) -> str:
    """The plane that is named, or else merged, image or low: the first that the frame has. ValueError for one that
    it has not; what decoding raises where it has none."""
    if not isinstance(frame, Frame):
        raise TypeError(f'the frame is a Frame, as read gives it, not {type(frame).__name__}')
    planes = frame.planes
    if not planes:
        frame._plane('low')
    if plane is None:
        return next(name for name in ('merged', 'image', 'low') if name in planes)
    if plane not in planes:
        raise ValueError(frame._lacks(plane))
    return plane


def to_ccddata(frame: Frame, plane: Optional[str] = None) -> 'CCDData':
    """A plane as astropy's CCDData, in adu.

    plane: None for merged, else image, else low. data: uint16, (rows, columns). header: the keywords of
    the library's standard FITS files. mask: True at or above SATURATE.

    Raises what decoding does; ValueError for a plane that the frame does not have; ImportError without astropy.

    >>> ccd = to_ccddata(read(simulate('GSENSE400', mode='hdr', width=64, height=48)))
    >>> str(ccd.unit), ccd.header['DETNAM'], ccd.header['EXTNAME'], ccd.shape
    ('adu', 'GSENSE400', 'MERGED', (48, 64))
    """
    try:
        from astropy.io.fits import Header
        from astropy.nddata import CCDData
    except ImportError as error:
        raise ImportError('to_ccddata needs astropy (Debian: python3-astropy)') from error
    name = best_plane(frame, plane)
    pixels = getattr(frame, name)
    saturation, cards = _core.keywords(frame._handle, name)
    header = Header()
    for keyword, value, comment in cards:
        if keyword == 'HISTORY':
            header.add_history(value)
        elif value is not None:
            header[keyword] = (value, comment)
    return CCDData(numpy.array(pixels), unit='adu', header=header, mask=pixels >= saturation)
