"""Many frames into one."""

import errno
import os
import secrets
import stat
from types import TracebackType
from typing import Any, Dict, Iterable, NoReturn, Optional, Tuple, Type, Union

import numpy
from numpy.typing import NDArray

from . import _core
from ._decoder import Decoder, _pair
from ._errors import Error, Mismatch
from ._frame import Frame, Source, read
from ._header import Header, Path, _fsbytes

# As the library numbers them.
_SAVED = ('mean', 'sum')
_METHODS: Dict[str, int] = {'mean': 0, 'sum': 1, 'median': 2, 'min': 3, 'max': 4, 'sigma': 5, 'winsorized': 6}


def _method(method: str, among: Iterable[str]) -> int:
    if not isinstance(method, str):
        raise TypeError(f'method is a str, not {type(method).__name__}')
    if method not in among:
        raise ValueError(f"there is no method '{method}'; there are {', '.join(among)}")
    return _METHODS[method]


def _result_type(dtype: Any) -> 'numpy.dtype[Any]':
    """What the result of a stack can be."""
    kind = numpy.dtype('float32' if dtype is None else dtype)
    if kind not in (numpy.float32, numpy.float64, numpy.uint16):
        raise ValueError(f"dtype is 'float32', 'float64' or 'uint16', not '{kind}'")
    return kind


def _put_under_free_name(hidden: str, target: str) -> None:
    """Moves a file. One that has the name by now keeps it: FileExistsError."""
    try:
        os.link(hidden, target)
    except FileExistsError:
        raise
    except OSError:  # no links on this file system: an empty file claims the name
        os.close(os.open(target, os.O_CREAT | os.O_EXCL | os.O_WRONLY, 0o666))
        os.replace(hidden, target)
    else:
        os.unlink(hidden)


def _write_whole(path: Path, data: Any, overwrite: bool) -> None:
    """The file appears with all its bytes or not at all; a link is written through."""
    target = os.path.realpath(os.fsdecode(path))
    if not overwrite and os.path.lexists(target):
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), os.fsdecode(path))
    hidden = os.path.join(os.path.dirname(target), f'.orvacam-{os.getpid()}-{secrets.token_hex(8)}')
    try:
        with open(hidden, 'xb') as file:
            file.write(data)
            file.flush()
            os.fsync(file.fileno())
        if overwrite:
            os.replace(hidden, target)
        else:
            _put_under_free_name(hidden, target)
    except BaseException as error:
        try:
            os.unlink(hidden)
        except OSError:
            pass
        if isinstance(error, OSError):  # of the file that was asked for
            raise OSError(error.errno, error.strerror, os.fsdecode(path)) from None
        raise


