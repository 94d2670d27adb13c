#!/usr/bin/env python3
"""Conversion of many frames by one job and by two; prints seconds of wall time and how many times as fast two are.

usage: jobs_compare.py ORVACAM [FRAMES [SIDE [ROUNDS]]]

Each figure is the median of the rounds, in turns. Both must make the same files, byte for byte. Files lie where TMPDIR
says; in memory they say more of the program than on a disk. Two processors have to be free.
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import time

ORVACAM = sys.argv[1]
FRAMES, SIDE, ROUNDS = (int(sys.argv[i]) if len(sys.argv) > i else default for i, default in ((2, 48), (3, 2048), (4, 3)))
FORMATS = {'fits': [], 'fits, rice': ['--compress', 'rice'], 'npy': ['-f', 'npy'], 'png16': ['-f', 'png16']}


def run(folder, *arguments):
    subprocess.run([ORVACAM, *arguments, '--quiet'], check=True, cwd=folder)


def converted(folder, jobs, arguments):
    """Wall time, and the files of a conversion."""
    output = folder / f'out{jobs}'
    start = time.perf_counter()
    run(folder, 'convert', 'in', '-o', output.name, '--jobs', str(jobs), '--overwrite', '--reproducible', *arguments)
    seconds = time.perf_counter() - start
    files = sorted(output.iterdir())
    return seconds, files


def compared(folder, arguments):
    times = {1: [], 2: []}
    for _ in range(ROUNDS):
        files = {}
        for jobs, seconds in times.items():
            taken, files[jobs] = converted(folder, jobs, arguments)
            seconds.append(taken)
        assert files[1] and [f.name for f in files[1]] == [f.name for f in files[2]]
        assert all(a.read_bytes() == b.read_bytes() for a, b in zip(files[1], files[2]))
        for file in files[1] + files[2]:
            file.unlink()
    one, two = (sorted(times[jobs])[ROUNDS // 2] for jobs in (1, 2))
    return {'one': round(one, 3), 'two': round(two, 3), 'times as fast': round(one / two, 2)}


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / 'in').mkdir()
        for i in range(FRAMES):
            run(folder, 'simulate', 'GSENSE4040', '--mode', 'hdr', '--width', str(SIDE), '--height', str(SIDE),
                '--frame-number', str(i), '-o', f'in/frame{i:04}.raw')
        figures = {name: compared(folder, arguments) for name, arguments in FORMATS.items()}
    print(json.dumps({'frames': FRAMES, 'side': SIDE, 'wall': figures}, indent=1))


main()
