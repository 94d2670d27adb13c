"""Headers as mappings and by attribute."""

import collections.abc
import json
import pathlib

import numpy
import pytest

import orvacam


def test_is_a_mapping_of_the_93_keys(hdr: bytes) -> None:
    header = orvacam.read(hdr).header
    assert isinstance(header, collections.abc.Mapping)
    assert len(header) == len(list(header)) == len(orvacam.keys()) == 93
    assert list(header) == [key.name for key in orvacam.keys()]
    values = json.loads(header.json())['values']
    assert dict(header) == values
    assert {type(value) for value in header.values()} == {int, float, bool, str}
    assert 'ExposureTime' in header and 'Nothing' not in header
    with pytest.raises(KeyError):
        header['Nothing']
    assert header.get('Nothing') is None


def test_fractions_are_float(hdr: bytes) -> None:
    """The latitude is sent in 1/600000 degree: one more is a ten-thousandth of a minute."""
    raw = 0x80000000 + 28800000
    header = orvacam.read(bytearray(hdr).replace(raw.to_bytes(4, 'big'), (raw + 1).to_bytes(4, 'big'))).header
    assert (header['GPSLatitudeRaw'], header['GPSLatitudeDegrees']) == (raw + 1, 48)
    assert header['GPSLatitudeMinutes'] == pytest.approx(1e-4) and type(header['GPSLatitudeMinutes']) is float


def test_says_what_programs_ask_for_most(hdr: bytes) -> None:
    header = orvacam.read(hdr).header
    assert (header.sensor, header.model, header.serial, header.version, header.hdr) == (
        'GSENSE400', 'VESTRA VS400', 'VS-0001', 4, True)
    assert (header.exposure_seconds, header.temperature_celsius, header.set_point_celsius) == (1.0, -19.5, -20.0)
    assert header.time == numpy.datetime64('2024-05-17T21:04:33.123456700')
    assert header.time is not None and header.time.dtype == numpy.dtype('datetime64[ns]')
    assert (header.shape, header.region, header.start_row) == ((48, 64), (slice(0, 48), slice(0, 64)), 0)
    assert 'VESTRA VS400' in header.text()
    assert header['ExposureTime'] == 100000 and header['HDRMode'] is True and header['CameraModel'] == 'VESTRA VS400'


def test_a_time_that_cannot_be_read_is_none(hdr: bytes) -> None:
    data = bytearray(hdr)
    at = data.index(b'2024')
    data[at + 5:at + 7] = b'13'
    frame = orvacam.read(data)
    assert frame.header.time is None
    assert [finding.severity for finding in frame.check()] == ['warning']
    assert frame.merged.shape == (48, 64)


def test_headers_of_the_same_values_are_equal_whatever_their_other_bytes(hdr: bytes) -> None:
    one = orvacam.Header(hdr)
    other = orvacam.Header(hdr[:383] + bytes([hdr[383] ^ 1]))
    assert one == other and hash(one) == hash(other) and len({one, other}) == 1
    assert one.tobytes() != other.tobytes()


def test_is_read_from_the_start_of_a_file(hdr: bytes, tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'start.raw'
    path.write_bytes(hdr[:400])
    assert orvacam.read_header(path) == orvacam.read_header(str(path)) == orvacam.read(hdr).header
    assert orvacam.read_header(path).tobytes() == hdr[:384] == orvacam.Header(hdr).tobytes()
    path.write_bytes(hdr[:383])
    with pytest.raises(orvacam.Truncated) as caught:
        orvacam.read_header(path)
    assert (caught.value.path, caught.value.needed, caught.value.available) == (str(path), 384, 383)
    with pytest.raises(FileNotFoundError):
        orvacam.read_header(tmp_path / 'none')
    with pytest.raises(TypeError):
        orvacam.read_header(3)  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        orvacam.Header('text')  # type: ignore[arg-type]


def test_without_geometry_says_why(hdr: bytes) -> None:
    """The image stops before it starts: one of the header's bytes makes it so."""
    broken = []
    for at in range(110, 130):
        data = bytearray(hdr)
        data[at] ^= 0xFF
        frame = orvacam.read(data)
        start, stop = frame.header['ImageStartRow'], frame.header['ImageStopRow']
        if isinstance(start, int) and isinstance(stop, int) and stop < start:
            broken.append(frame)
    assert broken
    for frame in broken:
        for name in ('shape', 'region', 'low'):
            with pytest.raises(orvacam.BadGeometry):
                getattr(frame, name)
        with pytest.raises(orvacam.BadGeometry):
            frame.header.start_row
        assert frame.planes == () and frame.check()[0].reason == 'bad_geometry'


def test_keys_tell_unit_and_versions() -> None:
    keys = {key.name: key for key in orvacam.keys()}
    assert keys['ExposureTime'].unit == '10 us'
    assert (keys['MetaInfo'].first_version, keys['ExposureTime'].first_version) == (4, 1)
    assert len({key.number for key in keys.values()}) == 93
