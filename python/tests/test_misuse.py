"""What callers get wrong: the error says what, in their words, and nothing is changed."""

import copy
import os
import pathlib
import re
from typing import Any, Dict, List, Type

import numpy
import pytest

import orvacam
from orvacam import _core
from orvacam._series import _kind_of

lib: Any = orvacam  #: without its types, which refuse most of this
ma: Any = numpy.ma


def plane(rows: int = 48, columns: int = 64) -> Any:
    return numpy.zeros((rows, columns), numpy.uint16)


def masked() -> Any:
    return ma.masked_array(plane(), mask=True)


#: What is called with the frame and its file, the error, and what it says.
WRONG: Dict[str, Any] = {
    'thresholds: one': (lambda f, p: f.decode(thresholds=3), TypeError, r'thresholds: a pair, \(high, difference\)'),
    'thresholds: three': (lambda f, p: f.decode(thresholds=(1, 2, 3)), ValueError, 'thresholds: a pair'),
    'bias: none of two': (lambda f, p: f.decode(bias=()), ValueError, r'bias: a pair, \(low, high\)'),
    'bias: masked': (lambda f, p: f.decode(bias=(masked(), masked())), TypeError, 'first bias frame is a masked array'),
    'bias: too large': (lambda f, p: f.decode(bias=(numpy.broadcast_to(numpy.uint16(1), (1 << 20, 1 << 20)), None)),
                        MemoryError, 'the first bias frame does not fit'),
    'out: masked': (lambda f, p: f.decode(out={'merged': masked()}), TypeError, "out.'merged'. is a masked array"),
    'out: an array': (lambda f, p: f.decode(out=plane()), TypeError, 'out is a mapping'),
    'dsnu: bytes': (lambda f, p: f.decode(dsnu=os.fsencode(p)), TypeError, 'a path is a str .* not bytes'),
    'header of bytes': (lambda f, p: lib.read_header(f.tobytes()), TypeError, 'a path is a str .* not bytes'),
    'list of bytes': (lambda f, p: lib.stack([f.tobytes()]), TypeError, 'a path is a str .* not bytes'),
    'no name': (lambda f, p: lib.read(''), FileNotFoundError, ": ''$"),
    'plane of a stack': (lambda f, p: lib.Stack(plane=3), TypeError, '^plane is a str, not int$'),
    'plane of a series': (lambda f, p: lib.stack([p], plane=3), TypeError, '^plane is a str, not int$'),
    'sigma': (lambda f, p: lib.Stack(sigma=3), TypeError, r'^sigma: a pair, \(low, high\)$'),
    'client of a stack': (lambda f, p: lib.stack([p], client='tcp://host'), TypeError, 'client is a .*not str'),
    'client of statistics': (lambda f, p: lib.statistics([p], client=3), TypeError, 'client is a .*not int'),
    'client of a calibration': (lambda f, p: lib.calibrate('bias', [p], client=3), TypeError, 'client is a'),
    'pedestal': (lambda f, p: lib.calibrate('dark', [p], pedestal=1.5), TypeError, 'pedestal is an int'),
    'ratio': (lambda f, p: lib.calibrate('dark', [p], ratio=[1]), TypeError, 'ratio is a number'),
    'a frame twice': (lambda f, p: lib.calibrate('bias', [p, p]), orvacam.Mismatch, 'is given twice'),
    'no frame for astropy': (lambda f, p: lib.to_ccddata(p), TypeError, 'is a Frame, .* not str'),
    'header of a merge': (lambda f, p: lib.Decoder().merge_info(p), TypeError, 'the header is a Header, not str'),
    'no memory': (lambda f, p: lib.stack([p], memory=1), ValueError, 'memory: a stack by mean needs'),
    'method': (lambda f, p: lib.stack([p], method=[]), TypeError, 'method is a str, not list'),
    'lacks the plane': (lambda f, p: f.image, AttributeError, "hdr.raw: the frame has no plane 'image'; it has low, "),
}


@pytest.mark.parametrize('name', WRONG)
def test_a_wrong_argument_is_named(name: str, hdr_file: pathlib.Path) -> None:
    call, error, text = WRONG[name]
    with pytest.raises(error, match=text):
        call(orvacam.read(hdr_file), str(hdr_file))


def test_bytes_that_cannot_be_had_say_why(hdr: bytes) -> None:
    view = memoryview(bytearray(hdr))
    view.release()
    with pytest.raises(ValueError, match='released memoryview'):
        orvacam.read(view)
    with pytest.raises(ValueError, match='not C-contiguous'):
        orvacam.read(memoryview(hdr)[::2])


def test_copies_of_what_never_changes_are_the_same_object(hdr: bytes) -> None:
    frame = orvacam.read(hdr)
    for thing in (frame, frame.header):
        assert copy.copy(thing) is thing and copy.deepcopy([thing])[0] is thing


def test_a_part_with_a_frame_twice_is_refused_when_it_is_saved(hdr: bytes, tmp_path: pathlib.Path) -> None:
    stack = orvacam.Stack()
    stack.add(hdr)
    stack.add(hdr)
    with pytest.raises(ValueError, match='added twice'):
        stack.save(tmp_path / 'part.fits')
    assert stack.count == 2 and os.listdir(tmp_path) == []


