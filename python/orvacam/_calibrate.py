"""Bias, DSNU and PRNU files from raw frames, on this machine or on many."""

import os
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, Dict, Hashable, Iterable, List, Optional, Tuple, Union

import numpy
from numpy.typing import NDArray

from . import _core
from ._errors import Mismatch
from ._header import Path, _fsbytes
from ._series import Plan, _bands, _bytes_of, _kind_of, _names, _once, _places, _run, _unique
from ._stack import _write_whole

if TYPE_CHECKING:
    Client = Any

_KINDS = ('bias', 'dark', 'flat')


@dataclass(frozen=True, eq=False)
class Calibration:
    """A calibration of a camera.

    Attributes:
        kind: 'bias', 'dark' or 'flat'.
        frames: how many there were.
        file: the bytes of the bias, DSNU or PRNU file.
        planes: by plane, its numbers with their errors (NAME_error; NaN where it is not known): gain_e_per_adu,
            level_adu, temporal_noise_adu, fixed_pattern_before and _after, column_pattern, row_pattern, pixel_pattern
            (ADU; of flats percent), drift_adu, hot_pixels, dead_pixels, blinking_pixels, rejected_values,
            clipped_terms.
        masks: by plane, uint8 (rows, columns): 1 hot, 2 dead, 4 blinking.
        odd_pixels: (plane, x, y, kind, value) of each listed pixel.
        ratio, ratio_of_gains: of high to low gain, in the file and by the header's gains; NaN where nothing is merged.
        measured_ratio: that of flats, and its error; NaN for others.
        pedestal: ADU that stay in frames merged with a DSNU file.
        warnings: sentences.
    """

    kind: str
    frames: int
    file: bytes = field(repr=False)
    planes: Dict[str, Dict[str, float]]
    masks: Dict[str, NDArray[numpy.uint8]] = field(repr=False)
    odd_pixels: List[Tuple[str, int, int, str, float]] = field(repr=False)
    ratio: float
    ratio_of_gains: float
    measured_ratio: Tuple[float, float]
    pedestal: int
    warnings: List[str]

    def save(self, path: Path) -> None:
        """Writes the file, whole or not at all; one that exists is not replaced (FileExistsError)."""
        _write_whole(path, self.file, overwrite=False)


def _plan(source: Dict[str, Any], bands: List[slice]) -> Tuple[Plan, Hashable]:
    name = _unique('calibrate')
    plan: Plan = {(name, 'source'): _Source(source)}
    keys: List[Hashable] = []
    for band in bands:
        key = (name, 'rows', band.start)
        plan[key] = (_rows_of, (name, 'source'), band.start, band.stop)
        keys.append(key)
    plan[(name, 'all')] = (_finished, (name, 'source'), keys)
    return plan, (name, 'all')


def _require_apart(names: List[str]) -> None:
    """A frame that counts twice would seem to have no noise."""
    seen: Dict[Tuple[int, int], str] = {}
    for name in names:
        file = os.stat(name)
        first = seen.get((file.st_dev, file.st_ino))
        if first is not None:
            raise Mismatch('is given twice' if first == name else f'is the same file as {first}', 'mismatch', name)
        seen[file.st_dev, file.st_ino] = name


class _Source:
    """What a plan holds once."""

    def __init__(self, given: Dict[str, Any]) -> None:
        self.given = given


def _rows_of(source: _Source, first: int, end: int) -> Tuple[Any, ...]:
    return _core.calibrate_rows(source.given, first, end - first)


def _finished(source: _Source, bands: List[Tuple[Any, ...]]) -> Dict[str, Any]:
    return _core.calibrate_finish(source.given, bands)


def _check(kind: str, dark: Optional[Path], bias: Optional[Path], pedestal: Optional[int],
           ratio: Union[None, str, float]) -> None:
    if kind not in _KINDS:
        raise ValueError(f"there is no kind '{kind}'; there are {', '.join(_KINDS)}")
    offsets = (dark is not None) + (bias is not None)
    if offsets != (1 if kind == 'flat' else 0):
        raise ValueError('flats need dark or bias, one of them, and others none')
    if pedestal is not None and (isinstance(pedestal, bool) or not hasattr(pedestal, '__index__')):
        raise TypeError(f'pedestal is an int, not {type(pedestal).__name__}')
    if pedestal is not None and (kind != 'dark' or not 0 <= pedestal.__index__() <= 4095):
        raise ValueError('pedestal: of darks, 0 to 4095')
    if ratio is not None and (isinstance(ratio, bool) or not isinstance(ratio, (str, int, float, numpy.number))):
        raise TypeError(f"ratio is a number or 'measured', not {type(ratio).__name__}")
    if ratio is not None and (kind == 'bias' or (ratio == 'measured' and kind != 'flat')):
        raise ValueError("ratio: of darks and flats; 'measured' of flats alone")
    if ratio is not None and ratio != 'measured' and (isinstance(ratio, str) or not 0 < ratio < 64):
        raise ValueError("ratio: 'measured', or a number above 0 and below 64")


def calibrate(kind: str, paths: Iterable[Path], dark: Optional[Path] = None, bias: Optional[Path] = None,
              pedestal: Optional[int] = None, ratio: Union[None, str, float] = None, memory: Union[str, int] = '1GiB',
              client: 'Optional[Client]' = None) -> Calibration:
    """A bias file, a DSNU file ('dark') or a PRNU file ('flat') of a camera, as `orvacam calibrate` makes them. The
    same bytes on this machine and on any cluster.

    paths: two frames or more that are alike; ten are good. A cluster's workers read them by these names.
    dark, bias: of flats: the DSNU or the bias file that takes the offset off; one of them is needed.
    pedestal: of darks: whole ADU, 0 to 4095, which is what a DSNU file holds; None for what serves.
    ratio: of darks and flats: of high to low gain; None for that of the header's gains; 'measured' of flats.
    memory: what a worker may take beside the interpreter: rows are combined in bands, in one pass over the frames each.
    client: a `dask.distributed.Client`; None works here, without Dask.

    Raises what reading and decoding do; Mismatch, with the path, for frames that do not fit or cannot serve;
    ValueError for arguments that do not go together.
    """
    _check(kind, dark, bias, pedestal, ratio)
    limit, names = _bytes_of(memory), _names(paths)
    if not names:
        raise ValueError('a calibration of no frames')
    places = _places(client)
    _once(client, _require_apart, names)
    source = {'kind': kind, 'paths': [os.fsencode(name) for name in names], 'memory': limit,
              'dark': _fsbytes('' if dark is None else dark), 'bias': _fsbytes('' if bias is None else bias),
              'pedestal': None if pedestal is None else int(pedestal),
              'ratio': ratio if ratio is None or isinstance(ratio, str) else float(ratio)}
    if client is None:
        return _made(kind, _core.calibrate(source))
    first = _once(client, _kind_of, names[0], None)
    planes = 2 if first.plane in ('merged', 'low', 'high') else 1
    # Of all frames two bytes a pixel; means, blinking pixels and what is worked out of them; one row at a time as
    # doubles.
    row, beside = first.shape[1] * planes * (2 * len(names) + 16), first.shape[1] * (8 * len(names) + 64)
    bands = _bands(first, row, limit // places[1], f'calibration with {len(names)} frames', beside)
    plan, wanted = _plan(source, bands)
    return _made(kind, _run(plan, wanted, client))


def _made(kind: str, result: Dict[str, Any]) -> Calibration:
    return Calibration(kind, **result)
