#!/usr/bin/env python3
"""Conversion of many frames by one job and by two; prints seconds of wall time and how many times as fast two are.

usage: jobs_compare.py ORVACAM [FRAMES [SIDE [ROUNDS [FORMAT...]]]]

Each figure is the median of the rounds, in turns. Both must make the same files, byte for byte. "plain reads and
writes" is what the machine itself gives: one process and two that read the frames and write as many bytes as
uncompressed files have, flushed and renamed like them, and do nothing else. Files lie where TMPDIR says; in memory they
say more of the program than on a disk. Two processors have to be free.
"""
import json
import multiprocessing
import os
import pathlib
import subprocess
import sys
import tempfile
import time

ORVACAM = pathlib.Path(sys.argv[1]).resolve()
FRAMES, SIDE, ROUNDS = (int(sys.argv[i]) if len(sys.argv) > i else default for i, default in ((2, 48), (3, 2048), (4, 3)))
CHOSEN = sys.argv[5:]
PLAIN = 'plain reads and writes'
FORMATS = {PLAIN: None, 'fits': [], 'npy': ['-f', 'npy'], 'rice': ['--compress', 'rice'], 'png16': ['-f', 'png16']}


def run(folder, *arguments):
    subprocess.run([ORVACAM, *arguments, '--quiet'], check=True, cwd=folder)


def copied(frames, output):
    """Reads each frame and writes three planes, as conversion does, from the same memory every time."""
    frame, plane = bytearray(frames[0].stat().st_size), memoryview(bytes(2 * SIDE * SIDE))
    for path in frames:
        with open(path, 'rb', buffering=0) as file:
            file.readinto(frame)
        for name in ('LOW', 'HIGH', 'MERGED'):
            hidden = output / f'.{path.stem}_{name}'
            with open(hidden, 'xb', buffering=0) as file:
                file.write(plane)
                os.fsync(file.fileno())
            hidden.rename(output / f'{path.stem}_{name}')


def plain(folder, jobs):
    """Wall time, and the files of the same reads and writes."""
    output = folder / f'out{jobs}'
    output.mkdir(exist_ok=True)
    frames = sorted((folder / 'in').iterdir())
    start = time.perf_counter()
    workers = [multiprocessing.Process(target=copied, args=(frames[i::jobs], output)) for i in range(jobs)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    seconds = time.perf_counter() - start
    assert all(worker.exitcode == 0 for worker in workers)
    return seconds, sorted(output.iterdir())


def converted(folder, jobs, arguments):
    """Wall time, and the files of a conversion."""
    output = folder / f'out{jobs}'
    start = time.perf_counter()
    run(folder, 'convert', 'in', '-o', output.name, '--jobs', str(jobs), '--overwrite', '--reproducible', *arguments)
    seconds = time.perf_counter() - start
    files = sorted(output.iterdir())
    return seconds, files


def compared(folder, arguments, times):
    """One round: adds wall times, by jobs."""
    files = {}
    for jobs, seconds in times.items():
        taken, files[jobs] = plain(folder, jobs) if arguments is None else converted(folder, jobs, arguments)
        seconds.append(taken)
    assert files[1] and [f.name for f in files[1]] == [f.name for f in files[2]]
    assert all(a.read_bytes() == b.read_bytes() for a, b in zip(files[1], files[2]))
    for file in files[1] + files[2]:
        file.unlink()


def figure(times):
    one, two = (sorted(times[jobs])[ROUNDS // 2] for jobs in (1, 2))
    return {'one': round(one, 3), 'two': round(two, 3), 'times as fast': round(one / two, 2)}


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / 'in').mkdir()
        for i in range(FRAMES):
            run(folder, 'simulate', 'GSENSE4040', '--mode', 'hdr', '--width', str(SIDE), '--height', str(SIDE),
                '--frame-number', str(i), '-o', f'in/frame{i:04}.raw')
        times = {name: {1: [], 2: []} for name in CHOSEN or FORMATS}
        for _ in range(ROUNDS):
            for name, taken in times.items():
                compared(folder, FORMATS[name], taken)
    print(json.dumps({'frames': FRAMES, 'side': SIDE, 'wall': {name: figure(times[name]) for name in times}}, indent=1))


main()
