"""Many frames as one table and its curves."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Sequence, Tuple

import numpy as np

from . import evaluate, figures
from .frame import Plot, Subject
from .text import Tile, exposure_text, number, plural, time_text

MOST_ROWS = 4000


@dataclass
class Row:
    """A frame of the night; what could not be read has a reason instead of numbers."""

    name: str
    link: str = ''
    plane: str = ''
    level: Optional[float] = None
    noise: Optional[float] = None
    saturated: Optional[float] = None  #: percent
    temperature: Optional[float] = None
    exposure: Optional[float] = None
    time: Optional[np.datetime64] = None
    words: str = ''
    off: bool = False

    @property
    def cells(self) -> List[str]:
        exposure = ' '.join(exposure_text(self.exposure)) if self.exposure is not None else '–'
        return [
            time_text(self.time) or '–',
            exposure,
            self.plane or '–',
            _number(self.level, 1),
            _number(self.noise, 2),
            _number(self.saturated, 3),
            _number(self.temperature, 1),
            self.words,
        ]


COLUMNS = [
    'frame',
    'time, UTC',
    'exposure',
    'plane',
    'level, ADU',
    'noise, ADU',
    'saturated, %',
    'sensor, °C',
    'findings',
]


def _number(value: Optional[float], digits: int) -> str:
    return '–' if value is None else number(value, digits)


def row_of(subject: Subject, name: str) -> Row:
    header = subject.header
    findings = [finding for finding in subject.frame.check() if finding.severity != 'note']
    row = Row(
        name,
        temperature=header.temperature_celsius,
        exposure=header.exposure_seconds,
        time=header.time,
        words='; '.join(finding.text for finding in findings),
        off=bool(findings),
    )
    if subject.decoded is not None:
        row.plane = subject.main
        counts = subject.counts(row.plane)
        row.level, row.noise = _level_and_noise(subject)
        row.saturated = 100 * subject.saturated(row.plane) / max(1, int(counts.sum()))
    return row


def _level_and_noise(subject: Subject) -> Tuple[float, float]:
    """The median, and the noise of a pixel: what differs between neighbours of a row, over √2, stars aside."""
    image = subject.image(subject.main)
    level = float(np.median(image))
    every = max(1, image.size // 1_000_000)
    rows = image[::every].astype(np.int32)
    return level, evaluate.robust_sigma(rows[:, 1:] - rows[:, :-1]) / float(np.sqrt(2))


def failed_row(name: str, reason: str) -> Row:
    return Row(name, words=reason, off=True)


def night_of(rows: Sequence[Row]) -> Dict[str, Any]:
    """What the template shows of the night."""
    shown = rows[:MOST_ROWS]
    caption = 'Level: median of the image. Noise: difference of neighbouring pixels over √2, without stars.'
    if len(rows) > len(shown):
        caption += f' The first {MOST_ROWS} of {len(rows)} frames are listed.'
    return {'strip': _strip(rows), 'plots': _plots(rows), 'columns': COLUMNS, 'rows': shown, 'caption': caption}


def _strip(rows: Sequence[Row]) -> List[Tile]:
    times = sorted(row.time for row in rows if row.time is not None)
    exposure = sum(row.exposure for row in rows if row.exposure is not None)
    off = sum(row.off for row in rows)
    tiles = [
        Tile('Frames', str(len(rows))),
        Tile('Exposure in all', f'{exposure:.6g}', 's'),
        Tile('With warnings or errors', str(off), off=off > 0),
    ]
    if times:
        tiles += [Tile('First', time_text(times[0]), 'UTC'), Tile('Last', time_text(times[-1]), 'UTC')]
    warm = [row.temperature for row in rows if row.temperature is not None]
    if warm:
        coldest, warmest = number(min(warm), 1), number(max(warm), 1)
        shown = coldest if coldest == warmest else f'{coldest} … {warmest}'
        tiles.append(Tile('Temperature', shown, '°C', note='of the sensor'))
    return tiles


def _plots(rows: Sequence[Row]) -> List[Plot]:
    decoded = [row for row in rows if row.level is not None]
    if len(decoded) < 2:
        return []
    when, xlabel = _abscissa(decoded)
    order = np.argsort(when, kind='stable')
    when = when[order]
    ordered = [decoded[i] for i in order]
    curves = [
        ('Level', 'ADU', 'level', 'Median of the image'),
        ('Noise', 'ADU', 'noise', 'Noise of a pixel'),
        ('Saturated', '%', 'saturated', 'Share of saturated pixels'),
        ('Temperature', '°C', 'temperature', 'Temperature of the sensor'),
    ]
    plots = []
    for title, unit, name, caption in curves:
        values: Dict[str, List[Optional[float]]] = {}
        for plane in dict.fromkeys(row.plane for row in ordered):
            values[plane] = [getattr(row, name) if row.plane == plane else None for row in ordered]
        if any(value is not None for numbers in values.values() for value in numbers):
            plots.append(Plot(figures.series(title, unit, values, when, xlabel), caption + '.'))
    return plots


def _abscissa(rows: Sequence[Row]) -> Tuple[Any, str]:
    """Hours since the first frame; the frames' places where a time is missing, or all are the same."""
    times = [row.time for row in rows]
    if all(time is not None for time in times):
        stamps = np.array(times, dtype='datetime64[ns]')
        hours = (stamps - stamps.min()) / np.timedelta64(1, 'ns') / 3.6e12
        if hours.max() > 0:
            scale, unit = (60.0, 'minutes') if hours.max() < 2 else (1.0, 'hours')
            return hours * scale, f'{unit} since {time_text(stamps.min())} UTC'
    return np.arange(1, len(rows) + 1, dtype=float), 'frame'
