"""The four modes side by side, enlarged by 8, with their distance from an exact computation."""

import math

import cv2
import numpy as np

import kip
from pictures import PAGE, plt, save, show

RECT = kip.AffineRect.from_center((105, 55), (26, 16), degrees=12)
SIZE = (26 * 8, 16 * 8)


# [exact]
def hat(x):
    return np.maximum(0.0, 1.0 - abs(x))


def keys(x):
    x = abs(x)
    return np.where(x < 1, 1.5 * x**3 - 2.5 * x**2 + 1, np.where(x < 2, -0.5 * x**3 + 2.5 * x**2 - 4 * x + 2, 0))


def exact(image, rect, size, kernel):
    """Interpolates in doubles, at each destination pixel's centre by both axes of the source."""
    (ox, oy), (xx, xy), (yx, yy) = rect.origin, rect.x_end, rect.y_end
    u, v = np.meshgrid((np.arange(size[0]) + 0.5) / size[0], (np.arange(size[1]) + 0.5) / size[1])
    x = ox + u * (xx - ox) + v * (yx - ox) - 0.5        # pixels have their centres at whole numbers from here
    y = oy + u * (xy - oy) + v * (yy - oy) - 0.5
    column, row = np.floor(x).astype(int), np.floor(y).astype(int)
    result = np.zeros(x.shape)
    for j in range(-1, 3):
        for i in range(-1, 3):
            result += kernel(x - column - i) * kernel(y - row - j) * image[row + j, column + i]
    return np.clip(result, 0, 255)
# [end exact]


def warp_affine(image, rect, size, interpolation):
    (ox, oy), (xx, xy), (yx, yy) = rect.origin, rect.x_end, rect.y_end
    matrix = np.array([[(xx - ox) / size[0], (yx - ox) / size[1], ox], [(xy - oy) / size[0], (yy - oy) / size[1], oy]])
    matrix[:, 2] += matrix[:, :2] @ (0.5, 0.5) - 0.5
    return cv2.warpAffine(image, matrix, size, flags=interpolation | cv2.WARP_INVERSE_MAP)


linear, cubic = exact(PAGE, RECT, SIZE, hat), exact(PAGE, RECT, SIZE, keys)
rows = [
    ("nearest", kip.transform(PAGE, RECT, mode="nearest", size=SIZE), linear),
    ("bilinear", kip.transform(PAGE, RECT, mode="bilinear", size=SIZE), linear),
    ("OpenCV's INTER_LINEAR", warp_affine(PAGE, RECT, SIZE, cv2.INTER_LINEAR), linear),
    ("separable", kip.transform(PAGE, RECT, mode="separable", size=SIZE), linear),
    ("cubic", kip.transform(PAGE, RECT, mode="cubic", size=SIZE), cubic),
]
errors = {name: picture - want for name, picture, want in rows}
worst = {name: abs(error).max() for name, error in errors.items()}
mean = {name: abs(error).mean() for name, error in errors.items()}
for name in errors:
    print(f"{name:24s} mean {mean[name]:.3f}  greatest {worst[name]:.3f}")

# [claims]
assert 0.75 < worst["bilinear"] < 0.85                  # half a level of rounding, and positions in 65536ths
assert 2.5 < worst["OpenCV's INTER_LINEAR"] < 3.5       # positions in 32nds of a pixel
assert math.isclose(mean["bilinear"], 0.25, abs_tol=0.02)
assert math.isclose(errors["separable"].mean(), -1, abs_tol=0.2)    # the fraction bits that both passes drop
assert abs(errors["cubic"].mean()) < 0.1
# [end claims]

figure, axes = plt.subplots(len(rows), 2, figsize=(6.4, 9.6))
for (picture_axes, error_axes), (name, picture, want) in zip(axes, rows):
    show(picture_axes, picture, name)
    bound = next(bound for bound in (4, 16, 100) if worst[name] < bound)
    against = "cubic" if want is cubic else "bilinear"
    drawn = show(error_axes, errors[name], f"error against exact {against} interpolation", cmap="RdBu", vmin=-bound,
                 vmax=bound)
    figure.colorbar(drawn, ax=error_axes)
save(figure, "modes.png")
