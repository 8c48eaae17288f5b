"""The eight maps that move whole pixels: copied exactly, in every mode."""

import numpy as np

import kip
from pictures import CAMERA, plt, save, show

LEFT, TOP, SIDE = 190, 70, 160
part = CAMERA[TOP:TOP + SIDE, LEFT:LEFT + SIDE]


# [maps]
def corner(right, down):
    return LEFT + SIDE * right, TOP + SIDE * down


# Where the origin, the end of the x side and the end of the y side lie; what numpy calls it.
maps = {
    "identity": ((0, 0), (1, 0), (0, 1), part),
    "mirrored in x": ((1, 0), (0, 0), (1, 1), part[:, ::-1]),
    "half turn": ((1, 1), (0, 1), (1, 0), part[::-1, ::-1]),
    "mirrored in y": ((0, 1), (1, 1), (0, 0), part[::-1]),
    "transposed": ((0, 0), (0, 1), (1, 0), part.T),
    "quarter turn": ((0, 1), (0, 0), (1, 1), np.rot90(part, -1)),
    "transposed, half turn": ((1, 1), (1, 0), (0, 1), part.T[::-1, ::-1]),
    "three quarter turns": ((1, 0), (1, 1), (0, 0), np.rot90(part)),
}
for name, (origin, x_end, y_end, same) in maps.items():
    rect = kip.AffineRect.from_corners(corner(*origin), corner(*x_end), corner(*y_end))
    for mode in ("nearest", "bilinear", "separable", "cubic"):
        assert np.array_equal(kip.transform(CAMERA, rect, mode=mode), same)
# [end maps]

figure, axes = plt.subplots(2, 4, figsize=(7.2, 3.9))
for place, (name, (_, _, _, picture)) in zip(axes.flat, maps.items()):
    show(place, picture, name)
save(figure, "whole_pixels.png")
