"""Bad arguments end with a message that helps, and nothing is written."""

import pickle

import numpy as np
import pytest
from conftest import MODES, noise
from hypothesis import given
from hypothesis import strategies as st

import kip

RECT = kip.AffineRect.from_center((20, 15), (12, 8), 10)
OPERATIONS = [kip.transform, kip.transform_clipped, kip.project, kip.project_mean]

BAD_PICTURES = [
    ([[1, 2], [3, 4]], TypeError, "not list"),
    (None, TypeError, "not NoneType"),
    (b"abc", TypeError, "numpy array of uint8 or uint16"),
    (np.zeros((30, 40)), TypeError, "float64.*astype"),
    (np.zeros((30, 40), np.int8), TypeError, "int8"),
    (np.zeros((30, 40), bool), TypeError, "bool"),
    (np.zeros((30, 40), object), TypeError, "object"),
    (np.zeros((30, 40), "V1"), TypeError, "astype"),
    (np.zeros((30, 40), np.dtype("u2").newbyteorder()), TypeError, "byte order.*astype"),
    (np.ma.masked_array(np.zeros((30, 40), np.uint8)), TypeError, "masked.*filled"),
    (np.zeros((30, 40, 3), np.uint8), ValueError, r"\(30, 40, 3\).*grey.*\[\.\.\., 0\]"),
    (np.zeros(40, np.uint8), ValueError, "height, width"),
    (np.uint8(3), TypeError, "not numpy.uint8"),
    (np.array(3, np.uint8), ValueError, "height, width"),
    (np.zeros((0, 40), np.uint8), ValueError, "no pixel"),
    (np.zeros((30, 0), np.uint16), ValueError, "no pixel"),
    (np.zeros((30, 80), np.uint8)[:, ::2], ValueError, "ascontiguousarray"),
    (np.zeros((30, 40), np.uint8)[:, ::-1], ValueError, "ascontiguousarray"),
    (np.zeros((40, 30), np.uint8).T, ValueError, "ascontiguousarray"),
    (np.broadcast_to(np.zeros(40, np.uint8), (30, 40)), ValueError, "share memory.*numpy.array"),
    (np.lib.stride_tricks.sliding_window_view(np.zeros(100, np.uint8), 40), ValueError, "share memory"),
    (np.zeros(2401, np.uint8)[1:].view(np.uint16).reshape(30, 40), ValueError, "odd addresses"),
    (np.zeros((30, 81), np.uint8)[:, :80].view(np.uint16), ValueError, "odd addresses"),
    (np.lib.stride_tricks.as_strided(np.zeros(9, np.uint8), (2, 2), (1 << 40, 1)), ValueError, "apart"),
]


@pytest.mark.parametrize("image, kind, message", BAD_PICTURES)
def test_pictures(image, kind, message):
    for operation in OPERATIONS:
        with pytest.raises(kind, match=f"(?s)image.*{message}|{message}"):
            operation(image, RECT)
    with pytest.raises(kind):
        kip.Sampler(RECT).transform(image)
    for sums in (kip.row_sums, kip.column_sums):
        with pytest.raises(kind):
            sums(image)


def test_subclasses_of_arrays_serve(tmp_path):
    mapped = np.memmap(tmp_path / "m", np.uint8, "w+", shape=(30, 40))
    mapped[:] = noise(30, 40)
    assert np.array_equal(kip.transform(mapped, RECT), kip.transform(np.array(mapped), RECT))


ODD = np.zeros(8 * 24 + 1, np.uint8)[1:].view(np.uint16).reshape(8, 12)
PICTURE = noise(30, 40)
READ_ONLY = np.zeros((8, 12), np.uint8)
READ_ONLY.flags.writeable = False


@pytest.mark.parametrize("image, out, kind, message", [
    (PICTURE, np.zeros((12, 8), np.uint8), ValueError, r"\(12, 8\); the result has \(8, 12\)"),
    (PICTURE, np.zeros((8, 12), np.uint16), TypeError, "uint16"),
    (PICTURE, READ_ONLY, ValueError, "read-only"),
    (PICTURE, np.zeros((8, 24), np.uint8)[:, ::2], ValueError, "numpy.empty"),
    (PICTURE, np.zeros((8, 12, 1), np.uint8), ValueError, "shape"),
    (PICTURE, [0], TypeError, "out is a numpy array"),
    (PICTURE.astype(np.uint16), ODD, ValueError, "odd addresses"),
    (PICTURE, PICTURE[3:11, 4:16], kip.Error, "kip_pelStatusOverlap"),
    (PICTURE, PICTURE[11:3:-1, 28:], kip.Error, "kip_pelStatusOverlap"),
])
def test_out(image, out, kind, message):
    before, result = image.copy(), np.array(out)
    with pytest.raises(kind, match=message):
        kip.transform(image, RECT, out=out)
    with pytest.raises(kind, match=message):
        kip.Sampler(RECT).transform(image, out=out)
    assert np.array_equal(image, before) and np.array_equal(out, result)


