"""Results, held to the tool's, to scikit-image's and to each other."""

import numpy as np
import pytest
from conftest import MODES, noise, read_pgm, write_pgm
from hypothesis import given
from hypothesis import strategies as st
from skimage.measure import profile_line
from skimage.transform import AffineTransform, warp

import kip


def random_rect(rng, width, height):
    """A sheared rectangle well inside, and its corners as the tool takes them."""
    at = rng.uniform(0.35, 0.65, 2) * (width, height)
    sides = rng.uniform(-0.25, 0.25, (2, 2)) * (width, height)
    corners = [tuple(map(float, point)) for point in (at, at + sides[0], at + sides[1])]
    return kip.AffineRect.from_corners(*corners), ",".join(repr(n) for point in corners for n in point)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
@pytest.mark.parametrize("mode", MODES)
def test_equals_the_tool(tool, tmp_path, mode, dtype):
    rng = np.random.default_rng(MODES.index(mode))
    image = noise(83, 101, dtype)
    write_pgm(tmp_path / "in.pgm", image)
    for width, height in [(31, 17), (1, 40), (64, 9)]:
        rect, corners = random_rect(rng, 101, 83)
        options = ["--corners", corners, "--mode", mode, "--size", f"{width}x{height}"]
        tool("transform", tmp_path / "in.pgm", tmp_path / "out.pgm", *options)
        result = kip.transform(image, rect, mode=mode, size=(width, height))
        assert result.dtype == dtype
        assert np.array_equal(result, read_pgm(tmp_path / "out.pgm"))
        if dtype == np.uint16 and mode not in ("nearest", "bilinear"):
            with pytest.raises(kip.Error, match="kip_statusProjectionModeUnsupported"):
                kip.project(image, rect, mode=mode)
            continue
        sums = [int(line.split(",")[1]) for line in tool("project", tmp_path / "in.pgm", *options).split()[1:]]
        assert kip.project(image, rect, mode=mode, size=(width, height)).tolist() == sums


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
@pytest.mark.parametrize("mode", MODES)
def test_clipped_equals_the_tool(tool, tmp_path, mode, dtype):
    image = noise(40, 50, dtype)
    write_pgm(tmp_path / "in.pgm", image)
    rect = kip.AffineRect.from_corners((-10.25, 20), (30, 3.5), (-2, 50))
    options = ["--corners", "-10.25,20,30,3.5,-2,50", "--clip", "--mode", mode]
    tool("transform", tmp_path / "in.pgm", tmp_path / "out.pgm", *options, "--mask", tmp_path / "mask.pgm")
    picture, mask = kip.transform_clipped(image, rect, mode=mode)
    assert np.array_equal(picture, read_pgm(tmp_path / "out.pgm"))
    assert np.array_equal(mask, read_pgm(tmp_path / "mask.pgm"))
    assert mask.min() == 0 and mask.max() == 255 and picture.shape == mask.shape == rect.standard_size()[::-1]
    if dtype == np.uint16 and mode not in ("nearest", "bilinear"):
        return
    means, coverage = kip.project_mean(image, rect, mode=mode)
    lines = [line.split(",") for line in tool("project", tmp_path / "in.pgm", *options).split()[1:]]
    inside = np.array([float(line[2]) for line in lines])
    sums = np.array([float(line[1]) for line in lines])
    np.testing.assert_allclose(coverage, inside / rect.standard_size()[1], rtol=1e-9, atol=1e-9)
    assert np.array_equal(np.isnan(means), inside == 0)
    np.testing.assert_allclose(np.nan_to_num(means) * inside, sums, rtol=1e-8)


def test_inside_nothing_is_clipped():
    image = noise(40, 50)
    rect = kip.AffineRect.from_center((25, 20), (12, 9), 30)
    picture, mask = kip.transform_clipped(image, rect)
    assert np.array_equal(picture, kip.transform(image, rect)) and (mask == 255).all()
    means, coverage = kip.project_mean(image, rect)
    assert np.array_equal(means, kip.project(image, rect) / 9) and (coverage == 1).all()


