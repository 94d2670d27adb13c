"""Measures simulated cameras, and holds the numbers to what is true of them and to numpy on the same frames.

usage: measure_camera.py ORVACAM SCHEMAS FOLDER

The evaluation here is written for reading, from the formulas of EMVA 1288, over the planes as numpy files.
"""
import json
import math
import os
import pathlib
import sys

import jsonschema
import numpy

sys.dont_write_bytecode = True
from frames import good

orvacam, schemas, folder = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
os.chdir(folder)
SIZE = 160
schema = json.loads((schemas / "measure.schema.json").read_text())


def shoot(name, camera, mode, seed, number, exposure, kind, level=0):
    light = ["--level", str(level)] if kind == "flat" else []
    good(orvacam, "simulate", camera, "--mode", mode, "--seed", str(seed), "--type", kind, "--exposure", str(exposure),
         "--frame-number", str(number), "--width", str(SIZE), "--height", str(SIZE), "--truth", "truth.json", "--overwrite",
         "-o", name, *light)


def series(camera, mode, seed, rate, exposures):
    """Two flats and two darks of each exposure in a folder of their own: their names, the truth."""
    name = "%s-%d" % (camera, seed)
    os.makedirs(name)
    frames, number = {"flat": [], "dark": []}, 1
    for exposure in exposures:
        for kind in ("flat", "flat", "dark", "dark"):
            path = "%s/%s%03d.raw" % (name, kind, number)
            shoot(path, camera, mode, seed, number, exposure, kind, exposure * rate)
            frames[kind].append((exposure, path))
            number += 1
    truth = json.loads(pathlib.Path("truth.json").read_text())
    good(orvacam, "convert", name, "-o", name, "-f", "npy")
    return frames, truth


def plane(path, suffix):
    return numpy.load(path.replace(".raw", suffix + ".npy")).astype(float)


class Pairs:
    """Pairs of frames: exposures, means, temporal variances."""

    def __init__(self, frames, suffix):
        self.exposures, self.means, self.variances, self.frame_means = [], [], [], []
        for (exposure, one), (_, other) in zip(frames[::2], frames[1::2]):
            a, b = plane(one, suffix), plane(other, suffix)
            self.exposures.append(exposure)
            self.means.append((a.mean() + b.mean()) / 2)
            self.variances.append(((a - b) ** 2).mean() / 2 - (a.mean() - b.mean()) ** 2 / 2)
            self.frame_means += [a.mean(), b.mean()]
        self.exposures, self.means, self.variances = map(numpy.array, (self.exposures, self.means, self.variances))


def parts(image):
    """Row, column and pixel variance of an image, as the standard has them."""
    m, n = image.shape
    total, columns, rows = image.var(), image.mean(axis=0).var(), image.mean(axis=1).var()
    pixel = m * n / (m * n - m - n) * (total - columns - rows)
    return numpy.array((rows - pixel / n, columns - pixel / m, pixel))


def split(images):
    """The same of the mean of two images, less what their difference shows of temporal noise."""
    return parts(numpy.mean(images, axis=0)) - parts(images[0] - images[1]) / 4


def local(images):
    """Of the mean image less its surroundings, where these are whole; white noise keeps its variance."""
    temporal = (images[0] - images[1]) / 2
    rows, columns = (temporal.mean(axis=axis).var(ddof=1) for axis in (1, 0))
    pixel = (temporal.var() - rows - columns) / (1 - sum(1 / n for n in temporal.shape))
    row, column = rows - pixel / temporal.shape[1], columns - pixel / temporal.shape[0]
    pixel = temporal.var() - row - column
    kernel = numpy.convolve(numpy.convolve(numpy.ones(7) / 7, numpy.ones(11) / 11), [0.25, 0.5, 0.25])
    mean = numpy.mean(images, axis=0)
    low = mean
    for axis in (0, 1):
        low = numpy.apply_along_axis(numpy.convolve, axis, low, kernel, "valid")
    left = 1 - 2 * kernel[9] ** 2 + (kernel ** 2).sum() ** 2
    left_of_lines = 1 - 2 * kernel[9] + (kernel ** 2).sum()
    return ((mean[9:-9, 9:-9] - low).var() - left_of_lines * (row + column)) / left - pixel


