"""What a frame says of itself."""

import os
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any, Dict, Iterator, Optional, Tuple, Union

import numpy

from . import _core

#: A raw value of a header.
Value = Union[int, float, bool, str]
#: A path, as the functions of `os` take it.
Path = Union[str, 'os.PathLike[str]', 'os.PathLike[bytes]']

_FLAG, _TEXT = 1, 2


@dataclass(frozen=True)
class Key:
    """One of the values of a header.

    Attributes:
        name: the documented name, 'ExposureTime'.
        unit: of the raw value, '10 us'; '' where it has none.
        number: the documented key number.
        first_version, last_version: the header versions that carry it; in others it reads its default.
    """

    name: str
    unit: str
    number: int
    first_version: int
    last_version: int


_KINDS: Dict[str, int] = {name: kind for name, _, kind, _, _, _ in _core.keys()}
_KEYS: Tuple[Key, ...] = tuple(Key(name, unit, number, first, last)
                               for name, unit, _, number, first, last in _core.keys())


def keys() -> Tuple[Key, ...]:
    """The 93 keys of a header, by their numbers.

    >>> [key.unit for key in keys() if key.name == 'ExposureTime']
    ['10 us']
    """
    return _KEYS


class Header(Mapping[str, Value]):
    """What a frame says of itself: a mapping of the 93 raw values by their documented names, and the values that
    programs ask for most, with their units in their names. Immutable; can be pickled.

    A value is an int where it is whole, else a float; flags are bool, texts str.

    >>> header = read(simulate('GSENSE400', mode='hdr')).header
    >>> header.sensor, header.hdr, header['ExposureTime'], header.exposure_seconds
    ('GSENSE400', True, 100000, 1.0)
    >>> len(header)
    93
    """

    __slots__ = ('_handle', '_raw')
    _handle: _core.Header
    _raw: Optional[Tuple[_core.Header, str]]  # of a plane's header: the frame's, and the plane

    def __init__(self, data: bytes) -> None:
        """The header at the start of these bytes. Raises NotAFrame and Truncated."""
        if not isinstance(data, bytes):
            raise TypeError(f'a header is made of bytes, not {type(data).__name__}')
        self._handle = _core.Header.parse(data)
        self._raw = None

    @classmethod
    def _of(cls, handle: _core.Header, raw: Optional[Tuple[_core.Header, str]] = None) -> 'Header':
        header = cls.__new__(cls)
        header._handle = handle
        header._raw = raw
        return header

    def _of_plane(self, plane: str) -> 'Header':
        """The processed header of a plane of a frame with this one."""
        return Header._of(self._handle.of_plane(plane), (self._handle, plane))

    def __getitem__(self, key: str) -> Value:
        kind = _KINDS[key]
        if kind == _TEXT:
            return self._handle.text(key)
        number = self._handle.number(key)
        if kind == _FLAG:
            return number != 0
        return int(number) if number.is_integer() else number

    def __iter__(self) -> Iterator[str]:
        return iter(_KINDS)

    def __len__(self) -> int:
        return len(_KINDS)

    def __contains__(self, key: object) -> bool:
        return key in _KINDS

    def __hash__(self) -> int:
        return hash(tuple(self.values()))  # bytes that are no values may differ

    def __copy__(self) -> 'Header':
        return self

    def __deepcopy__(self, memo: Dict[int, Any]) -> 'Header':
        return self

    def __reduce__(self) -> Tuple[Any, ...]:
        if self._raw is None:
            return Header, (self._handle.tobytes(),)
        # Its bytes do not read back the same.
        raw, plane = self._raw
        return _plane_header, (raw.tobytes(), plane)

    def __repr__(self) -> str:
        return f'<orvacam.Header of {self.model!r}, version {self.version}>'

    @property
    def version(self) -> int:
        """The header's version, as stated; 1 to 4 are known."""
        return self._handle.version()

    @property
    def model(self) -> str:
        """The camera's model."""
        return self._handle.model()

    @property
    def serial(self) -> str:
        """The camera's serial number."""
        return self._handle.serial()

    @property
    def sensor(self) -> str:
        """One of `sensors()`; 'GENERIC' for a model that names none."""
        return self._handle.sensor()

    @property
    def hdr(self) -> bool:
        """Whether the frame holds a low-gain and a high-gain image: the header's flag."""
        return self._handle.hdr()

    @property
    def exposure_seconds(self) -> float:
        """The exposure in seconds."""
        return self._handle.exposure_seconds()

    @property
    def temperature_celsius(self) -> Optional[float]:
        """The sensor's temperature in degrees Celsius; None in header versions without it."""
        return self._handle.temperature_celsius()

    @property
    def set_point_celsius(self) -> Optional[float]:
        """What the sensor's cooler is set to, in degrees Celsius; None in header versions without it."""
        return self._handle.set_point_celsius()

    @property
    def time(self) -> Optional[numpy.datetime64]:
        """When the exposure began, UTC, as datetime64[ns]; None where it cannot be read or is impossible."""
        nanoseconds = self._handle.time()
        return None if nanoseconds is None else numpy.datetime64(nanoseconds, 'ns')

    @property
    def shape(self) -> Tuple[int, int]:
        """(rows, columns) of a plane, reference regions included. Raises BadGeometry where there is none."""
        width, height = self._handle.frame_size()
        return height, width

    @property
    def region(self) -> Tuple[slice, slice]:
        """Where the image lies in a plane: `plane[header.region]` leaves the reference rows and pixels out.
        Raises BadGeometry."""
        x, y, width, height = self._handle.image_region()
        return slice(y, y + height), slice(x, x + width)

    @property
    def start_row(self) -> int:
        """The sensor's row that the image begins with, where correction frames apply from. Raises BadGeometry."""
        return self._handle.start_row()

    def text(self) -> str:
        """The library's metadata text, a line per field."""
        return self._handle.to_text()

    def json(self) -> str:
        """The header as JSON, schema 'orvacam.header/1': values, units, derived."""
        return self._handle.to_json()

    def tobytes(self) -> bytes:
        """The header's bytes as received; of a plane's processed header, as the library writes them."""
        return self._handle.tobytes()


def _plane_header(raw: bytes, plane: str) -> Header:
    return Header(raw)._of_plane(plane)


def _fsbytes(path: Path) -> bytes:
    """The name of a file as the system has it. Bytes are frames and headers here, never names."""
    if isinstance(path, bytes):
        raise TypeError('a path is a str or an os.PathLike, not bytes')
    return os.fsencode(path)


def read_header(path: Path) -> Header:
    """The header of a file, of which at most 64 KiB are read.

    Raises NotAFrame, Truncated (fewer bytes than the header needs), OSError.
    """
    return Header._of(_core.Header.read(_fsbytes(path)))
