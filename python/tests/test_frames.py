"""What a frame can be made of, and what it says of itself."""

import ctypes
import mmap
import os
import pathlib
import subprocess
import threading
from typing import Any, Callable, Iterator, List, Tuple

import numpy
import pytest

import orvacam
from conftest import MODES, assert_same, build_dir, unpacked_pair


class FsPath:
    def __init__(self, path: Any) -> None:
        self.path = path

    def __fspath__(self) -> Any:
        return self.path


@pytest.mark.parametrize('sensor,mode', MODES)
def test_every_sensor_and_mode_decodes_as_the_program_does(sensor: str, mode: str, tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'frame.raw'
    path.write_bytes(orvacam.simulate(sensor, mode=mode, width=48, height=40, seed=3))
    frame = orvacam.read(path)
    assert frame.header.sensor == sensor
    assert frame.planes == MODES[sensor, mode]
    subprocess.run([build_dir() / 'tools' / 'orvacam' / 'orvacam', 'convert', path, '-o', tmp_path, '-f', 'npy',
                    '--quiet'], check=True)
    for name in frame.planes:
        suffix = '' if frame.planes == ('image',) else '_' + name.upper()
        expected = numpy.load(tmp_path / f'frame{suffix}.npy')
        plane = getattr(frame, name)
        assert plane.shape == frame.shape and plane.dtype == numpy.uint16
        assert_same(plane, expected)
        assert_same(getattr(frame.decode(), name), expected)


def test_pixels_are_those_of_the_bytes(hdr: bytes) -> None:
    low, high = unpacked_pair(hdr, 48, 64)
    frame = orvacam.read(hdr)
    assert_same(frame.low, low)
    assert_same(frame.high, high)
    below = high < 3000
    assert_same(frame.merged[below], high[below])
    assert (frame.merged[high == 4095] > 4095).all()


SOURCES: Tuple[Tuple[str, Callable[[pathlib.Path, bytes], Any]], ...] = (
    ('str', lambda path, data: str(path)),
    ('path', lambda path, data: path),
    ('path of bytes', lambda path, data: FsPath(os.fsencode(path))),
    ('bytes', lambda path, data: data),
    ('bytearray', lambda path, data: bytearray(data)),
    ('view of bytes', lambda path, data: memoryview(data)),
    ('view of a part', lambda path, data: memoryview(b'xxx' + data)[3:]),
    ('view of bytearray', lambda path, data: memoryview(bytearray(data))),
    ('read-only view of bytearray', lambda path, data: memoryview(bytearray(data)).toreadonly()),
    ('array', lambda path, data: numpy.frombuffer(data, numpy.uint8)),
    ('writable array', lambda path, data: numpy.frombuffer(data, numpy.uint8).copy()),
    ('characters', lambda path, data: memoryview(data).cast('c')),
    ('array of two dimensions', lambda path, data: numpy.frombuffer(data, numpy.uint8).reshape(-1, 96)),
    ('ctypes', lambda path, data: (ctypes.c_ubyte * len(data)).from_buffer_copy(data)),
)


@pytest.mark.parametrize('make', [make for _, make in SOURCES], ids=[name for name, _ in SOURCES])
def test_is_read_from(make: Callable[[pathlib.Path, bytes], Any], hdr: bytes, hdr_file: pathlib.Path) -> None:
    frame = orvacam.read(make(hdr_file, hdr))
    assert frame.tobytes() == hdr and frame.nbytes == len(hdr)
    assert_same(frame.low, unpacked_pair(hdr, 48, 64)[0])


def test_bytes_that_change_later_change_nothing(hdr: bytes) -> None:
    changing: List[Any] = [bytearray(hdr), numpy.frombuffer(hdr, numpy.uint8).copy()]
    shared = bytearray(hdr)
    frames = [orvacam.read(each) for each in changing] + [orvacam.read(memoryview(shared).toreadonly())]
    expected = orvacam.read(hdr).merged
    for each in changing + [shared]:
        memoryview(each)[:] = bytes(len(hdr))
    for frame in frames:
        assert frame.tobytes() == hdr
        assert_same(frame.merged, expected)


def test_memory_maps_are_copied(hdr: bytes, hdr_file: pathlib.Path) -> None:
    with open(hdr_file, 'r+b') as file, mmap.mmap(file.fileno(), 0) as mapped:
        frame = orvacam.read(memoryview(mapped))
        mapped[:4] = b'none'
    assert frame.tobytes() == hdr


def test_a_bytearray_is_free_again_and_views_are_held(hdr: bytes) -> None:
    data = bytearray(hdr)
    frame = orvacam.read(data)
    data.extend(b'more')  # BufferError while something holds it
    view = memoryview(hdr)
    held = orvacam.read(view)
    with pytest.raises(BufferError):
        view.release()
    assert held.tobytes() == frame.tobytes() == hdr


def test_bytes_that_change_meanwhile_are_a_frame_or_a_reason(hdr: bytes) -> None:
    """Another thread writes to the buffer all the time: what was copied is looked at, and nothing else."""
    data = bytearray(hdr)
    stop = threading.Event()

    def write() -> None:
        while not stop.is_set():
            for length in (b'\x80\x01', b'\xff\xff', b'\x00\x00'):
                data[4:6] = length
            data[0:4] = b'none'
            data[0:4] = b'Meta'

    writer = threading.Thread(target=write)
    writer.start()
    try:
        for _ in range(300):
            try:
                frame = orvacam.read(data)
                assert all(getattr(frame, name).shape == frame.shape for name in frame.planes)
            except orvacam.Error as error:
                assert error.text
    finally:
        stop.set()
        writer.join()


@pytest.mark.parametrize('source,error', [
    (None, TypeError), (7, TypeError), ([1, 2], TypeError), (numpy.zeros(9, numpy.uint16), TypeError),
    (numpy.zeros(9), TypeError), (memoryview(b'12345678').cast('H'), TypeError),
    (numpy.zeros(4000, numpy.uint8)[::2], ValueError), (numpy.zeros((90, 90), numpy.uint8).T[1:], ValueError),
    (memoryview(b'x' * 400)[::-1], ValueError), ('a\0b', ValueError), (object(), TypeError),
    (FsPath(3), TypeError), (b'', orvacam.NotAFrame), (bytearray(), orvacam.NotAFrame),
    (numpy.zeros(0, numpy.uint8), orvacam.NotAFrame), (numpy.zeros(500, numpy.uint8), orvacam.NotAFrame),
])
def test_other_sources_are_refused(source: Any, error: Any) -> None:
    with pytest.raises(error):
        orvacam.read(source)


def test_a_released_view_is_refused(hdr: bytes) -> None:
    view = memoryview(hdr)
    view.release()
    with pytest.raises(ValueError):
        orvacam.read(view)


def test_names_that_are_no_text_come_back(hdr: bytes, tmp_path: pathlib.Path) -> None:
    name = os.path.join(os.fsencode(tmp_path), b'\xff\xfe.raw')
    with open(name, 'wb') as file:
        file.write(hdr[:1000])
    frame = orvacam.read(os.fsdecode(name))
    assert frame.path == os.fsdecode(name)
    with pytest.raises(orvacam.Truncated) as caught:
        frame.merged
    assert caught.value.path is not None and os.fsencode(caught.value.path) == name
    with pytest.raises(FileNotFoundError) as missing:
        orvacam.read(os.fsdecode(name) + 'x')
    assert os.fsencode(missing.value.filename) == name + b'x'


def test_planes_are_kept_read_only_and_outlive_the_frame(hdr: bytes) -> None:
    frame = orvacam.read(hdr)
    merged = frame.merged
    assert frame.merged is merged
    with pytest.raises(ValueError):
        merged[0, 0] = 1
    arrays: List[Any] = [merged, merged.view(numpy.uint8), merged[1:]]
    for array in arrays:
        with pytest.raises(ValueError):
            array.setflags(write=True)
    copy = merged.copy()
    del frame
    assert_same(merged, copy)


def test_threads_that_ask_at_once_get_one_array(hdr: bytes) -> None:
    for _ in range(20):
        frame = orvacam.read(hdr)
        got = []
        threads = [threading.Thread(target=lambda: got.append(frame.merged)) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert len(got) == 4 and all(plane is got[0] for plane in got)


def test_planes_that_a_frame_lacks_are_no_attributes(single: bytes) -> None:
    frame = orvacam.read(single)
    with pytest.raises(AttributeError, match="the frame has no plane 'merged'; it has image"):
        frame.merged
    assert not hasattr(frame, 'low') and hasattr(frame, 'image')


def test_a_frame_cut_off_says_what_it_needs(hdr: bytes) -> None:
    frame = orvacam.read(hdr[:-1])
    assert frame.planes == ()
    assert [(f.severity, f.id, f.reason) for f in frame.check()] == [('error', 'pixels_missing', 'truncated')]
    asks: Tuple[Callable[[], Any], ...] = (
        lambda: frame.merged, lambda: frame.image, frame.decode, lambda: frame.decode(planes=('image',)))
    for ask in asks:
        with pytest.raises(orvacam.Truncated) as caught:
            ask()
        assert (caught.value.needed, caught.value.available) == (len(hdr), len(hdr) - 1)
        assert caught.value.reason == 'truncated' and str(len(hdr)) in str(caught.value)


def test_region_leaves_the_reference_rows_out(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'references.raw'
    subprocess.run([build_dir() / 'tools' / 'orvacam' / 'orvacam', 'simulate', 'GSENSE6060', '--mode', 'hdr', '--width',
                    '40', '--height', '32', '--pre-rows', '2', '--post-rows', '2', '--pre-pixels', '8',
                    '--post-pixels', '8', '-o', path], check=True)
    frame = orvacam.read(path)
    assert frame.region == (slice(2, 34), slice(8, 48))
    assert frame.merged[frame.region].shape == (32, 40)
    assert frame.shape == frame.header.shape == frame.low.shape
    assert frame.shape == (36, 56)


def test_frames_are_not_made_by_hand() -> None:
    with pytest.raises(TypeError):
        orvacam.Frame()


@pytest.fixture
def fifo(tmp_path: pathlib.Path) -> Iterator[pathlib.Path]:
    path = tmp_path / 'fifo'
    os.mkfifo(path)
    yield path


def test_what_is_no_regular_file_is_answered_at_once(fifo: pathlib.Path, tmp_path: pathlib.Path) -> None:
    with pytest.raises(OSError):
        orvacam.read(fifo)
    with pytest.raises(IsADirectoryError) as caught:
        orvacam.read_header(tmp_path)
    assert caught.value.filename == str(tmp_path) and caught.value.errno
    assert not isinstance(caught.value, orvacam.Error)
