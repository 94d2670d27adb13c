"""Many frames, on this machine or on many: lazily opened, stacked, counted.

A piece of work is a plan: named tasks, each a function and its arguments, of which some are other tasks' names. On
this machine the plan is worked through depth first; a cluster gets it as it is. Tasks are pure, results small, sums
whole numbers: it does not matter where and in which order they are made, or whether some are made twice.
"""

import json
import os
import re
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, Dict, Hashable, Iterable, List, Optional, Sequence, Tuple, Union

import numpy
from numpy.typing import NDArray

from . import _core
from ._decoder import Decoder
from ._errors import Error
from ._frame import Frame, read
from ._header import Header, Path, _fsbytes, read_header
from ._stack import _METHODS, _method, _result_type

if TYPE_CHECKING:
    DaskArray = Any
    Client = Any

Plan = Dict[Hashable, Any]

_SUMMED = ('mean', 'sum')
_EXTREMES = {'min': numpy.minimum, 'max': numpy.maximum}


def _names(paths: Iterable[Path]) -> List[str]:
    if isinstance(paths, (str, bytes, os.PathLike)):
        raise TypeError('paths: a list of them')
    return [os.fsdecode(_fsbytes(path)) for path in paths]


# ---- What a frame gives


def _open(path: str, first: bytes) -> Frame:
    """The frame, which is like the one that begins with these bytes. Every failure names the path."""
    frame = read(path)
    try:
        _core.require_alike(Header(first)._handle, frame.header._handle)
    except Error as error:
        raise frame._named(error)
    return frame


def _plane(frame: Frame, path: str, plane: str, shape: Tuple[int, int]) -> NDArray[numpy.uint16]:
    if plane not in frame.planes and frame.planes:
        raise ValueError(f"{path}: the frame has no plane '{plane}'; it has {', '.join(frame.planes)}")
    pixels = getattr(Decoder().decode(frame, planes=(plane,)), plane)
    assert pixels is not None and pixels.shape == shape
    return pixels  # type: ignore[no-any-return]


def _plane_of(path: str, plane: str, shape: Tuple[int, int], first: bytes) -> NDArray[numpy.uint16]:
    return _plane(_open(path, first), path, plane, shape)


@dataclass(frozen=True)
class _Kind:
    """What all frames of a series are like: the first one's header and size, the plane that is taken."""

    header: bytes = field(repr=False)
    plane: str
    shape: Tuple[int, int]
    nbytes: int  #: of a file

    @property
    def pixels(self) -> int:
        return self.shape[0] * self.shape[1]

    @property
    def frame_bytes(self) -> int:
        """What a frame takes while it is read and decoded: its file, and the planes of a pair with their merge."""
        return self.nbytes + 4 * 2 * self.pixels


def _kind_of(path: str, plane: Optional[str]) -> _Kind:
    """From the header alone."""
    header = read_header(path)
    planes = json.loads(header.json())['derived'].get('planes') or []
    if plane is not None and not isinstance(plane, str):
        raise TypeError(f'plane is a str, not {type(plane).__name__}')
    if plane is None:
        chosen = next((name for name in ('merged', 'image', 'low') if name in planes), 'image')
    elif plane in planes or not planes:
        chosen = plane
    else:
        raise ValueError(f"{path}: the frame has no plane '{plane}'; it has {', '.join(planes)}")
    return _Kind(header.tobytes(), chosen, header.shape, os.stat(path).st_size)


# ---- Plans


def _run(plan: Plan, wanted: Hashable, client: 'Optional[Client]') -> Any:
    """The result of a task and of those that it needs."""
    if client is not None:
        return client.get(plan, wanted)

    def made(value: Any) -> Any:
        if isinstance(value, list):
            return [made(each) for each in value]
        if isinstance(value, tuple) and value and callable(value[0]):
            return value[0](*[made(argument) for argument in value[1:]])
        return made(plan[value]) if _can_be_a_name(value) and value in plan else value

    return made(wanted)


