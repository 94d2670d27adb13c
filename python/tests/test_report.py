"""The page: its numbers against what the frames were made of, and what a browser shows of it."""

import json
import math
import pathlib
import re
import subprocess
import sys
from typing import Any, Dict, Iterator, List, Tuple

import numpy
import pytest

import orvacam
from conftest import assert_same, build_dir
from orvacam._report import LIMIT, evaluate, make_page, pictures
from orvacam._report.__main__ import main
from orvacam._report.frame import load






def hdr(seed: int = 1) -> bytes:
    return orvacam.simulate('GSENSE400', mode='hdr', width=320, height=240, seed=seed)


def plain() -> bytes:
    """One plane, quick to draw."""
    return orvacam.simulate('GSENSE400', mode='single', width=32, height=32)


def with_text(frame: bytes, old: bytes, new: bytes) -> bytes:
    """The frame with another text in its header, ended by a NUL."""
    at = frame.index(old)
    assert len(new) < 12
    return frame[:at] + new + b'\0' + frame[at + len(new) + 1:]


# ---- Numbers


def test_the_ratio_of_gains_is_found_without_bias() -> None:
    """high = 6.3 low + 5 of the same light, both with noise of their own and offsets of rows and columns."""
    random = numpy.random.default_rng(7)
    light = numpy.full((300, 400), 40.0)
    y, x = numpy.mgrid[:300, :400]
    for _ in range(60):
        cx, cy, flux = random.uniform(0, 400), random.uniform(0, 300), random.uniform(10, 500)
        light += flux * numpy.exp(-((x - cx) ** 2 + (y - cy) ** 2) / 8)
    columns = random.normal(0, 1, 400)
    low = numpy.clip(numpy.rint(light + columns + random.normal(0, 2, light.shape)), 0, 4095).astype(numpy.uint16)
    high = numpy.clip(numpy.rint(6.3 * light + 5 + random.normal(0, 8, light.shape)), 0, 4095).astype(numpy.uint16)
    fit = evaluate.fit_ratio(low, high, 3700)
    assert fit is not None
    assert abs(fit.ratio - 6.3) < 4 * fit.error and fit.error < 0.05
    # An ordinary line through the same pixels is too flat: the noise of the low plane is light to it.
    below = high < 3700
    assert numpy.polyfit(low[below].astype(float), high[below].astype(float), 1)[0] < 6.3 - 4 * fit.error


def test_a_flat_picture_tells_no_ratio() -> None:
    random = numpy.random.default_rng(3)
    low = random.poisson(100, (200, 200)).astype(numpy.uint16)
    high = random.poisson(630, (200, 200)).astype(numpy.uint16)
    assert evaluate.fit_ratio(low, high, 3700) is None
    assert evaluate.fit_ratio(low[:2], high[:2], 3700) is None


def test_the_stretch_brings_the_median_to_a_quarter() -> None:
    values = numpy.array([90, 100, 100, 110, 4095])
    counts = numpy.bincount(values, minlength=65536)
    stretch = evaluate.Stretch.of(counts, 4095.0)
    assert stretch.shadows == pytest.approx(100 - 2.8 * 1.4826 * 10)
    assert list(stretch.greys(numpy.array([0, 100, 4095, 65535]))) == [0, 64, 255, 255]
    flat = evaluate.Stretch.of(numpy.bincount([7], minlength=65536), 4095.0)
    assert list(flat.greys(numpy.array([0, 7, 9]))) == [0, 0, 0]
    line = evaluate.Stretch.of(numpy.bincount([10, 10, 10, 30], minlength=65536), 4095.0)  # no spread: straight
    assert list(line.greys(numpy.array([10, 20, 30]))) == [0, 128, 255]


