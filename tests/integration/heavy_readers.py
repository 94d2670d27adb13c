"""Opens the program's files in Siril, SExtractor, DS9 and ImageJ and holds what they see to the pixels.

usage: heavy_readers.py ORVACAM FOLDER

FOLDER is an empty one to work in. Prints a table of readers and files; or what disagrees, and ends with status 1.
The planes as numpy files are what all readers are held to, and `orvacam stats` where a reader has statistics.
"""
import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import time

import numpy
from astropy.io import fits

sys.dont_write_bytecode = True
from frames import CAMERAS, good, make_frames, run

orvacam, folder = os.path.abspath(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
KINDS = ("fits", "tiff", "ome-tiff", "png16")
disagreements = []
opened = {}  # (reader, kind of file) -> files


def expect(right, *what):
    if not right:
        disagreements.append(" ".join(str(part) for part in what))
        print("disagrees:", disagreements[-1], file=sys.stderr)


def count(reader, kind):
    opened[reader, kind] = opened.get((reader, kind), 0) + 1


def bounded(seconds, *command, **options):
    """What a program printed; one that takes longer is stopped, with all that it started."""
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               start_new_session=True)
    try:
        out, error = process.communicate(options.get("input", "").encode(), timeout=seconds)
    except BaseException as reason:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        if isinstance(reason, subprocess.TimeoutExpired):
            raise SystemExit(f"{command[0]} took longer than {seconds} s") from None
        raise
    out, error = (text.decode(errors="replace") for text in (out, error))
    expect(process.returncode == 0, command[0], "ended with", process.returncode, error[-500:])
    return out, error


class File:
    """A file of one plane or, with channels, of several: where it lies, its pixels and its statistics."""

    def __init__(self, kind, path, planes):
        self.kind, self.path, self.planes = kind, str(folder / path), planes

    @property
    def pixels(self):
        return self.planes[0]


def convert(frames):
    """The frames in every format, and the fields of stars, whose statistics `orvacam stats` knows."""
    files, stars = [], []
    for frame in frames:
        raw = frame + ".raw"
        for kind in ("npy",) + KINDS:
            good(orvacam, "convert", raw, "-o", kind, "-f", kind, "--quiet")
        good(orvacam, "convert", raw, "-o", "rice", "--compress", "rice", "--quiet")
        stats = json.loads(good(orvacam, "stats", "--json", raw))["planes"]
        planes = []
        for plane, said in stats.items():
            stem = frame + ("_" + plane.upper() if len(stats) > 1 else "")
            pixels = numpy.load(f"npy/{stem}.npy")
            if pixels.size == said["count"]:  # no reference pixels: the statistics are those of the image alone
                expect(abs(pixels.mean() - said["mean"]) < 1e-9 and abs(pixels.std() - said["deviation"]) < 1e-9,
                       "orvacam stats", stem, pixels.mean(), pixels.std(), said)
            planes.append(pixels)
            for kind, name in (("fits", stem + ".fits"), ("rice", stem + ".fits.fz"), ("tiff", stem + ".tiff"),
                               ("png16", stem + ".png")):
                files.append(File(kind, f"{kind}/{name}", [pixels]))
            if frame.startswith("stars") and plane in ("image", "merged"):
                stars.append(files[-4])
        files.append(File("ome-tiff", f"ome-tiff/{frame}.ome.tiff", planes))
    return files, stars


