"""pip builds and installs the package, and its wheel needs nothing but numpy."""

import os
import re
import shutil
import subprocess
import sys
import venv
import zipfile
from pathlib import Path

import numpy
import pytest

ROOT = Path(__file__).resolve().parents[2]
PROGRAM = """
import numpy as np, kip
image = np.arange(3000, dtype=np.uint16).reshape(50, 60)
rect = kip.AffineRect.from_center((30, 25), (8, 4))
assert np.array_equal(kip.transform(image, rect), image[23:27, 26:34])
print(kip.__version__, kip.__file__)
"""


def run(*command: object, **options: object) -> str:
    result = subprocess.run(list(map(str, command)), capture_output=True, text=True, **options)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


@pytest.fixture(scope="module")
def work():
    """A folder with a copy of the sources, since building leaves files beside them."""
    folder = Path(os.environ["KIP_TEST_DIR"]) / "install"
    shutil.rmtree(folder, ignore_errors=True)
    for part in ("cmake", "docs", "include", "python", "services", "src"):
        built = shutil.ignore_patterns("build", "*.egg-info", "*.so*")
        shutil.copytree(ROOT / part, folder / "kip" / part, ignore=built)
    for part in ("CMakeLists.txt", "LICENSE"):
        shutil.copy(ROOT / part, folder / "kip")
    return folder


def environment(folder: Path, system_packages: bool) -> Path:
    venv.create(folder, system_site_packages=system_packages)
    return folder / "bin/python"


# Without an index: what is needed is there, and nothing may be fetched.
PIP = ["-m", "pip", "--disable-pip-version-check"]
OFFLINE = ["--no-index", "--no-deps", "--no-build-isolation"]


@pytest.fixture(autouse=True)
def quick_build(monkeypatch):
    """Optimising would take most of the time, and what it gives is tested elsewhere."""
    monkeypatch.setenv("CMAKE_ARGS", "-DCMAKE_CXX_FLAGS_RELEASE=-O0")
    monkeypatch.delenv("PYTHONPATH", raising=False)


def test_pip_install(work):
    python = environment(work / "environment", system_packages=True)
    run(python, *PIP, "install", *OFFLINE, work / "kip/python")
    assert str(work / "environment") in run(python, "-c", PROGRAM, cwd=work)


def test_wheel_in_an_empty_environment(work):
    run(sys.executable, *PIP, "wheel", *OFFLINE, "--wheel-dir", work, work / "kip/python")
    [wheel] = work.glob("*.whl")
    names = zipfile.ZipFile(wheel).namelist()
    for pattern in ("kip/libkip.so.*", "kip/libkip_services.so.*", "kip/_core.*.so", "kip/_core.pyi", "kip/py.typed"):
        assert len([name for name in names if re.fullmatch(pattern, name)]) == 1, (pattern, names)

    python = environment(work / "empty", system_packages=False)
    run(sys.executable, *PIP, f"--python={python}", "install", *OFFLINE[:2], wheel)
    [packages] = (work / "empty/lib").glob("python*/site-packages")
    (packages / "numpy").symlink_to(Path(numpy.__file__).parent, target_is_directory=True)
    shutil.rmtree(work / "kip")  # nothing may be found where it was built
    clean = {"PATH": os.environ["PATH"]}
    assert str(packages) in run(python, "-c", PROGRAM, cwd=work, env=clean)
    libraries = run("ldd", next((packages / "kip").glob("_core.*.so")), env=clean)
    for library in ("libkip.so", "libkip_services.so"):
        [line] = [line for line in libraries.splitlines() if library in line]
        assert str(packages / "kip") in os.path.realpath(line.split()[2])
