"""Holds the library to what the guide says it computes (docs/examples/numerics.py), to the bit.

Under scripts/test-settings.sh the optimised path is forbidden in one of the runs.
"""

import math
import os
import pathlib
import sys

import numpy as np

import kip

sys.path.append(str(pathlib.Path(__file__).parents[2] / "docs/examples"))
import numerics  # noqa: E402

OPTIMISED = os.environ.get("KIP_RUN_INHIBITED") != "1"
random = np.random.default_rng(20)


def picture(dtype, height, width):
    return random.integers(0, np.iinfo(dtype).max, (height, width), dtype, endpoint=True)


# Pitches on both sides of the tiles' limits.
PICTURES = [picture(np.uint8, 1000, 1000), picture(np.uint16, 900, 1000), picture(np.uint8, 760, 1500),
            picture(np.uint16, 760, 2100), picture(np.uint8, 760, 3100)]


def corners(center, width, height, degrees, shear):
    cosine, sine = math.cos(math.radians(degrees)), math.sin(math.radians(degrees))
    x, y = np.array((cosine, sine)) * width, np.array((-sine + shear, cosine)) * height
    origin = center - x / 2 - y / 2
    return tuple(origin), tuple(origin + x), tuple(origin + y)


def compare(image, place, size, modes):
    """Compares in every mode; returns how often something was sampled, as a rectangle may not fit."""
    rect = kip.AffineRect.from_corners(*place)
    compared = 0
    for mode in modes:
        try:
            got = kip.transform(image, rect, mode=mode, size=size)
        except kip.Error as error:
            assert error.name == "kip_statusTransformWouldClip", error
            continue
        if mode in ("nearest", "bilinear"):
            want = getattr(numerics, mode)(image, place, size, OPTIMISED)
        else:
            want = numerics.table_driven(image, place, size, mode, OPTIMISED)
        assert np.array_equal(got, want), (mode, image.dtype, image.shape, place, size)
        if image.dtype == np.uint8 or mode in ("nearest", "bilinear"):
            assert np.array_equal(kip.project(image, rect, mode=mode, size=size), numerics.project(want)), (mode, place)
        compared += 1
    return compared


compared = 0
for case in range(80):
    image = PICTURES[case % len(PICTURES)]
    middle = np.array(image.shape[::-1]) / 2 + random.uniform(-40, 40, 2)
    degrees = random.choice((random.uniform(0, 360), 45 * random.integers(8), 90 * random.integers(4)))
    width, height = random.uniform(3, 400, 2)
    place = corners(middle, width, random.choice((1, 1, -1)) * height, degrees, random.uniform(-0.3, 0.3))
    size = (max(1, round(width)), max(1, round(height))) if case % 2 else tuple(map(int, random.integers(1, 300, 2)))
    compared += compare(image, place, size, ("nearest", "bilinear", "separable", "cubic"))

for image in PICTURES:
    # Results of more than 1024 columns or rows, and a reduction whose tiles shrink.
    middle = np.array(image.shape[::-1]) / 2
    for size in ((1030, 40), (40, 1100)):
        compared += compare(image, corners(middle, 400, 300, 33.3, 0.1), size, ("nearest", "bilinear", "separable", "cubic"))
    compared += compare(image, corners(middle, 600, 580, 4, 0), (120, 100), ("separable", "cubic"))
    # To the edges of the picture, as near as the modes without tables may go.
    height, width = image.shape
    place = ((0.0625, 0.0), (width - 0.0625, 0.0), (0.0625, float(height)))
    compared += compare(image, place, (width, height), ("nearest",))
    compared += compare(image, ((0.0, 0.0), (width - 0.5, 0.0), (0.0, height - 0.5)), (width - 1, height - 1),
                        ("nearest", "bilinear"))

print(f"{compared} samplings are equal to the bit")
assert compared > 350