def near(told, expected, tolerance, what):
    assert abs(told - expected) <= tolerance * abs(expected), (what, told, expected)


def check_by_numpy(told, frames, suffix):
    flats, darks = Pairs(frames["flat"], suffix), Pairs(frames["dark"], suffix)
    signal, excess = flats.means - darks.means, flats.variances - darks.variances
    order = numpy.argsort(flats.means, kind="stable")
    for key, values in (("mean_adu", flats.means), ("signal_adu", signal), ("variance_adu2", flats.variances),
                        ("excess_variance_adu2", excess), ("exposure_seconds", flats.exposures)):
        assert numpy.allclose([p[key] for p in told["curve"]], values[order], rtol=1e-9, atol=1e-9), (suffix, key)
    # The noise is greatest at saturation.
    top = signal[numpy.argmax(flats.variances)]
    near(told["saturation_adu"], top, 1e-9, "saturation")
    fitted = (signal > 0) & (signal <= 0.7 * top)
    assert [p["fitted"] for p in told["curve"]] == list(fitted[order])
    slope = (signal[fitted] * excess[fitted]).sum() / (signal[fitted] ** 2).sum()
    near(told["gain_e_per_adu"], 1 / slope, 1e-9, "gain")
    near(told["saturation_e"], top / slope, 1e-9, "saturation capacity")
    current = numpy.polyfit(numpy.repeat(darks.exposures, 2), darks.frame_means, 1)[0]
    near(told["dark_current_e_per_s"], current / slope, 1e-6, "dark current")
    noise = numpy.sqrt(darks.variances[0] - 1 / 12 - max(0, current * darks.exposures[0] * slope)) / slope
    near(told["read_noise_e"], noise, 1e-9, "read noise")
    threshold = numpy.sqrt(darks.variances[0] / slope ** 2 + 0.25) + 0.5
    near(told["dynamic_range_db"], 20 * numpy.log10(top / slope / threshold), 1e-9, "dynamic range")
    # Straight line with the least relative deviations.
    linear = (signal >= 0.05 * top) & (signal <= 0.95 * top)
    t, y = flats.exposures[linear], signal[linear]
    line = numpy.polyfit(t, y, 1, w=1 / y)
    deviation = 100 * abs(y / numpy.polyval(line, t) - 1).mean()
    near(told["linearity_error_percent"], deviation, 1e-6, "linearity")
    # The level nearest to half of saturation.
    usable = numpy.flatnonzero(signal <= top)
    at = usable[numpy.argmin(abs(signal[usable] - top / 2))]
    images = [plane(p, suffix) for _, p in frames["flat"][2 * at:2 * at + 2]]
    still = [plane(p, suffix) for _, p in frames["dark"][2 * at:2 * at + 2]]
    bright, dark = split(images), split(still)
    difference = local(images) - local(still)
    near(told["prnu_local_percent"], 100 * numpy.sqrt(difference) / signal[at], 1e-6, "local PRNU")
    for part, b, d in zip(("row", "column", "pixel"), bright, dark):
        for name, variance, scale in (("dsnu_%s_e", d, 1 / slope), ("prnu_%s_percent", b - d, 100 / signal[at])):
            value = numpy.sqrt(max(variance, 0)) * scale
            error = told[name % part + "_error"]
            assert abs(told[name % part] - value) <= 0.02 * value + 0.15 * error, (name % part, told[name % part], value)


