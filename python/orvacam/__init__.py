"""Raw frames of scientific cameras, opened, checked, decoded and stacked.

>>> import orvacam
>>> frame = orvacam.read(orvacam.simulate('GSENSE400', mode='hdr', width=64, height=48))
>>> frame.header.sensor, frame.planes
('GSENSE400', ('low', 'high', 'merged'))
>>> frame.merged.shape
(48, 64)

The frame says what it is: sensor, mode and planes come from its header. Every failure has a reason: `Error` and what
is derived from it, OSError for files, ValueError and TypeError for arguments.

Threads: frames, headers and planes do not change and may be shared; a decoder and a stack are for one thread, and
others wait. The GIL is released while bytes are read, decoded and stacked. Processes: everything works after a fork;
a decoder or stack that another thread was using at that moment is refused in the child. Subinterpreters: the import
fails.
"""

from . import _core

_core.require_main_interpreter()  # an import into another interpreter does not run what checked it first

from ._astropy import to_ccddata  # noqa: E402
from ._calibrate import Calibration, calibrate  # noqa: E402
from ._decoder import Decoded, Decoder, Extreme, Statistics  # noqa: E402
from ._errors import BadGeometry, Error, Mismatch, NotAFrame, Truncated, UnsupportedSensor  # noqa: E402
from ._frame import Finding, Frame, read  # noqa: E402
from ._header import Header, Key, keys, read_header  # noqa: E402
from ._report import report  # noqa: E402
from ._series import open_series, stack, statistics  # noqa: E402
from ._simulate import sensors, simulate  # noqa: E402
from ._stack import Stack  # noqa: E402

__version__ = _core.version()

__all__ = ['BadGeometry', 'Calibration', 'Decoded', 'Decoder', 'Error', 'Extreme', 'Finding', 'Frame', 'Header', 'Key',
           'Mismatch', 'NotAFrame', 'Stack', 'Statistics', 'Truncated', 'UnsupportedSensor', 'calibrate', 'keys',
           'open_series', 'read', 'read_header', 'report', 'sensors', 'simulate', 'stack', 'statistics', 'to_ccddata']
