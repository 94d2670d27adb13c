"""Converts frames of every camera and reads the files with what others read them with.

usage: standard_files.py ORVACAM SCHEMAS FOLDER

The planes as numpy files are what all others are held to. Prints "ok" and what it has read.
"""
import json
import os
import pathlib
import subprocess
import sys
import warnings
import xml.etree.ElementTree as xml

import fitsio
import jsonschema
import numpy
import tifffile
from astropy.io import fits
from PIL import Image

sys.dont_write_bytecode = True
from frames import good, make_frames, run

orvacam, schemas, folder = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
os.chdir(folder)
Image.MAX_IMAGE_PIXELS = None
read = {}


def count(reader, files=1):
    read[reader] = read.get(reader, 0) + files


def check_header(header, said, frame, plane):
    values, derived = said["header"]["values"], said["derived"]
    assert header["EXPTIME"] == derived["exposure_seconds"]
    assert header.get("DATE-OBS") == derived["time_utc"], (frame, header.get("DATE-OBS"))
    assert header["DETNAM"] == derived["sensor"]
    assert header["CCD-TEMP"] == values["SensorChipTemp"] / 10
    assert header["FRAMENUM"] == values["FrameNumber"]
    assert header["EXTNAME"] == plane.upper()
    if plane in ("low", "high"):
        assert header["SATURATE"] == 4095
    if frame == "nogps":
        assert header["TIMESRC"] == "CAMERA" and header["DATE-OBS"].endswith("33.123000000")


def check_fits(said, frame, plane, truth, path):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with fits.open(path, checksum=True, memmap=False) as hdus:
            hdus.verify("exception")
            data = hdus[0].data
            assert data.dtype == numpy.uint16 and (data == truth).all(), path
            check_header(hdus[0].header, said, frame, plane)
    count("astropy")
    data, header = fitsio.read(path, header=True)
    assert data.dtype == numpy.uint16 and (data == truth).all() and header["BUNIT"] == "adu", path
    count("fitsio")


def check_single_file(said, frame, truths, path):
    with fits.open(path, checksum=True, memmap=False) as hdus:
        for plane, truth in truths.items():
            assert (hdus[plane.upper()].data == truth).all(), (path, plane)
            check_header(hdus[plane.upper()].header, said, frame, plane)
    count("astropy")


def check_tiff(truth, path):
    assert (tifffile.imread(path) == truth).all(), path
    assert (numpy.array(Image.open(path)) == truth).all(), path
    count("tifffile"), count("Pillow")


def check_ome(truths, path):
    with tifffile.TiffFile(path) as file:
        assert file.is_ome
        planes = file.asarray().reshape((len(truths),) + next(iter(truths.values())).shape)
        assert all((plane == truth).all() for plane, truth in zip(planes, truths.values())), path
        assert file.series[0].axes in ("CYX", "YX"), file.series[0].axes
        pixels = xml.fromstring(file.ome_metadata.encode())[0].find("{*}Pixels")
        assert int(pixels.get("SizeC")) == len(truths)
        assert len(pixels.findall("{*}Channel")) == len(truths)
    count("tifffile (OME)")


# Programs read many files at a time: starting one for each file takes longer than reading it.


def check_with_fitsverify(paths):
    said = good("fitsverify", "-q", *paths)
    verified = {line.split()[2] for line in said.splitlines() if line.startswith("verification OK:")}
    assert verified == set(paths), (set(paths) - verified, said)
    count("fitsverify", len(paths))


def check_with_fpack(truths):
    good("fpack", "-r", *truths)
    packed = [os.path.basename(path) + ".fz" for path in truths]
    done = subprocess.run(["funpack", "-P", "unpacked_", *packed], cwd="fits", check=False)
    assert done.returncode == 0
    for path, truth in truths.items():
        assert (fitsio.read(f"fits/unpacked_{os.path.basename(path)}") == truth).all(), path
    count("fpack", len(truths))


def check_with_tiffinfo(paths):
    info = run("tiffinfo", *paths)
    assert info.returncode == 0 and not info.stderr, info.stderr
    assert info.stdout.count(b"Image Width:") == len(paths)
    count("tiffinfo", len(paths))


