"""What `measure` and `calibrate` found, as a table and its curves."""

from __future__ import annotations

from typing import Any, Dict, List, Mapping, Optional, Sequence, Tuple

from .frame import Table
from .text import number

#: Fields of a plane in the order of a data sheet: name, what it is called, unit, digits.
FIELDS: Sequence[Tuple[str, str, str, int]] = (
    ('gain_e_per_adu', 'gain', 'e⁻/ADU', 4),
    ('read_noise_e', 'read noise', 'e⁻', 3),
    ('read_noise_adu', 'read noise', 'ADU', 3),
    ('offset_adu', 'offset', 'ADU', 2),
    ('dark_current_e_per_s', 'dark current', 'e⁻/s', 4),
    ('saturation_e', 'saturation', 'e⁻', 0),
    ('dynamic_range_db', 'dynamic range', 'dB', 2),
    ('linearity_error_percent', 'linearity error', '%', 3),
    ('dsnu_e', 'dark signal non-uniformity', 'e⁻', 3),
    ('prnu_percent', 'photo response non-uniformity', '%', 3),
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
        'plots': [],
    }


def _ratio_words(ratio: Any) -> str:
    if not isinstance(ratio, dict):
        return ''
    words = []
    if isinstance(ratio.get('table'), (int, float)):
        words.append(f"of the gain table {number(ratio['table'], 4)}")
    if isinstance(ratio.get('measured'), (int, float)):
        words.append('measured ' + _with_error(ratio, 'measured', 4))
    return ' Gain ratio: ' + ', '.join(words) + '.' if words else ''


def _with_error(values: Mapping[str, Any], field: str, digits: int) -> str:
    value, error = values.get(field), values.get(f'{field}_error')
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return '–'
    text = number(value, digits)
    return text + f' ± {number(error, digits)}' if isinstance(error, (int, float)) else text


def _table(planes: Mapping[str, Mapping[str, Any]]) -> Table:
    rows: List[List[str]] = []
    known = {field for field, _, _, _ in FIELDS}
    others = dict.fromkeys(
        field
        for plane in planes.values()
        for field, value in plane.items()
        if field not in known and not field.endswith('_error') and isinstance(value, (int, float))
    )
    for field, name, unit, digits in [*FIELDS, *((field, field.replace('_', ' '), '', 3) for field in others)]:
        if any(plane.get(field) is not None for plane in planes.values()):
            rows.append(
                [f'{name}, {unit}' if unit else name, *(_with_error(plane, field, digits) for plane in planes.values())]
            )
    return Table(['', *planes], rows, '± one standard deviation, where it is an estimate.')
