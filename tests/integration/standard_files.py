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

orvacam, schemas, folder = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
os.chdir(folder)
Image.MAX_IMAGE_PIXELS = None
read = {}


def run(*command):
    return subprocess.run(command, capture_output=True, check=False)


def good(*command):
    done = run(*command)
    assert done.returncode == 0, (command, done.stdout, done.stderr)
    return done.stdout.decode()


def count(reader):
    read[reader] = read.get(reader, 0) + 1


def patched(path, **changes):
    """The frame again, with bytes of its header replaced: at=(offset, bytes)."""
    data = bytearray(pathlib.Path(path).read_bytes())
    for offset, new in changes.values():
        data[offset:offset + len(new)] = new
    return bytes(data)


def make_frames():
    frames = []

    def simulate(name, *options):
        done = run(orvacam, "simulate", *options, "-o", name + ".raw")
        assert done.returncode in (0, 2), done.stderr
        if done.returncode == 0:
            frames.append(name)

    for camera in ("GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060", "IMX183", "CCD230-42", "CCD230-84", "CCD4320",
                   "GENERIC"):
        for mode in ("single", "hdr", "16bit", "cms"):
            for size in ("96x32", "33x21"):
                width, height = size.split("x")
                simulate(f"{camera}-{mode}-{size}", camera, "--mode", mode, "--width", width, "--height", height)
    simulate("references", "GSENSE400", "--mode", "hdr", "--width", "64", "--height", "40", "--pre-rows", "4", "--post-rows", "2")
    simulate("binned", "GSENSE4040", "--width", "64", "--height", "40", "--bin-x", "2", "--bin-y", "2")
    simulate("one", "GENERIC", "--width", "1", "--height", "1")
    for version in "124":
        simulate("version" + version, "GSENSE400", "--mode", "hdr", "--width", "32", "--height", "32", "--header-version", version)
    whole = "GSENSE400-hdr-96x32.raw"
    texts = b"it's \"quoted\" \\ & <tags>\x00\x01\xff"
    odd = {
        "texts": patched(whole, model=(8, (b"VS400 " + texts).ljust(40, b"\0")), serial=(48, texts[:24].ljust(24, b"\0"))),
        "nogps": patched(whole, time=(152, b"2024/05/17 21:04:33.123 NOGPS\0")),
        "timeless": patched(whole, time=(152, b"2024/02/30 21:04:33.123456789\0")),
    }
    for name, data in odd.items():
        pathlib.Path(name + ".raw").write_bytes(data)
        frames.append(name)
    assert len(frames) >= 24, frames
    return frames


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
    size = good("identify", "-format", "%w %h %z", path).split()
    assert [int(n) for n in size] == [truth.shape[1], truth.shape[0], 16], (path, size)
    count("Pillow"), count("ImageMagick")


def check_json(frame):
    for command in ("info", "stats", "check"):
        schema = json.loads((schemas / (command + ".schema.json")).read_text())
        done = run(orvacam, command, "--json", frame + ".raw")
        jsonschema.validate(json.loads(done.stdout), schema)
    count("jsonschema")


def main():
    frames = make_frames()
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
    print("ok", len(frames), "frames;", ", ".join(f"{reader} {n}" for reader, n in read.items()))


main()
