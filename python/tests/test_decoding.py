"""Decoders: settings, the caller's arrays, statistics."""

import json
import pathlib
import subprocess
import threading
from typing import Any, Dict, List, Tuple

import numpy
import pytest

import orvacam
from conftest import assert_same, build_dir, unpacked_pair


def test_yields_what_is_asked_for(hdr: bytes) -> None:
    frame = orvacam.read(hdr)
    everything = frame.decode()
    assert everything.image is None and everything.statistics == {}
    assert set(everything.headers) == {'low', 'high', 'merged'}
    some = frame.decode(planes=['high', 'high'])
    assert some.low is None and some.merged is None and set(some.headers) == {'high'}
    assert_same(some.high, unpacked_pair(hdr, 48, 64)[1])
    assert some.headers['high']['TestIsHighFrame'] is True and some.headers['high']['DataPixelBitDepth'] == 16
    assert frame.decode(planes=()).headers == {}


def test_fresh_arrays_are_the_callers(hdr: bytes) -> None:
    frame = orvacam.read(hdr)
    first, second = frame.decode().merged, frame.decode().merged
    assert first is not None and second is not None
    first[:] = 7
    assert_same(second, frame.merged)
    assert second.flags.writeable and second.flags.c_contiguous and not frame.merged.flags.writeable


def test_statistics_are_those_of_numpy(hdr: bytes) -> None:
    frame = orvacam.read(hdr)
    decoded = frame.decode(histograms=True)
    for name, numbers in decoded.statistics.items():
        plane = getattr(frame, name)
        counts = numpy.bincount(plane.reshape(-1), minlength=65536)
        assert numbers.count == plane.size
        assert numbers.mean == pytest.approx(plane.mean(), rel=1e-14)
        assert numbers.deviation == pytest.approx(plane.std(), rel=1e-12)
        assert numbers.mode == counts.argmax()
        assert numbers.minimum.value == plane.min() == plane[numbers.minimum.y, numbers.minimum.x]
        y, x = numpy.unravel_index(plane.argmax(), plane.shape)
        assert (numbers.maximum.value, numbers.maximum.x, numbers.maximum.y) == (plane.max(), x, y)
        assert numbers.histogram is not None and numbers.histogram.dtype == numpy.uint32
        assert_same(numbers.histogram, counts)
    plain = frame.decode(planes=('low',), statistics=True).statistics['low']
    assert plain.histogram is None and plain != decoded.statistics['low']
    assert plain == orvacam.read(hdr).decode(statistics=True).statistics['low']


def test_writes_into_the_callers_arrays(hdr: bytes) -> None:
    frame = orvacam.read(hdr)
    memory = numpy.full((2, 50, 64), 0x5A5A, numpy.uint16)
    decoded = orvacam.Decoder().decode(frame, planes=('low', 'merged'), out={'merged': memory[0, 1:49]})
    assert decoded.merged is not None and decoded.merged.base is memory
    assert_same(memory[0, 1:49], frame.merged)
    assert_same(decoded.low, frame.low)
    assert (memory[0, (0, 49)] == 0x5A5A).all() and (memory[1] == 0x5A5A).all()


def hostile_outs() -> Dict[str, Tuple[Any, Any]]:
    whole = numpy.full((60, 70), 0x5A5A, numpy.uint16)
    read_only = numpy.full((48, 64), 0x5A5A, numpy.uint16)
    read_only.flags.writeable = False
    odd = numpy.full(48 * 64 * 2 + 1, 0x5A, numpy.uint8)
    plane = numpy.full((48, 64), 0x5A5A, numpy.uint16)
    return {
        'float': ({'merged': numpy.full((48, 64), 90, numpy.float32)}, TypeError),
        'signed': ({'merged': numpy.full((48, 64), 0x5A5A, numpy.int16)}, TypeError),
        'bytes swapped': ({'merged': numpy.full((48, 64), 0x5A5A, '>u2')}, TypeError),
        'objects': ({'merged': numpy.full((48, 64), None, object)}, TypeError),
        'list': ({'merged': [[0] * 64] * 48}, TypeError),
        'None': ({'merged': None}, TypeError),
        'no dict': (plane, (TypeError, ValueError)),
        'bytearray': ({'merged': bytearray(48 * 64 * 2)}, TypeError),
        'flat': ({'merged': plane.reshape(-1)}, ValueError),
        'three dimensions': ({'merged': plane.reshape(1, 48, 64)}, ValueError),
        'no dimension': ({'merged': numpy.array(7, numpy.uint16)}, ValueError),
        'transposed': ({'merged': numpy.full((64, 48), 0x5A5A, numpy.uint16)}, ValueError),
        'small': ({'merged': whole[:47, :64]}, ValueError),
        'gaps': ({'merged': whole[:48, :64]}, ValueError),
        'columns first': ({'merged': numpy.full((64, 48), 0x5A5A, numpy.uint16).T}, ValueError),
        'backwards': ({'merged': plane[::-1]}, ValueError),
        'repeated': ({'merged': numpy.broadcast_to(whole[0, :64], (48, 64))}, ValueError),
        'read-only': ({'merged': read_only}, ValueError),
        'not aligned': ({'merged': odd[1:].view(numpy.uint16).reshape(48, 64)}, ValueError),
        'overlap': ({'low': whole.reshape(-1)[:3072].reshape(48, 64),
                     'merged': whole.reshape(-1)[64:3136].reshape(48, 64)}, ValueError),
        'the same': ({'low': plane, 'merged': plane}, ValueError),
        'another plane': ({'image': plane}, ValueError),
        'not asked for': ({'high': plane}, ValueError),
        'no plane': ({'middle': plane}, ValueError),
        'a number': ({3: plane}, (TypeError, ValueError)),
    }