def _can_be_a_name(value: Any) -> bool:
    try:
        hash(value)
    except TypeError:
        return False
    return True


def _places(client: 'Optional[Client]') -> Tuple[int, int]:
    """How many workers there are, and how many tasks one works on at a time."""
    if client is None:
        return 1, 1
    if not hasattr(client, 'scheduler_info'):
        raise TypeError(f'client is a dask.distributed.Client, not {type(client).__name__}')
    workers = client.scheduler_info()['workers'].values()
    return max(1, len(workers)), max([1, *(worker['nthreads'] for worker in workers)])


def _tree(plan: Plan, name: str, leaves: Sequence[Hashable], join: Any) -> Hashable:
    """Adds tasks that join the leaves two by two. There are fewer of them than leaves."""
    level, depth = list(leaves), 0
    while len(level) > 1:
        depth += 1
        above: List[Hashable] = []
        for i in range(0, len(level) - 1, 2):
            key = (name, f'join-{depth}', i // 2)
            plan[key] = (join, level[i], level[i + 1])
            above.append(key)
        level = above + level[len(above) * 2:]
    return level[0]


class _Paths:
    """Names that a plan holds once, however many tasks use them."""

    def __init__(self, names: Sequence[str]) -> None:
        self.names = list(names)


def _spread(count: int, parts: int) -> List[slice]:
    """So many things in so many parts, as even as can be; none of them empty."""
    edges = [count * i // parts for i in range(parts + 1)]
    return [slice(a, b) for a, b in zip(edges, edges[1:]) if b > a]


def _unique(what: str) -> str:
    return f'orvacam-{what}-{os.urandom(8).hex()}'


# ---- Sums and extremes


@dataclass
class _Part:
    """Some frames so far: exact sums of some rows of their planes, or their extremes."""

    count: int
    sums: NDArray[Any]
    squares: Optional[NDArray[numpy.uint64]]


def _part_of(names: Sequence[str], kind: _Kind, method: str, rows: slice) -> _Part:
    if method in _SUMMED and rows == slice(0, kind.shape[0]):
        return _sums_of_planes(names, kind)
    part: Optional[_Part] = None
    for name in names:
        pixels = _plane_of(name, kind.plane, kind.shape, kind.header)[rows]
        if method in _EXTREMES:
            next_part = _Part(1, pixels.copy(), None)
        else:
            wide = pixels.astype(numpy.uint64)
            next_part = _Part(1, wide, wide * wide)
        part = next_part if part is None else _joined(method)(part, next_part)
    assert part is not None
    return part


def _sums_of_planes(names: Sequence[str], kind: _Kind) -> _Part:
    """By the library's stack, which takes a pixel once. Frames are held to the first of all, not of these."""
    stack = _core.Stack.make(_METHODS['mean'], False)
    stack.set_plane(kind.plane)
    stack.allow_unlike(True)
    for name in names:
        frame = _open(name, kind.header)
        if kind.plane not in frame.planes and frame.planes:
            raise ValueError(f"{name}: the frame has no plane '{kind.plane}'; it has {', '.join(frame.planes)}")
        try:
            stack.add(frame._handle)
        except Error as error:
            raise frame._named(error)
    return _Part(stack.count(), stack.sums(), stack.squares())


def _joined(method: str) -> Any:
    return {'min': _lowest, 'max': _highest}.get(method, _added)


def _added(a: _Part, b: _Part) -> _Part:
    assert a.squares is not None and b.squares is not None
    return _Part(a.count + b.count, a.sums + b.sums, a.squares + b.squares)


def _lowest(a: _Part, b: _Part) -> _Part:
    return _Part(a.count + b.count, numpy.minimum(a.sums, b.sums), None)


def _highest(a: _Part, b: _Part) -> _Part:
    return _Part(a.count + b.count, numpy.maximum(a.sums, b.sums), None)


def _part_of_some(paths: _Paths, start: int, stop: int, kind: _Kind, method: str, first: int, end: int) -> _Part:
    return _part_of(paths.names[start:stop], kind, method, slice(first, end))


# ---- Methods that need all values of a pixel


def _combined_rows(paths: _Paths, kind: _Kind, method: str, first: int, end: int) -> NDArray[numpy.float64]:
    """Rows of all frames into one, read once each."""
    width = kind.shape[1]
    rows = numpy.empty((len(paths.names), (end - first) * width), numpy.uint16)
    for i, name in enumerate(paths.names):
        rows[i] = _plane_of(name, kind.plane, kind.shape, kind.header)[first:end].ravel()
    return _core.combine(_METHODS[method], rows, 3.0, 3.0).reshape(end - first, width)


# ---- Memory


_UNITS = {'': 1, 'b': 1, 'k': 2**10, 'm': 2**20, 'g': 2**30, 't': 2**40, 'kib': 2**10, 'mib': 2**20, 'gib': 2**30,
          'tib': 2**40, 'kb': 10**3, 'mb': 10**6, 'gb': 10**9, 'tb': 10**12}


def _bytes_of(memory: Union[str, int]) -> int:
    """'1GiB', '500 MB', '64M' (binary), or bytes."""
    if isinstance(memory, bool) or not isinstance(memory, (str, int)):
        raise TypeError(f"memory is a str such as '1GiB', or a number of bytes, not {type(memory).__name__}")
    match = re.fullmatch(r'\s*(\d+(?:\.\d+)?)\s*([a-z]*)\s*', str(memory).lower())
    if match is None or match[2] not in _UNITS:
        raise ValueError(f"memory: '{memory}' is no number of bytes such as '1GiB'")
    number, most = float(match[1]) * _UNITS[match[2]], 2**63 - 1
    return int(number) if number < most else most


def _bands(kind: _Kind, each_row: int, limit: int, what: str, beside: int = 0) -> List[slice]:
    """Bands of rows, of which one fits into the memory with a frame and what is needed beside; as few as can be."""
    beside += kind.frame_bytes
    rows = (limit - beside) // each_row
    if rows < 1:
        needed = beside + each_row
        raise ValueError(f'memory: {what} needs {needed} bytes for a task, and {limit} are given to one')
    return _spread(kind.shape[0], -(-kind.shape[0] // min(rows, kind.shape[0])))


def _parts(limit: int, places: Tuple[int, int], frame: int, part: int) -> int:
    """In how many parts frames are taken: one here; on a cluster one for each task that runs at a time, or four, where
    a worker has the memory to keep them until they are joined. Then less is lost with a worker, and none waits long."""
    workers, threads = places
    if workers * threads == 1:
        return 1
    return workers * threads * (4 if limit >= threads * (frame + (3 + 4) * part) else 1)


def _stack_plan(names: List[str], kind: _Kind, method: str, limit: int,
                places: Tuple[int, int]) -> Tuple[Plan, Hashable]:
    """The plan, and the task whose result is a list of bands, top to bottom."""
    name = _unique('stack')
    plan: Plan = {(name, 'paths', 0): _Paths(names)}
    add = _add_parts if method in _SUMMED or method in _EXTREMES else _add_rows
    plan[(name, 'all', 0)] = (list, add(plan, name, kind, method, limit, places))
    return plan, (name, 'all', 0)


def _add_parts(plan: Plan, name: str, kind: _Kind, method: str, limit: int,
               places: Tuple[int, int]) -> List[Hashable]:
    """Tasks that add up some rows of some frames each, and those that join them: a result for each band of rows."""
    paths = (name, 'paths', 0)
    frames = len(plan[paths].names)
    part_row = (2 if method in _EXTREMES else 16) * kind.shape[1]
    # A part, the next one that is joined to it, and what comes of them, in the share of one task.
    rows = _bands(kind, 3 * part_row, limit // places[1], f'a stack by {method}')
    parts = _spread(frames, _parts(limit, places, kind.frame_bytes, part_row * (rows[0].stop - rows[0].start)))
    bands: List[Hashable] = []
    for band in rows:
        leaves: List[Hashable] = []
        for part in parts:
            key = (name, 'part', band.start, part.start)
            plan[key] = (_part_of_some, paths, part.start, part.stop, kind, method, band.start, band.stop)
            leaves.append(key)
        bands.append(_tree(plan, f'{name}-{band.start}', leaves, _joined(method)))
    return bands


def _add_rows(plan: Plan, name: str, kind: _Kind, method: str, limit: int,
              places: Tuple[int, int]) -> List[Hashable]:
    """Tasks that combine some rows of all frames each."""
    paths = (name, 'paths', 0)
    frames = len(plan[paths].names)
    row = kind.shape[1] * (2 * frames + 8 + 8)
    bands: List[Hashable] = []
    for band in _bands(kind, row, limit // places[1], f'a stack of {frames} frames by {method}'):
        key = (name, 'rows', band.start)
        plan[key] = (_combined_rows, paths, kind, method, band.start, band.stop)
        bands.append(key)
    return bands


def _result(bands: List[Any], kind: _Kind, method: str, dtype: 'numpy.dtype[Any]') -> NDArray[Any]:
    if method in _SUMMED:
        stack = _core.Stack.from_sums(
            Header(kind.header)._handle, bands[0].count, numpy.concatenate([band.sums for band in bands]),
            numpy.concatenate([band.squares for band in bands]), kind.plane, _METHODS[method])
        if dtype == numpy.float32:
            return stack.result().copy()
        if dtype == numpy.uint16:
            return stack.result_u16().copy()
        return stack.sums() / (stack.count() if method == 'mean' else 1)
    values = numpy.concatenate([band.sums if isinstance(band, _Part) else band for band in bands])
    return numpy.asarray(values, dtype)


def stack(paths: Iterable[Path], method: str = 'mean', plane: Optional[str] = None, dtype: Any = 'float32',
          memory: Union[str, int] = '1GiB', client: 'Optional[Client]' = None) -> NDArray[Any]:
    """Many frames into one: (rows, columns) in ADU. The same bits on this machine and on any cluster.

    paths: frames that are alike; a cluster's workers read them by these names.
    method: 'mean', 'sum', 'median', 'min', 'max', 'sigma' or 'winsorized' (3 deviations each way).
    plane: None for merged, else image, else low.
    dtype: 'float32', 'float64', or 'uint16' (cut off; not of a sum).
    memory: what a worker may take beside the interpreter: rows are taken in bands, in one pass over the frames each.
    client: a `dask.distributed.Client`; None works here, without Dask.

    Raises what reading and decoding do, with the path of the frame; Mismatch for one that is unlike the first;
    ValueError where one frame does not fit into the memory.
    """
    names = _names(paths)
    kind_of_result = _result_type(dtype)
    _method(method, _METHODS)
    if method == 'sum' and kind_of_result == numpy.uint16:
        raise ValueError("a sum has no dtype 'uint16'")
    limit = _bytes_of(memory)
    if not names:
        raise ValueError('a stack of no frames')
    places = _places(client)
    kind = _once(client, _kind_of, names[0], plane)
    plan, wanted = _stack_plan(names, kind, method, limit, places)
    return _result(_run(plan, wanted, client), kind, method, kind_of_result)


def _once(client: 'Optional[Client]', function: Any, *arguments: Any) -> Any:
    """A call where the files are."""
    key = (_unique('first'), 0)
    return _run({key: (function, *arguments)}, key, client)


# ---- Statistics


def _rows_of(path: str) -> List[Dict[str, Any]]:
    """A row per plane; one row with the reason where there is no plane."""
    row: Dict[str, Any] = dict.fromkeys(
        ('path', 'plane', 'count', 'mean', 'deviation', 'mode', 'minimum', 'maximum', 'clip_low', 'clip_high',
         'exposure_seconds', 'time', 'temperature_celsius', 'error'))
    row['path'] = path
    try:
        frame = read(path)
        header = frame.header
        row.update(exposure_seconds=header.exposure_seconds, time=header.time,
                   temperature_celsius=header.temperature_celsius)
        statistics = frame.decode(statistics=True).statistics
    except Error as error:
        return [{**row, 'error': error.text}]
    except OSError as error:
        return [{**row, 'error': error.strerror or str(error)}]
    return [{**row, 'plane': plane, 'count': s.count, 'mean': s.mean, 'deviation': s.deviation, 'mode': s.mode,
             'minimum': s.minimum.value, 'maximum': s.maximum.value, 'clip_low': s.clip_low, 'clip_high': s.clip_high}
            for plane, s in statistics.items()]


def _rows_of_some(names: _Paths) -> List[Dict[str, Any]]:
    return [row for name in names.names for row in _rows_of(name)]


def _flat(parts: List[List[Dict[str, Any]]]) -> List[Dict[str, Any]]:
    return [row for part in parts for row in part]


def _statistics_plan(names: List[str], places: Tuple[int, int]) -> Tuple[Plan, Hashable]:
    name = _unique('statistics')
    plan: Plan = {}
    each = max(1, min(32, -(-len(names) // (places[0] * places[1] * 4))))
    for start in range(0, len(names), each):
        plan[(name, start)] = (_rows_of_some, _Paths(names[start:start + each]))
    plan[(name, 'all')] = (_flat, list(plan))
    return plan, (name, 'all')


def statistics(paths: Iterable[Path], client: 'Optional[Client]' = None) -> List[Dict[str, Any]]:
    """A row per frame and plane, in the order of the paths: path, plane, count, mean, deviation, mode, minimum,
    maximum, clip_low, clip_high (ADU, of the image region), exposure_seconds, time (datetime64[ns], UTC),
    temperature_celsius, error. `pandas.DataFrame(orvacam.statistics(paths))` is the table of a night.

    A frame that cannot be read or decoded has one row with its reason as `error`, and None for what is not known.

    client: a `dask.distributed.Client`, whose workers read the paths; None works here, without Dask.
    """
    names = _names(paths)
    if not names:
        return []
    plan, wanted = _statistics_plan(names, _places(client))
    return _run(plan, wanted, client)  # type: ignore[no-any-return]


# ---- Lazily


def open_series(paths: Iterable[Path], plane: Optional[str] = None) -> 'DaskArray':
    """Frames as a lazy `dask.array` of uint16, (frame, row, column), in ADU; a chunk is a frame.

    paths: frames that are alike. The first one's header says the shape; nothing else is read before it is computed.
    plane: None for the first frame's merged, else image, else low.

    A frame that is bad, or unlike the first, raises with its path when it is computed: what `read` and `decode` do,
    or Mismatch. ValueError without paths, ImportError without Dask.
    """
    try:
        import dask.array as lazy
    except ImportError as error:
        raise ImportError('open_series needs dask (Debian: python3-dask)') from error
    names = _names(paths)
    if not names:
        raise ValueError('a series of no frames')
    kind = _kind_of(names[0], plane)
    name = _unique('series')
    plan = {(name, i, 0, 0): (_plane_of, path, kind.plane, kind.shape, kind.header) for i, path in enumerate(names)}
    chunks = ((1,) * len(names), (kind.shape[0],), (kind.shape[1],))
    make: Any = lazy
    return make.Array(_lifted(plan), name, chunks, dtype=numpy.uint16)


def _lifted(plan: Dict[Any, Any]) -> Dict[Any, Any]:
    """Planes as frames of one."""
    return {key: (_as_one, task) for key, task in plan.items()}


def _as_one(plane: NDArray[numpy.uint16]) -> NDArray[numpy.uint16]:
    return plane[numpy.newaxis]
