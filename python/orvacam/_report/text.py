"""Numbers and times as a reader wants them."""

from __future__ import annotations

import math
import os
import re
from dataclasses import dataclass
from typing import Any, Mapping, Optional, Tuple

import numpy as np


@dataclass
class Tile:
    """A value of the strip; coloured where something is off."""

    name: str
    value: str
    unit: str = ''
    note: str = ''
    off: bool = False


def number(value: float, digits: int, sign: bool = False) -> str:
    """With a true minus sign; "–" for what is no number."""
    if value is None or not math.isfinite(value):
        return '–'
    text = f'{value:+.{digits}f}' if sign else f'{value:.{digits}f}'
    if float(text) == 0:
        text = text.replace('-', '+') if sign else text.lstrip('-')
    return text.replace('-', '−')


def plural(count: int, what: str) -> str:
    return f'{count:,}'.replace(',', '\u2009') + f' {what}' + ('' if count == 1 else 's')


def exposure_text(seconds: float) -> Tuple[str, str]:
    """Value and unit."""
    if seconds >= 1 or seconds == 0:
        return f'{seconds:.6g}', 's'
    return (f'{seconds * 1e3:.6g}', 'ms') if seconds >= 1e-3 else (f'{seconds * 1e6:.6g}', 'µs')


def time_text(time: Optional[np.datetime64]) -> str:
    """To the millisecond."""
    if time is None:
        return ''
    return str(np.datetime_as_string(time, unit='ms')).replace('T', ' ')


def position_text(header: Mapping[str, Any]) -> str:
    """'48.0000° N, 16.0000° W'"""

    def degrees(name: str, positive: str, negative: str) -> str:
        angle = float(header[f'GPS{name}Degrees']) + float(header[f'GPS{name}Minutes']) / 60
        return f"{angle:.4f}° {positive if header[f'GPS{name}Hemisphere'] else negative}"

    return degrees('Latitude', 'N', 'S') + ', ' + degrees('Longitude', 'E', 'W')


def path_text(path: Any) -> str:
    """A path or name that can be written as UTF-8."""
    return os.fsdecode(path).encode('utf-8', 'replace').decode()


#: What a browser or a terminal takes as a command, or as a change of the writing direction; not tab and line feed.
_CONTROLS = re.compile('[\x00-\x08\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]')


def visible(text: str) -> str:
    """With U+FFFD for characters that are none to be seen."""
    return _CONTROLS.sub('\ufffd', text)


def bytes_text(count: int) -> str:
    return f'{count:,} bytes'.replace(',', '\u2009')
