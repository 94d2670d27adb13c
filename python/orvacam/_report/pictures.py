"""Pictures for a page: grey JPEG of a chosen size, and what is clipped as a sparse PNG to lay over it."""

from __future__ import annotations

import base64
import io
from dataclasses import dataclass
from typing import Any, List, Tuple

import numpy as np
from numpy.typing import NDArray

U8 = NDArray[np.uint8]


@dataclass(frozen=True)
class Picture:
    """A picture as a data URI; ``scale`` frame pixels lie side by side in one of its pixels."""

    uri: str
    width: int
    height: int
    scale: int
    quality: int  #: of the JPEG; 0: lossless


def data_uri(kind: str, content: bytes) -> str:
    return f'data:image/{kind};base64,' + base64.b64encode(content).decode('ascii')


def _save(image: Any, kind: str, **options: Any) -> bytes:
    stream = io.BytesIO()
    image.save(stream, kind, **options)
    return stream.getvalue()


def shrink(values: NDArray[Any], scale: int) -> NDArray[np.float32]:
    """Means of squares of ``scale`` × ``scale`` pixels; what is left at the right and below is left out."""
    if scale == 1:
        return np.asarray(values, np.float32)
    height, width = (max(1, size // scale) for size in values.shape)
    rows, columns = min(height * scale, values.shape[0]), min(width * scale, values.shape[1])
    blocks = values[:rows, :columns].reshape(height, rows // height, width, columns // width)
    return np.asarray(blocks.mean(axis=(1, 3), dtype=np.float32))


def lossless(greys: U8, scale: int = 1) -> Picture:
    """A grey PNG."""
    from PIL import Image

    content = _save(Image.fromarray(greys), 'PNG', optimize=True)
    return Picture(data_uri('png', content), greys.shape[1], greys.shape[0], scale, 0)


def within(values: NDArray[Any], stretch: Any, budget: int, factor: float = 1.0) -> Picture:
    """The finest picture of ``factor`` × the values that takes no more than ``budget`` bytes: pixel for pixel at the
    best quality that fits, else of half the size, and so on."""
    from PIL import Image

    scale = 1
    while values.size > scale * scale * 12 * max(budget, 1) and min(values.shape) > 64 * scale:
        scale *= 2  # below two thirds of a bit a pixel there is nothing to see
    while True:
        image = Image.fromarray(_greys(values, scale, stretch, factor))
        best = b''
        low, high = 0, len(_QUALITIES)  # the best quality that fits, by halving
        while low < high:
            middle = (low + high) // 2
            content = _save(image, 'JPEG', quality=_QUALITIES[middle])
            if len(content) <= budget:
                best, quality, high = content, _QUALITIES[middle], middle
            else:
                low = middle + 1
        if best:
            return Picture(data_uri('jpeg', best), image.width, image.height, scale, quality)
        if min(image.size) < 64:
            smallest = _save(image, 'JPEG', quality=_QUALITIES[-1])
            return Picture(data_uri('jpeg', smallest), image.width, image.height, scale, _QUALITIES[-1])
        scale *= 2


_QUALITIES = (92, 85, 76, 65, 50, 35, 24, 16)


def _greys(values: NDArray[Any], scale: int, stretch: Any, factor: float) -> U8:
    if scale == 1 and values.dtype == np.uint16:  # a table is faster than arithmetic
        table = stretch.greys(np.arange(65536, dtype=np.float32) * factor)
        return np.take(table, values)
    return np.asarray(stretch.greys(shrink(values, scale) * np.float32(factor)))


def clipping(saturated: NDArray[np.bool_], zero: NDArray[np.bool_], scale: int, budget: int) -> str:
    """A PNG to lay over a picture of the same scale: saturated pixels red, zeros blue, all else clear. "" where
    nothing is clipped, or where so much is that it would not fit."""
    from PIL import Image

    height, width = (max(1, size // scale) for size in saturated.shape)
    marks = np.zeros((height, width), np.uint8)
    for value, flags in ((2, zero), (1, saturated)):
        rows, columns = np.nonzero(flags)
        marks[np.minimum(rows // scale, height - 1), np.minimum(columns // scale, width - 1)] = value
    if not marks.any():
        return ''
    image = Image.fromarray(marks, mode='P')
    image.putpalette([0, 0, 0, 232, 48, 32, 40, 120, 255])
    content = _save(image, 'PNG', optimize=True, transparency=bytes([0, 255, 255]))
    return data_uri('png', content) if len(content) <= budget else ''


def crops(plane: NDArray[Any], saturate: float, size: int = 256) -> List[Tuple[str, int, int]]:
    """Three places to look at pixel for pixel: the centre, the brightest that is not clipped, and the corner
    that lies furthest from it. Name, row and column of each crop's first pixel."""
    height, width = plane.shape
    rows, columns = min(size, height), min(size, width)

    def at(row: float, column: float) -> Tuple[int, int]:
        return (
            int(min(max(row - rows / 2, 0), height - rows)),
            int(min(max(column - columns / 2, 0), width - columns)),
        )

    light = np.where(plane < saturate, plane, 0)
    bright = np.unravel_index(int(np.argmax(light)), light.shape)
    corners = [(r, c) for r in (0, height - 1) for c in (0, width - 1)]
    corner = max(corners, key=lambda p: (p[0] - bright[0]) ** 2 + (p[1] - bright[1]) ** 2)
    places = [
        ('centre', at(height / 2, width / 2)),
        ('brightest star', at(float(bright[0]), float(bright[1]))),
        ('corner', at(*corner)),
    ]
    return [(name, row, column) for name, (row, column) in places]