def check_by_truth(told, truth, what):
    """Within 1 % or three standard errors, whichever is more."""
    # The dark current differs from pixel to pixel by a fifth, and grows with the exposure.
    spread = 0.2 * truth["dark_current_e_per_s"] * told["uniformity_exposure_seconds"]
    truth["pixel_noise_e"] = math.hypot(truth["pixel_noise_e"], spread)
    pairs = (("gain_e_per_adu", "gain_e_per_adu"), ("read_noise_e", "read_noise_e"), ("offset_adu", "offset_adu"),
             ("dark_current_e_per_s", "dark_current_e_per_s"), ("prnu_percent", "prnu_percent"),
             ("prnu_local_percent", "prnu_percent"),
             ("dsnu_row_e", "row_noise_e"), ("dsnu_column_e", "column_noise_e"), ("dsnu_pixel_e", "pixel_noise_e"))
    for measured, planted in pairs:
        error = told[measured + "_error"]
        assert abs(told[measured] - truth[planted]) <= max(0.01 * truth[planted], 3 * error), (
            what, measured, told[measured], error, truth[planted])
    # Errors are of use: those of gain and read noise stay below 2 %.
    for key in ("gain_e_per_adu", "read_noise_e"):
        assert told[key + "_error"] < 0.02 * told[key], (what, key, told[key + "_error"])
    # Noise makes the clipping begin early, and the levels stand apart.
    assert 0.85 * truth["saturation_e"] < told["saturation_e"] <= 1.01 * truth["saturation_e"], (what, told["saturation_e"])


def check_change_over(told, frames):
    """The raw gains' ratio, and where low x ratio is when the high gain is at the threshold."""
    low, high = Pairs(frames["flat"], "_LOW"), Pairs(frames["flat"], "_HIGH")
    below = [i for i in range(len(high.means))
             if max((plane(p, "_HIGH") >= 0.9 * 3700).mean() for _, p in frames["flat"][2 * i:2 * i + 2]) == 0]
    slope, start = numpy.polyfit(high.means[below], low.means[below], 1)
    ratio, merge = told["ratio"], told["merge"]
    assert abs(ratio["measured"] - 1 / slope) <= 2 * ratio["measured_error"]
    assert abs(merge["step_adu"] - (merge["ratio"] * (start + slope * 3700) - 3700)) <= 2 * merge["step_adu_error"]


CAMERAS = (("GSENSE4040", "hdr", 10000, (0.05, 0.1, 0.15, 0.2, 0.23, 0.26, 0.29, 0.33, 0.5, 1, 2, 3, 4, 5, 6, 7, 8, 9), (1, 2)),
           ("GENERIC", "single", 10000, (0.5, 1, 2, 4, 6, 8, 9, 10, 11, 12, 12.6, 13.5, 14), (3, 4)))
for camera, mode, rate, exposures, seeds in CAMERAS:
    for seed in seeds:
        frames, truth = series(camera, mode, seed, rate, exposures)
        done = json.loads(good(orvacam, "measure", "--json", "--flats", *[p for _, p in frames["flat"]], "--darks",
                               *[p for _, p in frames["dark"]]))
        jsonschema.validate(done, schema)
        for name, true in truth["planes"].items():
            told = done["planes"][name]
            check_by_truth(told, true, (camera, seed, name))
            check_by_numpy(told, frames, "" if name == "image" else "_" + name.upper())
        if mode == "hdr":
            assert abs(done["ratio"]["measured"] - truth["ratio"]) <= max(
                0.002 * truth["ratio"], 3 * done["ratio"]["measured_error"])
            check_change_over(done, frames)
            # One merged ADU is one of the high gain.
            merged, true = done["planes"]["merged"], truth["planes"]["high"]
            assert abs(merged["gain_e_per_adu"] - true["gain_e_per_adu"]) <= 3 * merged["gain_e_per_adu_error"]
            assert merged["saturation_e"] > 10 * true["saturation_e"]
print("ok: %d cameras" % sum(len(c[-1]) for c in CAMERAS))
