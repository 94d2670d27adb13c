"""Raw frames in napari: the reader that `napari.yaml` names. This module needs no napari."""

import os
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple, Union

from ._frame import read
from ._series import open_series

#: What napari makes a layer of: data, its settings, its type.
Layer = Tuple[Any, Dict[str, Any], str]
Paths = Union[str, Sequence[str]]

_COLOURS = {'low': 'bop blue', 'high': 'bop orange', 'merged': 'gray', 'image': 'gray'}


def get_reader(path: Paths) -> Optional[Callable[[Paths], List[Layer]]]:
    """The reader for a frame, or for several as a stack; None for what is no raw frame."""
    paths = _listed(path)
    return read_layers if paths and all(_begins_as_frame(each) for each in paths) else None


def _listed(path: Paths) -> List[str]:
    return [os.fspath(path)] if isinstance(path, (str, os.PathLike)) else [os.fspath(each) for each in path]


def _begins_as_frame(path: str) -> bool:
    if not os.path.isfile(path):  # opening a pipe would wait
        return False
    try:
        with open(path, 'rb') as file:
            return file.read(4) == b'Meta'
    except OSError:
        return False


def read_layers(path: Paths) -> List[Layer]:
    """Layers of a frame, one a plane, of which the best one is seen; of several frames one layer, (frame, row, column),
    which reads a frame when it is looked at. Raises what reading and decoding do."""
    paths = _listed(path)
    return _layers_of_series(paths) if len(paths) > 1 else _layers_of_frame(paths[0])


def _layers_of_frame(path: str) -> List[Layer]:
    frame = read(path)
    decoded = frame.decode(statistics=True)
    stem = os.path.splitext(os.path.basename(path))[0]
    layers: List[Layer] = []
    for plane in frame.planes:
        statistics = decoded.statistics[plane]
        limits = (statistics.clip_low, max(statistics.clip_high, statistics.clip_low + 1))
        layers.append((getattr(decoded, plane), {
            'name': f'{stem} {plane}', 'contrast_limits': limits, 'colormap': _COLOURS[plane],
            'visible': plane in ('merged', 'image'), 'metadata': {'orvacam': dict(frame.header)}}, 'image'))
    if not any(settings['visible'] for _, settings, _ in layers):
        layers[0][1]['visible'] = True
    return layers


def _layers_of_series(paths: List[str]) -> List[Layer]:
    first = read(paths[0])
    plane = next(name for name in ('merged', 'image', 'low') if name in first.planes or name == 'low')
    statistics = first.decode(planes=(plane,), statistics=True).statistics[plane]
    limits = (statistics.clip_low, max(statistics.clip_high, statistics.clip_low + 1))
    settings = {'name': f'{len(paths)} frames {plane}', 'contrast_limits': limits,
                'metadata': {'orvacam': dict(first.header), 'paths': paths}}
    return [(open_series(paths, plane), settings, 'image')]
