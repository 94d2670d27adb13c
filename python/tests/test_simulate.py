"""Simulated frames."""

import subprocess
import pathlib
from typing import Any

import pytest

import orvacam
from conftest import MODES, build_dir


def test_are_those_of_the_program(tmp_path: pathlib.Path) -> None:
    for sensor, mode in MODES:
        path = tmp_path / f'{sensor}-{mode}.raw'
        subprocess.run([build_dir() / 'tools' / 'orvacam' / 'orvacam', 'simulate', sensor, '--mode', mode, '--width', '32',
                        '--height', '20', '--seed', '9', '--header-version', '4', '-o', path], check=True)
        assert orvacam.simulate(sensor, mode=mode, width=32, height=20, seed=9) == path.read_bytes()


def test_another_seed_is_another_sky() -> None:
    frames = {orvacam.simulate('gsense400', seed=seed, width=16, height=8) for seed in (1, 1, 2)}
    assert len(frames) == 2


@pytest.mark.parametrize('arguments,error', [
    (('NOTHING',), ValueError), (('GSENSE400', 'cms'), ValueError), (('CCD4320', 'hdr'), ValueError),
    (('GSENSE400', 'nothing'), ValueError), (('GSENSE400', 'hdr', 0), ValueError), ((3,), TypeError),
    (('GSENSE400', 'hdr', 16385), ValueError), (('GSENSE400', 'hdr', -1), ValueError), (('GSENSE400', 3), TypeError),
    (('GSENSE400', 'hdr', 64, 2**70), ValueError), (('GSENSE400', 'hdr', 64.0), TypeError),
    (('GSENSE400', 'hdr', 64, 64, -1), ValueError), (('GSENSE400', 'hdr', 64, 64, 'x'), TypeError),
])
def test_wrong_arguments_are_refused(arguments: Any, error: Any) -> None:
    with pytest.raises(error):
        orvacam.simulate(*arguments)


def test_sensors_are_named() -> None:
    assert orvacam.sensors()[:4] == ['GSENSE400', 'GSENSE2020', 'GSENSE4040', 'GSENSE6060']
    assert 'GENERIC' in orvacam.sensors()
