"""What the examples share: photographs, and how they are drawn. Photographs: "About the pictures" in the guide."""

import pathlib
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
from skimage import data  # noqa: E402

PAGE, COINS, CAMERA = data.page(), data.coins(), data.camera()

plt.rcParams.update({"font.size": 9, "axes.titlesize": 9, "figure.constrained_layout.use": True,
                     "svg.hashsalt": "kip", "image.cmap": "gray", "image.interpolation": "nearest"})
BLUE, ORANGE = "#2a6fbb", "#e07b00"


def show(axes, image, title="", **options):
    """Draws a picture in kip's coordinates: pixel (p, q) covers p to p + 1 and q to q + 1."""
    height, width = image.shape[:2]
    limits = {"vmin": 0, "vmax": 255} if image.dtype == "uint8" else {}
    drawn = axes.imshow(image, **{"extent": (0, width, height, 0), **limits, **options})
    axes.set_title(title)
    axes.set_xticks([])
    axes.set_yticks([])
    return drawn


def outline(axes, rect, color=ORANGE):
    """Draws a rectangle, and a dot at its origin."""
    corners = [rect.origin, rect.x_end, rect.opposite, rect.y_end, rect.origin]
    axes.plot(*zip(*corners), color=color, linewidth=1.2)
    axes.plot(*rect.origin, "o", color=color, markersize=3)


DIRECTORY = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")     # where results go


def note(name, *lines):
    """Prints lines, and keeps them in a file for the guide."""
    text = "".join(f"{line}\n" for line in lines)
    print(text, end="")
    (DIRECTORY / name).write_text(text)


def save(figure, name):
    figure.savefig(DIRECTORY / name, dpi=150, metadata={"Date": None} if name.endswith(".svg") else None)
    plt.close(figure)