def siril(files):
    """Statistics of every file, and the pixels again: as Siril saves them after loading."""
    files = [file for file in files if file.kind != "ome-tiff"]
    lines = ["requires 1.0.0", "setcpu 1", "set16bits", "setext fits"]
    for number, file in enumerate(files):
        # Siril knows compressed files by the name .fits.fz, and all by their absolute path.
        lines += [f'load "{file.path}"', "stat", f'save "{folder}/siril/{number}"']
    os.mkdir("siril")
    out, error = bounded(300, "siril-cli", "-d", str(folder), "-s", "-", input="\n".join(lines) + "\n")
    found = re.findall(r"Mean: (\S+), Median: (\S+), Sigma: (\S+), AvgDev: \S+, Min: (\S+), Max: (\S+)", out)
    if len(found) != len(files):
        expect(False, "Siril has statistics of", len(found), "of", len(files), "files", out[-2000:], error[-500:])
        return
    for number, (file, said) in enumerate(zip(files, found)):
        pixels = file.pixels[file.pixels > 0]  # for Siril 0 is no pixel, but for the minimum
        truth = (pixels.mean(), numpy.median(pixels), pixels.std(), file.pixels.min(), file.pixels.max())
        mean, median, sigma, least, most = (float(value) for value in said)
        near = all(abs(one - other) <= 0.051 for one, other in zip((mean, sigma), (truth[0], truth[2])))
        expect(near and abs(median - truth[1]) <= 0.5 and (least, most) == truth[3:], "Siril", file.path, said, truth)
        saved = fits.getdata(f"siril/{number}.fits")
        if file.kind in ("tiff", "png16"):  # which begin with the top row; Siril's own files begin with the bottom row
            saved = saved[::-1]
        expect(numpy.array_equal(saved, file.pixels), "Siril saves other pixels of", file.path)
        count("Siril", file.kind)


def peaks(pixels, above):
    """Places of pixels that are the greatest within five pixels and stand this far above the median."""
    margin = 5
    core = pixels[margin:-margin, margin:-margin]
    windows = numpy.lib.stride_tricks.sliding_window_view(pixels, (2 * margin + 1,) * 2)
    highest = windows.max(axis=(2, 3))
    ys, xs = numpy.nonzero((core == highest) & (core > numpy.median(pixels) + above))
    return numpy.column_stack((xs + margin, ys + margin))


def extract(file):
    options = {"CATALOG_TYPE": "ASCII", "CATALOG_NAME": "STDOUT", "PARAMETERS_NAME": "columns", "FILTER": "N",
               "DETECT_THRESH": "5", "ANALYSIS_THRESH": "5", "GAIN_KEY": "EGAIN", "SATUR_KEY": "SATURATE",
               "VERBOSE_TYPE": "QUIET", "NTHREADS": "1"}
    out, _ = bounded(60, "source-extractor", file.path, "-c", "defaults",
                     *(part for key, value in options.items() for part in ("-" + key, value)))
    return [[float(number) for number in line.split()] for line in out.splitlines() if not line.startswith("#")]


def sextractor(files, stars):
    """Runs on every FITS file; of fields of stars the brightest ones are found, at the height that they have."""
    pathlib.Path("columns").write_text("XPEAK_IMAGE\nYPEAK_IMAGE\nFLUX_MAX\nBACKGROUND\nFLAGS\n")
    pathlib.Path("defaults").write_text(good("source-extractor", "-d"))
    for file in files:
        if file.kind == "fits":
            extract(file)
            count("SExtractor", file.kind)
    for file in stars:
        found = extract(file)
        expect(len(found) >= 10, "SExtractor finds", len(found), "stars in", file.path)
        saturation = fits.getheader(file.path)["SATURATE"]
        for x, y, height, background, flags in found:
            value = int(file.pixels[int(y) - 1, int(x) - 1])
            expect(abs(height + background - value) <= 1, "SExtractor", file.path, x, y, height + background, value)
            # It adds a smooth background again before it compares, which moves the sum by parts of a unit.
            expect(height + background < saturation or int(flags) & 4, "SExtractor", file.path, x, y, "is not flagged as saturated")
            near = file.pixels[max(0, int(y) - 13):int(y) + 12, max(0, int(x) - 13):int(x) + 12]
            expect(near.max() >= saturation or not int(flags) & 4, "SExtractor", file.path, x, y, "is flagged as saturated")
        places = numpy.array([(x - 1, y - 1) for x, y, *_ in found])
        # Fainter ones can be lost in the wings of the brightest.
        for x, y in peaks(file.pixels, 0.02 * (file.pixels.max() - numpy.median(file.pixels))):
            distance = numpy.abs(places - (x, y)).max(axis=1).min()
            expect(distance <= 5, "SExtractor misses the star at", x, y, "of", file.path)


