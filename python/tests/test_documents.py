"""The samples of the documents run as they stand."""

import pathlib
import re
import subprocess
from typing import Any, Dict

import pytest

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
