"""Frames to try things with."""

from typing import List

from . import _core


def simulate(sensor: str, mode: str = 'single', width: int = 512, height: int = 384, seed: int = 1) -> bytes:
    """A raw frame of a night sky; the same arguments give the same bytes on every machine.

    sensor: 'GSENSE400' and the like, any case.
    mode: 'single', 'hdr', '16bit' or 'cms', where the sensor has it (else ValueError).
    width, height: of the image in pixels, 1 to 16384.
    seed: of the scene.

    >>> frame = read(simulate('GSENSE2020', mode='cms', width=64, height=48))
    >>> frame.planes, frame.shape
    (('image',), (48, 64))
    """
    for name, value in (('sensor', sensor), ('mode', mode)):
        if not isinstance(value, str):
            raise TypeError(f'{name} is a str, not {type(value).__name__}')
    for name, number, most in (('width', width, 16384), ('height', height, 16384), ('seed', seed, 2**64 - 1)):
        least = 0 if name == 'seed' else 1
        if isinstance(number, bool) or not hasattr(number, '__index__'):
            raise TypeError(f'{name} is an int, not {type(number).__name__}')
        if not least <= number.__index__() <= most:
            raise ValueError(f'{name} is {number}, not within {least} and {most}')
    return _core.simulate(sensor, mode, width.__index__(), height.__index__(), seed.__index__())


def sensors() -> List[str]:
    """The names of the sensors that the library knows.

    >>> 'GSENSE4040' in sensors()
    True
    """
    return _core.sensors()