@pytest.mark.parametrize('make', [
    lambda: orvacam.simulate('GSENSE400', mode='hdr', width=320, height=240, seed=4),
    lambda: orvacam.simulate('GSENSE4040', mode='16bit', width=160, height=120),
    lambda: orvacam.simulate('CCD230-42', mode='single', width=96, height=64),
    lambda: bytes(orvacam.simulate('GENERIC', width=32, height=32)[:-2048]) + bytes(2048),  # one value
    lambda: bytes(orvacam.simulate('GENERIC', width=32, height=32)[:-2048]) + bytes([0, 0, 9, 1] * 512),  # no spread
])
def test_the_stretch_is_that_of_the_programs_pictures(make: Any, tmp_path: pathlib.Path) -> None:
    from PIL import Image

    path = tmp_path / 'f.raw'
    path.write_bytes(make())
    subject = load(path)
    for plane in subject.planes:
        subprocess.run([build_dir() / 'tools' / 'orvacam' / 'orvacam', 'convert', path, '-o', tmp_path / plane,
                        '-f', 'png', '--crop', 'image', '--planes', plane], check=True)
        stretch = evaluate.Stretch.of(subject.counts(plane), subject.saturation[plane])
        (picture,) = (tmp_path / plane).iterdir()
        expected = numpy.asarray(Image.open(picture))
        numpy.testing.assert_array_equal(stretch.greys(subject.image(plane)), expected)
        # By a table or one by one.
        values = numpy.arange(65536, dtype=numpy.uint16)
        assert_same(stretch.greys(numpy.tile(values, 2))[:65536], stretch.greys(values.astype(float)))


def test_robust_sigma_is_that_of_pixels_or_counts() -> None:
    values = numpy.array([1, 2, 2, 3, 3, 3, 4, 9, 200])
    by_hand = 1.4826 * 1  # median 3; distances 2 1 1 0 0 0 1 6 197: median 1
    assert evaluate.robust_sigma(values) == pytest.approx(by_hand)
    assert evaluate.robust_sigma_of_counts(numpy.bincount(values)) == pytest.approx(by_hand)
    assert math.isnan(evaluate.robust_sigma(values[:0]))
    assert math.isnan(evaluate.robust_sigma_of_counts(numpy.zeros(4, int)))


def test_density_counts_every_pixel_once() -> None:
    low = numpy.array([[0, 1, 1, 4095]], numpy.uint16)
    high = numpy.array([[0, 7, 7, 65535]], numpy.uint16)
    density = evaluate.density(low, high, bins=8)
    assert density.counts.sum() == 4
    assert density.counts[0, 0] == 1 and density.counts[-1, -1] == 1 and density.counts.max() == 2


def test_read_noise_of_a_pair_is_that_of_one_frame() -> None:
    random = numpy.random.default_rng(5)
    scene = random.integers(100, 3000, (400, 500))
    a = (scene + numpy.rint(random.normal(0, 6, scene.shape))).astype(numpy.uint16)
    b = (scene + numpy.rint(random.normal(-1.5, 6, scene.shape))).astype(numpy.uint16)
    a[0, 0] = 65535  # a cosmic ray is no noise
    noise = evaluate.pair_noise('low', a, b)
    assert noise.noise == pytest.approx(6, rel=0.01) and noise.robust == pytest.approx(6, rel=0.15)
    assert 1.5 < noise.shift < 2.0


def test_references_have_mean_deviation_and_drift() -> None:
    plane = numpy.full((12, 20), 7, numpy.uint16)
    plane[2:10, :4] = (numpy.arange(8) * 3 + 100)[:, None]  # rises by 21 from the first row to the last
    found = {r.name: r for r in evaluate.references(plane, (slice(2, 10), slice(4, 18)))}
    assert list(found) == ['rows before', 'rows after', 'pixels before', 'pixels after']
    before = found['pixels before']
    assert [before.mean, before.drift, before.drift_error] == pytest.approx([110.5, 21.0, 0.0], abs=1e-9)
    assert found['rows after'].pixels.shape == (2, 20) and found['pixels after'].pixels.shape == (8, 2)
    assert evaluate.references(plane, (slice(0, 12), slice(0, 20))) == []


