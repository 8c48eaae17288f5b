"""What the tests share."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

import hypothesis
import numpy as np
import pytest

MODES = ["nearest", "bilinear", "separable", "cubic"]

# Each test draws the same examples every time, and none fails for being slow.
hypothesis.settings.register_profile("kip", derandomize=True, deadline=None, max_examples=150)
hypothesis.settings.load_profile("kip")


def noise(height: int, width: int, dtype: type = np.uint8, seed: int = 0) -> np.ndarray:
    return np.random.default_rng(seed).integers(0, np.iinfo(dtype).max, (height, width), dtype, endpoint=True)


def write_pgm(path: Path, image: np.ndarray) -> None:
    height, width = image.shape
    header = f"P5 {width} {height} {np.iinfo(image.dtype).max}\n".encode()
    path.write_bytes(header + image.astype(image.dtype.newbyteorder(">")).tobytes())


def read_pgm(path: Path) -> np.ndarray:
    kind, width, height, greatest, pixels = path.read_bytes().split(maxsplit=4)
    dtype = np.dtype(">u2" if int(greatest) > 255 else "u1")
    count = int(width) * int(height) * dtype.itemsize
    # The pixels may begin with what looks like blanks, so they are counted from the end.
    image = np.frombuffer(path.read_bytes()[-count:], dtype).reshape(int(height), int(width))
    return image.astype(dtype.newbyteorder("="))


@pytest.fixture
def tool():
    program = os.environ.get("KIP_TOOL")
    if not program:
        pytest.skip("built without the tool")

    def run(*arguments: object) -> str:
        return subprocess.run([program, *map(str, arguments)], check=True, capture_output=True, text=True).stdout

    return run
