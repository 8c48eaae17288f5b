"""A rectangle that reaches outside the photograph: what is refused, the mask, and the coverage of a profile."""

import textwrap

import numpy as np

import kip
from pictures import BLUE, ORANGE, PAGE, note, outline, plt, save, show

# [refused]
rect = kip.AffineRect.from_center((330, 30), (160, 90), degrees=-20)
try:
    kip.transform(PAGE, rect)
except kip.Error as error:
    refusal = error
# [end refused]
note("clipping.txt", *textwrap.wrap(str(refusal), 96))

# [clipped]
picture, mask = kip.transform_clipped(PAGE, rect)       # black outside; the mask is 255 inside, 0 outside
means, coverage = kip.project_mean(PAGE, rect)          # of what lies inside, and how much that is
sums = picture.sum(axis=0, dtype=np.uint32)
# [end clipped]

# [claims]
assert refusal.name == "kip_statusTransformWouldClip"
assert mask.max() == 255 and mask.min() == 0 and not picture[mask == 0].any()
inside = coverage > 0.05
assert abs(means[inside] - sums[inside] / (coverage[inside] * rect.standard_size()[1])).max() < 2
assert np.isnan(means[coverage == 0]).all()
# [end claims]

figure, axes = plt.subplots(2, 2, figsize=(7.2, 4.6))
show(axes[0, 0], PAGE, "The rectangle")
outline(axes[0, 0], rect)
axes[0, 0].set_xlim(200, 440)
axes[0, 0].set_ylim(120, -50)
show(axes[0, 1], picture, "picture")
show(axes[1, 1], mask, "mask")
columns = np.arange(len(means) + 1)
axes[1, 0].stairs(means, columns, color=BLUE, label="mean grey level")
axes[1, 0].stairs(100 * coverage, columns, color=ORANGE, label="coverage, per cent")
axes[1, 0].set_xlabel("column")
axes[1, 0].legend(loc="lower left")
save(figure, "clipping.png")