def test_out_beside_the_picture_in_one_array():
    both = noise(30, 60)
    expected = kip.transform(both[:, :40].copy(), RECT)
    assert np.array_equal(kip.transform(both[:, :40], RECT, out=both[2:10, 45:57]), expected)


def test_rectangle_that_leaves_the_picture():
    image = noise(30, 40)
    rect = kip.AffineRect.from_corners((-3, 5), (17, 5), (-3, 32.25))
    for call, name, other in [
        (kip.transform, "kip_statusTransformWouldClip", "transform_clipped"),
        (kip.project, "kip_statusProjectionWouldClip", "project_mean"),
    ]:
        for mode, left, bottom in [("nearest", "2.5", "1.75"), ("bilinear", "3", "2.25")]:
            with pytest.raises(kip.Error) as caught:
                call(image, rect, size=(20, 27), mode=mode)
            error = caught.value
            assert error.name == name and error.status < 0 and isinstance(error, ValueError)
            assert f"{other} " in str(error) and name in str(error)
            assert f"{left} pixels over the left" in str(error) and "over the bottom edge" in str(error)
        again = pickle.loads(pickle.dumps(error))
        assert (str(again), again.status, again.name) == (str(error), error.status, error.name)
    far = kip.AffineRect.from_center((1e9, 0), (1e9, 2e9))
    for call in (kip.transform, kip.project):
        with pytest.raises(kip.Error, match="right"):
            call(image, far)
    for call in OPERATIONS:
        with pytest.raises(kip.Error):
            call(image, kip.AffineRect.from_center((-500, 0), (10, 10)))


@pytest.mark.parametrize("arguments, keywords, kind, message", [
    ((PICTURE,), {}, TypeError, "'rect'"),
    ((PICTURE, RECT, "cubic"), {}, TypeError, "positional.*'mode'"),
    ((PICTURE, RECT), {"colour": 1}, TypeError, "colour"),
    ((PICTURE, RECT), {"image": PICTURE}, TypeError, "multiple values"),
    ((PICTURE, (0, 0, 3, 3)), {}, TypeError, "from_center"),
    ((PICTURE, RECT), {"mode": "Cubic"}, ValueError, "'nearest', 'bilinear', 'separable', 'cubic'"),
    ((PICTURE, RECT), {"mode": 3}, TypeError, "mode"),
    ((PICTURE, RECT), {"mode": None}, TypeError, "mode"),
    ((PICTURE, RECT), {"size": 3}, TypeError, "width, height"),
    ((PICTURE, RECT), {"size": "12"}, TypeError, "width, height"),
    ((PICTURE, RECT), {"size": (3, 4, 5)}, TypeError, "width, height"),
    ((PICTURE, RECT), {"size": (3.5, 4)}, TypeError, "integers"),
    ((PICTURE, RECT), {"size": (2**31, 4)}, ValueError, "32 bits"),
    ((PICTURE, RECT), {"size": (2**99, 4)}, ValueError, "32 bits"),
    ((PICTURE, RECT), {"size": (0, 4)}, kip.Error, "kip_statusSizeBelowOne"),
    ((PICTURE, RECT), {"size": (4, -1)}, kip.Error, "kip_statusSizeBelowOne"),
    ((PICTURE, kip.AffineRect.from_center((9, 9), (0.3, 4))), {}, kip.Error, "kip_statusSizeBelowOne"),
    ((PICTURE, kip.AffineRect.from_corners((9, 9), (12, 9), (14, 9))), {}, kip.Error, "kmath_statusSingular"),
    ((PICTURE, kip.AffineRect.__new__(kip.AffineRect)), {}, TypeError, "never initialised"),
])
def test_arguments(arguments, keywords, kind, message):
    for operation in OPERATIONS:
        with pytest.raises(kind, match=message):
            operation(*arguments, **keywords)