def test_bilinear_is_scikit_image_s_within_a_level():
    # Half a level is the rounding; positions of 16 fraction bits and their steps make up less than the rest.
    image = noise(200, 300)
    rect = kip.AffineRect.from_center((140.3, 99.1), (120, 40), 27)
    o, x, y = map(np.array, (rect.origin, rect.x_end, rect.y_end))
    step = np.column_stack([(x - o) / 120, (y - o) / 40])
    first = o + step @ [0.5, 0.5] - 0.5  # where scikit-image has the first sample's centre
    matrix = np.vstack([np.column_stack([step, first]), [0, 0, 1]])
    theirs = warp(image, AffineTransform(matrix), order=1, output_shape=(40, 120), preserve_range=True)
    difference = kip.transform(image, rect) - theirs
    assert np.abs(difference).max() < 1
    assert np.abs(difference.mean()) < 0.02


def test_profile_is_scikit_image_s_within_half_a_level():
    # 40 samples, rounded each to a whole level, have a mean that is 0.05 off, and 0.25 in one of 10^6.
    image = noise(200, 300)
    start, end = np.array([80.25, 60.5]), np.array([140.0, 200.75])  # row, column
    length = np.hypot(*(end - start))
    count = int(np.ceil(length + 1))
    theirs = profile_line(image, start, end, linewidth=40, order=1, mode="constant")
    assert len(theirs) == count
    along = (end - start) / (count - 1)  # their steps are those of linspace
    across = np.array([along[1], -along[0]]) / np.hypot(*along)
    corner = start + 0.5 - 0.5 * along + 20 * across
    origin, x_end, y_end = (tuple(p[::-1]) for p in (corner, corner + count * along, corner - 40 * across))
    mine = kip.project(image, kip.AffineRect.from_corners(origin, x_end, y_end), size=(count, 40)) / 40
    assert np.abs(mine - theirs).max() < 0.5


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
@given(st.data())
def test_strides_do_not_count(dtype, data):
    """Slices, flipped and padded pictures give what their contiguous copies give."""
    whole = noise(60, 90, dtype)
    rows = data.draw(st.sampled_from([slice(None), slice(None, None, -1), slice(3, 57, 2), slice(50, 4, -1)]))
    columns = data.draw(st.sampled_from([slice(None), slice(7, 80), slice(1, None)]))
    view = whole[rows, columns]
    height, width = view.shape
    mode = data.draw(st.sampled_from(MODES[:2] if dtype == np.uint16 else MODES))
    inside = st.floats(4, 23.5)
    corners = data.draw(st.tuples(*[st.tuples(inside, inside)] * 2))
    rect = kip.AffineRect.from_center(corners[0], corners[1], data.draw(st.floats(-400, 400)))
    size = data.draw(st.none() | st.tuples(st.integers(1, 30), st.integers(1, 30)))
    copy = view.copy()
    before = whole.copy()
    for function in (kip.transform_clipped, kip.project_mean):
        for one, other in zip(function(view, rect, mode=mode, size=size), function(copy, rect, mode=mode, size=size)):
            np.testing.assert_array_equal(one, other)
    sampler = kip.Sampler(rect, mode=mode, size=size)
    try:
        straight = kip.transform(copy, rect, mode=mode, size=size)
    except kip.Error as error:
        assert error.name == "kip_statusTransformWouldClip"
        for call in (kip.transform, kip.project):
            with pytest.raises(kip.Error, match="WouldClip"):
                call(view, rect, mode=mode, size=size)
    else:
        out = np.zeros((64, 64), dtype)[1 : 1 + straight.shape[0], 2 : 2 + straight.shape[1]][::-1]
        assert kip.transform(view, rect, mode=mode, size=size, out=out) is out
        for result in (out, kip.transform(view, rect, mode=mode, size=size), sampler.transform(view)):
            np.testing.assert_array_equal(result, straight)
        sums = kip.project(view, rect, mode=mode, size=size)
        assert sums.dtype == np.uint32 and sums.tolist() == straight.sum(0, dtype=np.uint32).tolist()
        assert sampler.project(view).tolist() == sums.tolist()
    np.testing.assert_array_equal(whole, before)
    if dtype == np.uint8:
        assert kip.row_sums(view).tolist() == copy.sum(1).tolist()
        assert kip.column_sums(view).tolist() == copy.sum(0).tolist()


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
@pytest.mark.parametrize("mode", MODES)
@pytest.mark.parametrize("shape", [(40000, 40), (40, 40000)])
def test_sources_beyond_32767(shape, mode, dtype):
    """Sampled from a window round the rectangle, near the far end, also upside down."""
    image = noise(*shape, dtype)
    height, width = shape
    centre = (width - 18.25, height - 16.5)
    rect = kip.AffineRect.from_corners(centre, (centre[0] + 8, centre[1] + 3), (centre[0] - 2, centre[1] + 5.5))
    corners = (rect.origin, rect.x_end, rect.y_end)
    moved = kip.AffineRect.from_corners(*((x - width + 40, y - height + 40) for x, y in corners))
    window = image[-40:, -40:].copy()
    operations = [kip.transform, kip.transform_clipped]
    if dtype == np.uint8 or mode in ("nearest", "bilinear"):
        operations += [kip.project, kip.project_mean]
    for source in (image, image[::-1].copy()[::-1]):
        for operation in operations:
            # A pair is compared as two rows.
            expected = operation(window, moved, mode=mode)
            np.testing.assert_array_equal(operation(source, rect, mode=mode), expected)


