"""The seeds and findings of the C interface's fuzz target, through Python: whatever the bytes are, what is raised is what
is documented, and what the check says is what decoding does."""

import os
import pathlib
from typing import List

import numpy

import orvacam
from conftest import build_dir

#: Two bytes of options and four of a region are ahead of the frame.
AHEAD = 6


def corpus() -> List[pathlib.Path]:
    seeds = build_dir() / 'fuzz' / 'seeds' / 'face'
    findings = pathlib.Path(os.environ['ORVACAM_FUZZ_FINDINGS']) / 'face'
    return sorted(seeds.iterdir()) + sorted(findings.iterdir())


def variants(data: bytes) -> List[bytes]:
    """The frame, cut off, and with each of some bytes of its header changed: the same ones in every run."""
    all = [data, data[:len(data) // 2], data[:390], data[:100], data + b'more']
    for at in range(0, min(len(data), 384), 19):
        changed = bytearray(data)
        changed[at] ^= 0xFF
        all.append(bytes(changed))
    return all


def try_frame(data: bytes) -> str:
    try:
        frame = orvacam.read(bytearray(data))
    except (orvacam.NotAFrame, orvacam.Truncated) as error:
        assert error.text and '\n' not in error.text
        return error.reason
    header = frame.header
    assert len(dict(header)) == 93 and header.text() and header.json()
    header.time, header.temperature_celsius, header.exposure_seconds
    reasons = [finding.reason for finding in frame.check() if finding.severity == 'error']
    assert (frame.planes == ()) == bool(reasons)
    try:
        decoded = frame.decode(statistics=True)
    except orvacam.Error as error:
        assert error.reason == reasons[0] and error.path is None
        return error.reason
    assert not reasons
    for name in frame.planes:
        plane = getattr(decoded, name)
        assert plane.shape == frame.shape
        assert numpy.array_equal(plane, getattr(frame, name))
        region = plane[frame.region]
        numbers = decoded.statistics[name]
        assert numbers.count == region.size and numbers.maximum.value == region.max()
    return 'decoded'


def test_every_input_gives_planes_or_a_reason() -> None:
    outcomes = set()
    for path in corpus():
        for data in variants(path.read_bytes()[AHEAD:]):
            outcomes.add(try_frame(data))
    assert outcomes >= {'decoded', 'not_a_frame', 'truncated', 'bad_geometry', 'unsupported_sensor'}