def test_pictures_stay_within_their_budget() -> None:
    noise = numpy.random.default_rng(2).integers(0, 65536, (512, 640)).astype(numpy.uint16)
    stretch = evaluate.Stretch(0, 65535, None)
    small, fine = pictures.within(noise, stretch, 20_000), pictures.within(noise, stretch, 10_000_000)
    assert len(small.uri) * 3 / 4 < 20_100 and small.scale > 1
    assert (fine.scale, fine.quality, fine.width, fine.height) == (1, 92, 640, 512)


# ---- The page


def page_of(*paths: pathlib.Path, **more: Any) -> str:
    failed, page = make_page([str(path) for path in paths], **more)
    assert not failed
    return page


def rows_of(page: str, caption: str) -> List[List[str]]:
    """The cells of the table with this caption."""
    table = next(t for t in re.findall(r'<table.*?</table>', page, re.S) if caption in t)
    return [re.findall(r'<t[hd][^>]*>(.*?)</t[hd]>', row, re.S) for row in re.findall(r'<tr.*?</tr>', table, re.S)]


def test_the_page_says_what_the_library_says(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'm31.raw'
    path.write_bytes(hdr())
    frame = orvacam.read(path)
    page = page_of(path)
    statistics = frame.decode(statistics=True).statistics
    levels = {row[0]: row for row in rows_of(page, 'Of the image region')[1:]}
    assert list(levels) == ['low', 'high', 'merged']
    for name, row in levels.items():
        s = statistics[name]
        assert row[1:3] == [f'{s.mean:.2f}', f'{s.deviation:.2f}'] and row[4] == str(s.mode)
        assert row[5] == f'{s.minimum.value} at {s.minimum.x}, {s.minimum.y}'
        assert row[7] == f'{s.clip_low}, {s.clip_high}'
    merge = orvacam.Decoder().merge_info(frame.header)
    assert merge is not None and f"<dd>{merge['gain_ratio']:.4f}</dd>" in page
    fitted = re.search(r'Ratio fitted</dt><dd>([\d.]+) ± ([\d.]+)', page)
    assert fitted is not None
    # The simulated camera's ratio, which the one in use is the floor of to 10 bits.
    assert abs(float(fitted[1]) - merge['gain_ratio']) < 4 * float(fitted[2]) + 1 / 1024
    assert frame.header.text().split('\n')[3] in page and 'Whole and sane' in page
    import hashlib

    assert hashlib.sha256(path.read_bytes()).hexdigest() in page


def test_all_keys_stand_with_unit_raw_value_and_keyword(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'm31.raw'
    path.write_bytes(hdr())
    header = orvacam.read_header(path)
    rows = {row[0]: row for row in rows_of(page_of(path), 'raw value')[1:]}
    assert list(rows) == list(header)
    assert rows['ExposureTime'] == ['ExposureTime', str(header['ExposureTime']), '10 µs', '<code>EXPTIME</code>', '1']
    assert rows['HDRMode'][1] == 'true' and rows['LDRGain'][3] == '<code>GAIN, GAINLOW</code>'


@pytest.mark.parametrize('sensor', ['GSENSE6060', 'CCD230-42', 'IMX183', 'GENERIC'])
def test_every_kind_of_frame_has_a_page(tmp_path: pathlib.Path, sensor: str) -> None:
    path = tmp_path / 'frame.raw'
    path.write_bytes(orvacam.simulate(sensor, mode='single', width=96, height=64))
    page = page_of(path)
    assert 'Levels' in page and 'no reference rows or pixels' in page and sensor in page
    assert ('High against low gain' in page) == (len(orvacam.read(path).planes) > 1)


def warmed(frame: bytes) -> bytes:
    """The frame with another temperature: the one byte of its header that check then speaks of."""
    for at in range(16, 156):
        changed = frame[:at] + bytes([frame[at] ^ 0x02]) + frame[at + 1:]
        if [finding.id for finding in orvacam.read(changed).check()] == ['temperature_off']:
            return changed
    raise AssertionError('no byte of the header is a temperature')


def test_what_is_off_is_coloured_and_said(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'warm.raw'
    path.write_bytes(warmed(hdr()))
    celsius = orvacam.read(path).header.temperature_celsius
    page = page_of(path)
    assert re.findall(r'<div class="tile off"><dt>(\w+)</dt><dd>([^<]*)', page) == [('Temperature', f'{celsius:.1f} '.replace('-', '−'))]
    assert 'Decodes, with 1 warning' in page and '<code>temperature_off</code>' in page


def test_a_frame_that_cannot_be_decoded_keeps_its_header(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'cut.raw'
    path.write_bytes(hdr()[:5000])
    failed, page = make_page([str(path)])
    assert [each.path for each in failed] == [str(path)]
    assert 'Cannot be decoded' in page and 'pixels_missing' in page and 'ExposureTime' in page
    assert 'class="viewer"' not in page


def test_texts_of_headers_and_names_stay_texts(tmp_path: pathlib.Path) -> None:
    evil = with_text(plain(), b'app 1.0', b'<script>x=1')
    path = tmp_path / '<img src=x onerror=alert(1)>$x_{2}$.raw'
    path.write_bytes(evil)
    assert '<script>' in str(orvacam.read(evil).header['AppInfoString'])
    other = tmp_path / 'b.raw'
    other.write_bytes(plain())
    alone = page_of(path)
    for page in (alone, page_of(path, other), page_of(compare=(str(path), str(other)))):
        assert page.count('<script>') == 1 and '<img src=x' not in page
        assert '&lt;img src=x' in page
    assert '&lt;script&gt;x=1' in alone


def test_no_text_commands_the_browser_or_turns_its_line_round(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'a\x1b[31m\u202egnp.raw'
    path.write_bytes(with_text(plain(), b'app 1.0', b'\x1b[2J\x07\xe2\x80\xae'))
    for page in (page_of(path), page_of(path, path)):
        assert re.search('[\x00-\x08\x0b-\x1f\x7f-\x9f\u202e]', page) is None
        assert 'a\ufffd[31m\ufffdgnp.raw' in page
    assert '\ufffd[2J\ufffd\ufffd' in page_of(path)


def test_a_name_that_is_no_text_is_shown(tmp_path: pathlib.Path) -> None:
    import os

    path = os.fsdecode(os.path.join(os.fsencode(tmp_path), b'm\xff31.raw'))
    with open(path, 'wb') as file:
        file.write(plain())
    failed, page = make_page([path], arguments=['orvacam', path])
    assert not failed and 'm?31.raw' in page


def test_several_frames_are_a_night_with_links(tmp_path: pathlib.Path) -> None:
    paths = []
    for i in range(6):
        paths.append(tmp_path / f'n{i}.raw')
        paths[-1].write_bytes(hdr(i) if i != 3 else b'no frame')
    failed, page = make_page([str(path) for path in paths])
    assert [(pathlib.Path(each.path).name) for each in failed] == ['n3.raw']
    rows = rows_of(page, 'Noise: difference')
    assert [re.sub('<.*?>', '', row[0]) for row in rows] == ['frame', *(path.name for path in paths)]
    median = float(numpy.median(orvacam.read(paths[0]).merged))
    assert rows[1][4] == f'{median:.1f}' and rows[4][4] == '–' and 'Meta' in rows[4][-1]
    for target in re.findall(r'<a href="#(\w+)">n', page):
        assert f'<article id="{target}"' in page
    assert len(re.findall(r'<article', page)) == 5


def test_a_large_frame_and_many_frames_stay_below_the_limit(tmp_path: pathlib.Path) -> None:
    large = tmp_path / 'large.raw'
    large.write_bytes(orvacam.simulate('GSENSE4040', mode='hdr', width=2048, height=2048))
    page = page_of(large)
    assert len(page.encode()) < LIMIT and 'data-scale="1"' in page
    small = tmp_path / 'small.raw'
    small.write_bytes(orvacam.simulate('GSENSE400', mode='single', width=32, height=32))
    many = page_of(*[small] * 120)
    assert len(many.encode()) < LIMIT and len(re.findall('<article', many)) == 120


def test_two_frames_are_compared(tmp_path: pathlib.Path) -> None:
    paths = [tmp_path / 'a.raw', tmp_path / 'b.raw']
    frames = [orvacam.simulate('GSENSE400', mode='hdr', width=128, height=96, seed=s) for s in (1, 1)]
    for path, content in zip(paths, frames):
        path.write_bytes(content)
    page = page_of(compare=(str(paths[0]), str(paths[1])))
    rows = rows_of(page, 'robust, ADU')
    assert rows[1][:4] == ['low, image', '0.000', '0.000', '0.000'] or rows[1][1] == '+0.000'
    paths[1].write_bytes(orvacam.simulate('GSENSE400', mode='hdr', width=96, height=96))
    with pytest.raises(orvacam.Mismatch, match='sizes'):
        make_page([], compare=(str(paths[0]), str(paths[1])))
    paths[1].write_bytes(frames[0][:3000])
    with pytest.raises(orvacam.Mismatch, match='decode'):
        make_page([], compare=(str(paths[0]), str(paths[1])))


def test_what_measure_found_is_shown(tmp_path: pathlib.Path) -> None:
    path = tmp_path / 'camera.json'
    path.write_text(json.dumps({
        'schema': 'orvacam.measure/1', 'frames': 44, 'ratio': {'table': 6.297, 'measured': 6.3, 'measured_error': 0.01},
        'planes': {'low': {'gain_e_per_adu': 0.83, 'gain_e_per_adu_error': 0.002, 'read_noise_e': None,
                           'notes': [{'field': 'gain', 'text': 'only <two> levels'}],
                           'dsnu_row_e': 1.0, 'dsnu_column_e': 2.0, 'dsnu_pixel_e': None,
                           'curve': [{'signal_adu': 10, 'excess_variance_adu2': 12, 'fitted': True,
                                      'excess_variance_adu2_error': 1, 'deviation_percent': 0.1},
                                     {'signal_adu': 100, 'excess_variance_adu2': 120, 'fitted': False,
                                      'excess_variance_adu2_error': None, 'deviation_percent': None}]},
                   'high': {'gain_e_per_adu': 0.132, 'read_noise_e': 1.5, 'read_noise_e_error': 0.1}}}))
    page = page_of(measure=(str(path),))
    rows = rows_of(page, 'one standard deviation')
    assert rows[0] == ['', 'low', 'high']
    assert rows[1] == ['gain, e⁻/ADU', '0.8300 ± 0.0020', '0.1320']
    assert rows[2] == ['read noise, e⁻', '–', '1.50 ± 0.10']
    assert '44 frames' in page and 'measured 6.300 ± 0.010' in page
    assert 'low: only &lt;two&gt; levels' in page and page.count('<svg') == 3
    for other in ('[]', '{"schema": "orvacam.stats/1"}', '{"schema": "orvacam.measure/1", "planes": [1]}'):
        path.write_text(other)
        with pytest.raises(ValueError, match='no output of measure'):
            make_page([], measure=(str(path),))
    for broken in (b'', b'{', b'[' * 100000, b'"\xed\xa0\x80"'):
        path.write_bytes(broken)
        with pytest.raises(ValueError, match='camera.json: is no JSON'):
            make_page([], measure=(str(path),))


def test_numbers_of_any_length_are_taken(tmp_path: pathlib.Path) -> None:
    path, long = tmp_path / 'camera.json', '9' * 400
    path.write_text('{"schema": "orvacam.measure/1", "ratio": {"table": %s, "measured": %s}, "planes": {"low": '
                    '{"gain_e_per_adu": %s, "hot_pixels": %s}}}' % (long, long, long, long))
    rows = rows_of(page_of(measure=(str(path),)), 'one standard deviation')
    assert rows[1:] == [['gain, e⁻/ADU', '–'], ['hot pixels', '–']]


# ---- As a program


def test_exit_codes(tmp_path: pathlib.Path, capsys: Any) -> None:
    frame, page = tmp_path / 'a.raw', tmp_path / 'a.html'
    frame.write_bytes(plain())
    assert main([str(frame), '-o', str(page)]) == 0
    before = page.read_bytes()
    assert main([str(frame), '-o', str(page)]) == 3 and page.read_bytes() == before
    assert main([str(tmp_path / 'none.raw'), '-o', str(page), '--overwrite']) == 1
    assert 'No such file' in capsys.readouterr().err
    assert main([str(frame), '-o', str(tmp_path / 'no' / 'a.html')]) == 3
    assert main(['-o', str(page), '--overwrite', '--compare', str(frame)]) == 2
    assert main(['-o', str(page), '--overwrite', '--measure', str(frame)]) == 1
    assert [path.name for path in sorted(tmp_path.iterdir())] == ['a.html', 'a.raw']
    orvacam.report(frame, page)
    assert b'a.raw' in page.read_bytes()


def test_a_missing_package_is_named(tmp_path: pathlib.Path) -> None:
    frame = tmp_path / 'a.raw'
    frame.write_bytes(hdr())
    code = ("import sys; sys.modules['matplotlib'] = None; import importlib.util as u; find = u.find_spec\n"
            "u.find_spec = lambda name, *more: None if name == 'matplotlib' else find(name, *more)\n"
            "from orvacam._report.__main__ import main; sys.exit(main(sys.argv[1:]))")
    run = subprocess.run([sys.executable, '-c', code, str(frame), '-o', str(tmp_path / 'a.html')],
                         capture_output=True, text=True)
    assert run.returncode == 1 and 'apt install python3-matplotlib' in run.stderr
    assert not (tmp_path / 'a.html').exists()


# ---- In a browser


@pytest.fixture(scope='module')
def shown(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Tuple[Any, str]]:
    """Headless Chromium, and the page of a frame whose header holds a script."""
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    folder = tmp_path_factory.mktemp('page')
    frame = folder / 'm31.raw'
    frame.write_bytes(with_text(orvacam.simulate('GSENSE400', mode='hdr', width=640, height=480), b'app 1.0',
                                b'<script>x=1'))
    (folder / 'm31.html').write_text(page_of(frame))
    options = webdriver.ChromeOptions()
    for argument in ('headless=new', 'no-sandbox', 'disable-gpu', 'disable-dev-shm-usage', 'hide-scrollbars'):
        options.add_argument('--' + argument)
    options.binary_location = '/usr/bin/chromium'
    options.set_capability('goog:loggingPrefs', {'performance': 'ALL', 'browser': 'ALL'})
    driver = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
    yield driver, (folder / 'm31.html').as_uri()
    driver.quit()


def at_width(driver: Any, width: int, url: str, scheme: str = 'light') -> None:
    driver.execute_cdp_cmd('Emulation.setDeviceMetricsOverride',
                           {'width': width, 'height': 850, 'deviceScaleFactor': 1, 'mobile': width < 600})
    driver.execute_cdp_cmd('Emulation.setEmulatedMedia',
                           {'features': [{'name': 'prefers-color-scheme', 'value': scheme}]})
    driver.get(url)


@pytest.mark.parametrize('width', [1280, 390])
def test_everything_is_shown_and_nothing_sticks_out(shown: Tuple[Any, str], width: int) -> None:
    driver, url = shown
    at_width(driver, width, url)
    assert driver.execute_script('return document.documentElement.scrollWidth') <= width
    titles = driver.execute_script("return [...document.querySelectorAll('h2')].map(h => h.textContent)")
    assert titles == ['The picture', 'Levels', 'High against low gain', 'Rows, columns, reference pixels',
                      'The header', 'The file']
    broken = driver.execute_script('return [...document.images].filter(i => !i.complete || !i.naturalWidth).length')
    assert broken == 0
    sizes: List[List[float]] = driver.execute_script(
        "return [...document.querySelectorAll('main svg, .stage, .crops img, .tile')]"
        '.map(e => e.getBoundingClientRect()).map(r => [r.left, r.right, r.height])')
    assert len(sizes) >= 15
    assert all(left >= 0 and right <= width + 1 and height > 20 for left, right, height in sizes)
    # Text within figures is as large as text beside them, nearly.
    heights = driver.execute_script(
        "return [...document.querySelectorAll('.plot svg text')].map(t => t.getBoundingClientRect().height)"
        '.filter(h => h > 0)')
    assert min(heights) > 7


def test_nothing_is_fetched_and_nothing_is_wrong(shown: Tuple[Any, str]) -> None:
    driver, url = shown
    driver.get_log('performance')
    at_width(driver, 1280, url)
    events = [json.loads(entry['message'])['message'] for entry in driver.get_log('performance')]
    asked = [e['params']['request']['url'] for e in events if e['method'] == 'Network.requestWillBeSent']
    assert url in asked and [a for a in asked if a != url and not a.startswith('data:')] == []
    assert driver.get_log('browser') == []
    # The page's own rule forbids it as well: nothing but its pictures, its style and its one script.
    blocked = driver.execute_async_script(
        "const done = arguments[0]; fetch('https://example.org/').then(() => done('fetched'), () => done('blocked'))")
    assert blocked == 'blocked'


def test_a_script_in_a_header_stays_text(shown: Tuple[Any, str]) -> None:
    driver, url = shown
    at_width(driver, 1280, url)
    assert driver.execute_script('return typeof x') == 'undefined'
    assert driver.execute_script('return document.scripts.length') == 1
    row = driver.execute_script(
        "return [...document.querySelectorAll('.keys tr')].find(r => r.textContent.includes('AppInfoString')).innerText")
    assert '<script>x=1' in row


def test_the_search_finds_keys_by_name_keyword_and_value(shown: Tuple[Any, str]) -> None:
    driver, url = shown
    at_width(driver, 390, url)
    visible = "return [...document.querySelectorAll('.keys tbody tr')].filter(r => !r.hidden).map(r => r.cells[0].textContent)"
    assert len(driver.execute_script(visible)) == 93
    search = driver.find_element('css selector', 'input[type=search]')
    wanted: List[Tuple[str, List[str]]] = [('exptime', ['ExposureTime']), ('EXPOSURE', ['ExposureTime', 'StartingExposureRow']),
                         ('vs-0001', ['CameraSerialNumber']), ('no such key', [])]
    for words, found in wanted:
        search.clear()
        search.send_keys(words)
        assert driver.execute_script(visible) == found
        count = driver.find_element('css selector', '.count').text
        assert count == f'{len(found)} of 93 keys'


def test_the_picture_zooms_to_its_pixels_and_moves(shown: Tuple[Any, str]) -> None:
    from selenium.webdriver.common.action_chains import ActionChains

    driver, url = shown
    at_width(driver, 390, url)
    zoom = "return Number(document.querySelector('.viewer').dataset.zoom)"
    box = "const r = document.querySelector('.pan img').getBoundingClientRect(); return [r.left, r.top, r.width, r.height]"
    fitted = driver.execute_script(zoom)
    assert fitted == pytest.approx(driver.execute_script("return document.querySelector('.stage').clientWidth / 640"), abs=1e-3)
    stage = driver.find_element('css selector', '.stage')
    driver.execute_script("arguments[0].scrollIntoView({block: 'center', behavior: 'instant'})", stage)
    driver.find_element('css selector', '[data-do=one]').click()
    assert driver.execute_script(zoom) == 1
    assert driver.execute_script(box)[2:] == [640, 480]
    left, top, *_ = driver.execute_script(box)
    ActionChains(driver).move_to_element(stage).click_and_hold().move_by_offset(40, 25).release().perform()
    assert driver.execute_script(box)[:2] == [left + 40, top + 25]
    driver.find_element('css selector', '[data-do=in]').click()
    assert driver.execute_script(zoom) == 1.5
    stage.send_keys('0')
    assert driver.execute_script(zoom) == fitted
    stage.send_keys('1')
    assert driver.execute_script(zoom) == 1
    ActionChains(driver).scroll_from_origin(_origin(stage), 0, -200).perform()
    assert driver.execute_script(zoom) > 1.2
    clip = driver.find_elements('css selector', '[data-do=clip]')
    if clip:
        clip[0].click()
        assert driver.execute_script("return getComputedStyle(document.querySelector('.pan .clip')).display") == 'none'


def _origin(element: Any) -> Any:
    from selenium.webdriver.common.actions.wheel_input import ScrollOrigin

    return ScrollOrigin.from_element(element)


def test_it_is_light_or_dark_as_the_reader_likes(shown: Tuple[Any, str]) -> None:
    driver, url = shown
    colours = ("const t = document.querySelector('.plot svg text'); return [getComputedStyle(document.body).backgroundColor,"
               ' getComputedStyle(t).fill].map(c => c.match(/\\d+/g).slice(0, 3).reduce((a, b) => a + Number(b), 0) / 3)')
    at_width(driver, 1280, url, 'light')
    ground, text = driver.execute_script(colours)
    assert ground > 200 and text < 80
    at_width(driver, 1280, url, 'dark')
    ground, text = driver.execute_script(colours)
    assert ground < 50 and text > 180
    # Paper is white, whatever the reader likes on the screen.
    driver.execute_cdp_cmd('Emulation.setEmulatedMedia', {
        'media': 'print', 'features': [{'name': 'prefers-color-scheme', 'value': 'dark'}]})
    ground, text = driver.execute_script(colours)
    assert ground > 200 and text < 80
    assert not driver.find_element('css selector', '.tools').is_displayed()
    driver.execute_cdp_cmd('Emulation.setEmulatedMedia', {'media': ''})


@pytest.mark.parametrize('width', [2560, 768, 320])
def test_long_names_and_many_frames_fit_every_width(shown: Tuple[Any, str], width: int, tmp_path: pathlib.Path) -> None:
    driver, _ = shown
    paths = [tmp_path / f'{"long" * 50}{i}.raw' for i in range(2)]
    for path in paths:
        path.write_bytes(plain())
    paths.append(tmp_path / 'cut.raw')
    paths[2].write_bytes(plain()[:500])
    _, night = make_page([str(path) for path in paths])
    for i, page in enumerate((page_of(paths[0]), night)):
        (tmp_path / f'{i}.html').write_text(page)
        at_width(driver, width, (tmp_path / f'{i}.html').as_uri())
        assert driver.execute_script('return document.documentElement.scrollWidth') <= width


def test_the_keyboard_reaches_everything_and_shows_where_it_is(shown: Tuple[Any, str]) -> None:
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys

    driver, url = shown
    at_width(driver, 1280, url)
    reached: List[str] = []
    while not reached or reached[-1] != 'BODY':
        ActionChains(driver).send_keys(Keys.TAB).perform()
        reached.append(driver.execute_script('return document.activeElement.tagName'))
        if reached[-1] in ('DIV', 'BUTTON'):
            assert driver.execute_script('return getComputedStyle(document.activeElement).outlineStyle') == 'solid'
        assert len(reached) < 40
    assert reached == ['A'] * 7 + ['DIV'] + ['BUTTON'] * 5 + ['INPUT', 'SUMMARY', 'BODY']
