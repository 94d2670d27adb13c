"""Pickles, forks, other interpreters, and memory that comes back."""

import copy
import gc
import multiprocessing
import os
import pathlib
import pickle
import resource
import signal
import subprocess
import sys
import threading
import tracemalloc
from typing import Any, Callable

import numpy
import pytest

import orvacam
from conftest import assert_same


def test_what_is_sent_between_processes_can_be_pickled(hdr: bytes, hdr_file: pathlib.Path) -> None:
    for frame in (orvacam.read(hdr), orvacam.read(hdr_file)):
        decoded = frame.decode(histograms=True)
        other = pickle.loads(pickle.dumps(frame))
        assert (other.tobytes(), other.path, other.planes) == (hdr, frame.path, frame.planes)
        assert_same(other.merged, frame.merged)
        assert pickle.loads(pickle.dumps(frame.header)) == frame.header
        assert hash(pickle.loads(pickle.dumps(frame.header))) == hash(frame.header)
        for name, header in decoded.headers.items():
            restored = pickle.loads(pickle.dumps(header))
            assert restored == header != frame.header and restored.tobytes() == header.tobytes()
            assert restored.temperature_celsius == -19.5
        assert pickle.loads(pickle.dumps(decoded.statistics)) == decoded.statistics
        assert copy.deepcopy(frame).tobytes() == hdr
    findings = orvacam.read(hdr[:-1]).check()
    assert pickle.loads(pickle.dumps(findings)) == findings


def test_errors_can_be_pickled(hdr: bytes, hdr_file: pathlib.Path) -> None:
    hdr_file.write_bytes(hdr[:-1])
    with pytest.raises(orvacam.Truncated) as caught:
        orvacam.read(hdr_file).merged
    other = pickle.loads(pickle.dumps(caught.value))
    assert type(other) is orvacam.Truncated and str(other) == str(caught.value)
    assert (other.reason, other.path, other.needed, other.available) == ('truncated', str(hdr_file), len(hdr),
                                                                         len(hdr) - 1)
    with pytest.raises(orvacam.Truncated) as again:
        pickle.loads(pickle.dumps(orvacam.read(hdr_file))).merged
    assert again.value.path == str(hdr_file)
    for kind in (orvacam.Error, orvacam.NotAFrame, orvacam.Mismatch, orvacam.BadGeometry, orvacam.UnsupportedSensor):
        assert type(pickle.loads(pickle.dumps(kind('text')))) is kind and issubclass(kind, orvacam.Error)


@pytest.mark.parametrize('make', [orvacam.Decoder, orvacam.Stack])
def test_decoders_and_stacks_cannot_be_pickled(make: Callable[[], Any]) -> None:
    with pytest.raises(TypeError):
        pickle.dumps(make())
    with pytest.raises(TypeError):
        copy.copy(make())


def in_child(work: Callable[[], bool]) -> bool:
    """Whether the work is well done in a forked process, within 20 seconds."""
    context = multiprocessing.get_context('fork')
    child = context.Process(target=lambda: os._exit(0 if work() else 1))
    child.start()
    child.join(20)
    if child.exitcode is None:
        child.kill()
        child.join()
    return child.exitcode == 0


def test_everything_works_after_a_fork(hdr: bytes) -> None:
    frame, decoder, stack = orvacam.read(hdr), orvacam.Decoder(), orvacam.Stack()
    expected = frame.merged.copy()
    decoder.decode(frame)
    stack.add(frame)

    def work() -> bool:
        stack.add(frame)
        planes = (decoder.decode(frame).merged, orvacam.read(hdr).merged, frame.merged, stack.result('uint16'))
        return all(numpy.array_equal(plane, expected) for plane in planes if plane is not None)

    assert in_child(work)
    assert stack.count == 1


def test_a_fork_while_another_thread_decodes_does_not_hang() -> None:
    frame = orvacam.read(orvacam.simulate('GSENSE400', mode='hdr', width=512, height=384))
    decoder, stop = orvacam.Decoder(), threading.Event()

    def decode() -> None:
        while not stop.is_set():
            decoder.decode(frame)

    def work() -> bool:
        try:
            decoder.decode(frame)
        except RuntimeError as error:  # the parent's other thread was using it
            if 'forked' not in str(error):
                return False
        return numpy.array_equal(orvacam.read(frame.tobytes()).low, frame.low)

    expected = frame.low.copy()
    assert expected.size
    thread = threading.Thread(target=decode)
    thread.start()
    try:
        assert all([in_child(work) for _ in range(8)])
    finally:
        stop.set()
        thread.join()


