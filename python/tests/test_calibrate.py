"""Calibrations through the package: those of the program, here and on a cluster."""

import contextlib
import math
import os
import pathlib
import subprocess
from typing import Any, Dict, Iterator, List

import numpy
import pytest

import orvacam

TOOL = pathlib.Path(os.environ['ORVACAM_BUILD_DIR']) / 'tools' / 'orvacam' / 'orvacam'


def tool(*words: Any) -> None:
    subprocess.run([TOOL, *map(str, words)], check=True, capture_output=True)


@pytest.fixture(scope='module')
def camera(tmp_path_factory: pytest.TempPathFactory) -> Dict[str, Any]:
    """Frames of a simulated camera with hot pixels, and the program's files of them."""
    folder = tmp_path_factory.mktemp('camera')
    frames: Dict[str, Any] = {'folder': folder}
    for kind, more in (('bias', ()), ('dark', ('--exposure', 1, '--hot-pixels', 5)),
                       ('flat', ('--exposure', 1, '--level', 8000))):
        frames[kind] = []
        for i in range(6):
            path = folder / f'{kind}{i}.raw'
            tool('simulate', 'GSENSE400', '--mode', 'hdr', '--type', kind, '--width', 96, '--height', 64,
                 '--frame-number', i, *more, '-o', path)
            frames[kind].append(str(path))
    tool('calibrate', 'bias', *frames['bias'], '-o', folder / 'bias.ref')
    tool('calibrate', 'dark', *frames['dark'], '-o', folder / 'dsnu.ref')
    tool('calibrate', 'flat', *frames['flat'], '--dark', folder / 'dsnu.ref', '-o', folder / 'prnu.ref')
    return frames


def made(camera: Dict[str, Any], kind: str, **more: Any) -> orvacam.Calibration:
    if kind == 'flat':
        more['dark'] = camera['folder'] / 'dsnu.ref'
    return orvacam.calibrate(kind, camera[kind], **more)


@contextlib.contextmanager
def two_workers() -> Iterator[Any]:
    import distributed

    make: Any = distributed  # without types
    with make.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                           memory_limit=0) as cluster, make.Client(cluster) as client:
        yield client


def test_files_are_those_of_the_program(camera: Dict[str, Any], tmp_path: pathlib.Path) -> None:
    for kind, name in (('bias', 'bias.ref'), ('dark', 'dsnu.ref'), ('flat', 'prnu.ref')):
        calibration = made(camera, kind)
        assert calibration.file == (camera['folder'] / name).read_bytes() and calibration.frames == 6
        calibration.save(tmp_path / name)
        assert (tmp_path / name).read_bytes() == calibration.file
        with pytest.raises(FileExistsError):
            calibration.save(tmp_path / name)


def test_numbers_are_those_of_the_frames(camera: Dict[str, Any]) -> None:
    dark = made(camera, 'dark')
    assert list(dark.planes) == list(dark.masks) == ['low', 'high'] and dark.pedestal > 0
    for name, numbers in dark.planes.items():
        mean = numpy.stack([getattr(orvacam.read(path), name) for path in camera['dark']]).mean()
        assert numbers['level_adu'] == pytest.approx(mean, abs=0.2)
        assert numbers['hot_pixels'] == (dark.masks[name] & 1).astype(bool).sum()
        listed = [(x, y) for plane, x, y, kind, _ in dark.odd_pixels if (plane, kind) == (name, 'hot')]
        assert len(listed) == numbers['hot_pixels'] and all(dark.masks[name][y, x] & 1 for x, y in listed)
    assert dark.planes['high']['hot_pixels'] >= 5
    assert math.isnan(dark.measured_ratio[0]) and dark.ratio == dark.ratio_of_gains
    flat = made(camera, 'flat', ratio='measured')
    assert flat.measured_ratio[0] == flat.ratio == pytest.approx(flat.ratio_of_gains, rel=0.02)


def test_a_cluster_makes_the_same_bytes(camera: Dict[str, Any], monkeypatch: pytest.MonkeyPatch) -> None:
    from orvacam import _calibrate

    plans: List[int] = []
    plan = _calibrate._plan

    def counted(source: Dict[str, Any], bands: List[slice]) -> Any:
        plans.append(len(bands))
        return plan(source, bands)

    monkeypatch.setattr(_calibrate, '_plan', counted)
    with two_workers() as client:
        for kind in ('bias', 'dark', 'flat'):
            here = made(camera, kind)
            for memory in ('1GiB', '100KiB'):
                there = made(camera, kind, memory=memory, client=client)
                assert there.file == here.file and there.warnings == here.warnings
                assert there.odd_pixels == here.odd_pixels and repr(there.planes) == repr(here.planes)
        with pytest.raises(orvacam.Mismatch) as caught:
            orvacam.calibrate('dark', [*camera['dark'], camera['flat'][0], str(camera['folder'] / 'bias.ref')], client=client)
        assert caught.value.path is not None
    # 102400 bytes less a frame (18816, and 8 a pixel) and one row as double (8 for each of 6 frames, and 64 a pixel)
    # hold 4 of the 64 rows of 2 planes (2 for each frame, and 16 a pixel).
    assert plans[:2] == [1, 16]


def test_what_does_not_go_together_is_refused(camera: Dict[str, Any]) -> None:
    wrong: List[Any] = [('mode', {}), ('flat', {}), ('flat', {'dark': 'a', 'bias': 'b'}), ('dark', {'dark': 'a'}),
                        ('bias', {'pedestal': 3}), ('dark', {'pedestal': -1}), ('dark', {'pedestal': 4096}),
                        ('bias', {'ratio': 2.0}), ('dark', {'ratio': 'measured'}), ('dark', {'ratio': 64.0}), ('dark', {'ratio': 'table'})]
    for kind, more in wrong:
        with pytest.raises(ValueError):
            orvacam.calibrate(kind, camera['dark'], **more)
    with pytest.raises(ValueError, match='no frames'):
        orvacam.calibrate('dark', [])
    with pytest.raises(orvacam.Mismatch, match='one frame') as caught:
        orvacam.calibrate('dark', camera['dark'][:1])
    assert caught.value.path == camera['dark'][0]
    with pytest.raises(FileNotFoundError, match='none.raw'):
        orvacam.calibrate('dark', [camera['dark'][0], 'none.raw'])
    with pytest.raises(orvacam.Mismatch):
        orvacam.calibrate('dark', [camera['dark'][0], camera['dark'][1], str(camera['folder'] / 'dsnu.ref')])


def test_bands_that_are_not_whole_are_refused(camera: Dict[str, Any]) -> None:
    """The module is the trust boundary: what comes back from workers is checked."""
    from orvacam import _core

    source = {'kind': 'bias', 'paths': [path.encode() for path in camera['bias']], 'memory': 2**30, 'dark': b'',
              'bias': b'', 'pedestal': None, 'ratio': None}
    top, rest = _core.calibrate_rows(source, 0, 10), _core.calibrate_rows(source, 10, 54)
    assert _core.calibrate_finish(source, [top, rest])['file'] == made(camera, 'bias').file
    means, blinking, sums = top[2][0]
    for bands in ([top], [rest, top], [top, top], [(0, 10, [(means[:-1], blinking, sums), top[2][1]]), rest],
                  [(0, 11, top[2]), rest], [(0, 10, top[2][:1]), rest], [(70, 10, top[2]), rest]):
        with pytest.raises(ValueError):
            _core.calibrate_finish(source, bands)
    for first, rows in ((0, 0), (64, 1), (60, 5), (2**32 - 1, 2)):
        with pytest.raises(IndexError):
            _core.calibrate_rows(source, first, rows)
