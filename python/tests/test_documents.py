"""The samples of the documents run as they stand."""

import glob
import pathlib
import re
import subprocess
import sys
import types
from typing import Any, Dict

import pytest

import orvacam
from conftest import build_dir

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def test_samples_of_the_guide_run(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch,
                                  capsys: pytest.CaptureFixture[str]) -> None:
    monkeypatch.chdir(tmp_path)
    subprocess.run([build_dir() / 'tools' / 'orvacam' / 'orvacam', 'simulate', 'GSENSE4040', '--mode', 'hdr', '--width', '64',
                    '--height', '48', '-o', 'm31_0007.raw', '--dsnu', 'd.ref', '--prnu', 'p.ref'], check=True)
    blocks = re.findall(r'```python\n(.*?)```', (ROOT / 'docs' / 'python.md').read_text(), re.S)
    assert len(blocks) == 3
    names: Dict[str, Any] = {'paths': ['m31_0007.raw']}
    for block in blocks:
        exec(block, names)
    assert 'GSENSE4040' in capsys.readouterr().out


def test_the_sample_of_the_page_on_many_machines_runs(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    """On this machine, with frames of its own in place of the folders that it names; pandas may be missing."""
    for seed in (1, 2):
        frame = orvacam.simulate('GSENSE400', mode='hdr', width=64, height=48, seed=seed)
        (tmp_path / f'{seed}.raw').write_bytes(frame)
    paths = sorted(glob.glob(str(tmp_path / '*.raw')))
    monkeypatch.setattr(glob, 'glob', lambda pattern: paths)
    stand_ins: Dict[str, Any] = {name: types.ModuleType(name) for name in ('distributed', 'pandas')}
    stand_ins['distributed'].Client = lambda scheduler_file: None
    stand_ins['pandas'].DataFrame = list
    for name, module in stand_ins.items():
        monkeypatch.setitem(sys.modules, name, module)
    (block,) = re.findall(r'```python\n(.*?)```', (ROOT / 'docs' / 'scale.md').read_text(), re.S)
    names: Dict[str, Any] = {}
    exec(block, names)
    assert names['mean'].shape == names['dark'].shape == names['cube'].shape[1:] == (48, 64)
    assert len(names['table']) == 6 and names['cal'].frames == 2
