"""Many frames into one."""

from types import TracebackType
from typing import Any, Dict, NoReturn, Optional, Type, Union

import numpy
from numpy.typing import NDArray

from . import _core
from ._decoder import Decoder
from ._errors import Error
from ._frame import Frame, Source, read

# As the library numbers them.
_METHODS: Dict[str, int] = {'mean': 0, 'sum': 1, 'median': 2, 'min': 3, 'max': 4, 'sigma': 5, 'winsorized': 6}


class Stack:
    """Many frames into one: their merged plane, else image, else low, or the plane that is named. One per thread.

    method: 'mean', 'sum', 'median', 'min', 'max', 'sigma' or 'winsorized'.
    plane: 'low', 'high', 'merged' or 'image'; None for the first frame's best.
    decoder: its settings hold for every frame.
    allow_unlike: takes frames whose settings differ as well; sensor, mode and size can never be unlike.

    As a context manager it frees its memory at the end of the block; ValueError after that, as after `close`.

    >>> with Stack() as stack:
    ...     for seed in (1, 2, 3):
    ...         stack.add(read(simulate('GSENSE400', mode='hdr', width=64, height=48, seed=seed)))
    ...     stack.count, stack.result().dtype
    (3, dtype('float32'))
    """

    __slots__ = ('_open', '_method', '__weakref__')
    _open: Optional[_core.Stack]
    _method: str

    def __init__(self, method: str = 'mean', plane: Optional[str] = None, decoder: Optional[Decoder] = None,
                 allow_unlike: bool = False) -> None:
        self._open = None
        if not isinstance(method, str):
            raise TypeError(f'method is a str, not {type(method).__name__}')
        if method not in _METHODS:
            raise ValueError(f"there is no method '{method}'; there are {', '.join(_METHODS)}")
        self._method = method
        stack = _core.Stack(_METHODS[method])
        if plane is not None:
            stack.plane(plane)
        if decoder is not None:
            if not isinstance(decoder, Decoder):
                raise TypeError(f'decoder is a Decoder, not {type(decoder).__name__}')
            stack.decoder(decoder._handle)
        stack.allow_unlike(bool(allow_unlike))
        self._open = stack

    def __enter__(self) -> 'Stack':
        self._stack
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

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

        dtype: 'float32'; 'float64'; 'uint16': of a mean alone, rounded down.
        """
        kind = numpy.dtype(dtype)
        stack = self._stack
        if kind == numpy.float32:
            return stack.result().copy()
        if kind == numpy.uint16:
            return stack.result_u16().copy()
        if kind == numpy.float64:
            if self._method not in ('mean', 'sum'):
                return stack.result().astype(numpy.float64)
            sums = stack.sums().astype(numpy.float64)
            return sums / stack.count() if self._method == 'mean' else sums
        raise ValueError(f"dtype is 'float32', 'float64' or 'uint16', not '{kind}'")