def test_functions_after_each_other():
    """What a function keeps of its thread's last call does not reach into the next."""
    image, other = noise(60, 60, seed=1), noise(64, 66, np.uint16, seed=2)
    a = kip.AffineRect.from_center((30, 30), (20, 10), 3)
    b = kip.AffineRect.from_center((30, 30), (20, 10), 4)
    calls = [(picture, rect, mode, size) for picture in (image, other, image[5:]) for rect in (a, b)
             for mode in MODES for size in (None, (7, 5))]
    expected = [kip.Sampler(rect, mode=mode, size=size).transform(picture) for picture, rect, mode, size in calls]
    for i in np.random.default_rng(3).integers(0, len(calls), 400):
        picture, rect, mode, size = calls[i]
        np.testing.assert_array_equal(kip.transform(picture, rect, mode=mode, size=size), expected[i])


def test_edges_of_a_caliper():
    columns = np.arange(120) + 0.5
    ramp = lambda place: np.clip(columns - place + 0.5, 0, 1)  # a sharp edge, averaged over each pixel
    image = np.round(np.tile(30 + 150 * ramp(40.3) - 100 * ramp(80.75), (40, 1))).astype(np.uint8)
    rect = kip.AffineRect.from_center((60, 20), (100, 20))
    profile = kip.project_mean(image, rect)
    edges = kip.find_edges(profile, rect=rect)
    # A pixel's width blurs an edge, and so takes a little of its contrast.
    np.testing.assert_allclose([edge.contrast for edge in edges], [150, -100], rtol=0.1)
    np.testing.assert_allclose([edge.point for edge in edges], [(40.3, 20), (80.75, 20)], atol=0.02)
    np.testing.assert_allclose([edge.position for edge in edges], [30.3, 70.75], atol=0.02)
    rising = kip.find_edges(profile.means, polarity="rising")
    assert [(edge.position, edge.point) for edge in rising] == [(edges[0].position, None)]
    assert kip.find_edges(profile, threshold=120, sigma=2)[0].contrast > 120
    assert len(kip.find_edges(profile, min_distance=60)) == 1
    half = kip.AffineRect.from_center((0, 20), (100, 20))
    assert [edge.contrast > 0 for edge in kip.find_edges(kip.project_mean(image, half))] == [True]
    assert kip.find_edges([7] * 9) == [] == kip.find_edges(np.array([], np.float32))
