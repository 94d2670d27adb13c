"""The numbers behind a report: plain functions from planes to values, without a figure or a word of HTML."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Tuple

import numpy as np
from numpy.typing import NDArray

U16 = NDArray[np.uint16]
F64 = NDArray[np.float64]
Region = Tuple[slice, slice]

#: 1.4826 × the median absolute deviation is the deviation of a normal distribution.
MAD_TO_SIGMA = 1.4826


def robust_sigma(values: NDArray[Any]) -> float:
    """The deviation that the middle half of the values tells; outliers do not move it."""
    if values.size == 0:
        return float('nan')
    centre = np.median(values)
    return float(MAD_TO_SIGMA * np.median(np.abs(values - centre)))


def robust_sigma_of_counts(counts: NDArray[Any]) -> float:
    """The same of whole numbers, from how many have each value."""
    values = np.flatnonzero(counts)
    if values.size == 0:
        return float('nan')
    return MAD_TO_SIGMA * _median_and_mad(values.astype(float), counts[values])[1]


def _median_and_mad(values: F64, weights: NDArray[Any]) -> Tuple[float, float]:
    """Of sorted values: the median, and the median distance from it."""
    centre = _weighted_median(values, weights)
    distances = np.abs(values - centre)
    order = np.argsort(distances, kind='stable')
    return centre, _weighted_median(distances[order], weights[order])


# ---- Stretch


@dataclass(frozen=True)
class Stretch:
    """How values become greys: from ``shadows`` to ``white`` through the midtone function of ``midtone``."""

    shadows: float
    white: float
    midtone: Optional[float]  #: None: linear

    @staticmethod
    def of(counts: NDArray[Any], saturate: float) -> Stretch:
        """The automatic stretch of the library's pictures, from counts by value.

        c = median, m = 1.4826 × MAD, shadows = max(0, c − 2.8 m); the midtone brings c to a quarter.
        """
        values = np.flatnonzero(counts)
        if values.size < 2:
            return Stretch(0.0, 0.0, None)
        centre, distance = _median_and_mad(values.astype(float), counts[values])
        spread = MAD_TO_SIGMA * distance
        shadows = max(0.0, centre - 2.8 * spread)
        if spread == 0 or saturate <= shadows:
            return Stretch(float(values[0]), float(values[-1]), None)
        x = min(1.0, max(0.0, (centre - shadows) / (saturate - shadows)))
        return Stretch(shadows, float(saturate), 3 * x / (2 * x + 1))

    def greys(self, values: NDArray[Any]) -> NDArray[np.uint8]:
        """Greys from 0 to 255, rounded."""
        if self.white <= self.shadows:
            return np.zeros(values.shape, np.uint8)
        if values.dtype == np.uint16 and values.size > 65536:
            table = self.greys(np.arange(65536))
            return np.asarray(table[values], np.uint8)
        x = np.clip((np.asarray(values, np.float64) - self.shadows) / (self.white - self.shadows), 0, 1)
        if self.midtone is not None:
            b = self.midtone
            inner = (x > 0) & (x < 1)
            y = np.divide((b - 1) * x, (2 * b - 1) * x - b, out=x.copy(), where=inner)
            x = np.clip(y, 0, 1)
        return np.asarray(np.floor(x * 255 + 0.5), np.uint8)


def _weighted_median(values: F64, weights: NDArray[Any]) -> float:
    """Of sorted values: the mean of the middle two where there are two."""
    below = np.cumsum(weights, dtype=np.int64)
    total = int(below[-1])
    lower = values[np.searchsorted(below, (total - 1) // 2, side='right')]
    upper = values[np.searchsorted(below, total // 2, side='right')]
    return float(lower + upper) / 2


# ---- The gain ratio


@dataclass(frozen=True)
class RatioFit:
    """high = offset + ratio × low, for the same light."""

    ratio: float
    error: float  #: one standard deviation
    offset: float  #: in high-gain ADU
    pixels: int


def fit_ratio(low: U16, high: U16, limit: int, blocks: int = 16) -> Optional[RatioFit]:
    """The ratio of both gains that the pixels themselves tell; None where the picture has too little contrast.

    Both planes carry noise, so that a line fitted through them comes out too flat. What a pixel's diagonal
    neighbours show in the low plane depends on the light, and on neither this pixel's noise nor on the
    offsets of its row and column: with that as the instrument z, ratio = cov(z, high) / cov(z, low) is
    unbiased. Pixels whose high gain is at ``limit`` or above, or whose neighbours come near it, are left out.
    The error is that of leaving out one of ``blocks`` bands of rows at a time.
    """
    if min(low.shape) < 3:
        return None
    sums = _ratio_sums(low, high, limit, blocks)
    whole = _slope(sums.sum(axis=0))
    if whole is None:
        return None
    total = sums.sum(axis=0)
    parts = [_slope(total - band) for band in sums if band[0] > 0]
    slopes = np.array([part[0] for part in parts if part is not None])
    if len(slopes) < 2 or len(slopes) < len(parts):
        return None
    error = float(np.sqrt((len(slopes) - 1) / len(slopes) * np.sum((slopes - slopes.mean()) ** 2)))
    if not 0 < whole[0] < 1e4 or error > 0.2 * whole[0]:
        return None
    return RatioFit(whole[0], error, whole[1], int(total[0]))


def _ratio_sums(low: U16, high: U16, limit: int, blocks: int) -> F64:
    """A row per band: n, Σz, Σlow, Σhigh, Σz·low, Σz·high. Whole numbers, so that order does not matter."""
    rows = low.shape[0] - 2
    edges = np.unique(np.linspace(0, rows, blocks + 1).astype(int))
    # Where the neighbours' light reaches the limit at the plainest slope there is between the two planes.
    slope = (float(high.mean()) + 1) / (float(low.mean()) + 1)
    sums = []
    for start, stop in zip(edges[:-1], edges[1:]):
        near = low[start : stop + 2].astype(np.int64)
        z = near[:-2, :-2] + near[:-2, 2:] + near[2:, :-2] + near[2:, 2:]
        x = near[1:-1, 1:-1]
        y = high[start + 1 : stop + 1, 1:-1].astype(np.int64)
        keep = (y < limit) & (z * slope < 4 * 0.9 * limit) & (y > 0) & (x > 0)
        z, x, y = z[keep], x[keep], y[keep]
        sums.append([z.size, z.sum(), x.sum(), y.sum(), (z * x).sum(), (z * y).sum()])
    return np.array(sums, dtype=np.float64)


def _slope(sums: F64) -> Optional[Tuple[float, float]]:
    n, z, x, y, zx, zy = sums
    if n < 100:
        return None
    against_low = zx / n - (z / n) * (x / n)
    if against_low <= 0:
        return None
    ratio = (zy / n - (z / n) * (y / n)) / against_low
    return float(ratio), float(y / n - ratio * x / n)


@dataclass(frozen=True)
class Density:
    """Pixels by low and high value; ``counts[i, j]`` lies at low bin j, high bin i."""

    low_edges: F64
    high_edges: F64
    counts: F64


def density(low: U16, high: U16, bins: int = 160) -> Density:
    """How many pixels have which pair of values, on logarithmic bins of whole counts."""
    low_edges = _edges(int(low.min()), int(low.max()), bins)
    high_edges = _edges(int(high.min()), int(high.max()), bins)
    columns = np.searchsorted(low_edges, np.arange(65536), side='right').astype(np.int32) - 1
    rows = np.searchsorted(high_edges, np.arange(65536), side='right').astype(np.int32) - 1
    width, height = len(low_edges) - 1, len(high_edges) - 1
    flat = rows[high].ravel() * width + columns[low].ravel()
    counts = np.bincount(flat, minlength=width * height)[: width * height].reshape(height, width)
    return Density(low_edges, high_edges, counts.astype(np.float64))


def _edges(smallest: int, largest: int, bins: int) -> F64:
    """From the smallest to above the largest value: whole counts at the bottom, where logarithmic bins would be
    narrower than a count. Bins lie between counts, at halves."""
    first = max(smallest, 0)
    edges = np.unique(np.rint(np.geomspace(first + 1, largest + 2, bins + 1)).astype(int)) - 1
    return np.asarray(edges, np.float64) - 0.5


@dataclass(frozen=True)
class Residuals:
    """Of high against the line: for low values, the middle and the range of 68 % of the pixels."""

    low: F64
    middle: F64
    lower: F64
    upper: F64


def residuals(low: U16, high: U16, ratio: float, offset: float, bins: int = 60, most: int = 2_000_000) -> Residuals:
    """Of evenly spaced rows where there are more than ``most`` pixels."""
    every = max(1, low.size // most)
    low, high = low[::every], high[::every]
    edges = _edges(int(low.min()), int(low.max()), bins)
    where = np.searchsorted(edges, low.ravel(), side='right') - 1
    order = np.argsort(where, kind='stable')
    rest = (high.ravel().astype(np.float64) - offset - ratio * low.ravel())[order]
    starts = np.searchsorted(where[order], np.arange(len(edges)))
    rows: List[Tuple[float, float, float, float]] = []
    for i in range(len(edges) - 1):
        part = rest[starts[i] : starts[i + 1]]
        if part.size < 20:
            continue
        lower, middle, upper = np.percentile(part, [16, 50, 84])
        rows.append((float(edges[i] + edges[i + 1]) / 2, float(middle), float(lower), float(upper)))
    table = np.array(rows, dtype=np.float64).reshape(-1, 4)
    return Residuals(table[:, 0], table[:, 1], table[:, 2], table[:, 3])


# ---- Reference rows and pixels, profiles


@dataclass(frozen=True)
class Reference:
    """A region of reference rows or pixels in a plane."""

    name: str
    axis: str  #: 'row' or 'column': what runs along the region
    pixels: U16
    mean: float
    deviation: float
    drift: float  #: ADU from the first to the last row (column), of the fitted line
    drift_error: float


def reference_regions(shape: Tuple[int, int], image: Region) -> Dict[str, Region]:
    """The regions outside the image; rows span the plane, pixels the image's rows."""
    rows, columns = image
    regions = {
        'rows before': (slice(0, rows.start), slice(0, shape[1])),
        'rows after': (slice(rows.stop, shape[0]), slice(0, shape[1])),
        'pixels before': (rows, slice(0, columns.start)),
        'pixels after': (rows, slice(columns.stop, shape[1])),
    }
    return {name: r for name, r in regions.items() if r[0].stop > r[0].start and r[1].stop > r[1].start}


