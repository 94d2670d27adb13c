"""A frame's part of the page: from a frame to the words, tables and pictures that the template shows."""

from __future__ import annotations

import errno
import hashlib
import os
import sys
from dataclasses import dataclass, field
from functools import lru_cache
from typing import Any, Dict, List, Optional, Sequence, Tuple

import numpy as np
from numpy.typing import NDArray

from .. import _core
from .._decoder import Decoded, Decoder
from .._errors import BadGeometry
from .._frame import Frame, read
from .._header import Header, keys
from . import evaluate, figures, pictures
from .text import Tile, bytes_text, exposure_text, number, path_text, plural, position_text, time_text

U16 = NDArray[np.uint16]


@dataclass(frozen=True)
class Budget:
    """Bytes that a frame's pictures may take; 0 leaves them out."""

    main: int
    side: int
    crop: int  #: pixels of a crop's side
    full: bool = True  #: with levels, gains, rows and the header


@dataclass
class Still:
    name: str
    picture: pictures.Picture
    caption: str
    clipping: str = ''


@dataclass
class Plot:
    svg: Any  #: Markup
    caption: str


@dataclass
class Table:
    columns: Sequence[str]
    rows: Sequence[Sequence[str]]
    caption: str = ''


@dataclass
class FrameView:
    """What the template shows of a frame."""

    id: str
    name: str
    verdict: Dict[str, str] = field(default_factory=dict)
    strip: List[Tile] = field(default_factory=list)
    findings: Sequence[Any] = ()
    main: Optional[Still] = None
    sides: List[Still] = field(default_factory=list)
    crops: List[Still] = field(default_factory=list)
    levels: Optional[Dict[str, Any]] = None
    gains: Optional[Dict[str, Any]] = None
    rows: Optional[Dict[str, Any]] = None
    keys: List[Dict[str, Any]] = field(default_factory=list)
    header_version: int = 0
    text: str = ''
    provenance: List[Tuple[str, str]] = field(default_factory=list)


@dataclass
class Subject:
    """A frame with what is worked out of it once."""

    path: str
    frame: Frame
    planes: Tuple[str, ...]
    decoded: Optional[Decoded]
    merge: Optional[Dict[str, Any]]
    saturation: Dict[str, float]

    @property
    def header(self) -> Header:
        return self.frame.header

    @property
    def main(self) -> str:
        """The plane that stands for the frame: merged, else image, else low."""
        return next(name for name in ('merged', 'image', 'low') if name in self.planes)

    def plane(self, name: str) -> U16:
        """With reference rows and pixels."""
        assert self.decoded is not None
        pixels = getattr(self.decoded, name)
        return pixels  # type: ignore[no-any-return]

    def image(self, name: str) -> U16:
        return self.plane(name)[self.frame.region]

    def counts(self, name: str) -> NDArray[Any]:
        assert self.decoded is not None
        histogram = self.decoded.statistics[name].histogram
        assert histogram is not None
        return histogram

    def saturated(self, name: str) -> int:
        """Pixels of the image region that are saturated."""
        return int(self.counts(name)[int(self.saturation[name]) :].sum())

    def factor(self, name: str) -> float:
        """What brings the plane's values to those of the merged plane."""
        return float(self.merge['gain_ratio']) if name == 'low' and self.merge and self.merge['gain_ratio'] else 1.0


def load(path: Any, planes: Optional[Sequence[str]] = None) -> Subject:
    """Reads and decodes a frame. What cannot be decoded keeps its header and findings."""
    frame = read(_standard_input() if path == '-' else os.fsdecode(path))
    decoder = Decoder()
    whole = bool(frame.planes)
    decoded = decoder.decode(frame, planes, statistics=True, histograms=True) if whole else None
    shown = os.fsdecode(path)
    saturation = {name: float(_core.keywords(frame._handle, name)[0]) for name in frame.planes}
    return Subject(shown, frame, tuple(frame.planes), decoded, decoder.merge_info(frame.header), saturation)


@lru_cache(maxsize=1)
def _standard_input() -> bytes:
    """All of it. It may never end: what begins like no frame is refused at once, and so is what goes on far
    behind one."""
    start = sys.stdin.buffer.read(1 << 16)
    if len(start) < 1 << 16:
        return start
    try:
        rows, columns = read(start).shape
    except BadGeometry:
        rows, columns = 0, 0  # the page says why
    most = (1 << 20) + 8 * min(rows * columns, 1 << 31)
    whole = start + sys.stdin.buffer.read(most + 1 - len(start))
    if len(whole) > most:
        raise OSError(errno.EFBIG, 'goes on behind its frame', 'standard input')
    return whole