@contextlib.contextmanager
def display():
    """An X server without a screen; gone at the end."""
    reading, writing = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(writing), "-screen", "0", "800x600x24", "-nolisten", "tcp"],
                              pass_fds=[writing], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(writing)
    try:
        with os.fdopen(reading) as number:
            os.environ["DISPLAY"] = ":" + number.readline().strip()
        if os.environ["DISPLAY"] == ":":
            raise SystemExit("Xvfb does not start")
        yield
    finally:
        server.terminate()
        server.wait(10)


def xpa(command, *parts):
    return subprocess.run([command, *parts], capture_output=True, check=True, timeout=30).stdout


def shown_section(file):
    """What DS9 shows of a file: DATASEC, without the reference pixels; the bounds are among it, counted from 1."""
    header = fits.getheader(file.path, 1 if file.kind == "rice" else 0)
    return [int(part) for part in re.findall(r"\d+", header["DATASEC"])]


def ds9_pixels(file, title):
    """Every stored pixel through XPA, less the sign that BZERO gives them; and a window of values that DS9 shows."""
    stored = numpy.frombuffer(xpa("xpaget", title, "array", "little"), "<u2")
    if stored.size != file.pixels.size:
        expect(False, "DS9", file.path, "has", stored.size, "pixels")
        return
    expect(numpy.array_equal((stored ^ 0x8000).reshape(file.pixels.shape), file.pixels), "DS9 has other pixels of", file.path)
    height, width = file.pixels.shape
    across, down = min(8, width), min(8, height)
    left, low = width - across, height - down  # the far corner
    shown = xpa("xpaget", title, "data", "image", str(left + 1), str(low + 1), str(across), str(down), "no").decode()
    values = {(int(x), int(y)): value for x, y, value in re.findall(r"(\d+),(\d+) = *(\S*)", shown)}
    first_x, last_x, first_y, last_y = shown_section(file)
    truth = {}
    for x in range(left + 1, width + 1):
        for y in range(low + 1, height + 1):
            inside = first_x <= x <= last_x and first_y <= y <= last_y
            truth[x, y] = str(file.pixels[y - 1, x - 1]) if inside else ""
    expect(values == truth, "DS9 shows other values of", file.path, shown)


