"""Frames in napari and ginga: the contracts of their plugins, without their windows."""

import importlib
import importlib.metadata
import logging
import os
import pathlib
from typing import Any, Dict, List

import numpy
import pytest
import yaml

import orvacam


@pytest.fixture
def frame(tmp_path: pathlib.Path) -> str:
    path = tmp_path / 'm31.raw'
    path.write_bytes(orvacam.simulate('GSENSE400', mode='hdr', width=96, height=64))
    return str(path)


def manifest() -> Dict[str, Any]:
    """As napari finds it: by the entry point's value, a file in the package."""
    (entry,) = (e for e in importlib.metadata.entry_points(group='napari.manifest') if e.name == 'orvacam')
    module, file = entry.value.split(':')
    package = importlib.import_module(module)
    assert package.__file__ is not None
    content = yaml.safe_load((pathlib.Path(package.__file__).parent / file).read_text())
    assert isinstance(content, dict)
    return content


def reader_of(content: Dict[str, Any]) -> Any:
    """The function that the manifest's reader command names."""
    (reader,) = content['contributions']['readers']
    (command,) = (c for c in content['contributions']['commands'] if c['id'] == reader['command'])
    module, name = command['python_name'].split(':')
    return getattr(importlib.import_module(module), name)


def test_the_manifest_is_one() -> None:
    content = manifest()
    assert content['name'] == importlib.metadata.distribution('orvacam').metadata['Name']
    assert all(c['id'].startswith(content['name'] + '.') for c in content['contributions']['commands'])
    (reader,) = content['contributions']['readers']
    assert reader['filename_patterns'] == ['*.raw'] and reader['accepts_directories'] is False


def test_napari_gets_a_layer_per_plane(frame: str) -> None:
    get_reader = reader_of(manifest())
    read = get_reader(frame)
    layers = read(frame)
    assert [settings['name'] for _, settings, _ in layers] == ['m31 low', 'm31 high', 'm31 merged']
    for data, settings, kind in layers:
        plane = settings['name'].split()[1]
        assert kind == 'image' and numpy.array_equal(data, getattr(orvacam.read(frame), plane))
        assert settings['visible'] == (plane == 'merged')
        low, high = settings['contrast_limits']
        assert low < high and settings['metadata']['orvacam']['ExposureTime'] == 100000
        # What napari's add_image takes, and nothing else.
        assert set(settings) <= {'name', 'contrast_limits', 'colormap', 'visible', 'metadata'}


def test_napari_gets_several_frames_as_one_lazy_layer(frame: str, tmp_path: pathlib.Path) -> None:
    other = tmp_path / 'm32.raw'
    other.write_bytes(orvacam.simulate('GSENSE400', mode='hdr', width=96, height=64, seed=2))
    ((data, settings, kind),) = reader_of(manifest())([frame, str(other)])([frame, str(other)])
    assert data.shape == (2, 64, 96) and not isinstance(data, numpy.ndarray) and kind == 'image'
    assert numpy.array_equal(data[1].compute(scheduler='sync'), orvacam.read(other).merged)
    assert settings['name'] == '2 frames merged'


def test_napari_is_told_what_is_no_frame(frame: str, tmp_path: pathlib.Path) -> None:
    get_reader = reader_of(manifest())
    text = tmp_path / 'notes.raw'
    text.write_text('seeing')
    pipe = tmp_path / 'pipe.raw'
    os.mkfifo(pipe)
    for wrong in (str(text), str(tmp_path), str(tmp_path / 'none.raw'), 'a\0.raw', [frame, str(text)], [], str(pipe)):
        assert get_reader(wrong) is None
    cut = tmp_path / 'cut.raw'
    cut.write_bytes(pathlib.Path(frame).read_bytes()[:3000])
    with pytest.raises(orvacam.Truncated):
        get_reader(str(cut))(str(cut))


def test_ginga_opens_a_frame_by_its_extension(frame: str) -> None:
    import orvacam.ginga
    from ginga.util import loader

    orvacam.ginga.register()
    orvacam.ginga.register()  # once more does no harm
    logger = logging.getLogger('test')
    image = loader.load_data(frame, logger=logger)
    assert numpy.array_equal(image.get_data(), orvacam.read(frame).merged)
    assert image.get_header()['DETNAM'] == 'GSENSE400' and image.get('name') == 'm31[merged]'
    assert len(loader.get_openers(orvacam.ginga.MIME_TYPE)) == 1
    for index in ('low', 'LOW', 0):
        assert numpy.array_equal(loader.load_data(frame, idx=index, logger=logger).get_data(), orvacam.read(frame).low)


def test_ginga_lists_planes_and_says_what_is_wrong(frame: str, tmp_path: pathlib.Path) -> None:
    from orvacam.ginga import FrameHandler

    handler = FrameHandler(None)
    assert len(handler) == 0
    with pytest.raises(ValueError, match='no frame is open'):
        handler.load_idx(None)
    with handler.open_file(frame) as opened:
        assert len(opened) == 3 and list(opened.get_directory()) == ['low', 'high', 'merged']
        assert opened.get_matching_indexes('[low, merged]') == ['low', 'merged']
        assert opened.get_matching_indexes('[*]') == ['low', 'high', 'merged']
        assert opened.get_matching_indexes('') == ['merged']
        assert [image.get('idx') for image in opened] == ['low', 'high', 'merged']
        shown: List[Any] = []
        opened.load_idx_cont('[high]', shown.append)
        assert numpy.array_equal(shown[0].get_data(), orvacam.read(frame).high)
        for wrong in (3, -1, 'image'):
            with pytest.raises(ValueError, match='no plane'):
                opened.load_idx(wrong)
    cut = tmp_path / 'cut.raw'
    cut.write_bytes(pathlib.Path(frame).read_bytes()[:3000])
    with pytest.raises(orvacam.Truncated):
        FrameHandler(None).load_file(str(cut))