# ---- Verdict and strip

#: The tile that a finding colours.
_TILES = {'unknown_sensor': 'Sensor', 'no_time': 'Time', 'temperature_off': 'Temperature'}


def verdict(findings: Sequence[Any]) -> Dict[str, str]:
    kinds = [finding.severity for finding in findings]
    if 'error' in kinds:
        return {'kind': 'error', 'text': 'Cannot be decoded'}
    if 'warning' in kinds:
        return {'kind': 'warning', 'text': f"Decodes, with {plural(kinds.count('warning'), 'warning')}"}
    return {'kind': 'good', 'text': 'Whole and sane'}


def strip(subject: Subject) -> List[Tile]:
    header = subject.header
    off = {_TILES[finding.id] for finding in subject.frame.check() if finding.id in _TILES}
    exposure, unit = exposure_text(header.exposure_seconds)
    tiles = [
        Tile('Sensor', header.sensor, note=header.model),
        Tile('Serial', header.serial or '–'),
        Tile('Time', time_text(header.time) or 'unreadable', 'UTC' if header.time is not None else ''),
        Tile('Exposure', exposure, unit),
        _gain_tile(subject),
        _temperature_tile(header),
        _gps_tile(header),
    ]
    if subject.decoded is not None:
        tiles.append(_light_tile(subject))
    for tile in tiles:
        tile.off = tile.off or tile.name in off
    return tiles


def _gain_tile(subject: Subject) -> Tile:
    header = subject.header
    electrons = float(header['HighGainADUe']) / 1000
    note = f'{number(electrons, 3)} e⁻ per high-gain ADU' if electrons > 0 and subject.header.hdr else ''
    if header.hdr:
        return Tile('Gain settings', f"low {header['LDRGain']}, high {header['HDRGain']}", note=note)
    return Tile('Gain setting', str(header['HDRGain' if header['TestIsHighFrame'] else 'LDRGain']))


def _temperature_tile(header: Header) -> Tile:
    celsius, wanted = header.temperature_celsius, header.set_point_celsius
    if celsius is None:
        return Tile('Temperature', 'not stated')
    tile = Tile('Temperature', number(celsius, 1), '°C')
    if wanted is not None:
        tile.note = f'{number(celsius - wanted, 1, sign=True)} K from the set point {number(wanted, 1)} °C'
    return tile


def _gps_tile(header: Header) -> Tile:
    if header.version < 2:
        return Tile('GPS', 'not stated')
    if header['GPSError']:
        return Tile('GPS', 'error', note="times are the camera's own", off=True)
    if not header['GPSLocked']:
        return Tile('GPS', 'no lock', note="times are the camera's own")
    return Tile('GPS', 'locked', note=position_text(header))


def _light_tile(subject: Subject) -> Tile:
    name = subject.main
    saturated = subject.saturated(name)
    share = 100 * saturated / max(1, int(subject.counts(name).sum()))
    return Tile(
        'Saturated', number(share, 3) if saturated else '0', '%', note=f'{plural(saturated, "pixel")} of {name}'
    )


# ---- The picture


def stretch_of(subject: Subject) -> evaluate.Stretch:
    return evaluate.Stretch.of(subject.counts(subject.main), subject.saturation[subject.main])


