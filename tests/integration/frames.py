"""The frames whose files are read with what others read them with: every camera, mode and oddity."""
import pathlib
import random
import struct
import subprocess

CAMERAS = ("GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060", "IMX183", "CCD230-42", "CCD230-84", "CCD4320", "GENERIC")
MODES = ("single", "hdr", "16bit", "cms")


def run(*command):
    return subprocess.run(command, capture_output=True, check=False)


def good(*command):
    done = run(*command)
    assert done.returncode == 0, (command, done.stdout, done.stderr)
    return done.stdout.decode()


def patched(path, **changes):
    """The frame again, with bytes of its header replaced: at=(offset, bytes)."""
    data = bytearray(pathlib.Path(path).read_bytes())
    for offset, new in changes.values():
        data[offset:offset + len(new)] = new
    return bytes(data)


def make_wide(orvacam, name, camera, mode, bytes_per_row):
    """Four rows of 65534 pixels between 8 and 6 reference pixels, all of them noise."""
    good(orvacam, "simulate", camera, "--mode", mode, "--width", "64", "--height", "4", "--pre-pixels", "8",
         "--post-pixels", "6", "-o", "narrow.raw")
    data = patched("narrow.raw", width=(81, struct.pack(">H", 65534)), last_column=(128, struct.pack(">H", 65533)))
    pathlib.Path(name + ".raw").write_bytes(data[:384] + random.Random(1).randbytes(4 * bytes_per_row))
    pathlib.Path("narrow.raw").unlink()
    assert run(orvacam, "check", name + ".raw").returncode == 0, good(orvacam, "check", name + ".raw")


def make_frames(orvacam):
    """Makes the raw frames in the working folder and tells their names, without ".raw"."""
    frames = []

    def simulate(name, *options):
        done = run(orvacam, "simulate", *options, "-o", name + ".raw")
        assert done.returncode in (0, 2), done.stderr
        if done.returncode == 0:
            frames.append(name)

    for camera in CAMERAS:
        for mode in MODES:
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
    row = 8 + 65534 + 6
    wide = {
        "wide-packed": ("GSENSE400", "single", row * 3 // 2),
        "wide-two-planes": ("GSENSE6060", "hdr", 2 * row * 3 // 2),
        "wide-ccd": ("CCD230-42", "single", row * 2),
    }
    for name, (camera, mode, bytes_per_row) in wide.items():
        make_wide(orvacam, name, camera, mode, bytes_per_row)
        frames.append(name)
    assert len(frames) >= 27, frames
    return frames