@pytest.mark.parametrize('name', hostile_outs())
def test_arrays_that_do_not_fit_are_refused_and_not_written(name: str, hdr: bytes) -> None:
    out, error = hostile_outs()[name]
    frame = orvacam.read(hdr)
    decoder = orvacam.Decoder()
    with pytest.raises(error):
        decoder.decode(frame, planes=('low', 'merged'), out=out)
    if isinstance(out, dict):
        for array in out.values():
            if isinstance(array, numpy.ndarray) and array.dtype.kind in 'ui':
                assert (array.view(numpy.uint16) if array.dtype.itemsize == 2 else array).max() in (7, 0x5A5A)
    assert_same(decoder.decode(frame).merged, frame.merged)


def test_an_array_over_the_bytes_of_the_frame_is_refused(single: bytes) -> None:
    """numpy cannot make one that is writable; its memory can be had otherwise."""
    import ctypes
    data = bytes(bytearray(single) + bytes(48 * 64 * 2))  # one that nobody else has
    frame = orvacam.read(data)
    address = numpy.frombuffer(data, numpy.uint8).ctypes.data + 384
    memory: Any = (ctypes.c_uint16 * (48 * 64)).from_address(address + address % 2)
    with pytest.raises(ValueError, match='overlaps the bytes of the frame'):
        frame.decode(out={'image': numpy.frombuffer(memory, numpy.uint16).reshape(48, 64)})
    assert frame.tobytes() == data


@pytest.mark.parametrize('arguments,error', [
    ({'planes': 'merged'}, TypeError), ({'planes': 3}, TypeError), ({'planes': (3,)}, TypeError),
    ({'planes': ('middle',)}, ValueError), ({'planes': ('merged', 'image')}, ValueError), ({'planes': ('',)}, ValueError),
    ({'planes': ('low\0',)}, ValueError), ({'thresholds': (70000, 1)}, ValueError), ({'thresholds': (-1, 1)}, ValueError),
    ({'thresholds': (1.5, 1)}, TypeError), ({'thresholds': 3}, TypeError), ({'thresholds': (1, 2, 3)}, ValueError),
    ({'thresholds': (2**80, 1)}, ValueError), ({'thresholds': (True, 1)}, TypeError), ({'calibration': 'x'}, TypeError),
    ({'calibration': b'none'}, ValueError), ({'dsnu': 3}, TypeError), ({'dsnu': 'a\0'}, ValueError),
    ({'prnu': '/nowhere/p.ref'}, FileNotFoundError), ({'bias': 3}, TypeError), ({'bias': ()}, ValueError),
    ({'bias': (numpy.zeros((48, 64)), None)}, TypeError), ({'bias': numpy.zeros(9, numpy.uint16)}, ValueError),
    ({'bias': numpy.zeros((0, 64), numpy.uint16)}, ValueError),
    ({'bias': (numpy.zeros((48, 64), numpy.uint16), None)}, orvacam.Mismatch),
    ({'bias': (numpy.zeros((47, 64), numpy.uint16),) * 2}, orvacam.Mismatch),
    ({'bias': (numpy.zeros((48, 64), numpy.uint16), numpy.zeros((48, 62), numpy.uint16))}, orvacam.Mismatch),
])
def test_wrong_arguments_are_refused(arguments: Dict[str, Any], error: Any, hdr: bytes) -> None:
    with pytest.raises(error):
        orvacam.read(hdr).decode(**arguments)


