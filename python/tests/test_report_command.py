"""The program's report: what it hands over, and what it says where it cannot."""

import os
import pathlib
import subprocess
import sys
from typing import Any

import orvacam

TOOL = pathlib.Path(os.environ['ORVACAM_BUILD_DIR']) / 'tools' / 'orvacam' / 'orvacam'


def tool(*words: Any, python: str = sys.executable, **more: Any) -> 'subprocess.CompletedProcess[str]':
    return subprocess.run(
        [TOOL, 'report', *words], capture_output=True, text=True, env={**os.environ, 'ORVACAM_PYTHON': python}, **more
    )


def night(folder: pathlib.Path) -> None:
    folder.mkdir()
    for seed in (1, 2):
        content = orvacam.simulate('GSENSE400', mode='single', width=64, height=48, seed=seed)
        (folder / f'{seed}.raw').write_bytes(content)
    (folder / 'notes.txt').write_text('seeing 1.2"')


def test_a_folder_becomes_a_page(tmp_path: pathlib.Path) -> None:
    night(tmp_path / 'n')
    # What lies in the working folder is not imported.
    (tmp_path / 'numpy.py').write_text("raise SystemExit('the wrong numpy')")
    run = tool('n', '-o', 'night.html', '--compare', 'n/1.raw,n/2.raw', cwd=tmp_path)
    assert (run.returncode, run.stderr, run.stdout) == (0, '', '')
    page = (tmp_path / 'night.html').read_text()
    assert '<h2>The night</h2>' in page and '<h2>Two frames</h2>' in page and 'notes.txt' not in page
    assert 'orvacam report n/1.raw n/2.raw -o night.html --compare n/1.raw,n/2.raw' in page


def test_a_frame_comes_from_standard_input(tmp_path: pathlib.Path) -> None:
    night(tmp_path / 'n')
    with open(tmp_path / 'n' / '1.raw', 'rb') as frame:
        run = tool('-', '-o', tmp_path / 'page.html', stdin=frame)
    assert run.returncode == 0 and 'GSENSE400' in (tmp_path / 'page.html').read_text()


def test_standard_input_that_never_ends_is_refused(tmp_path: pathlib.Path) -> None:
    frame = orvacam.simulate('GSENSE400', mode='hdr', width=256, height=192)
    sizeless = frame[:124] + b'\x12\x34' + frame[126:]
    page = tmp_path / 'page.html'
    for start, said in ((b'', 'does not start with "Meta"'), (frame, 'standard input: goes on behind its frame')):
        with subprocess.Popen(['cat', '-', '/dev/zero'], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as endless:
            assert endless.stdin is not None and endless.stdout is not None
            with endless.stdin as pipe:
                pipe.write(start)
            run = tool('-', '-o', page, stdin=endless.stdout)
            endless.stdout.close()
            endless.wait()
        assert run.returncode == 1 and said in run.stderr and not page.exists()
    (tmp_path / 'sizeless').write_bytes(sizeless)
    with open(tmp_path / 'sizeless', 'rb') as stream:
        assert tool('-', '-o', page, stdin=stream).returncode == 1
    assert 'Cannot be decoded' in page.read_text()


def test_one_bad_frame_of_a_night_is_a_row_and_an_exit_code(tmp_path: pathlib.Path) -> None:
    night(tmp_path / 'n')
    whole = (tmp_path / 'n' / '1.raw').read_bytes()
    (tmp_path / 'n' / '3.raw').write_bytes(whole[:2000])
    run = tool(tmp_path / 'n', '-o', tmp_path / 'night.html')
    assert run.returncode == 1 and run.stderr.startswith(f'orvacam: {tmp_path}/n/3.raw: ')
    assert '3.raw' in (tmp_path / 'night.html').read_text()


def test_what_is_wrong_is_said_before_anything_is_done(tmp_path: pathlib.Path) -> None:
    night(tmp_path / 'n')
    frame = tmp_path / 'n' / '1.raw'
    content = frame.read_bytes()
    assert tool(frame, '-o', frame).returncode == 2
    assert tool('-o', tmp_path / 'a.html', '--compare', frame, '--measure', tmp_path / 'm.json').returncode == 2
    assert tool('-o', tmp_path / 'a.html').returncode == 2
    assert tool(frame, '-o', tmp_path / 'a.html', '--comapre', 'x').returncode == 2
    assert tool(tmp_path / 'none', '-o', tmp_path / 'a.html').returncode == 1
    assert frame.read_bytes() == content and not (tmp_path / 'a.html').exists()


def test_a_thousand_frames_take_no_more_memory_than_ten(tmp_path: pathlib.Path) -> None:
    for seed in range(1000):
        frame = orvacam.simulate('GSENSE400', mode='hdr', width=32, height=24, seed=seed)
        (tmp_path / f'{seed:04}.raw').write_bytes(frame)

    def peak(count: int) -> int:
        names = [f'{seed:04}.raw' for seed in range(count)]
        words = [str(TOOL), 'report', *names, '-o', f'{count}.html']
        environment = {**os.environ, 'ORVACAM_PYTHON': sys.executable}
        with subprocess.Popen(words, cwd=tmp_path, env=environment) as run:
            _, status, used = os.wait4(run.pid, 0)
            run.returncode = os.waitstatus_to_exitcode(status)
        assert run.returncode == 0
        return int(used.ru_maxrss)

    few = peak(10)
    assert 20000 < few and peak(1000) <= 1.2 * few


def test_a_page_that_exists_stays(tmp_path: pathlib.Path) -> None:
    night(tmp_path / 'n')
    page = tmp_path / 'a.html'
    page.write_text('mine')
    assert tool(tmp_path / 'n' / '1.raw', '-o', page).returncode == 3 and page.read_text() == 'mine'


def test_a_missing_interpreter_or_package_says_what_to_install(tmp_path: pathlib.Path) -> None:
    night(tmp_path / 'n')
    frame = tmp_path / 'n' / '1.raw'
    run = tool(frame, '-o', tmp_path / 'a.html', python='/nowhere/python3')
    assert run.returncode == 1 and 'apt install python3-orvacam' in run.stderr and 'ORVACAM_PYTHON' in run.stderr
    bare = tmp_path / 'bare'
    subprocess.run([sys.executable, '-m', 'venv', '--without-pip', bare], check=True)
    run = tool(frame, '-o', tmp_path / 'a.html', python=str(bare / 'bin' / 'python'))
    assert run.returncode == 1 and 'apt install python3-orvacam' in run.stderr
