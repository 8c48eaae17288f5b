"""A caliper: finds the lines of text across a column of page.png, and draws them in.  caliper.py page.png result.png"""
import sys
import numpy as np
from PIL import Image, ImageDraw
import kip

picture = Image.open(sys.argv[1]).convert("L")
rect = kip.AffineRect.from_center((92, 110), (58, 120), degrees=91.75)
for edge in kip.find_edges(kip.project_mean(np.asarray(picture), rect), rect=rect, threshold=20):
    print(f"{edge.position:6.2f} {edge.contrast:+7.1f} grey levels")
    ImageDraw.Draw(picture).line([rect.at(edge.position / 58, v) for v in (0, 1)], fill=255)
picture.save(sys.argv[2])
