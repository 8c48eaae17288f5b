"""Runs examples/caliper.py on the photograph of a page, and shows the picture that it writes."""

import pathlib
import runpy
import sys
import tempfile

import numpy as np
import skimage
from PIL import Image

from pictures import PAGE, plt, save, show

program = pathlib.Path(__file__).parents[2] / "examples/caliper.py"
with tempfile.TemporaryDirectory() as directory:
    result = pathlib.Path(directory) / "result.png"
    arguments = sys.argv
    sys.argv = [str(program), str(pathlib.Path(skimage.data_dir) / "page.png"), str(result)]
    runpy.run_path(str(program), run_name="__main__")
    sys.argv = arguments
    drawn = np.asarray(Image.open(result).convert("L"))

assert (drawn != PAGE).any()
figure, axes = plt.subplots(figsize=(6.4, 3.3))
show(axes, drawn)
save(figure, "caliper_program.png")
