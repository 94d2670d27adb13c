"""Two frames of the same scene: what differs, and the read noise that this tells."""

from __future__ import annotations

from typing import Any, Dict, List

import numpy as np

from . import evaluate, pictures
from .._errors import Mismatch
from .frame import Subject, Table
from .text import number, path_text


def pair_of(a: Subject, b: Subject, budget: int) -> Dict[str, Any]:
    """What the template shows of a pair. Raises Mismatch for frames that cannot be compared."""
    for each in (a, b):
        if each.decoded is None:
            raise Mismatch('cannot be compared: it does not decode', reason='mismatch', path=each.path)
    for what, one, other in (
        ('sensors', a.header.sensor, b.header.sensor),
        ('planes', a.planes, b.planes),
        ('sizes', a.header.shape, b.header.shape),
        ('image regions', a.header.region, b.header.region),
    ):
        if one != other:
            raise Mismatch(f'the {what} of the two frames differ: {one} and {other}', reason='mismatch', path=b.path)
    main = a.main
    difference = a.image(main).astype(np.int32) - b.image(main)
    spread = max(evaluate.robust_sigma(difference), 0.5)
    middle = float(np.median(difference))
    stretch = evaluate.Stretch(middle - 5 * spread, middle + 5 * spread, None)
    return {
        'lead': f'{path_text(a.path)} less {path_text(b.path)}. In darks and biases, what is left is read noise; in '
        'pictures of light, photon noise as well.',
        'picture': pictures.within(difference, stretch, budget),
        'clipping': '',
        'caption': f'Difference of the {main} planes, black to white: {number(middle - 5 * spread, 0)} to '
        f'{number(middle + 5 * spread, 0)} ADU (5 σ).',
        'table': _noise_table(a, b),
        'aside': 'Noise of one frame: the deviation of the difference over √2, within 5 robust deviations; robust: '
        'from the median absolute deviation. Shift: mean of the first less the second.',
    }


def _noise_table(a: Subject, b: Subject) -> Table:
    rows: List[List[str]] = []
    for name in a.planes:
        if name == 'merged':
            continue
        regions = {'image': a.frame.region, **evaluate.reference_regions(a.header.shape, a.frame.region)}
        for where, region in regions.items():
            noise = evaluate.pair_noise(name, a.plane(name)[region], b.plane(name)[region])
            electrons = _electrons_per_adu(a, name)
            rows.append(
                [
                    f'{name}, {where}',
                    number(noise.shift, 3, sign=True),
                    number(noise.noise, 3),
                    number(noise.robust, 3),
                    number(noise.noise * electrons, 3) if electrons else '–',
                ]
            )
    return Table(['region', 'shift, ADU', 'noise, ADU', 'robust, ADU', 'noise, e⁻'], rows)


def _electrons_per_adu(subject: Subject, plane: str) -> float:
    """As the header's gain says; 0 where it does not."""
    high = float(subject.header['HighGainADUe']) / 1000
    if high <= 0 or plane == 'image':
        return 0.0
    return high * (float(subject.merge['gain_ratio']) if plane == 'low' and subject.merge else 1.0)
