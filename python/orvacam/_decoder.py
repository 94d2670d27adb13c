"""Decoding."""

from dataclasses import dataclass
from typing import Any, Dict, Iterable, Mapping, NoReturn, Optional, Tuple

import numpy
from numpy.typing import NDArray

from . import _core
from ._errors import Error
from ._frame import Bias, Frame, Plane
from ._header import Header, Path, _fsbytes


@dataclass(frozen=True)
class Extreme:
    """A value in ADU and the first place in row order that has it: `plane[y, x]`."""

    value: int
    x: int
    y: int


@dataclass(frozen=True, eq=False)
class Statistics:
    """Statistics of a plane's image region, in ADU.

    Attributes:
        count: pixels.
        mean, deviation: exact to rounding; the deviation of the population.
        mode: the most frequent value, the lowest of several.
        minimum, maximum: `Extreme`: value, x, y.
        clip_low, clip_high: where 5 % of the pixels lie below, and 0.1 % above.
        histogram: 65536 counts, uint32, by value; None unless asked for.
    """

    count: int
    mean: float
    deviation: float
    mode: int
    minimum: Extreme
    maximum: Extreme
    clip_low: int
    clip_high: int
    histogram: Optional[NDArray[numpy.uint32]] = None

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Statistics):
            return NotImplemented
        mine, others = self._numbers(), other._numbers()
        if self.histogram is None or other.histogram is None:
            return mine == others and self.histogram is other.histogram
        return mine == others and bool(numpy.array_equal(self.histogram, other.histogram))

    def __hash__(self) -> int:
        return hash(self._numbers())

    def _numbers(self) -> Tuple[object, ...]:
        return (self.count, self.mean, self.deviation, self.mode, self.minimum, self.maximum, self.clip_low,
                self.clip_high)


@dataclass(frozen=True, eq=False)
class Decoded:
    """A frame's planes: writable arrays of uint16, (rows, columns), in ADU; None for one that was not asked for, or
    that the frame does not have.

    Attributes:
        low, high, merged, image: the planes.
        statistics: by plane; {} unless asked for.
        headers: by plane, the processed header: 16 bits a pixel, this plane's flags.
    """

    low: Optional[Plane]
    high: Optional[Plane]
    merged: Optional[Plane]
    image: Optional[Plane]
    statistics: Dict[str, Statistics]
    headers: Dict[str, Header]


def _statistics(numbers: '_core.StatisticsTuple') -> Statistics:
    count, mean, deviation, mode, minimum, maximum, clip_low, clip_high, histogram = numbers
    return Statistics(count, mean, deviation, mode, Extreme(*minimum), Extreme(*maximum), clip_low, clip_high,
                      histogram)


def _names(planes: Optional[Iterable[str]]) -> Optional[Tuple[str, ...]]:
    if planes is None:
        return None
    if isinstance(planes, str):
        raise TypeError(f"planes are names in a tuple or a list: ({planes!r},)")
    names = tuple(planes)
    for name in names:
        if not isinstance(name, str):
            raise TypeError(f'the name of a plane is a str, not {type(name).__name__}')
    return names


def _arrays(out: Optional[Mapping[str, Plane]]) -> Dict[str, Plane]:
    if out is None:
        return {}
    if not isinstance(out, Mapping):
        raise TypeError(f"out is a mapping of planes to arrays, such as {{'merged': array}}, not {type(out).__name__}")
    return dict(out)


def _pair(values: Any, name: str, what: str) -> Tuple[Any, Any]:
    """Both of two things that belong together."""
    try:
        first, second = values
    except (TypeError, ValueError) as error:
        raise type(error)(f'{name}: a pair, {what}') from None
    return first, second


def _threshold(value: object) -> int:
    if isinstance(value, bool) or not isinstance(value, (int, numpy.integer)):
        raise TypeError(f'a threshold is an int, not {type(value).__name__}')
    if not 0 <= value <= 65535:
        raise ValueError(f'a threshold of {value} is not within 0 and 65535')
    return int(value)


