"""Many frames: on this machine, and on a cluster of two processes."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import threading
import time
from typing import Any, Dict, Iterator, List, Tuple, Type

import numpy
import pytest

import orvacam
from orvacam import _series

METHODS = ('mean', 'sum', 'median', 'min', 'max', 'sigma', 'winsorized')


@pytest.fixture(scope='module')
def night(tmp_path_factory: pytest.TempPathFactory) -> List[str]:
    """Twelve frames of a pair, all alike, all different."""
    folder = tmp_path_factory.mktemp('night')
    return written(folder, [simulated(seed) for seed in range(12)])


def simulated(seed: int, width: int = 96, height: int = 64) -> bytes:
    return orvacam.simulate('GSENSE400', mode='hdr', width=width, height=height, seed=seed)


def written(folder: pathlib.Path, frames: List[bytes]) -> List[str]:
    paths = []
    for i, content in enumerate(frames):
        path = folder / f'{i:04}.raw'
        path.write_bytes(content)
        paths.append(str(path))
    return paths


@pytest.fixture(scope='module')
def client() -> Iterator[Any]:
    """Two worker processes of one thread each."""
    with cluster_of_two() as connected:
        yield connected


@contextlib.contextmanager
def cluster_of_two() -> Iterator[Any]:
    import distributed

    make: Any = distributed  # without types
    with make.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                           memory_limit=0) as cluster, make.Client(cluster) as connected:
        yield connected


def planes(paths: List[str], name: str = 'merged') -> Any:
    return numpy.stack([getattr(orvacam.read(path), name) for path in paths])


# ---- Stacks


@pytest.mark.parametrize('method', METHODS)
@pytest.mark.parametrize('dtype', ['float32', 'float64', 'uint16'])
def test_a_stack_is_that_of_numpy_and_of_the_stack(night: List[str], method: str, dtype: str) -> None:
    if (method, dtype) == ('sum', 'uint16'):
        with pytest.raises(ValueError, match='sum'):
            orvacam.stack(night, method, dtype=dtype)
        return
    result = orvacam.stack(night, method, dtype=dtype)
    values = planes(night).astype(numpy.float64)
    by_hand = {'mean': values.sum(axis=0) / 12, 'sum': values.sum(axis=0), 'median': numpy.median(values, axis=0),
               'min': values.min(axis=0), 'max': values.max(axis=0)}
    assert result.dtype == dtype and result.shape == values.shape[1:]
    if method in by_hand:
        assert numpy.array_equal(result, by_hand[method].astype(dtype))
    with orvacam.Stack(method) as one:
        for path in night:
            one.add(path)
        if dtype != 'float64':
            assert numpy.array_equal(result, one.result(dtype))


@pytest.mark.parametrize('method', METHODS)
def test_a_cluster_gives_the_same_bits(night: List[str], client: Any, method: str) -> None:
    here, there = orvacam.stack(night, method), orvacam.stack(night, method, client=client)
    assert here.dtype == there.dtype and here.tobytes() == there.tobytes()


def test_little_memory_means_bands_and_the_same_bits(night: List[str], client: Any) -> None:
    kind = _series._kind_of(night[0], None)
    for method in METHODS:
        whole = orvacam.stack(night, method)
        tight = kind.frame_bytes + 96 * (16 * 3 if method in ('mean', 'sum') else 6 if method in ('min', 'max') else 40) * 10
        plan, _ = _series._stack_plan(night, kind, method, tight, (1, 1))
        assert len([key for key in plan if isinstance(key, tuple) and key[1] in ('part', 'rows')]) == 7  # 10 rows of 64
        assert orvacam.stack(night, method, memory=tight).tobytes() == whole.tobytes()
        assert orvacam.stack(night, method, memory=tight, client=client).tobytes() == whole.tobytes()
        with pytest.raises(ValueError, match=r'needs \d+ bytes'):
            orvacam.stack(night, method, memory=kind.frame_bytes)


def test_frames_are_read_once_a_pass(night: List[str], monkeypatch: pytest.MonkeyPatch) -> None:
    seen: List[str] = []

    def read(path: str) -> orvacam.Frame:
        seen.append(path)
        return orvacam.read(path)

    monkeypatch.setattr(_series, 'read', read)
    for method in METHODS:
        seen.clear()
        orvacam.stack(night, method)
        assert seen == night
    seen.clear()
    kind = _series._kind_of(night[0], None)
    orvacam.stack(night, 'median', memory=kind.frame_bytes + 96 * 40 * 32)  # two bands
    assert seen == night * 2
    seen.clear()
    orvacam.statistics(night)
    assert seen == night


def test_a_stack_takes_any_plane(night: List[str]) -> None:
    for plane in ('low', 'high', 'merged'):
        assert numpy.array_equal(orvacam.stack(night, 'max', plane, 'uint16'), planes(night, plane).max(axis=0))
    with pytest.raises(ValueError, match="no plane 'image'"):
        orvacam.stack(night, plane='image')


def test_what_cannot_be_stacked_is_said(night: List[str], tmp_path: pathlib.Path, client: Any) -> None:
    cut, other = tmp_path / 'cut.raw', tmp_path / 'other.raw'
    cut.write_bytes(pathlib.Path(night[0]).read_bytes()[:3000])
    other.write_bytes(simulated(1, width=64))
    for where in (None, client):
        for method in ('mean', 'max', 'median'):
            with pytest.raises(orvacam.Truncated, match='cut.raw') as caught:
                orvacam.stack([*night, str(cut)], method, client=where)
            assert caught.value.path == str(cut)
            with pytest.raises(orvacam.Mismatch, match='other.raw'):
                orvacam.stack([*night, str(other)], method, client=where)
            with pytest.raises(FileNotFoundError, match='none.raw'):
                orvacam.stack([*night, str(tmp_path / 'none.raw')], method, client=where)
    wrongs: List[Tuple[Dict[str, Any], str]] = [({'method': 'mode'}, 'no method'), ({'dtype': 'int8'}, 'dtype'),
                                                ({'memory': 'much'}, 'memory')]
    for wrong, what in wrongs:
        with pytest.raises(ValueError, match=what):
            orvacam.stack(night, **wrong)
    with pytest.raises(ValueError, match='no frames'):
        orvacam.stack([])
    with pytest.raises(TypeError):
        orvacam.stack(night[0])


def test_units_of_memory() -> None:
    units: List[Tuple[Any, int]] = [('1GiB', 2**30), ('500 MB', 500_000_000), ('64M', 2**26), ('1.5k', 1536), (123, 123),
                                    ('9' * 400, 2**63 - 1), (2**70, 2**63 - 1)]
    for text, count in units:
        assert _series._bytes_of(text) == count
    for wrong in ('', 'GiB', '1 QiB', '-1', '1e9'):
        with pytest.raises(ValueError):
            _series._bytes_of(wrong)


# ---- A night


def test_statistics_are_a_row_per_plane_in_order(night: List[str], tmp_path: pathlib.Path, client: Any) -> None:
    cut = tmp_path / 'cut.raw'
    cut.write_bytes(pathlib.Path(night[0]).read_bytes()[:3000])
    paths = [night[1], str(cut), str(tmp_path / 'none.raw'), night[0]]
    rows = orvacam.statistics(paths)
    assert [(row['path'], row['plane']) for row in rows] == [
        *((night[1], plane) for plane in ('low', 'high', 'merged')), (str(cut), None), (paths[2], None),
        *((night[0], plane) for plane in ('low', 'high', 'merged'))]
    merged = orvacam.read(night[1]).merged
    row = rows[2]
    assert (row['count'], row['minimum'], row['maximum']) == (merged.size, merged.min(), merged.max())
    assert row['mean'] == pytest.approx(merged.mean()) and row['deviation'] == pytest.approx(merged.std())
    assert row['error'] is None and row['exposure_seconds'] == 1.0 and row['time'].dtype == 'datetime64[ns]'
    assert 'ends at byte 3000' in rows[3]['error'] and rows[3]['exposure_seconds'] == 1.0
    assert rows[4]['error'].endswith('No such file or directory') and rows[4]['mean'] is None
    assert orvacam.statistics(paths, client) == rows
    assert orvacam.statistics([]) == []


# ---- Lazily


def test_a_series_is_lazy_and_right(night: List[str], client: Any) -> None:
    series = orvacam.open_series(night)
    assert (series.shape, series.dtype, series.chunks[0]) == ((12, 64, 96), numpy.uint16, (1,) * 12)
    whole = planes(night)
    assert numpy.array_equal(series.compute(scheduler='threads'), whole)
    assert numpy.array_equal(client.compute(series.max(axis=0)).result(), whole.max(axis=0))
    assert numpy.array_equal(orvacam.open_series(night, 'low')[3].compute(scheduler='sync'), planes(night, 'low')[3])


def test_a_bad_frame_raises_when_it_is_computed(night: List[str], tmp_path: pathlib.Path) -> None:
    bad = [tmp_path / name for name in ('cut.raw', 'text.raw', 'small.raw', 'single.raw')]
    bad[0].write_bytes(pathlib.Path(night[0]).read_bytes()[:3000])
    bad[1].write_text('no frame')
    bad[2].write_bytes(simulated(1, width=64))
    bad[3].write_bytes(orvacam.simulate('GSENSE400', mode='single', width=96, height=64))
    series = orvacam.open_series([night[0], *map(str, bad), str(tmp_path / 'none.raw'), night[1]])
    assert numpy.array_equal(series[-1].compute(scheduler='sync'), planes(night[1:2])[0])
    kinds: List[Type[orvacam.Error]] = [orvacam.Truncated, orvacam.NotAFrame, orvacam.Mismatch, orvacam.Mismatch]
    for i, (path, kind) in enumerate(zip(bad, kinds)):
        with pytest.raises(kind) as caught:
            series[i + 1].compute(scheduler='sync')
        assert caught.value.path == str(path)
    with pytest.raises(FileNotFoundError, match='none.raw'):
        series[5].compute(scheduler='sync')
    with pytest.raises(ValueError):
        orvacam.open_series([])
    with pytest.raises(ValueError, match="no plane 'image'"):
        orvacam.open_series(night, 'image')


# ---- As many as a survey has


def test_plans_grow_linearly() -> None:
    """Tasks and names in a plan, for n frames and for twice as many, whatever the method and the memory."""
    kind = _series._Kind(b'', 'merged', (4096, 4096), 50_000_000)

    def tasks(method: str, count: int) -> Tuple[int, int]:
        plan, _ = _series._stack_plan([f'{i}.raw' for i in range(count)], kind, method, 2**30, (2, 1))
        words = sum(len(value.names) if isinstance(value, _series._Paths) else 1 for value in plan.values())
        return len(plan), words

    for method in METHODS:
        some, twice, many = (tasks(method, n) for n in (1000, 2000, 16000))
        for i in range(2):
            assert twice[i] <= 2.1 * some[i] and many[i] <= 17 * some[i], method
    for count in (1000, 2000, 16000):
        plan, _ = _series._statistics_plan([f'{i}.raw' for i in range(count)], (2, 1))
        assert len(plan) <= count / 32 + 2


def test_a_series_of_many_frames_has_a_task_a_frame(night: List[str]) -> None:
    for count in (500, 1000):
        assert len(dict(orvacam.open_series(night[:1] * count).__dask_graph__())) == count


def test_two_thousand_small_frames(tmp_path: pathlib.Path, client: Any) -> None:
    contents = [orvacam.simulate('GSENSE400', mode='single', width=16, height=8, seed=seed) for seed in range(20)]
    paths = written(tmp_path, contents * 100)
    rows = orvacam.statistics(paths, client)
    assert [row['path'] for row in rows] == paths and rows[-20:] == orvacam.statistics(paths[-20:])
    for method in ('sum', 'median'):
        few = numpy.stack([orvacam.read(content).image for content in contents]).astype(numpy.float64)
        by_hand = few.sum(axis=0) * 100 if method == 'sum' else numpy.median(few, axis=0)
        assert numpy.array_equal(orvacam.stack(paths, method, dtype='float64', client=client), by_hand)


def test_a_worker_killed_in_the_middle_changes_nothing(tmp_path: pathlib.Path) -> None:
    paths = written(tmp_path, [simulated(seed) for seed in range(4)]) * 150
    kind = _series._kind_of(paths[0], None)
    memory = kind.frame_bytes + 96 * (2 * len(paths) + 16) * 8  # eight bands
    whole = {method: orvacam.stack(paths, method) for method in ('mean', 'median')}
    with cluster_of_two() as client:
        before = set(client.run(os.getpid).values())
        results: Dict[str, Any] = {}

        def work() -> None:
            for method in whole:
                results[method] = orvacam.stack(paths, method, memory=memory, client=client)

        thread = threading.Thread(target=work)
        thread.start()
        while not any(client.processing().values()):  # until work has begun
            time.sleep(0.005)
        os.kill(sorted(before)[0], signal.SIGKILL)
        thread.join(120)
        assert not thread.is_alive()
        client.wait_for_workers(2, timeout=60)
        assert set(client.run(os.getpid).values()) != before  # one is new: it was killed
    for method, result in whole.items():
        assert results[method].tobytes() == result.tobytes()


MEASURE = '''
import pathlib, re, sys
import numpy, orvacam
paths = [sys.argv[1]] * int(sys.argv[2])
orvacam.stack(paths[:2], sys.argv[3])
def peak(): return int(re.search(r'VmHWM:\\s+(\\d+)', pathlib.Path('/proc/self/status').read_text())[1]) * 1024
before = peak()
orvacam.stack(paths, sys.argv[3], memory=int(sys.argv[4]))
print(peak() - before)
'''


def test_the_memory_is_held(tmp_path: pathlib.Path) -> None:
    """200 frames are 200 times 384 KiB, or 75 MiB, of pixels; 24 MiB are allowed."""
    path = tmp_path / 'a.raw'
    path.write_bytes(simulated(1, width=512, height=384))
    limit = 24 * 2**20
    run = subprocess.run([sys.executable, '-c', MEASURE, str(path), '200', 'median', str(limit)], capture_output=True,
                         text=True, check=True)
    assert 2**20 < int(run.stdout) <= limit


def peak() -> int:
    """The most memory that this process had at a time, in bytes."""
    match = re.search(r'VmHWM:\s+(\d+)', pathlib.Path('/proc/self/status').read_text())
    assert match is not None
    return int(match[1]) * 1024


def test_the_memory_of_each_worker_is_held(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'a.raw'
    path.write_bytes(simulated(1, width=512, height=384))
    limit = 24 * 2**20
    with cluster_of_two() as client:
        client.run(orvacam.stack, [str(path)] * 2, 'median')  # what is imported on first use
        before = client.run(peak)
        for method in ('mean', 'median'):
            orvacam.stack([str(path)] * 200, method, memory=limit, client=client)
        after = client.run(peak)
    assert all(after[worker] - before[worker] <= limit for worker in before)
    assert max(after[worker] - before[worker] for worker in before) > 2**20