def test_threads_that_come_after_a_fork_wait_for_each_other() -> None:
    frame = orvacam.read(orvacam.simulate('GSENSE400', mode='hdr', width=256, height=192))
    decoder, expected = orvacam.Decoder(), frame.merged.copy()

    def work() -> bool:
        same = []

        def decode() -> None:
            for _ in range(20):
                merged = decoder.decode(frame, planes=('merged',)).merged
                same.append(merged is not None and numpy.array_equal(merged, expected))

        threads = [threading.Thread(target=decode) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return len(same) == 80 and all(same)

    assert in_child(work)


LEAVES_THREADS = '''
import os, threading, time
import orvacam
data = orvacam.simulate('GSENSE400', mode='hdr', width=512, height=384)
frame, decoder, stack = orvacam.read(data), orvacam.Decoder(), orvacam.Stack()
stack.add(frame)
paths = [os.path.join({folder!r}, name) for name in 'ab']
for path in paths:
    with open(path, 'wb') as file:
        file.write(data)
begun = threading.Event()

def work():
    while True:
        {work}
        begun.set()

for _ in range(2):
    threading.Thread(target=work, daemon=True).start()
begun.wait()
time.sleep({wait})
'''


@pytest.mark.parametrize('work', ['decoder.decode(frame)', 'orvacam.read(data).merged', 'stack.add(frame)',
                                  'stack.result()', 'orvacam.read(bytearray(data))',
                                  'orvacam.calibrate("bias", paths)'])
def test_the_interpreter_ends_while_threads_are_at_work(work: str, tmp_path: pathlib.Path) -> None:
    children = []
    for i in range(2):
        folder = tmp_path / str(i)
        folder.mkdir()
        program = LEAVES_THREADS.format(work=work, wait=i / 500, folder=str(folder))
        children.append(subprocess.Popen([sys.executable, '-c', program], stderr=subprocess.PIPE))
    for child in children:
        _, errors = child.communicate(timeout=120)
        assert (child.returncode, errors) == (0, b'')


def test_a_calibration_can_be_interrupted(tmp_path: pathlib.Path) -> None:
    pixels = orvacam.simulate('GSENSE400', mode='hdr', width=1024, height=512)
    paths = [tmp_path / f'{i}.raw' for i in range(40)]
    for path in paths:
        path.write_bytes(pixels)
    asked = []

    def stop(number: int, frame: Any) -> None:
        asked.append(number)
        raise KeyboardInterrupt

    before = signal.signal(signal.SIGALRM, stop)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.1)
        with pytest.raises(KeyboardInterrupt):
            orvacam.calibrate('bias', paths)
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert asked == [signal.SIGALRM]
    assert orvacam.read(paths[0]).merged.shape == (512, 1024)


SUBINTERPRETER = '''
import sys
if {first}: import orvacam
import _xxsubinterpreters as interpreters
other = interpreters.create()
interpreters.run_string(other, """
try:
    import orvacam
except ImportError as error:
    assert 'main interpreter' in str(error), error
else:
    raise SystemExit('it was imported')
""")
print('refused')
'''


@pytest.mark.parametrize('first', [True, False])
def test_other_interpreters_are_refused(first: bool) -> None:
    """numpy itself does not work there."""
    done = subprocess.run([sys.executable, '-P', '-W', 'ignore', '-c', SUBINTERPRETER.format(first=first)],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert done.stdout == 'refused\n', done.stderr


def resident() -> int:
    with open('/proc/self/statm') as file:
        return int(file.read().split()[1]) * resource.getpagesize()


def test_a_hundred_thousand_decodes_leave_nothing_behind() -> None:
    data = orvacam.simulate('GSENSE400', mode='hdr', width=16, height=8)
    cut = data[:-1]
    decoder = orvacam.Decoder()
    memory = numpy.empty((8, 16), numpy.uint16)

    def work(times: int) -> None:
        for number in range(times):
            frame = orvacam.read(data)
            decoder.decode(frame)
            decoder.decode(frame, planes=('merged',), statistics=True, out={'merged': memory})
            if number % 16 == 0:
                frame.merged
                frame.decode(bias=(memory, memory), histograms=number % 256 == 0)
                bytes(memoryview(frame.header.tobytes()))
                with pytest.raises(ValueError):
                    decoder.decode(frame, out={'low': memory[1:]})
                with pytest.raises(orvacam.Truncated):
                    orvacam.read(cut).low

    work(2000)
    gc.collect()
    before = resident()
    work(48000)
    gc.collect()
    assert resident() - before < 1 << 20
    tracemalloc.start()
    try:
        work(300)
        gc.collect()
        first = tracemalloc.get_traced_memory()[0]
        work(2000)
        gc.collect()
        assert tracemalloc.get_traced_memory()[0] - first < 20000
    finally:
        tracemalloc.stop()


def test_arrays_keep_their_memory_and_let_it_go() -> None:
    data = orvacam.simulate('GSENSE400', mode='hdr', width=1024, height=1024)
    orvacam.read(data).merged
    gc.collect()
    before = resident()
    for _ in range(20):
        plane = orvacam.read(data).merged
        assert plane[5, 5] > 0
    del plane
    gc.collect()
    assert resident() - before < 16 << 20
