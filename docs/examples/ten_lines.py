"""Straightens a line of text, once as it is and once enlarged."""

# [lines]
from skimage import data

import kip

image = data.page()                                         # numpy, uint8 or uint16, any row stride
line = kip.AffineRect.from_center((89, 127.5), (172, 21), degrees=2.25)
straight = kip.transform(image, line)                       # bilinear, one sample a pixel: 21 x 172
large = kip.transform(image, line, mode="cubic", size=(688, 84))
# [end lines]

from pictures import CAMERA, outline, plt, save, show  # noqa: E402

assert straight.shape == (21, 172) and large.shape == (84, 688)
figure, axes = plt.subplots(3, 1, figsize=(6.4, 5.2), height_ratios=(191, 82, 82))
show(axes[0], image, "The photograph and the rectangle; the dot is its origin")
outline(axes[0], line)
show(axes[1], straight, "straight")
show(axes[2], large, "large")
save(figure, "ten_lines.png")

# What examples/opencv/rotated_rect.cpp makes of another photograph.
part = kip.AffineRect.from_cv2(((320, 240), (200, 80), 12.5))
figure, axes = plt.subplots(1, 2, figsize=(6.4, 2.6))
show(axes[0], CAMERA, "picture and label")
outline(axes[0], part)
show(axes[1], kip.transform(CAMERA, part), "straight")
save(figure, "rotated_rect.png")

# The picture of README.md, kept as docs/straighten.svg: small, its pixels as they are.
with plt.rc_context({"image.interpolation": "none", "svg.fonttype": "none"}):
    figure, axes = plt.subplots(2, 1, figsize=(4.4, 2.9), height_ratios=(74, 24))
    show(axes[0], image[88:152, :196], extent=(0, 196, 152, 88))
    outline(axes[0], line)
    show(axes[1], straight)
    save(figure, "straighten.svg")
