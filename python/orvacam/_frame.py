"""Raw frames."""

import os
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Dict, Iterable, List, Mapping, Optional, Tuple, Union

import numpy
from numpy.typing import NDArray

from . import _core
from ._errors import Error
from ._header import Header, Path, _fsbytes

if TYPE_CHECKING:
    from typing_extensions import Literal

    from ._decoder import Decoded

    Severity = Literal['note', 'warning', 'error']

#: Pixels of a plane: (rows, columns).
Plane = NDArray[numpy.uint16]
#: Bias frames: (low, high), or the one of frames of one plane.
Bias = Union[Plane, Tuple[Plane, Optional[Plane]]]
#: What a frame can be made of.
Source = Union[Path, bytes, bytearray, memoryview, NDArray[numpy.uint8]]


@dataclass(frozen=True)
class Finding:
    """Something that a look at a frame brought up.

    Attributes:
        severity: 'note', 'warning' or 'error'. A frame with an error cannot be decoded.
        id: a stable name.
        text: one sentence with the numbers that matter.
        reason: of an error, the reason of the exception that decoding raises; else None.
    """

    severity: 'Severity'
    id: str
    text: str
    reason: Optional[str] = None


class Frame:
    """A raw frame: its header and its bytes. Made by `read`; immutable; can be pickled.

    The planes `low`, `high`, `merged` and `image` are decoded when they are first asked for, and kept: read-only
    arrays of uint16, (rows, columns), in ADU. `decode` makes fresh ones and takes corrections.

    >>> frame = read(simulate('GSENSE400', mode='hdr', width=64, height=48))
    >>> frame.planes, frame.shape
    (('low', 'high', 'merged'), (48, 64))
    >>> int(frame.high.max())
    4095
    """

    __slots__ = ('_handle', '_header', '_path', '_kept', '__weakref__')
    _handle: _core.Frame
    _header: Header
    _path: Optional[str]
    _kept: Dict[str, Plane]

    def __init__(self) -> None:
        raise TypeError('frames are made by orvacam.read')

    @classmethod
    def _of(cls, core: _core.Frame, path: Optional[str]) -> 'Frame':
        frame = cls.__new__(cls)
        frame._handle = core
        frame._header = Header._of(core.header())
        frame._path = path
        frame._kept = {}
        return frame

    def __copy__(self) -> 'Frame':
        return self

    def __deepcopy__(self, memo: Dict[int, Any]) -> 'Frame':
        return self

    def __reduce__(self) -> Tuple[Any, ...]:
        return _restored, (self._handle.tobytes(), self._path)

    def __repr__(self) -> str:
        where = f' {self._path!r}' if self._path is not None else ''
        return f'<orvacam.Frame{where} of {self._header.model!r}: {", ".join(self.planes) or "no planes"}>'

    @property
    def header(self) -> Header:
        """What the frame says of itself."""
        return self._header

    @property
    def path(self) -> Optional[str]:
        """The file that the frame was read from; None for one of bytes."""
        return self._path

    @property
    def shape(self) -> Tuple[int, int]:
        """(rows, columns) of a plane, reference regions included. Raises BadGeometry where there is none."""
        return self._header.shape

    @property
    def region(self) -> Tuple[slice, slice]:
        """Where the image lies: `plane[frame.region]` leaves the reference rows and pixels out. Raises BadGeometry."""
        return self._header.region

    @property
    def planes(self) -> Tuple[str, ...]:
        """('low', 'high', 'merged'), ('image',) or ('low', 'high'); () where the frame cannot be decoded."""
        return self._handle.planes()

    @property
    def nbytes(self) -> int:
        """Bytes of the raw frame, header included."""
        return self._handle.nbytes()

    def tobytes(self) -> bytes:
        """The raw frame, header included."""
        return self._handle.tobytes()

    def check(self) -> List[Finding]:
        """What is to be said of the frame, errors first; [] when it is whole and sane."""
        return [Finding(severity, id, text, reason) for severity, id, text, reason in self._handle.check()]

    def _plane(self, name: str) -> Plane:
        plane = self._kept.get(name)
        if plane is not None:
            return plane
        planes = self.planes
        if planes and name not in planes:
            raise AttributeError(self._lacks(name))
        try:
            decoded = _core.Decoder.make().decode_kept(self._handle, name)
        except Error as error:
            raise self._named(error)
        # Of two threads that come first, both get the same array.
        return self._kept.setdefault(name, decoded)

    def _lacks(self, plane: str) -> str:
        where = '' if self._path is None else f'{self._path}: '
        return f"{where}the frame has no plane '{plane}'; it has {', '.join(self.planes)}"

    def _named(self, error: Error) -> Error:
        """The error with the path of this frame, which bytes from elsewhere do not know."""
        if error.path is None:
            error.path = self._path
        return error

    @property
    def low(self) -> Plane:
        """The low-gain plane. AttributeError where the frame has none."""
        return self._plane('low')

    @property
    def high(self) -> Plane:
        """The high-gain plane. AttributeError where the frame has none."""
        return self._plane('high')

    @property
    def merged(self) -> Plane:
        """Both gains merged, in ADU of the high gain. AttributeError where the frame has none."""
        return self._plane('merged')

    @property
    def image(self) -> Plane:
        """The plane of a frame of one gain. AttributeError where the frame has none."""
        return self._plane('image')

    def decode(self, planes: Optional[Iterable[str]] = None, statistics: bool = False, histograms: bool = False,
               dsnu: Optional[Path] = None, prnu: Optional[Path] = None, bias: Optional[Bias] = None,
               thresholds: Optional[Tuple[int, int]] = None, calibration: Optional[bytes] = None,
               out: Optional[Mapping[str, Plane]] = None) -> 'Decoded':
        """Decodes planes into fresh arrays, or those of `out`; the parameters are those of `Decoder` and of
        `Decoder.decode`, which serves many frames.

        >>> frame = read(simulate('GSENSE400', mode='hdr', width=64, height=48))
        >>> decoded = frame.decode(planes=('merged',), statistics=True)
        >>> decoded.low is None, decoded.statistics['merged'].count
        (True, 3072)
        """
        from ._decoder import Decoder
        decoder = Decoder(dsnu=dsnu, prnu=prnu, bias=bias, thresholds=thresholds, calibration=calibration)
        return decoder.decode(self, planes=planes, statistics=statistics, histograms=histograms, out=out)


def _restored(data: bytes, path: Optional[str]) -> Frame:
    return Frame._of(_core.Frame.open(data), path)


def read(source: Source) -> Frame:
    """Opens a frame: the whole file, once, or bytes. Nothing is decoded yet.

    source: a path (str, os.PathLike), or the frame itself: bytes, bytearray, a memoryview or an array of uint8 that
        lies in one piece. bytes are used as they lie; what could change is copied.

    Raises NotAFrame, Truncated (fewer bytes than the header needs), OSError. Whatever else is wrong with the frame
    `Frame.check` finds.
    """
    if isinstance(source, (str, os.PathLike)):
        path = _fsbytes(source)
        return Frame._of(_core.Frame.read(path), os.fsdecode(path))
    return Frame._of(_core.Frame.open(source), None)
