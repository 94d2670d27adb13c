"""Why something failed."""

import errno as _errno
import os
from typing import Any, Dict, Optional, Tuple, Type, Union


class Error(Exception):
    """A frame, or what belongs to it, is not what it should be. The base of the package's own errors.

    Errors of files are OSError and its subclasses, wrong arguments ValueError or TypeError, too little memory
    MemoryError.

    Attributes:
        text: one sentence with the numbers that matter, without the path.
        reason: the kind: 'not_a_frame', 'truncated', 'unsupported_sensor', 'bad_geometry', 'mismatch', 'internal'.
        path: the file, as it was given, or None.
        needed, available: bytes, from the first byte of the file or buffer, or None where they mean nothing.
    """

    text: str
    reason: str
    path: Optional[str]
    needed: Optional[int]
    available: Optional[int]

    def __init__(self, text: str, reason: str = 'internal', path: Optional[str] = None,
                 needed: Optional[int] = None, available: Optional[int] = None) -> None:
        super().__init__(text)
        self.text = text
        self.reason = reason
        self.path = path
        self.needed = needed
        self.available = available

    def __str__(self) -> str:
        return f'{self.path}: {self.text}' if self.path else self.text

    def __repr__(self) -> str:
        return f'{type(self).__name__}({str(self)!r})'

    def __reduce__(self) -> Tuple[Any, ...]:
        return type(self), (self.text, self.reason, self.path, self.needed, self.available)


class NotAFrame(Error):
    """Empty, no "Meta" at the start, a FITS or TIFF file."""


class Truncated(Error):
    """Fewer bytes than the header or the pixels need; `needed` and `available` say how many."""


class UnsupportedSensor(Error):
    """A mode that the sensor cannot have."""


class BadGeometry(Error):
    """Sizes that contradict each other or the sensor."""


class Mismatch(Error):
    """Corrections or frames that do not fit each other."""


# By the number of the kind, which is fixed for ever. 6 is a wrong argument, 7 a file, 8 memory.
_CLASSES: Dict[int, Type[Error]] = {1: NotAFrame, 2: Truncated, 3: UnsupportedSensor, 4: BadGeometry, 5: Mismatch}


def _refused(text: str, path: bytes) -> Union[Mismatch, ValueError]:
    """The exception for frames that cannot be calibrated with."""
    return Mismatch(text, 'mismatch', os.fsdecode(path)) if path else ValueError(text)


def _from_reason(kind: int, name: str, text: str, path: bytes, needed: int, available: int,
                 system_error: int) -> Union[Error, ValueError, OSError, MemoryError]:
    """The exception for a reason of the library."""
    if kind == 7:
        return OSError(system_error or _errno.EIO, text, os.fsdecode(path))
    file = os.fsdecode(path) if path else None
    if kind == 6:
        return ValueError(f'{file}: {text}' if file else text)
    if kind == 8:
        return MemoryError(text)
    return _CLASSES.get(kind, Error)(text, name, file, needed or None, available or None)