def test_results_that_memory_cannot_hold():
    with pytest.raises((MemoryError, ValueError)):
        kip.transform(PICTURE, RECT, size=(2**31 - 1, 2**31 - 1))


@pytest.mark.parametrize("call, kind", [
    (lambda: kip.AffineRect(), TypeError),
    (lambda: kip.AffineRect.from_center((1, 2)), TypeError),
    (lambda: kip.AffineRect.from_center((1, 2), 3), TypeError),
    (lambda: kip.AffineRect.from_center((1, "2"), (3, 4)), TypeError),
    (lambda: kip.AffineRect.from_center((1, 2), (3, 4), "5"), TypeError),
    (lambda: kip.AffineRect.from_center((np.nan, 2), (3, 4)), kip.Error),
    (lambda: kip.AffineRect.from_center((1, 2), (3, np.inf)), kip.Error),
    (lambda: kip.AffineRect.from_center((1, 2), (3, 4), np.inf), kip.Error),
    (lambda: kip.AffineRect.from_corners((1, 2), (3, 4), (5, 1e400)), kip.Error),
    (lambda: kip.AffineRect.from_cv2(((1, 2), (3, 4))), TypeError),
    (lambda: kip.AffineRect.from_cv2("abc"), TypeError),
    (lambda: RECT.at(1), TypeError),
    (lambda: setattr(RECT, "width", 3), AttributeError),
    (lambda: setattr(RECT, "colour", 3), AttributeError),
    (lambda: kip.AffineRect.__new__(kip.AffineRect).__setstate__((1, 2, 3, 4, 5, np.inf)), kip.Error),
    (lambda: kip.Sampler(), TypeError),
    (lambda: kip.Sampler(RECT, mode="x"), ValueError),
    (lambda: kip.Sampler(RECT, size=(0, 1)), kip.Error),
    (lambda: kip.Sampler.__new__(kip.Sampler).transform(PICTURE), TypeError),
    (lambda: kip.Sampler(RECT).transform(), TypeError),
    (lambda: kip.Sampler.transform(3, PICTURE), TypeError),
    (lambda: kip.row_sums(np.zeros((3, 3), np.uint16)), TypeError),
    (lambda: kip.set_threads(-1), kip.Error),
    (lambda: kip.set_threads(1.5), TypeError),
    (lambda: kip.find_edges("abc"), TypeError),
    (lambda: kip.find_edges([1, 2j]), TypeError),
    (lambda: kip.find_edges(np.zeros((3, 3))), ValueError),
    (lambda: kip.find_edges(kip.MeanProfile(np.zeros(3), np.zeros(4))), ValueError),
    (lambda: kip.find_edges([1.0] * 9, polarity="up"), ValueError),
    (lambda: kip.find_edges([1.0] * 9, sigma=0), kip.Error),
    (lambda: kip.find_edges([1.0] * 9, sigma=np.nan), kip.Error),
    (lambda: kip.find_edges([1.0] * 9, threshold=-1), kip.Error),
    (lambda: kip.find_edges([1.0] * 9, min_distance=np.nan), kip.Error),
    (lambda: kip.find_edges([1.0] * 9, threshold="5"), TypeError),
    (lambda: kip.find_edges([1.0] * 9, rect=3), TypeError),
])
def test_other_calls(call, kind):
    with pytest.raises(kind):
        call()


anything = st.one_of(
    st.none(), st.booleans(), st.integers(), st.floats(), st.text(max_size=3), st.just(PICTURE), st.just(RECT),
    st.tuples(st.floats(), st.floats()), st.tuples(st.integers(-9, 2**40), st.integers(-9, 60)), st.sampled_from(MODES),
    st.lists(st.floats(), max_size=9),
)


CALLS = OPERATIONS + [kip.find_edges, kip.row_sums, kip.Sampler]
CALLS += [kip.AffineRect.from_center, kip.AffineRect.from_corners, kip.AffineRect.from_cv2]
NAMES = st.sampled_from(["mode", "size", "out", "rect", "sigma", "image", "degrees"])


@given(st.sampled_from(CALLS), st.lists(anything, max_size=3), st.dictionaries(NAMES, anything, max_size=3))
def test_anything_gives_a_result_or_one_of_three_errors(call, arguments, keywords):
    before = PICTURE.copy()
    try:
        call(*arguments, **keywords)
    except (TypeError, ValueError, MemoryError) as error:
        assert str(error)
    assert np.array_equal(PICTURE, before)