def references(plane: U16, image: Region) -> List[Reference]:
    found = []
    for name, region in reference_regions((plane.shape[0], plane.shape[1]), image).items():
        pixels = plane[region]
        axis = 'column' if name.startswith('rows') else 'row'
        along = pixels.mean(axis=0 if axis == 'column' else 1)
        drift, error = _drift(along)
        found.append(Reference(name, axis, pixels, float(pixels.mean()), float(pixels.std()), drift, error))
    return found


def _drift(along: F64) -> Tuple[float, float]:
    """What a line through the values gains from the first to the last, and its standard deviation."""
    n = along.size
    if n < 3:
        return 0.0, float('nan')
    x = np.arange(n) - (n - 1) / 2
    spread = float((x * x).sum())
    slope = float((x * along).sum()) / spread
    rest = along - along.mean() - slope * x
    error = float(np.sqrt((rest * rest).sum() / (n - 2) / spread))
    return slope * (n - 1), error * (n - 1)


def thinned(values: F64, most: int = 512) -> Tuple[F64, F64]:
    """Positions and values, as means of neighbours where there are more than ``most``."""
    step = -(-values.size // most)
    if step <= 1:
        return np.arange(values.size, dtype=np.float64), values
    starts = np.arange(0, values.size, step)
    lengths = np.minimum(step, values.size - starts)
    return starts + (lengths - 1) / 2, np.add.reduceat(values, starts) / lengths


# ---- Two frames


@dataclass(frozen=True)
class PairNoise:
    """What differs between two frames of the same scene, in a plane."""

    plane: str
    shift: float  #: mean of A − B
    noise: float  #: of one frame: the deviation of A − B within 5 robust deviations, over √2
    robust: float  #: the same from the median absolute deviation
    pixels: int


def pair_noise(plane: str, a: U16, b: U16) -> PairNoise:
    difference = a.astype(np.int32) - b
    centre = float(np.median(difference))
    spread = robust_sigma(difference)
    inside = difference[np.abs(difference - centre) <= 5 * max(spread, 1.0)]
    return PairNoise(
        plane,
        float(difference.mean()),
        float(inside.std()) / np.sqrt(2.0),
        spread / np.sqrt(2.0),
        int(difference.size),
    )
