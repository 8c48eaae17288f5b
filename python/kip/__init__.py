"""Geometric image operations for machine vision.

kip samples affine rectangles of grey pictures: it straightens them (`transform`), adds them up into profiles
(`project`, `project_mean`) and finds the edges in those (`find_edges`). Its results are the same bits on every machine.

Pictures are numpy arrays of shape (height, width), dtype uint8 or uint16. Their rows may lie any number of bytes
apart, so slices and pictures upside down are taken as they are, without a copy; the pixels of a row must be adjacent.

Coordinates are (x, y) in pixels. Pixel image[q, p] covers p to p + 1 and q to q + 1, so its centre is
(p + 0.5, q + 0.5); OpenCV and scikit-image have it at (p, q).

    >>> import numpy as np, kip
    >>> image = np.tile(np.repeat(np.uint8([20, 200]), 32), (48, 1))
    >>> rect = kip.AffineRect.from_center((32.25, 24), (20, 10), degrees=5)
    >>> kip.transform(image, rect).shape
    (10, 20)
    >>> [edge] = kip.find_edges(kip.project_mean(image, rect), rect=rect)
    >>> round(edge.point[0], 2)
    32.0

A wrong array or argument raises TypeError or ValueError, what the library refuses raises kip.Error, which is a
ValueError; nothing is then written. Functions may be called from several threads at once, and let others run
meanwhile.
"""

from ._core import (
    AffineRect,
    Sampler,
    __version__,
    column_sums,
    find_edges,
    project,
    project_mean,
    row_sums,
    set_threads,
    transform,
    transform_clipped,
)
from ._types import Edge, Error, MeanProfile

__all__ = [
    "AffineRect",
    "Edge",
    "Error",
    "MeanProfile",
    "Sampler",
    "__version__",
    "column_sums",
    "find_edges",
    "project",
    "project_mean",
    "row_sums",
    "set_threads",
    "transform",
    "transform_clipped",
]