def ds9(files):
    title = f"orvacam{os.getpid()}"
    os.environ.update(XPA_METHOD="local", XPA_TMPDIR=str(folder / "xpa"))
    os.mkdir("xpa")
    process = subprocess.Popen(["ds9", "-title", title], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        deadline = time.monotonic() + 60
        while run("xpaget", title, "version").returncode != 0:
            if time.monotonic() > deadline or process.poll() is not None:
                raise SystemExit("DS9 does not answer")
            time.sleep(0.5)
        version = xpa("xpaget", title, "version").decode().split()[-1]
        for file in files:
            if file.kind not in ("fits", "rice"):
                continue
            xpa("xpaset", "-p", title, "fits", file.path)
            size = [int(part) for part in xpa("xpaget", title, "fits", "size").split()]
            expect(size == [file.pixels.shape[1], file.pixels.shape[0]], "DS9", file.path, size)
            ds9_pixels(file, title)
            said = xpa("xpaget", title, "fits", "header", "keyword", "EXPTIME").decode().strip()
            expect(said and float(said) == 1.0, "DS9 reads EXPTIME of", file.path, "as", repr(said))
            count("DS9", file.kind)
        xpa("xpaset", "-p", title, "exit")
        process.wait(10)
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
    return version


MACRO = """
files = split(getArgument(), "\\n");
for (i = 0; i < files.length; i++) {
  part = split(files[i], "\\t");
  open(part[0]);
  print("file", getWidth(), getHeight(), nSlices, bitDepth());
  for (s = 1; s <= nSlices; s++) {
    setSlice(s);
    getStatistics(area, mean, least, most, deviation);
    print("plane", d2s(mean, 6), least, most, d2s(deviation, 6));
  }
  saveAs("raw", part[1]);
  close();
}
print("version", getVersion());
"""


def imagej(files):
    """Statistics of every plane, and its pixels again, as ImageJ writes them: 16 bits, most significant byte first."""
    files = [file for file in files if file.kind != "rice"]
    pathlib.Path("macro.ijm").write_text(MACRO)
    os.mkdir("imagej")
    names = "\n".join(f"{file.path}\t{folder}/imagej/{number}.raw" for number, file in enumerate(files))
    out, error = bounded(300, "java", f"-Duser.home={folder}/home", "-Xmx1g", "-cp", "/usr/share/java/ij.jar", "ij.ImageJ",
                         "-batch", str(folder / "macro.ijm"), names)
    expect(not error, "ImageJ says", error[-1000:])
    lines = [line.split() for line in out.splitlines()]
    said = [line[1:] for line in lines if line[0] in ("file", "plane")]
    if len(said) != sum(1 + len(file.planes) for file in files):
        expect(False, "ImageJ tells of", len(said), "files and planes", out[-2000:])
        return "?"
    for number, file in enumerate(files):
        height, width = file.pixels.shape
        shape = [int(part) for part in said.pop(0)]
        expect(shape == [width, height, len(file.planes), 16], "ImageJ", file.path, shape)
        # ImageJ turns FITS files, whose first row is the lowest one.
        planes = [plane[::-1] if file.kind == "fits" else plane for plane in file.planes]
        for plane in planes:
            mean, least, most, deviation = (float(part) for part in said.pop(0))
            truth = plane.std(ddof=1) if plane.size > 1 else 0
            expect(abs(mean - plane.mean()) < 1e-5 and abs(deviation - truth) < 1e-5
                   and (least, most) == (plane.min(), plane.max()),
                   "ImageJ", file.path, mean, least, most, deviation, plane.mean(), truth)
        saved = numpy.fromfile(f"imagej/{number}.raw", ">u2")
        expect(numpy.array_equal(saved, numpy.concatenate([plane.ravel() for plane in planes])),
               "ImageJ saves other pixels of", file.path)
        count("ImageJ", file.kind)
    return " ".join(next(line for line in lines if line[0] == "version")[1:])


WHAT = {
    "Siril": "mean, median and deviation (of pixels above 0), minimum, maximum; saved again, every pixel is the same",
    "SExtractor": "runs (with `-GAIN_KEY EGAIN`); fields of stars of all cameras: bright ones are found, peaks are the "
                  "pixels' values, SATURATE is read: saturated stars are flagged",
    "DS9": "size and EXPTIME; every pixel through XPA; the values it shows (those in DATASEC)",
    "ImageJ": "size, planes, mean, deviation, minimum and maximum of each; saved again, every pixel is the same",
}


def table(versions):
    kinds = ("fits", "rice", "tiff", "ome-tiff", "png16")
    print("| reader | FITS | Rice | TIFF | OME-TIFF | PNG | what was held to the pixels |")
    print("|---|---|---|---|---|---|---|")
    for reader, what in WHAT.items():
        numbers = " | ".join(str(opened.get((reader, kind), "")) for kind in kinds)
        print(f"| {reader} {versions[reader]} | {numbers} | {what} |")


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("stopped"))  # so that what it started is stopped, too
    os.chdir(folder)
    os.mkdir("home")
    os.environ.update(HOME=str(folder / "home"), XDG_CONFIG_HOME=str(folder / "home"), LC_ALL="C.UTF-8")
    frames = make_frames(orvacam)
    for camera in CAMERAS:
        name = "stars-" + camera
        good(orvacam, "simulate", camera, "--width", "384", "--height", "256", "-o", name + ".raw")
        frames.append(name)
    good(orvacam, "simulate", "GSENSE400", "--mode", "hdr", "--width", "512", "--height", "384", "-o", "stars-hdr.raw")
    frames.append("stars-hdr")
    files, stars = convert(frames)
    versions = {"Siril": good("siril-cli", "--version").split()[-1],
                "SExtractor": good("source-extractor", "-v").split()[3]}
    siril(files)
    sextractor(files, stars)
    with display():
        versions["DS9"] = ds9(files)
        versions["ImageJ"] = imagej(files)
    if disagreements:
        raise SystemExit(f"{len(disagreements)} disagreements")
    print(f"{len(frames)} frames, {len(files)} files\n")
    table(versions)


main()
