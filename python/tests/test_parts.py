"""Stacks that are saved in parts and combined: by the package and by the program."""

import errno
import os
import pathlib
import subprocess
import sys
from typing import Any, List

import numpy
import pytest

import orvacam
from conftest import assert_same, build_dir


def program(*arguments: Any) -> None:
    subprocess.run([build_dir() / 'tools' / 'orvacam' / 'orvacam', *arguments], check=True)


@pytest.fixture(scope='module')
def night(tmp_path_factory: pytest.TempPathFactory) -> List[pathlib.Path]:
    folder = tmp_path_factory.mktemp('night')
    paths = [folder / f'{number}.raw' for number in range(5)]
    for number, path in enumerate(paths):
        path.write_bytes(orvacam.simulate('GSENSE400', mode='hdr', width=64, height=48, seed=number))
    return paths


def part(paths: List[pathlib.Path], to: pathlib.Path, **settings: Any) -> pathlib.Path:
    with orvacam.Stack(**settings) as stack:
        for path in paths:
            stack.add(path)
        stack.save(to)
    return to


def whole(paths: List[pathlib.Path], method: str = 'mean') -> orvacam.Stack:
    stack = orvacam.Stack(method)
    for path in paths:
        stack.add(path)
    return stack


@pytest.mark.parametrize('method', ['mean', 'sum'])
def test_parts_are_the_whole_bit_for_bit(method: str, night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    first = part(night[:2], tmp_path / 'a.fits', method=method)
    second = part(night[2:], tmp_path / 'b.fits')
    combined = orvacam.Stack.combine([first, str(second)], method=method)
    assert (combined.count, combined.method, combined.plane) == (5, method, 'merged')
    assert combined.header == orvacam.read_header(night[0])
    for dtype in ('float32', 'float64'):
        assert_same(combined.result(dtype), whole(night, method).result(dtype))
    combined.add(night[0].read_bytes() if method == 'sum' else orvacam.read(night[0]))
    assert combined.count == 6


def test_parts_of_package_and_program_go_together(night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    ours, theirs, out = part(night[:2], tmp_path / 'a.fits'), tmp_path / 'b.fits', tmp_path / 'mean.npy'
    program('stack', *night[2:], '--partial', theirs, '--quiet')
    program('stack', '--combine', ours, theirs, '-o', out, '--quiet')
    expected = whole(night).result()
    assert_same(numpy.load(out), expected)
    assert_same(orvacam.Stack.combine([theirs, ours]).result(), expected)


def test_corrections_are_noted(night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    bias = (numpy.full((48, 64), 5, numpy.uint16),) * 2
    plain = part(night[:1], tmp_path / 'plain.fits')
    corrected = part(night[1:2], tmp_path / 'a.fits', decoder=orvacam.Decoder(bias=bias))
    alike = part(night[2:3], tmp_path / 'b.fits', decoder=orvacam.Decoder(bias=bias))
    assert orvacam.Stack.combine([corrected, alike]).count == 2
    with pytest.raises(orvacam.Mismatch):
        orvacam.Stack.combine([plain, corrected])


def test_no_frame_counts_twice(night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    first, second = part(night[:2], tmp_path / 'a.fits'), part(night[1:3], tmp_path / 'b.fits')
    with pytest.raises(orvacam.Mismatch) as caught:
        orvacam.Stack.combine([first, second])
    assert caught.value.path == str(second)


def test_other_parts_are_refused(night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    good = part(night[:2], tmp_path / 'a.fits')
    low = part(night[2:3], tmp_path / 'low.fits', plane='low')
    with pytest.raises(orvacam.Mismatch):
        orvacam.Stack.combine([good, low])
    damaged = tmp_path / 'damaged.fits'
    data = bytearray(good.read_bytes())
    data[9000] ^= 1
    damaged.write_bytes(data)
    for path in (damaged, night[0]):
        with pytest.raises(orvacam.NotAFrame) as caught:
            orvacam.Stack.combine([path])
        assert caught.value.path == str(path)
    for paths, error in (([tmp_path / 'none'], FileNotFoundError), ([], ValueError), ([3], TypeError),
                         (str(good), TypeError), ([tmp_path], IsADirectoryError)):
        with pytest.raises(error):
            orvacam.Stack.combine(paths)  # type: ignore[arg-type]
    with pytest.raises(ValueError):
        orvacam.Stack.combine([good], method='median')


def test_unlike_parts_are_taken_when_that_is_allowed(night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    forced = part(night[:1], tmp_path / 'a.fits', allow_unlike=True)
    with pytest.raises(orvacam.Mismatch):
        orvacam.Stack.combine([forced])
    assert orvacam.Stack.combine([forced], allow_unlike=True).count == 1


def test_only_means_and_sums_with_digests_are_saved(night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    target = tmp_path / 'x.fits'
    for settings in ({'method': 'median'}, {'method': 'sigma'}, {'digest': False}, {}):
        with orvacam.Stack(**settings) as stack:  # type: ignore[arg-type]
            if settings:
                stack.add(night[0])
            with pytest.raises(ValueError):
                stack.save(target)
    assert os.listdir(tmp_path) == []


def test_files_appear_whole_or_not_at_all(night: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    target = tmp_path / 'a.fits'
    with orvacam.Stack() as stack:
        stack.add(night[0])
        stack.save(target)
        before = target.read_bytes()
        stack.add(night[1])
        with pytest.raises(FileExistsError) as caught:
            stack.save(target)
        assert caught.value.filename == str(target) and target.read_bytes() == before
        stack.save(target, overwrite=True)
        with pytest.raises(FileNotFoundError):
            stack.save(tmp_path / 'none' / 'a.fits')
        with pytest.raises(IsADirectoryError):
            stack.save(tmp_path, overwrite=True)
    assert orvacam.Stack.combine([target]).count == 2
    assert os.listdir(tmp_path) == ['a.fits']


@pytest.mark.parametrize('links', [True, False])
def test_a_file_that_appears_meanwhile_is_not_replaced(links: bool, night: List[pathlib.Path], tmp_path: pathlib.Path,
                                                       monkeypatch: pytest.MonkeyPatch) -> None:
    def refuse(*names: Any) -> None:
        raise PermissionError(errno.EPERM, 'no links here')

    if not links:
        monkeypatch.setattr(os, 'link', refuse)
    target = tmp_path / 'a.fits'
    with orvacam.Stack() as stack:
        stack.add(night[0])
        stack.save(target)
        saved = target.read_bytes()
        target.write_bytes(b'of another')
        monkeypatch.setattr(os.path, 'lexists', lambda path: False)  # it was not there a moment ago
        with pytest.raises(FileExistsError) as caught:
            stack.save(target)
        assert caught.value.filename == str(target) and target.read_bytes() == b'of another'
        stack.save(target, overwrite=True)
    assert target.read_bytes() == saved and os.listdir(tmp_path) == ['a.fits']


@pytest.mark.parametrize('method,by', [('median', numpy.median), ('min', numpy.min), ('max', numpy.max)])
def test_other_methods_are_those_of_numpy(method: str, by: Any, night: List[pathlib.Path]) -> None:
    expected = by(numpy.stack([orvacam.read(path).merged for path in night]), axis=0)
    assert_same(whole(night, method).result('float64'), expected.astype(float))


def test_clipping_takes_limits(night: List[pathlib.Path]) -> None:
    planes = numpy.stack([orvacam.read(path).high for path in night]).astype(float)
    for method, sigma in (('sigma', (100, 100)), ('winsorized', (100.0, 100.0))):
        with orvacam.Stack(method, plane='high', sigma=sigma) as stack:
            for path in night:
                stack.add(path)
            numpy.testing.assert_allclose(stack.result('float64'), planes.mean(axis=0), rtol=1e-15)
    for wrong in ((0, 3), (3, -1), (float('nan'), 3)):
        with pytest.raises(ValueError):
            orvacam.Stack('sigma', sigma=wrong)


LITTLE_MEMORY = '''
import pathlib, re, resource, sys
import orvacam
parts = [pathlib.Path(path) for path in sys.argv[1:]]
for seed, part in enumerate(parts):
    with orvacam.Stack() as stack:
        stack.add(orvacam.simulate('GSENSE400', mode='hdr', width=512, height=384, seed=seed))
        stack.save(part)
used = 1024 * int(re.search(r'VmSize:\\s+(\\d+)', pathlib.Path('/proc/self/status').read_text())[1])
limits, refused = resource.getrlimit(resource.RLIMIT_AS), 0
while True:
    resource.setrlimit(resource.RLIMIT_AS, (used + (refused << 18), limits[1]))
    try:
        whole = orvacam.Stack.combine(parts)
        break
    except MemoryError:
        refused += 1
    finally:
        resource.setrlimit(resource.RLIMIT_AS, limits)
assert whole.count == 2 and refused > 10, refused
'''


def test_parts_for_which_there_is_no_memory_are_not_called_damaged(tmp_path: pathlib.Path) -> None:
    """Wherever the memory ends: each piece is asked of the system."""
    subprocess.run([sys.executable, '-P', '-c', LITTLE_MEMORY, tmp_path / '1.fits', tmp_path / '2.fits'], check=True,
                   timeout=60, env={**os.environ, 'MALLOC_MMAP_THRESHOLD_': '65536', 'MALLOC_TRIM_THRESHOLD_': '0'})