class Stack:
    """Many frames into one: their merged plane, else image, else low, or the plane that is named. One per thread.

    method: 'mean', 'sum', 'median', 'min', 'max', 'sigma' or 'winsorized'. Mean and sum keep two exact sums, 16 bytes a
        pixel; min and max keep one plane, 2 bytes a pixel; the others keep every frame's.
    plane: 'low', 'high', 'merged' or 'image'; None for the first frame's best.
    decoder: its settings hold for every frame; correction files are read again.
    allow_unlike: takes frames whose settings differ as well; sensor, mode and size can never be unlike.
    sigma: (low, high) limits of sigma and winsorized, in deviations of the population around the median.
    digest: mean and sum note each frame's SHA-256, so that no frame counts twice when saved parts are combined. False
        saves the time; `save` is a ValueError then.

    As a context manager it frees its memory at the end of the block; ValueError after that, as after `close`.

    >>> with Stack() as stack:
    ...     for seed in (1, 2, 3):
    ...         stack.add(read(simulate('GSENSE400', mode='hdr', width=64, height=48, seed=seed)))
    ...     stack.count, stack.plane, stack.result().dtype
    (3, 'merged', dtype('float32'))
    """

    __slots__ = ('_open', '_method', '__weakref__')
    _open: Optional[_core.Stack]
    _method: str

    def __init__(self, method: str = 'mean', plane: Optional[str] = None, decoder: Optional[Decoder] = None,
                 allow_unlike: bool = False, sigma: Tuple[float, float] = (3, 3), digest: bool = True) -> None:
        self._open = None
        number = _method(method, _METHODS)
        self._method = method
        stack = _core.Stack.make(number, bool(digest) and method in _SAVED)
        if plane is not None:
            if not isinstance(plane, str):
                raise TypeError(f'plane is a str, not {type(plane).__name__}')
            stack.set_plane(plane)
        if decoder is not None:
            if not isinstance(decoder, Decoder):
                raise TypeError(f'decoder is a Decoder, not {type(decoder).__name__}')
            stack.set_decoder(decoder._handle)
        low, high = _pair(sigma, 'sigma', '(low, high)')
        stack.set_sigma(float(low), float(high))
        stack.allow_unlike(bool(allow_unlike))
        self._open = stack

    @classmethod
    def combine(cls, paths: Iterable[Path], method: str = 'mean', allow_unlike: bool = False) -> 'Stack':
        """The stack of all frames of saved parts, bit for bit what one stack gives; it goes on.

        method: 'mean' or 'sum', whatever the parts were.
        allow_unlike: takes parts whose settings differ, and parts that were made so.

        Raises Mismatch for parts that are unlike, and for a frame that is in two of them; NotAFrame for a file that is
        no part, or damaged; OSError; ValueError without a part.
        """
        number = _method(method, _SAVED)
        if isinstance(paths, (str, bytes, os.PathLike)):
            raise TypeError('the parts are a list of paths')
        whole: Optional[_core.Stack] = None
        for path in paths:
            name = os.fsdecode(_fsbytes(path))
            if stat.S_ISFIFO(os.stat(name).st_mode):  # opening it would wait
                raise OSError(errno.EINVAL, 'is no regular file', name)
            with open(name, 'rb'):  # the system's own errors
                part = _core.Stack.load(_fsbytes(path), number)
            if part.forced() and not allow_unlike:
                raise Mismatch('holds frames that may be unlike, as was allowed; allow_unlike takes it', 'mismatch',
                               name)
            if whole is None:
                whole = part
            else:
                whole.merge(part, bool(allow_unlike), _fsbytes(path))
        if whole is None:
            raise ValueError('there are no parts to combine')
        stack = cls.__new__(cls)
        stack._open = whole
        stack._method = method
        return stack

    def __enter__(self) -> 'Stack':
        self._stack
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __repr__(self) -> str:
        if self._open is None:
            return f'<orvacam.Stack by {self._method}, closed>'
        return f'<orvacam.Stack by {self._method} of {self.count} frames>'

    def __reduce__(self) -> NoReturn:
        raise TypeError('a stack cannot be pickled: save it, or add up the parts')

    @property
    def _stack(self) -> _core.Stack:
        if self._open is None:
            raise ValueError('the stack is closed')
        return self._open

    def close(self) -> None:
        """Frees the memory. ValueError for what is asked of the stack after that."""
        self._open = None

    @property
    def method(self) -> str:
        """As it was made."""
        return self._method

    @property
    def count(self) -> int:
        """How many frames were added."""
        return self._stack.count()

    @property
    def plane(self) -> Optional[str]:
        """The plane that is stacked; None while that is the first frame's to say."""
        return self._stack.plane() or None

    @property
    def header(self) -> Header:
        """The first frame's, raw. ValueError when the stack is empty."""
        return Header._of(self._stack.header())

    def save(self, path: Path, overwrite: bool = False) -> None:
        """Writes what there is so far: FITS with the exact sums and all that must be known to go on, which `combine`
        and `orvacam stack --combine` read. The file appears whole or not at all.

        ValueError for an empty stack, for methods other than mean and sum, and where a frame was added twice;
        FileExistsError; OSError.
        """
        data = self._stack.save()
        _write_whole(path, memoryview(data), overwrite)  # type: ignore[arg-type]

    def add(self, frame: Union[Source, Frame]) -> None:
        """Adds a frame, or what `read` takes. The GIL is released meanwhile.

        Raises what reading and decoding do; Mismatch, naming the field, for a frame that is unlike the first;
        ValueError for one that lacks the plane. The stack is then as before.
        """
        stack = self._stack
        opened = frame if isinstance(frame, Frame) else read(frame)
        try:
            stack.add(opened._handle)
        except Error as error:
            raise opened._named(error)

    def result(self, dtype: Any = 'float32') -> NDArray[Any]:
        """The result so far, (rows, columns) in ADU; the stack goes on. ValueError when it is empty.

        dtype: 'float32'; 'float64'; 'uint16': not of a sum, cut off.
        """
        kind = _result_type(dtype)
        stack = self._stack
        if kind == numpy.float32:
            return stack.result().copy()
        if kind == numpy.uint16:
            return stack.result_u16().copy()
        return stack.result_f64().copy()
