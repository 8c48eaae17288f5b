"""What is written about the package is true: examples, types, the program that users begin with."""

import doctest
import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import skimage
from PIL import Image

import kip

ROOT = Path(__file__).resolve().parents[2]
CALIPER = ROOT / "examples/caliper.py"


def python(*arguments: object) -> str:
    result = subprocess.run([sys.executable, "-B", *map(str, arguments)], cwd=ROOT, capture_output=True, text=True)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def test_docstring():
    outcome = doctest.testmod(kip)
    assert outcome.attempted >= 5 and outcome.failed == 0


def test_readme(capsys):
    [program] = re.findall("```python\n(.*?)```", (ROOT / "python/README.md").read_text(), re.DOTALL)
    exec(program, {})
    numbers = [float(number) for number in re.findall(r"-?[\d.]+", capsys.readouterr().out)]
    np.testing.assert_allclose(numbers, [32, 24], atol=0.03)


def test_caliper(tmp_path):
    page = Path(skimage.__file__).parent / "data/page.png"
    if not page.exists():
        pytest.skip("this scikit-image has no page.png")
    lines = [line.split() for line in python(CALIPER, page, tmp_path / "result.png").splitlines()]
    # Top and bottom of three lines of text, dark on bright, at even distances.
    assert [line[1][0] for line in lines] == ["-", "+"] * 3
    places = np.array([float(line[0]) for line in lines])
    assert np.ptp(places[1::2] - places[::2]) < 1 and abs(np.diff(places[::2]) - 17.7).max() < 0.5
    before, after = (np.asarray(Image.open(file).convert("L")) for file in (page, tmp_path / "result.png"))
    assert before.shape == after.shape and 300 < np.count_nonzero(before != after) < 1000
    code = CALIPER.read_text().split('"""')[2]
    assert len([line for line in code.splitlines() if line.strip()]) <= 10


def test_types(tmp_path):
    python("-m", "mypy", "--strict", f"--cache-dir={tmp_path}", "-p", "kip")
    python("-m", "mypy", "--strict", f"--cache-dir={tmp_path}", CALIPER)
    # What stubs cannot tell: pybind11's metaclass, and what typing.NamedTuple is at run time.
    (tmp_path / "allowed").write_text("kip(\\._core)?\\.(AffineRect|Sampler)\nkip\\._types\\.NamedTuple\n")
    python("-m", "mypy.stubtest", "kip", "--allowlist", tmp_path / "allowed", "--ignore-unused-allowlist")