def test_files_that_cannot_be_written_are_named_as_they_were_asked_for(hdr: bytes, tmp_path: pathlib.Path) -> None:
    stack = orvacam.Stack()
    stack.add(hdr)
    for path, overwrite, error in ((tmp_path / 'none' / 'p.fits', False, FileNotFoundError),
                                   (tmp_path, True, IsADirectoryError)):
        with pytest.raises(error) as caught:
            stack.save(path, overwrite=overwrite)
        assert caught.value.filename == str(path) and os.listdir(tmp_path) == []


@pytest.mark.parametrize('name', ['\u20ac' * 83 + '.fits', 'a' * 255, '\udcff' * 255])
def test_names_may_be_as_long_as_the_system_takes_them(name: str, hdr: bytes, tmp_path: pathlib.Path) -> None:
    assert 250 <= len(os.fsencode(name)) <= 255
    stack = orvacam.Stack()
    stack.add(hdr)
    stack.save(tmp_path / name)
    assert os.listdir(tmp_path) == [name]
    assert orvacam.Stack.combine([tmp_path / name]).count == 1


def test_objects_of_the_module_are_made_by_it_alone() -> None:
    kinds: List[Any] = [kind for kind in vars(_core).values() if isinstance(kind, type)]
    assert {'Header', 'Frame', 'Decoder', 'Stack', 'SavedStack', 'Pixels16'} <= {kind.__name__ for kind in kinds}
    for kind in kinds:
        for make in (kind, kind.__new__, object.__new__):
            with pytest.raises(TypeError):
                make(*([] if make is kind else [kind]))


def test_a_stack_does_not_go_into_itself() -> None:
    stack = _core.Stack.make(0, True)
    with pytest.raises(ValueError, match='into itself'):
        stack.merge(stack, False, b'')


def test_parts_that_are_no_files_are_answered_at_once(tmp_path: pathlib.Path) -> None:
    pipe = tmp_path / 'pipe'
    os.mkfifo(pipe)
    with pytest.raises(OSError, match='no regular file'):
        orvacam.Stack.combine([pipe])
    with pytest.raises(FileNotFoundError) as caught:
        orvacam.Stack.combine([tmp_path / 'none'])
    assert caught.value.filename == str(tmp_path / 'none')


def test_what_a_cluster_logs_names_the_frame_and_is_short(hdr_file: pathlib.Path) -> None:
    hdr_file.write_bytes(hdr_file.read_bytes()[:-1])
    with pytest.raises(orvacam.Truncated) as caught:
        orvacam.read(hdr_file).merged
    assert re.match(rf"Truncated\('{re.escape(str(hdr_file))}: needs 9600 bytes ", repr(caught.value))
    assert len(repr(_kind_of(str(hdr_file), None))) < 200


def test_a_stack_says_what_it_is(hdr: bytes) -> None:
    with orvacam.Stack('median') as stack:
        stack.add(hdr)
        assert repr(stack) == '<orvacam.Stack by median of 1 frames>'
    assert repr(stack) == '<orvacam.Stack by median, closed>'


@pytest.fixture
def biases(tmp_path: pathlib.Path) -> List[pathlib.Path]:
    paths = [tmp_path / f'{seed}.raw' for seed in (1, 2)]
    for seed, path in enumerate(paths):
        path.write_bytes(orvacam.simulate('GSENSE400', mode='hdr', width=64, height=48, seed=seed))
    return paths


def test_a_calibration_is_saved_whole_and_shown_short(biases: List[pathlib.Path], tmp_path: pathlib.Path) -> None:
    made = orvacam.calibrate('bias', biases)
    made.save(tmp_path / 'bias.ref')
    assert (tmp_path / 'bias.ref').read_bytes() == made.file
    with pytest.raises(FileExistsError):
        made.save(tmp_path / 'bias.ref')
    with pytest.raises(FileNotFoundError):
        made.save(tmp_path / 'none' / 'bias.ref')
    assert len(os.listdir(tmp_path)) == 3
    assert re.match(r"Calibration\(kind='bias', frames=2, planes=", repr(made)) and len(repr(made)) < 5000


def test_a_calibration_by_a_link_to_the_same_frame_is_refused(biases: List[pathlib.Path]) -> None:
    link = biases[0].with_name('link.raw')
    link.symlink_to(biases[0])
    with pytest.raises(orvacam.Mismatch, match=f'{re.escape(str(link))}: is the same file as'):
        orvacam.calibrate('bias', [*biases, link])


@pytest.mark.parametrize('first', [0, 1])
def test_a_cut_frame_of_a_calibration_says_that_it_is(first: int, biases: List[pathlib.Path]) -> None:
    biases[first].write_bytes(biases[first].read_bytes()[:-1])
    kind: Type[Exception] = orvacam.Truncated
    with pytest.raises(kind, match=re.escape(str(biases[first]))):
        orvacam.calibrate('bias', biases)