def _still(subject: Subject, name: str, stretch: evaluate.Stretch, budget: int) -> Still:
    values = subject.image(name)
    picture = pictures.within(values, stretch, budget, subject.factor(name))
    marks = pictures.clipping(values >= subject.saturation[name], values == 0, picture.scale, max(30_000, budget // 6))
    return Still(name, picture, '', marks)


def show_pictures(view: FrameView, subject: Subject, budget: Budget) -> None:
    stretch = stretch_of(subject)
    main = _still(subject, subject.main, stretch, budget.main)
    main.caption = _main_caption(subject, main, stretch)
    view.main = main
    for name in ('low', 'high'):
        if name == subject.main or name not in subject.planes or not budget.side:
            continue
        side = _still(subject, name, stretch, budget.side)
        factor = subject.factor(name)
        side.caption = f'{name} gain' + (f' × {number(factor, 3)}' if factor != 1 else '') + ', at the same stretch'
        view.sides.append(side)
    if budget.crop:
        view.crops = _crops(subject, stretch, budget.crop)


def _main_caption(subject: Subject, still: Still, stretch: evaluate.Stretch) -> str:
    image = subject.image(subject.main)
    scale = still.picture.scale
    words = [
        f'The {subject.main} plane, {image.shape[1]} × {image.shape[0]} pixels'
        + ('' if scale == 1 else f', shown as means of {scale} × {scale} (the crops below are pixel for pixel)')
        + '.',
        f'Stretched from {number(stretch.shadows, 0)} to {number(stretch.white, 0)} ADU.',
    ]
    if still.clipping:
        words.append('Red: saturated. Blue: zero.')
    else:
        words.append('No pixel is saturated or zero.' if not subject.saturated(subject.main) else '')
    words.append('Scroll or pinch to zoom, drag to move.')
    return ' '.join(word for word in words if word)


def _crops(subject: Subject, stretch: evaluate.Stretch, size: int) -> List[Still]:
    image = subject.image(subject.main)
    saturate = subject.saturation[subject.main]
    if max(image.shape) <= size:
        return []
    found = []
    for name, row, column in pictures.crops(image, saturate, size):
        part = image[row : row + size, column : column + size]
        marks = pictures.clipping(part >= saturate, part == 0, 1, 20_000)
        caption = f'{name}: columns {column}–{column + part.shape[1] - 1}, rows {row}–{row + part.shape[0] - 1}'
        found.append(Still(name, pictures.lossless(stretch.greys(part)), caption, marks))
    return found


# ---- Levels


def levels(subject: Subject) -> Dict[str, Any]:
    assert subject.decoded is not None
    rows = []
    for name in subject.planes:
        s = subject.decoded.statistics[name]
        rows.append(
            [
                name,
                number(s.mean, 2),
                number(s.deviation, 2),
                number(evaluate.robust_sigma_of_counts(subject.counts(name)), 2),
                str(s.mode),
                f'{s.minimum.value} at {s.minimum.x}, {s.minimum.y}',
                f'{s.maximum.value} at {s.maximum.x}, {s.maximum.y}',
                f'{s.clip_low}, {s.clip_high}',
                f'{subject.saturated(name):,}'.replace(',', '\u2009'),
            ]
        )
    table = Table(
        [
            'plane',
            'mean',
            'deviation',
            'robust σ',
            'mode',
            'minimum at x, y',
            'maximum at x, y',
            'clip points',
            'saturated',
        ],
        rows,
        'Of the image region, in ADU; saturated in pixels.',
    )
    counts = {name: subject.counts(name) for name in subject.planes}
    clips = {name: (s.clip_low, s.clip_high) for name, s in subject.decoded.statistics.items()}
    return {'table': table, 'plots': _histograms(subject, counts, clips)}


def _histograms(subject: Subject, counts: Dict[str, NDArray[Any]], clips: Dict[str, Tuple[int, int]]) -> List[Plot]:
    ones = dict.fromkeys(counts, 1.0)
    merge = subject.merge if 'merged' in subject.planes else None
    ratio = float(merge['gain_ratio']) if merge else 0.0
    marks = (
        [
            ('high threshold', float(merge['high_threshold'])),
            ('difference threshold', float(merge['difference_threshold'])),
        ]
        if merge
        else []
    )
    plots = [
        Plot(
            figures.histogram(counts, ones, clips, marks, 'ADU', 'histogram'),
            'Pixels per count, both axes logarithmic. Triangles: clip points (5 % of the pixels lie below the '
            'lower, 0.1 % above the upper).' + (' Dashed: thresholds of the merge.' if marks else ''),
        )
    ]
    if ratio:
        scales = {name: 1.0 if name == 'low' else ratio for name in counts}
        lows = [(text, value / ratio) for text, value in marks]
        plots.append(
            Plot(
                figures.histogram(counts, scales, clips, lows, 'low-gain ADU', 'histogram-low'),
                f'The same in low-gain units: high and merged divided by {number(ratio, 3)}. '
                'Where the merge is right, the planes lie on each other.',
            )
        )
    return plots


# ---- High against low


def gains(subject: Subject) -> Dict[str, Any]:
    low, high = subject.image('low'), subject.image('high')
    merge = subject.merge or {}
    limit = int(merge.get('high_threshold', 3700))
    used = float(merge.get('gain_ratio', 0.0))
    fit = evaluate.fit_ratio(low, high, limit)
    line = (fit.ratio, fit.offset) if fit else (used, 0.0)
    plots = [
        Plot(
            figures.gain_density(evaluate.density(low, high), used, fit, limit),
            'Every pixel of the image by both its values. The slope is the gain ratio, the knee is where the '
            'high gain clips.',
        )
    ]
    if line[0] > 0:
        rest = evaluate.residuals(low, high, *line)
        if rest.low.size:
            plots.append(
                Plot(
                    figures.gain_residuals(rest, line[0], limit),
                    'High less the line, by low value: flat up to the threshold where both gains are linear.',
                )
            )
    return {'lead': _gain_words(used, fit), 'strip': _gain_tiles(used, fit, merge, subject), 'plots': plots}


def _gain_words(used: float, fit: Optional[evaluate.RatioFit]) -> str:
    if not used:
        return 'Nothing is merged here; the pixels themselves tell how the gains relate.'
    if fit is None:
        return (
            'The picture has too little contrast to tell the gain ratio; the merge uses the one that the settings give.'
        )
    difference = 100 * (used / fit.ratio - 1)
    if abs(used - fit.ratio) <= max(3 * fit.error, 1 / 1024):
        return 'The ratio that the merge uses and the one that the pixels tell agree: both planes meet without a step.'
    return (
        f'The ratio that the merge uses is {number(abs(difference), 2)} % {"above" if difference > 0 else "below"} '
        'the one that the pixels tell: at the threshold, the merged plane has a step of that size.'
    )


def _gain_tiles(used: float, fit: Optional[evaluate.RatioFit], merge: Dict[str, Any], subject: Subject) -> List[Tile]:
    tiles = [Tile('Ratio in use', number(used, 4) if used else '–', note='floored to 10 bits' if used else '')]
    if fit is None:
        tiles.append(Tile('Ratio fitted', '–', note='too little contrast'))
    else:
        tiles += [
            Tile('Ratio fitted', f'{number(fit.ratio, 4)} ± {number(fit.error, 4)}'),
            Tile('Offset', number(fit.offset, 2, sign=True), 'ADU', note='of high where low is 0'),
        ]
        if used:
            percent = 100 * (used / fit.ratio - 1)
            step = abs(used - fit.ratio) > max(3 * fit.error, 1 / 1024)
            tiles.append(Tile('Difference', number(percent, 3, sign=True), '%', off=step and abs(percent) > 0.5))
    if merge:
        tiles.append(
            Tile(
                'Thresholds',
                f"{merge['high_threshold']}, {merge['difference_threshold']}",
                'ADU',
                note='high, difference',
            )
        )
    tiles.append(Tile('High gain clipped', f"{subject.saturated('high'):,}".replace(',', '\u2009'), 'pixels'))
    return tiles


# ---- Rows, columns, references


def rows(subject: Subject) -> Dict[str, Any]:
    planes = [name for name in subject.planes if name != 'merged']
    found = {name: evaluate.references(subject.plane(name), subject.frame.region) for name in planes}
    lines = []
    for name, regions in found.items():
        for r in regions:
            lines.append(
                [
                    f'{r.name}, {name}',
                    f'{r.pixels.shape[1]} × {r.pixels.shape[0]}',
                    number(r.mean, 2),
                    number(r.deviation, 2),
                    f'{number(r.drift, 2, sign=True)} ± {number(r.drift_error, 2)}',
                ]
            )
    table = (
        Table(
            ['reference', 'pixels', 'mean', 'deviation', 'drift'],
            lines,
            'In ADU. Drift: what a line through the row (column) means gains from the first to the last.',
        )
        if lines
        else None
    )
    first = planes[0]
    return {
        'table': table,
        'strips': [_strip_picture(r, first) for r in found[first]],
        'plots': _reference_plots(found) + _profiles(subject, planes),
    }


def _strip_picture(reference: evaluate.Reference, plane: str) -> Still:
    pixels = reference.pixels if reference.axis == 'column' else reference.pixels.T
    spread = max(evaluate.robust_sigma(pixels), 0.5)
    middle = float(np.median(pixels))
    stretch = evaluate.Stretch(middle - 5 * spread, middle + 5 * spread, None)
    step = -(-pixels.shape[1] // 1536)
    shown = np.stack([row[: row.size // step * step].reshape(-1, step).mean(axis=1) for row in pixels[:48]])
    turned = ', turned: the top row is at the left' if reference.axis == 'row' else ''
    return Still(
        f'{reference.name}, {plane}',
        pictures.lossless(stretch.greys(shown)),
        f'{reference.name}, {plane} plane{turned}; black to white: median ± 5 robust σ',
    )


def _reference_plots(found: Dict[str, List[evaluate.Reference]]) -> List[Plot]:
    plots = []
    first = next(iter(found.values()))
    for i, region in enumerate(first):
        axis = 1 if region.axis == 'row' else 0
        means = {name: regions[i].pixels.mean(axis=axis) for name, regions in found.items()}
        deviations = {name: regions[i].pixels.std(axis=axis) for name, regions in found.items()}
        plots.append(
            Plot(
                figures.along(region.name, f'Mean along {region.name}', means, deviations, region.axis),
                f'Mean and deviation of the {region.name} along the frame.',
            )
        )
    return plots


def _profiles(subject: Subject, planes: Sequence[str]) -> List[Plot]:
    shown = [name for name in subject.planes if name != 'merged'] or list(planes)
    plots = []
    for axis, what in ((1, 'row'), (0, 'column')):
        lines = {name: _medians(subject.image(name), axis) for name in shown}
        plots.append(
            Plot(
                figures.along(f'{what} profile', f'Median of each {what}', lines, {}, what, 'ADU less mean'),
                f'Median of each {what} of the image, less the mean of all.',
            )
        )
    return plots


def _medians(image: U16, axis: int) -> NDArray[np.float64]:
    """Of every line; of a large picture, over every n-th pixel of it, which tells as much."""
    every = max(1, image.shape[axis] // 1024)
    part = image[:, ::every] if axis == 1 else image[::every]
    return np.asarray(np.median(part, axis=axis), np.float64)


# ---- The header, the file


def key_rows(header: Header) -> List[Dict[str, Any]]:
    """The keys, and the keyword that carries each in our FITS files."""
    keywords: Dict[str, List[str]] = {}
    for name, _unit, source in _core.keyword_table():
        for key in filter(None, (part.strip() for part in source.split(','))):
            keywords.setdefault(key, []).append(name)
    return [
        {
            'name': key.name,
            'value': _raw(header[key.name]),
            'unit': key.unit.replace('degC', '°C').replace('um', 'µm').replace('us', 'µs'),
            'keyword': ', '.join(keywords.get(key.name, [])),
            'since': str(key.first_version),
            'carried': key.first_version <= min(header.version, 4) <= key.last_version,
        }
        for key in keys()
    ]


def _raw(value: object) -> str:
    return str(value).lower() if isinstance(value, bool) else str(value)


def provenance(subject: Subject) -> List[Tuple[str, str]]:
    content = subject.frame.tobytes()
    facts = [
        ('path', path_text(subject.path)),
        ('size', bytes_text(len(content))),
        ('SHA-256', hashlib.sha256(content).hexdigest()),
    ]
    merge = subject.merge
    if merge:
        facts.append(
            (
                'merge',
                f"gain ratio {number(merge['gain_ratio'], 4)}, thresholds {merge['high_threshold']} and "
                f"{merge['difference_threshold']} ADU, no reference files",
            )
        )
    facts.append(
        (
            'written by',
            ', '.join(filter(None, (str(subject.header['AppInfoString']), str(subject.header['LibInfoString']))))
            or 'not stated',
        )
    )
    return facts


def view_of(subject: Subject, identity: str, name: str, budget: Budget) -> FrameView:
    """Everything that the page shows of a frame."""
    findings = subject.frame.check()
    view = FrameView(identity, name, verdict(findings), strip(subject), findings)
    view.header_version = subject.header.version
    if subject.decoded is not None:
        show_pictures(view, subject, budget)
    if not budget.full:
        return view
    if subject.decoded is not None:
        view.levels = levels(subject)
        view.rows = rows(subject)
        if 'low' in subject.planes and 'high' in subject.planes:
            view.gains = gains(subject)
    view.keys = key_rows(subject.header)
    view.text = subject.header.text()
    view.provenance = provenance(subject)
    return view