class Decoder:
    """Settings, and memory that frames share: for many frames. One per thread: others wait while one decodes.

    dsnu, prnu: correction files of the merge, read now.
    bias: (low, high) arrays of uint16, subtracted from each plane before merging, stopping at 0; for frames of one
        plane, one array. Row 0 of them is the sensor's first row. Copied.
    thresholds: (high, difference) of the merge, in ADU, each 0 to 65535; (3700, 128) without them.
    calibration: the calibration block that a camera keeps, from which gain ratios are taken.

    Raises what `read` does, and Mismatch for files that do not fit each other.

    >>> decoder = Decoder(thresholds=(3600, 128))
    >>> frame = read(simulate('GSENSE400', mode='hdr', width=64, height=48))
    >>> decoder.decode(frame, planes=('merged',)).merged.dtype
    dtype('uint16')
    """

    __slots__ = ('_handle', '__weakref__')

    def __init__(self, dsnu: Optional[Path] = None, prnu: Optional[Path] = None, bias: Optional[Bias] = None,
                 thresholds: Optional[Tuple[int, int]] = None, calibration: Optional[bytes] = None) -> None:
        self._handle = _core.Decoder.make()
        if dsnu is not None:
            self._handle.dsnu(_fsbytes(dsnu))
        if prnu is not None:
            self._handle.prnu(_fsbytes(prnu))
        if bias is not None:
            low, high = _pair(bias, 'bias', '(low, high)') if isinstance(bias, (tuple, list)) else (bias, None)
            self._handle.bias(low, high)
        if thresholds is not None:
            highest, difference = _pair(thresholds, 'thresholds', '(high, difference)')
            self._handle.thresholds(_threshold(highest), _threshold(difference))
        if calibration is not None:
            if not isinstance(calibration, bytes):
                raise TypeError(f'a calibration block is bytes, not {type(calibration).__name__}')
            self._handle.calibration(calibration)

    def __reduce__(self) -> NoReturn:
        raise TypeError('a decoder cannot be pickled: make one where it is used')

    def decode(self, frame: Frame, planes: Optional[Iterable[str]] = None, statistics: bool = False,
               histograms: bool = False, out: Optional[Mapping[str, Plane]] = None) -> Decoded:
        """The planes of a frame: fresh arrays, or those of `out`. The GIL is released meanwhile.

        planes: names; None for all that the frame has.
        statistics: of each plane's image region. histograms: as well, with 65536 counts each.
        out: arrays by plane: uint16 in the machine's byte order (else TypeError), of the frame's shape, row by row in
            one piece, writable, apart from each other (else ValueError). Checked before anything is written.

        Raises what `Frame.check` calls an error; Mismatch where corrections do not cover the frame or have nothing to
        correct; ValueError for a plane that the frame does not have. The decoder is as good as new after it.
        """
        if not isinstance(frame, Frame):
            raise TypeError(f'what is decoded is a Frame, not {type(frame).__name__}')
        try:
            decoded = self._handle.decode(frame._handle, _names(planes), bool(statistics), bool(histograms),
                                        _arrays(out))
        except Error as error:
            raise frame._named(error)
        arrays = {name: array for name, (array, _) in decoded.items()}
        return Decoded(arrays.get('low'), arrays.get('high'), arrays.get('merged'), arrays.get('image'),
                       {name: _statistics(numbers) for name, (_, numbers) in decoded.items() if numbers},
                       {name: frame.header._of_plane(name) for name in decoded})

    def merge_info(self, header: Header) -> Optional[Dict[str, Any]]:
        """How frames with this header are merged: gain_ratio (of high to low gain, as used; 0 with a PRNU file),
        high_threshold, difference_threshold, type, dsnu, prnu, bias. None where there is nothing to merge."""
        if not isinstance(header, Header):
            raise TypeError(f'the header is a Header, not {type(header).__name__}')
        return self._handle.merge_info(header._handle)
