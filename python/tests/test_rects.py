"""Rectangles and samplers as values."""

import copy
import pickle

import cv2
import numpy as np
import pytest
from conftest import noise
from hypothesis import given
from hypothesis import strategies as st

import kip


def test_from_center():
    rect = kip.AffineRect.from_center((10, 20), (6, 4), degrees=90)
    assert (rect.origin, rect.x_end, rect.y_end, rect.opposite) == ((12, 17), (12, 23), (8, 17), (8, 23))
    assert (rect.center, rect.width, rect.height, rect.degrees) == ((10, 20), 6, 4, 90)
    assert kip.AffineRect.from_center(np.array([10, 20]), [6.4, 3.5]).standard_size() == (6, 4)
    assert rect.at(0.5, 0.5) == (10, 20) and rect.at(0, 1) == rect.y_end


def test_from_corners():
    rect = kip.AffineRect.from_corners((1, 2), (4, 6), (0.5, 3))
    assert (rect.origin, rect.x_end, rect.y_end, rect.width) == ((1, 2), (4, 6), (0.5, 3), 5)
    assert eval(repr(rect)) == rect


@given(st.floats(5, 40), st.floats(5, 40), st.floats(3, 30), st.floats(3, 30), st.floats(-180, 180))
def test_from_cv2_places_the_corners_where_opencv_does(x, y, width, height, degrees):
    rect = kip.AffineRect.from_cv2(((x, y), (width, height), degrees))
    # Bottom left first, clockwise, in single precision.
    theirs = cv2.boxPoints(((x, y), (width, height), degrees)) + 0.5
    mine = [rect.y_end, rect.origin, rect.x_end, rect.opposite]
    np.testing.assert_allclose(mine, theirs, atol=1e-4)


def test_values():
    a, b = (kip.AffineRect.from_center((10.1, 20), (6, 4), 33) for _ in range(2))
    other = kip.AffineRect.from_center((10.1, 20), (6, 4), 34)
    assert a == b and hash(a) == hash(b) and a != other and a != 3 and {a: 1}[b] == 1
    for again in (pickle.loads(pickle.dumps(a)), copy.deepcopy(a)):
        assert again == a
    sampler = kip.Sampler(a, mode="cubic", size=(5, 7))
    again = pickle.loads(pickle.dumps(sampler))
    assert (again.rect, again.mode, again.size) == (sampler.rect, sampler.mode, sampler.size) == (a, "cubic", (5, 7))
    assert repr(again) == repr(sampler) and eval(repr(sampler)).rect.standard_size() == (6, 4)
    image = noise(40, 40)
    assert np.array_equal(again.transform(image), sampler.transform(image))


def test_help_reads_well():
    import pydoc

    text = pydoc.plain(pydoc.render_doc(kip))
    for line in [
        "transform(image, rect, *, mode='bilinear', size=None, out=None)",
        "from_center(center, size, degrees=0.0)",
        "Sampler(rect, *, mode='bilinear', size=None)",
        "project(self, /, image)",
        "Edge(position: float, ",
        "Args:",
    ]:
        assert line in text, line
    assert "pybind11_builtins" not in kip.transform.__doc__
    for name in kip.__all__:
        item = getattr(kip, name)
        assert isinstance(item, str) or (item.__doc__ and item.__module__ == "kip"), name