def check_with_imagemagick(truths):
    truths = {path: truth for path, truth in truths.items() if truth.shape[1] <= 16000}  # Debian's refuses wider ones
    said = good("identify", "-format", "%w %h %z %i\n", *truths).splitlines()
    assert said == [f"{truth.shape[1]} {truth.shape[0]} 16 {path}" for path, truth in truths.items()]
    count("ImageMagick", len(truths))


def check_json(raws):
    """What info says of each frame, after its words and those of others are found to be as their schemas have them."""
    def lines(schema, *words):
        schema = json.loads((schemas / (schema + ".schema.json")).read_text())
        said = [json.loads(line) for line in run(orvacam, *words).stdout.splitlines()]
        for line in said:
            jsonschema.validate(line, schema)
        count("jsonschema", len(said))
        return said

    for command in ("stats", "check"):
        assert len(lines(command, command, "--json", *raws)) == len(raws)
    assert lines("cameras", "cameras", "--json") and lines("version", "--version", "--json")
    said = lines("info", "info", "--json", *raws)
    assert [line["file"] for line in said] == raws
    return said


def check_calibration():
    """The reports are what their schemas say; masks and tables name the planted pixels."""
    def valid(command, text):
        report = json.loads(text)
        jsonschema.validate(report, json.loads((schemas / (command + ".schema.json")).read_text()))
        return report

    for number in range(5):
        good(orvacam, "simulate", "GSENSE400", "--mode", "hdr", "--type", "dark", "--exposure", "5", "--width", "64",
             "--height", "48", "--hot-pixels", "7", "--frame-number", str(number), "-o", f"dark{number}.raw",
             "--truth", "truth.json", "--overwrite")
    truth = valid("truth", open("truth.json").read())
    darks = [f"dark{number}.raw" for number in range(5)]
    valid("calibrate", good(orvacam, "calibrate", "dark", *darks, "-o", "dark.dsnu", "--json", "--quiet",
                            "--mask", "odd.fits"))
    valid("calibrate", good(orvacam, "calibrate", "bias", *darks, "-o", "dark.bias", "--json", "--quiet"))
    for plane, known in truth["planes"].items():
        places = [[int(x), int(y)] for y, x in numpy.argwhere(fits.getdata("odd.fits", plane.upper()) == 1)]
        assert places == known["hot_pixels"], plane
    good("fitsverify", "-q", "odd.fits")
    count("jsonschema")


def main():
    frames = make_frames(orvacam)
    raws = [frame + ".raw" for frame in frames]
    for kind in ("npy", "fits", "tiff", "ome-tiff", "png16"):
        good(orvacam, "convert", *raws, "-o", kind, "-f", kind, "--quiet")
    good(orvacam, "convert", *raws, "-o", "single", "--single-file", "--quiet")
    good(orvacam, "convert", *raws, "-o", "rice", "--compress", "rice", "--single-file", "--quiet")
    files = {"fits": {}, "tiff": {}, "png16": {}}
    single = []
    for frame, said in zip(frames, check_json(raws)):
        names = said["derived"]["planes"]
        truths = {}
        for plane in names:
            stem = frame + ("_" + plane.upper() if len(names) > 1 else "")
            truths[plane] = numpy.load(f"npy/{stem}.npy")
            for kind in files:
                files[kind][f"{kind}/{stem}.{kind.rstrip('16')}"] = truths[plane]
            check_fits(said, frame, plane, truths[plane], f"fits/{stem}.fits")
            check_tiff(truths[plane], f"tiff/{stem}.tiff")
        single += [f"single/{frame}.fits", f"rice/{frame}.fits.fz"]
        for path in single[-2:]:
            check_single_file(said, frame, truths, path)
        check_ome(truths, f"ome-tiff/{frame}.ome.tiff")
    for path, truth in files["png16"].items():
        assert (numpy.array(Image.open(path)) == truth).all(), path
        count("Pillow")
    check_with_fitsverify([*files["fits"], *single])
    check_with_fpack(files["fits"])
    check_with_tiffinfo(files["tiff"])
    check_with_imagemagick(files["png16"])
    check_calibration()
    print("ok", len(frames), "frames;", ", ".join(f"{reader} {n}" for reader, n in read.items()))


main()
