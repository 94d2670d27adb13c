"""Stacks: results, what is refused, the end of their memory."""

import pathlib
import threading
from typing import Any, Callable, List

import numpy
import pytest

import orvacam
from conftest import assert_same


@pytest.fixture(scope='module')
def night() -> List[orvacam.Frame]:
    return [orvacam.read(orvacam.simulate('GSENSE400', mode='hdr', width=64, height=48, seed=seed)) for seed in range(5)]


def cube(night: List[orvacam.Frame], plane: str = 'merged') -> Any:
    return numpy.stack([getattr(frame, plane) for frame in night]).astype(numpy.uint64)


def test_means_and_sums_are_exact(night: List[orvacam.Frame]) -> None:
    expected = cube(night).sum(axis=0)
    with orvacam.Stack() as mean, orvacam.Stack('sum') as total:
        for frame in night:
            mean.add(frame)
            total.add(frame.tobytes())
        assert mean.count == total.count == 5
        assert_same(mean.result('float64'), expected / 5)
        assert_same(mean.result(), (expected / 5).astype(numpy.float32))
        assert_same(mean.result(numpy.uint16), expected // 5)
        assert_same(total.result('float64'), expected.astype(float))
        assert mean.result().flags.writeable and mean.result().dtype == numpy.float32
        mean.add(night[0])  # goes on
        assert mean.count == 6
        with pytest.raises(ValueError):
            total.result('uint16')
        for dtype in ('int32', 'float16', '>f4', 'U'):
            with pytest.raises(ValueError):
                mean.result(dtype)
        with pytest.raises(TypeError):
            mean.result('nothing')


def test_takes_a_plane_and_paths(night: List[orvacam.Frame], tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'a.raw'
    path.write_bytes(night[1].tobytes())
    with orvacam.Stack(plane='low') as stack:
        stack.add(path)
        assert_same(stack.result(), night[1].low)


def test_takes_a_decoders_settings_and_leaves_it(night: List[orvacam.Frame]) -> None:
    bias = numpy.full((48, 64), 5, numpy.uint16)
    decoder = orvacam.Decoder(bias=(bias, bias), thresholds=(3000, 100))
    with orvacam.Stack(plane='high', decoder=decoder) as stack:
        stack.add(night[0])
        assert_same(stack.result(), night[0].high - 5)
    plane = decoder.decode(night[0]).high
    assert_same(plane, night[0].high - 5)


def test_unlike_frames_are_refused_and_change_nothing(night: List[orvacam.Frame], single: bytes) -> None:
    larger = orvacam.simulate('GSENSE400', mode='hdr', width=66, height=48)
    with orvacam.Stack() as stack:
        stack.add(night[0])
        for other in (single, larger, orvacam.simulate('GSENSE2020', mode='hdr', width=64, height=48)):
            with pytest.raises((orvacam.Mismatch, ValueError)):
                stack.add(other)
        with pytest.raises(orvacam.Truncated):
            stack.add(night[1].tobytes()[:-1])
        with pytest.raises(FileNotFoundError):
            stack.add('/nowhere/x.raw')
        with pytest.raises(TypeError):
            stack.add(None)  # type: ignore[arg-type]
        assert stack.count == 1
        assert_same(stack.result(), night[0].merged)


def test_settings_may_differ_when_that_is_allowed(night: List[orvacam.Frame]) -> None:
    data = bytearray(night[0].tobytes())
    at = data.index((100000).to_bytes(4, 'big'))  # the exposure
    data[at:at + 4] = (200000).to_bytes(4, 'big')
    with orvacam.Stack() as strict, orvacam.Stack(allow_unlike=True) as loose:
        for stack in (strict, loose):
            stack.add(night[0])
        with pytest.raises(orvacam.Mismatch, match='ExposureTime'):
            strict.add(data)
        loose.add(data)
        assert (strict.count, loose.count) == (1, 2)


@pytest.mark.parametrize('arguments,error', [
    ({'method': 'middle'}, ValueError), ({'method': 3}, TypeError), ({'plane': 'middle'}, ValueError),
    ({'decoder': 3}, TypeError), ({'plane': 3}, TypeError),
])
def test_wrong_arguments_are_refused(arguments: Any, error: Any) -> None:
    with pytest.raises(error):
        orvacam.Stack(**arguments)


def test_empty_stacks_have_no_result() -> None:
    with orvacam.Stack() as stack:
        with pytest.raises(ValueError):
            stack.result()


def test_after_the_block_nothing_is_left(night: List[orvacam.Frame]) -> None:
    with orvacam.Stack() as stack:
        stack.add(night[0])
        result = stack.result()
    asks: List[Callable[[], Any]] = [lambda: stack.count, stack.result, lambda: stack.add(night[0]), stack.__enter__]
    for ask in asks:
        with pytest.raises(ValueError, match='closed'):
            ask()
    stack.close()
    assert_same(result, night[0].merged)


def test_threads_may_share_a_stack_and_wait(night: List[orvacam.Frame]) -> None:
    with orvacam.Stack('sum') as stack:
        def add() -> None:
            for frame in night:
                stack.add(frame)

        threads = [threading.Thread(target=add) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert stack.count == 20
        assert_same(stack.result('float64'), 4.0 * cube(night).sum(axis=0))
