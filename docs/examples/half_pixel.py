"""The half pixel between kip's coordinates and those of OpenCV and scikit-image, on a rectangle of a photograph."""

import cv2
import numpy as np
from skimage import transform as skimage_transform

import kip
from pictures import CAMERA, outline, plt, save, show

# [from_opencv]
rotated = ((293.0, 300.0), (160.0, 120.0), 17.0)        # as cv2.minAreaRect gives it: centre, size, degrees
rect = kip.AffineRect.from_cv2(rotated)
assert np.allclose(rect.center, (293.5, 300.5))         # the same point, in coordinates half a pixel further

ours = kip.transform(CAMERA, rect)
# [end from_opencv]

# [warp]
# The map from the result's pixels to the picture's. Both count centres as whole numbers in OpenCV.
width, height = rect.standard_size()
to_picture = np.array([
    [(rect.x_end[0] - rect.origin[0]) / width, (rect.y_end[0] - rect.origin[0]) / height, rect.origin[0]],
    [(rect.x_end[1] - rect.origin[1]) / width, (rect.y_end[1] - rect.origin[1]) / height, rect.origin[1]]])
whole = to_picture.copy()
whole[:, 2] += to_picture[:, :2] @ (0.5, 0.5) - 0.5     # the half pixel, on either side
opencv = cv2.warpAffine(CAMERA, whole, (width, height), flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP)
scikit = skimage_transform.warp(CAMERA, np.vstack([whole, (0, 0, 1)]), output_shape=(height, width), order=1,
                                preserve_range=True)
# [end warp]
wrong = cv2.warpAffine(CAMERA, to_picture, (width, height), flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP)


def difference(a, b):
    return np.asarray(a, float) - np.asarray(b, float)


for name, picture in (("kip", ours), ("OpenCV", opencv), ("OpenCV without the half pixel", wrong)):
    error = abs(difference(picture, scikit))
    print(f"{name}: mean {error.mean():.2f}, greatest {error.max():.2f}")

# [claims]
assert abs(difference(ours, scikit)).max() < 1.0        # kip rounds to whole levels, scikit-image keeps doubles
assert abs(difference(opencv, scikit)).max() > 2 * abs(difference(ours, scikit)).max()
assert abs(difference(wrong, scikit)).mean() > 5 * abs(difference(ours, scikit)).mean()
# [end claims]

figure, axes = plt.subplots(2, 2, figsize=(6.4, 5.2))
show(axes[0, 0], CAMERA, "The rectangle")
outline(axes[0, 0], rect)
for place, picture, name in ((axes[0, 1], ours, "kip"), (axes[1, 0], opencv, "warpAffine, moved"),
                             (axes[1, 1], wrong, "warpAffine, not moved")):
    error = difference(picture, scikit)
    show(place, error, f"{name}: error up to {abs(error).max():.1f}", cmap="RdBu", vmin=-4, vmax=4)
save(figure, "half_pixel.png")
