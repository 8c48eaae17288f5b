"""What kip computes, in numpy: each function gives the library's own bits, in every mode.

A rectangle is given by its corners (origin, end of the x side, end of the y side), a size as (width, height);
optimised is False for programs that forbid the optimised 8-bit path.
"""

import math

import numpy as np


# [grid]
def grid(corners, size):
    """Where the destination's pixel centres lie in the source: the first one, one column right, one row down."""
    (ox, oy), (xx, xy), (yx, yy) = corners
    width, height = size
    e0, e1 = (xx - ox) * (1 / width), (yx - ox) * (1 / height)
    e2, e3 = (xy - oy) * (1 / width), (yy - oy) * (1 / height)

    def centre(column, row):
        x, y = column + 0.5, row + 0.5
        return np.array([e0 * x + e1 * y + ox, e2 * x + e3 * y + oy])

    first = centre(0, 0)
    return first, centre(1, 0) - first, centre(0, 1) - first
# [end grid]


# [positions]
def fixed(value):
    """16.16: an integer of 65536ths, truncated toward zero."""
    return int(value * 65536.0)


def positions(first, right, down, size, tile):
    """The 16.16 positions of all destination pixels along one axis of the source. tile: 0, or a tile's side."""
    column, row = np.arange(size[0]), np.arange(size[1])[:, None]
    start = int(first * 65536.0 + 0.5)
    if tile == 0:
        return start + column * fixed(right) + row * fixed(down)
    return (start + column // tile * fixed(tile * right) + column % tile * fixed(right)
            + row // tile * fixed(tile * down) + row % tile * fixed(down))


def tile_side(image, optimised):
    if image.dtype == np.uint8 and not optimised:
        return 64
    pitch = image.strides[0] // image.itemsize
    return 224 if pitch <= 1024 else 96 if pitch <= 2048 else 64 if pitch <= 3072 else 48


def pixels(image, x, y):
    """The pixels at columns x and rows y; outside the image, the nearest ones."""
    height, width = image.shape
    return image[np.clip(y, 0, height - 1), np.clip(x, 0, width - 1)].astype(np.uint64)
# [end positions]


# [nearest]
def nearest(image, corners, size, optimised=True):
    first, right, down = grid(corners, size)
    tile = tile_side(image, optimised) if max(size) > 1024 else 0
    x, y = (positions(first[i], right[i], down[i], size, tile) for i in (0, 1))
    return pixels(image, x >> 16, y >> 16).astype(image.dtype)
# [end nearest]


# [bilinear]
def bilinear(image, corners, size, optimised=True):
    is_short = image.dtype == np.uint8 and optimised    # weights of 15 bits
    first, right, down = grid(corners, size)
    tile = tile_side(image, optimised) if is_short or max(size) > 1024 else 0
    x, y = (positions(first[i], right[i], down[i], size, tile) - 0x8000 for i in (0, 1))
    column, row = x >> 16, y >> 16
    fx, fy = (x & 0xFFFF).astype(np.uint64), (y & 0xFFFF).astype(np.uint64)
    p00, p01 = pixels(image, column, row), pixels(image, column + 1, row)
    p10, p11 = pixels(image, column, row + 1), pixels(image, column + 1, row + 1)
    if image.dtype == np.uint8:
        gx, gy = 65535 - fx, 65535 - fy
        lost = 17 if is_short else 16
        total = (gy * gx >> lost) * p00 + (gy * fx >> lost) * p01 + (fy * gx >> lost) * p10 + (fy * fx >> lost) * p11
        return ((total << (lost - 16)) + 32768 >> 16).astype(np.uint8)
    gx, gy = 65536 - fx, 65536 - fy
    total = gy * gx * p00 + gy * fx * p01 + fy * gx * p10 + fy * fx * p11
    return (total + 0x7FFFFFFF >> 32).astype(np.uint16)
# [end bilinear]


# [projection]
def project(samples):
    return np.sum(samples, axis=0, dtype=np.uint32)
# [end projection]


# [weights]
def cubic_weight(x):
    """Keys' cubic convolution kernel with a = -0.5."""
    x = abs(x)
    if x < 1:
        return 1.5 * x**3 - 2.5 * x**2 + 1
    return -0.5 * x**3 + 2.5 * x**2 - 4 * x + 2 if x < 2 else 0.0


# Of each 256th of a pixel, the weights of the pixels at -1, 0, 1 and 2.
CUBIC = np.array([[int(min(cubic_weight(phase / 256 - tap) * 32768, 32767)) for tap in (-1, 0, 1, 2)]
                  for phase in range(256)])


def weights(mode, fraction):
    """The weights of two or four neighbouring values for fractions of 65536ths, in 32768ths."""
    if mode == "cubic":
        return CUBIC[fraction >> 8]
    return np.stack([32768 - (fraction >> 1), fraction >> 1], axis=-1)
# [end weights]


# [tables]
def tile_size(e, size, margin):
    """The tiles of a table-driven mode shrink until the source pixels that one reads are at most 200000."""
    width, height = (min(side, 96) for side in size)
    while (width, height) != size and (width > 1 or height > 1):
        area = 1
        for per_column, per_row in e:
            least = min(0, per_column * width) + min(0, per_row * height)
            greatest = max(0, per_column * width) + max(0, per_row * height)
            area *= math.ceil(greatest - 1e-6) + margin - (math.floor(least + 1e-6) - margin) + 1
        if area <= 200000:
            break
        factor = math.sqrt(200000 / area)
        width, height = max(1, int(factor * width)), max(1, int(factor * height))
    return width, height


def table_driven(image, corners, size, mode, optimised=True):
    """Mode "separable" or "cubic", of a rectangle whose lines of samples lie inside the image."""
    (ox, oy), (xx, xy), (yx, yy) = corners
    width, height = size
    e = [((xx - ox) * (1 / width), (yx - ox) * (1 / height)), ((xy - oy) * (1 / width), (yy - oy) * (1 / height))]
    tile = tile_size(e, size, 3 if mode == "cubic" else 2)

    # Pixels are counted by their centres here, and no start lies on one exactly.
    start = [m[0] * 0.5 + m[1] * 0.5 + t - 0.5 for m, t in zip(e, (ox, oy))]
    start = [fixed(s + 1.526e-05 if s - math.floor(s) < 1.526e-05 else s) for s in start]
    tile_right = [fixed(m[0] * tile[0]) for m in e]
    tile_down = [fixed(m[1] * tile[1]) for m in e]

    # The source axis closest to the direction of a destination row is the primary one. The image is turned so that
    # it becomes x and runs forward.
    if abs(e[0][0]) >= 1e-6:
        angle = -math.atan2(e[1][0], e[0][0])
    else:
        angle = math.copysign(math.pi / 2, -e[0][1] if e[0][1] else -1.0)
        angle = angle if e[0][1] * e[1][0] >= 0 else -angle
    along_y = math.pi / 4 < abs(angle) < 3 * math.pi / 4
    backward = angle > 0 if along_y else abs(angle) > math.pi / 4
    axes = (1, 0) if along_y else (0, 1)
    turned = image.T if along_y else image
    turned = (turned[:, ::-1] if backward else turned).astype(np.int64)
    sign = -1 if backward else 1
    primary, secondary = [sign * v for v in e[axes[0]]], e[axes[1]]
    step, row_step = fixed(primary[0]), fixed(primary[1])
    shear = fixed(secondary[0] / primary[0])
    secondary_row_step = fixed((primary[0] * secondary[1] - primary[1] * secondary[0]) / primary[0])

    taps = np.arange(-1, 3) if mode == "cubic" else np.arange(2)
    result = np.zeros((height, width), np.int64)
    for top in range(0, height, tile[1]):
        for left in range(0, width, tile[0]):
            at = [s + left // tile[0] * r + top // tile[1] * d for s, r, d in zip(start, tile_right, tile_down)]
            x, y = at[axes[0]], at[axes[1]]
            x += x & 0xFFFF == 0
            x = (turned.shape[1] - 1 << 16) - x if backward else x
            fraction = x & 0xFFFF
            y -= shear * fraction >> 16
            for j in range(min(tile[1], height - top)):
                skipped, u = divmod(fraction + j * row_step, 65536)
                columns = min(tile[0], width - left)
                out = u + np.arange(columns) * step

                # First pass: a sample at each source pixel along the row, across the primary axis.
                r = np.arange(taps[0], (out[-1] >> 16) + taps[-1] + 1)
                p = y + j * secondary_row_step + (skipped + r) * shear
                columns_of = (x >> 16) + skipped + r
                neighbours = turned[(p >> 16)[:, None] + taps, columns_of[:, None]]
                line = np.sum(weights(mode, p & 0xFFFF) * neighbours, axis=-1)
                if mode == "separable":
                    line >>= 15
                elif image.dtype == np.uint8 and optimised:
                    line = line + 256 >> 9
                else:
                    line = np.fix((line + 256) / 512).astype(np.int64)     # toward zero

                # Second pass: the row's pixels from these samples.
                neighbours = line[(out >> 16)[:, None] + np.arange(len(taps))]
                row = np.sum(weights(mode, out & 0xFFFF) * neighbours, axis=-1)
                row = row >> 15 if mode == "separable" else row + 0x100000 >> 21
                result[top + j, left:left + columns] = row
    return np.clip(result, 0, np.iinfo(image.dtype).max).astype(image.dtype)
# [end tables]
