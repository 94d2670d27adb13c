"""What `measure` and `calibrate` found, as a table and its curves."""

from __future__ import annotations

import math
from typing import Any, Dict, List, Mapping, Optional, Sequence, Tuple

from . import figures
from .frame import Plot, Table
from .text import number

#: Fields of a plane in the order of a data sheet: name, what it is called, unit, digits.
FIELDS: Sequence[Tuple[str, str, str, int]] = (
    ('gain_e_per_adu', 'gain', 'e⁻/ADU', 4),
    ('read_noise_e', 'read noise', 'e⁻', 3),
    ('read_noise_adu', 'read noise', 'ADU', 3),
    ('offset_adu', 'offset', 'ADU', 2),
    ('level_adu', 'light above the dark', 'ADU', 2),
    ('temporal_noise_adu', 'noise of a frame', 'ADU', 3),
    ('fixed_pattern_before_adu', 'fixed pattern, before', 'ADU', 3),
    ('fixed_pattern_after_adu', 'fixed pattern, after', 'ADU', 3),
    ('dark_current_e_per_s', 'dark current', 'e⁻/s', 4),
    ('dark_current_adu_per_s', 'dark current', 'ADU/s', 4),
    ('saturation_e', 'saturation', 'e⁻', 0),
    ('saturation_adu', 'saturation', 'ADU', 0),
    ('sensitivity_threshold_e', 'sensitivity threshold', 'e⁻', 3),
    ('dynamic_range_db', 'dynamic range', 'dB', 2),
    ('snr_max_db', 'best signal to noise', 'dB', 2),
    ('linearity_error_percent', 'linearity error', '%', 3),
    ('dsnu_e', 'dark signal non-uniformity', 'e⁻', 3),
    ('dsnu_row_e', '… of rows', 'e⁻', 3),
    ('dsnu_column_e', '… of columns', 'e⁻', 3),
    ('dsnu_pixel_e', '… of pixels', 'e⁻', 3),
    ('prnu_percent', 'photo response non-uniformity', '%', 3),
    ('prnu_after_percent', '… after correction', '%', 3),
    ('prnu_row_percent', '… of rows', '%', 3),
    ('prnu_column_percent', '… of columns', '%', 3),
    ('prnu_pixel_percent', '… of pixels', '%', 3),
    ('hot_pixels', 'hot pixels', '', 0),
    ('dead_pixels', 'dead pixels', '', 0),
    ('blinking_pixels', 'blinking pixels', '', 0),
)


def measured_of(content: Any, identity: str, name: str) -> Dict[str, Any]:
    """What the template shows of one JSON file. ValueError for one that is no such output."""
    schema = content.get('schema', '') if isinstance(content, dict) else ''
    planes = content.get('planes') if isinstance(content, dict) else None
    if (
        schema not in ('orvacam.measure/1', 'orvacam.calibrate/1')
        or not isinstance(planes, dict)
        or not all(isinstance(plane, dict) for plane in planes.values())
    ):
        raise ValueError(f'{name}: is no output of measure or calibrate (--json)')
    what = schema.split('.')[1].split('/')[0]
    title = {'measure': 'Photon transfer', 'calibrate': 'Calibration'}[what]
    frames = content.get('frames')
    lead = f'From {name}' + (f', {frames} frames.' if isinstance(frames, int) else '.')
    return {
        'id': identity,
        'title': title,
        'lead': lead + _ratio_words(content.get('ratio')),
        'table': _table(planes),
        'notes': _notes(planes),
        'plots': _plots(planes),
    }


def _ratio_words(ratio: Any) -> str:
    if not isinstance(ratio, dict):
        return ''
    words = []
    if isinstance(ratio.get('table'), (int, float)):
        words.append(f"of the gain table {number(_number(ratio['table']), 4)}")
    if isinstance(ratio.get('measured'), (int, float)):
        words.append('measured ' + _with_error(ratio, 'measured', 4))
    return ' Gain ratio: ' + ', '.join(words) + '.' if words else ''


def _with_error(values: Mapping[str, Any], field: str, digits: int) -> str:
    """The value to the second digit of its error, or to so many digits where it has none."""
    value, error = _number(values.get(field)), _number(values.get(f'{field}_error'))
    if not error > 0 or math.isinf(error):
        return number(value, digits)
    digits = min(6, max(0, 1 - math.floor(math.log10(error))))
    return f'{number(value, digits)} ± {number(error, digits)}'


def _table(planes: Mapping[str, Mapping[str, Any]]) -> Table:
    rows: List[List[str]] = []
    for field, name, unit, digits in FIELDS:
        if any(plane.get(field) is not None for plane in planes.values()):
            label = f'{name}, {unit}' if unit else name
            rows.append([label, *(_with_error(plane, field, digits) for plane in planes.values())])
    return Table(['', *planes], rows, '± one standard deviation, where it is an estimate.')


def _notes(planes: Mapping[str, Mapping[str, Any]]) -> List[str]:
    """What the program says of numbers that are not known, or to be read with care."""
    found = []
    for name, plane in planes.items():
        for note in plane.get('notes') or []:
            if isinstance(note, dict):
                found.append(f"{name}: {note.get('text', '')}")
    return found


# ---- Curves


def _number(value: Any) -> float:
    """NaN for what is no number, null among it."""
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return float('nan')
    try:
        return float(value)
    except OverflowError:  # whole numbers have no end in JSON
        return float('nan')


def _curve(plane: Mapping[str, Any]) -> List[figures.CurvePoint]:
    points = plane.get('curve')
    return [
        figures.CurvePoint(
            _number(point.get('signal_adu')),
            _number(point.get('excess_variance_adu2')),
            _number(point.get('excess_variance_adu2_error')),
            _number(point.get('deviation_percent')),
            point.get('fitted') is True,
        )
        for point in (points if isinstance(points, list) else [])
        if isinstance(point, dict)
    ]


def _plots(planes: Mapping[str, Mapping[str, Any]]) -> List[Plot]:
    known = {name: plane for name, plane in planes.items() if name in figures.COLOURS}
    curves = {name: _curve(plane) for name, plane in known.items() if _curve(plane)}
    plots = []
    if curves:
        gains = {name: _number(known[name].get('gain_e_per_adu')) for name in curves}
        plots.append(
            Plot(
                figures.transfer(curves, gains),
                'Photon transfer: variance of the light against signal. The line has the slope 1 / gain; it was '
                'fitted to the filled points.',
            )
        )
    if any(point.deviation == point.deviation for points in curves.values() for point in points):
        plots.append(Plot(figures.linearity(curves), 'Signal less the straight line against exposure.'))
    for title, unit, fields in (
        ('Dark pattern', 'e⁻', ('dsnu_row_e', 'dsnu_column_e', 'dsnu_pixel_e')),
        ('Response pattern', '%', ('prnu_row_percent', 'prnu_column_percent', 'prnu_pixel_percent')),
    ):
        values = {name: [_number(plane.get(field)) for field in fields] for name, plane in known.items()}
        values = {name: numbers for name, numbers in values.items() if any(n == n for n in numbers)}
        errors = {name: [_number(known[name].get(f'{field}_error')) for field in fields] for name in values}
        if values:
            plots.append(
                Plot(figures.parts(title, unit, values, errors), f'{title}: noise of rows, columns and pixels.')
            )
    return plots
