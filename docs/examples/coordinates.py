"""Pixels, their centres, a rectangle and its samples, on a few pixels of a photograph."""

import numpy as np

import kip
from pictures import BLUE, ORANGE, PAGE, plt, save, show

# [samples]
rect = kip.AffineRect.from_corners(origin=(52.4, 16.9), x_end=(61.1, 19.2), y_end=(51.3, 22.2))
columns, rows = 6, 3
points = np.array([[rect.at((i + 0.5) / columns, (j + 0.5) / rows) for i in range(columns)] for j in range(rows)])

result = kip.transform(PAGE, rect, mode="nearest", size=(columns, rows))
x, y = points[..., 0], points[..., 1]
assert np.array_equal(result, PAGE[np.floor(y).astype(int), np.floor(x).astype(int)])
# [end samples]

figure, (left, right) = plt.subplots(1, 2, figsize=(7.6, 3.4), width_ratios=(13, 7))
show(left, PAGE, "Pixels, the rectangle and its samples")
left.set(xlim=(50, 63), ylim=(25, 15), xticks=range(50, 64), yticks=range(15, 26))
left.grid(color="white", linewidth=0.4)
centres = np.mgrid[50:63, 15:25] + 0.5
left.plot(*centres.reshape(2, -1), ".", color="white", markersize=2)
outline = np.array([rect.origin, rect.x_end, rect.opposite, rect.y_end, rect.origin])
left.plot(*outline.T, color=ORANGE)
left.plot(x.ravel(), y.ravel(), "+", color=BLUE, markeredgewidth=1.5)
for name, point, offset in (("origin", rect.origin, (-0.2, -0.5)), ("x_end", rect.x_end, (0.2, -0.3)),
                            ("y_end", rect.y_end, (-0.3, 0.9))):
    left.plot(*point, "o", color=ORANGE, markersize=4)
    left.text(*np.add(point, offset), name, color="white", fontsize=8)
show(right, result, "The result, 6 x 3, nearest")
save(figure, "coordinates.png")
