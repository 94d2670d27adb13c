"""Converts frames of every camera and reads the files with what others read them with.

usage: standard_files.py ORVACAM SCHEMAS FOLDER

The planes as numpy files are what all others are held to. Prints "ok" and what it has read.
"""
import json
import os
import pathlib
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


def count(reader):
    read[reader] = read.get(reader, 0) + 1


def check_header(header, frame, plane):
    said = json.loads(good(orvacam, "info", "--json", frame + ".raw"))
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


def check_fits(frame, plane, truth, path):
    done = run("fitsverify", "-q", path)
    assert done.returncode == 0 and b"verification OK" in done.stdout, (path, done.stdout)
    count("fitsverify")
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with fits.open(path, checksum=True, memmap=False) as hdus:
            hdus.verify("exception")
            data = hdus[0].data
            assert data.dtype == numpy.uint16 and (data == truth).all(), path
            check_header(hdus[0].header, frame, plane)
    count("astropy")
    data, header = fitsio.read(path, header=True)
    assert data.dtype == numpy.uint16 and (data == truth).all() and header["BUNIT"] == "adu", path
    count("fitsio")
    good("fpack", "-r", path)
    good("funpack", "-O", "unpacked.fits", path + ".fz")
    assert (fitsio.read("unpacked.fits") == truth).all(), path
    os.remove("unpacked.fits"), os.remove(path + ".fz")
    count("fpack")


def check_single_file(frame, truths, path):
    done = run("fitsverify", "-q", path)
    assert done.returncode == 0 and b"verification OK" in done.stdout, (path, done.stdout)
    with fits.open(path, checksum=True, memmap=False) as hdus:
        for plane, truth in truths.items():
            assert (hdus[plane.upper()].data == truth).all(), (path, plane)
            check_header(hdus[plane.upper()].header, frame, plane)
    count("fitsverify"), count("astropy")


def check_tiff(truth, path):
    info = run("tiffinfo", path)
    assert info.returncode == 0 and not info.stderr, (path, info.stderr)
    assert (tifffile.imread(path) == truth).all(), path
    assert (numpy.array(Image.open(path)) == truth).all(), path
    for reader in ("tiffinfo", "tifffile", "Pillow"):
        count(reader)


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


def check_png(truth, path):
    assert (numpy.array(Image.open(path)) == truth).all(), path
    count("Pillow")
    if truth.shape[1] > 16000:  # Debian's ImageMagick is told to refuse these
        return
    size = good("identify", "-format", "%w %h %z", path).split()
    assert [int(n) for n in size] == [truth.shape[1], truth.shape[0], 16], (path, size)
    count("ImageMagick")


def check_json(frame):
    for command in ("info", "stats", "check"):
        schema = json.loads((schemas / (command + ".schema.json")).read_text())
        done = run(orvacam, command, "--json", frame + ".raw")
        jsonschema.validate(json.loads(done.stdout), schema)
    for command, words in (("cameras", ["cameras", "--json"]), ("version", ["--version", "--json"])):
        schema = json.loads((schemas / (command + ".schema.json")).read_text())
        jsonschema.validate(json.loads(run(orvacam, *words).stdout), schema)
    count("jsonschema")


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
    for frame in frames:
        raw = frame + ".raw"
        for kind in ("npy", "fits", "tiff", "ome-tiff", "png16"):
            good(orvacam, "convert", raw, "-o", kind, "-f", kind, "--quiet")
        good(orvacam, "convert", raw, "-o", "single", "--single-file", "--quiet")
        good(orvacam, "convert", raw, "-o", "rice", "--compress", "rice", "--single-file", "--quiet")
        names = json.loads(good(orvacam, "info", "--json", raw))["derived"]["planes"]
        truths = {}
        for plane in names:
            stem = frame + ("_" + plane.upper() if len(names) > 1 else "")
            truths[plane] = numpy.load(f"npy/{stem}.npy")
            check_fits(frame, plane, truths[plane], f"fits/{stem}.fits")
            check_tiff(truths[plane], f"tiff/{stem}.tiff")
            check_png(truths[plane], f"png16/{stem}.png")
        check_single_file(frame, truths, f"single/{frame}.fits")
        check_single_file(frame, truths, f"rice/{frame}.fits.fz")
        check_ome(truths, f"ome-tiff/{frame}.ome.tiff")
        check_json(frame)
    check_calibration()
    print("ok", len(frames), "frames;", ", ".join(f"{reader} {n}" for reader, n in read.items()))


main()
