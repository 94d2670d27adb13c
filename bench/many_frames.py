"""What many frames cost in processor time: the figures of docs/scale.md.

    PYTHONPATH=build/dev/python /usr/bin/python3 bench/many_frames.py [FRAMES]

Processor time, not wall time: other work on the machine changes it little.
"""

import os
import sys
import tempfile
import time

import orvacam
from orvacam import _series


def cost(what, work, frames, size):
    begin = time.process_time()
    work()
    seconds = (time.process_time() - begin) / frames
    print(f'{what:28} {seconds:8.3f} s a frame {size / seconds / 1e6:8.0f} MB/s a core')


def overhead(tasks):
    """Seconds of wall time that a task takes which does next to nothing, on one worker."""
    from distributed import Client, LocalCluster

    with LocalCluster(n_workers=1, threads_per_worker=1, dashboard_address=None, memory_limit=0) as cluster:
        with Client(cluster) as client:
            plan = {('task', i): (int, i) for i in range(tasks)}
            plan['all'] = (len, list(plan))
            begin = time.monotonic()
            client.get(plan, 'all')
            print(f'{"a task of a cluster":28} {(time.monotonic() - begin) / tasks * 1000:8.2f} ms')


def main():
    frames = int(sys.argv[1]) if len(sys.argv) > 1 else 20
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, 'frame.raw')
        with open(path, 'wb') as file:
            file.write(orvacam.simulate('GSENSE4040', mode='hdr', width=4096, height=4096))
        size, paths = os.path.getsize(path), [path] * frames
        decoder = orvacam.Decoder()
        cost('read', lambda: [orvacam.read(p) for p in paths], frames, size)
        cost('read, decode merged',
             lambda: [decoder.decode(orvacam.read(p), planes=('merged',)) for p in paths], frames, size)
        cost('statistics', lambda: orvacam.statistics(paths), frames, size)
        cost('stack: mean', lambda: orvacam.stack(paths, memory='4GiB'), frames, size)
        cost('stack: max', lambda: orvacam.stack(paths, 'max'), frames, size)
        for method in ('median', 'sigma'):
            cost(f'stack: {method}, one pass', lambda: orvacam.stack(paths, method, memory='8GiB'), frames, size)
        kind = _series._kind_of(path, None)
        for count in (100, 1000, 10000):
            plan, _ = _series._stack_plan(['a'] * count, kind, 'median', 2**30, (1, 1))
            print(f'median of {count} frames in 1 GiB: {len(plan) - 2} passes')
        overhead(2000)


if __name__ == '__main__':
    main()