def test_decodes_frames_alone(hdr: bytes) -> None:
    with pytest.raises(TypeError):
        orvacam.Decoder().decode(hdr)  # type: ignore[arg-type]


def test_bias_frames_are_subtracted_and_stop_at_zero(hdr: bytes, single: bytes) -> None:
    low, high = unpacked_pair(hdr, 48, 64)
    bias = (numpy.full((48, 64), 14, numpy.uint16), numpy.full((96, 64), 80, numpy.uint16)[::2])
    decoded = orvacam.read(hdr).decode(bias=bias)
    assert_same(decoded.low, numpy.maximum(low.astype(int) - 14, 0))
    assert_same(decoded.high, numpy.maximum(high.astype(int) - 80, 0))
    image = orvacam.read(single)
    once = image.decode(bias=image.image).image
    assert once is not None and (once == 0).all()


def test_bias_frames_are_copied(single: bytes) -> None:
    image = orvacam.read(single)
    bias = image.image.copy()
    decoder = orvacam.Decoder(bias=(bias, None))
    bias[:] = 0
    plane = decoder.decode(image).image
    assert plane is not None and (plane == 0).all()


def test_corrections_are_those_of_the_program(tmp_path: pathlib.Path) -> None:
    program = build_dir() / 'tools' / 'orvacam' / 'orvacam'
    subprocess.run([program, 'simulate', 'GSENSE4040', '--mode', 'hdr', '--width', '64', '--height', '48', '-o', 'f.raw',
                    '--dsnu', 'd.ref', '--prnu', 'p.ref'], check=True, cwd=tmp_path)
    cases: List[Tuple[List[str], Dict[str, Any]]] = [
        ([], {}), (['--thresholds', '3000,100'], {'thresholds': (3000, 100)}),
        (['--dsnu', 'd.ref', '--prnu', 'p.ref'], {'dsnu': tmp_path / 'd.ref', 'prnu': str(tmp_path / 'p.ref')})]
    for options, arguments in cases:
        subprocess.run([program, 'convert', 'f.raw', '-f', 'npy', '--planes', 'merged', '--overwrite', '--quiet',
                        '-o', '.', *options], check=True, cwd=tmp_path)
        decoded = orvacam.Decoder(**arguments).decode(orvacam.read(tmp_path / 'f.raw'))
        assert_same(decoded.merged, numpy.load(tmp_path / 'f_MERGED.npy'))


def test_corrections_that_do_not_fit_leave_the_decoder_as_good_as_new(hdr: bytes, single: bytes) -> None:
    decoder = orvacam.Decoder(bias=(numpy.zeros((48, 64), numpy.uint16),) * 2)
    large = orvacam.read(orvacam.simulate('GSENSE400', mode='hdr', width=66, height=48))
    for _ in range(3):
        with pytest.raises(orvacam.Mismatch) as caught:
            decoder.decode(large)
        assert caught.value.reason == 'mismatch' and caught.value.path is None
        assert_same(decoder.decode(orvacam.read(hdr)).merged, orvacam.read(hdr).merged)


def test_errors_name_the_file_that_is_wrong(hdr: bytes, tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'd.ref'
    path.write_bytes(b'none')
    with pytest.raises(orvacam.NotAFrame) as caught:
        orvacam.Decoder(dsnu=path)
    assert caught.value.path == str(path) and str(caught.value).startswith(str(path))


def test_merge_info_tells_ratio_and_thresholds(hdr: bytes, single: bytes) -> None:
    decoder = orvacam.Decoder(thresholds=(numpy.uint16(3000), 100))  # type: ignore[arg-type]
    info = decoder.merge_info(orvacam.read(hdr).header)
    assert info is not None and (info['high_threshold'], info['difference_threshold']) == (3000, 100)
    assert info['gain_ratio'] > 1 and not info['prnu']
    assert decoder.merge_info(orvacam.read(single).header) is None


def test_threads_may_share_a_decoder_and_wait(hdr: bytes) -> None:
    frames = [orvacam.read(orvacam.simulate('GSENSE400', mode='hdr', width=256, height=192, seed=seed))
              for seed in range(4)]
    decoder, faults = orvacam.Decoder(), []

    def decode(frame: orvacam.Frame) -> None:
        for _ in range(20):
            plane = decoder.decode(frame).merged
            if plane is None or not numpy.array_equal(plane, frame.merged):
                faults.append(frame)

    threads = [threading.Thread(target=decode, args=(frame,)) for frame in frames]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not faults


def test_schema_of_the_header_is_the_librarys(hdr: bytes) -> None:
    assert json.loads(orvacam.read(hdr).header.json())['schema'] == 'orvacam.header/1'
