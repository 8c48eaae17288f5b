"""Calipers: the diameter of a coin at 90 angles, from the edges in profiles across it."""

import numpy as np

import kip
from pictures import BLUE, COINS, ORANGE, note, outline, plt, save, show

CENTER = (212.5, 193.5)


# [one]
def caliper(degrees):
    """A rectangle across the coin: 68 pixels long, 5 wide."""
    return kip.AffineRect.from_center(CENTER, (68, 5), degrees)


rect = caliper(30)
profile = kip.project_mean(COINS, rect)
rim = kip.find_edges(profile, rect=rect, sigma=0.6, threshold=25)
lines = [f"{edge.position:5.2f}  contrast {edge.contrast:+6.1f}  at ({edge.point[0]:.2f}, {edge.point[1]:.2f})"
         for edge in rim]
# [end one]
note("calipers.txt", *lines)


# [many]
def measure(degrees):
    """The outermost edges: rising into the coin, falling out of it."""
    rect = caliper(degrees)
    profile = kip.project_mean(COINS, rect)
    rising = kip.find_edges(profile, rect=rect, sigma=0.6, threshold=25, polarity="rising")
    falling = kip.find_edges(profile, rect=rect, sigma=0.6, threshold=25, polarity="falling")
    return rising[0], falling[-1]


angles = np.arange(0, 180, 2)
rims = [measure(angle) for angle in angles]
diameters = np.array([last.position - first.position for first, last in rims])
print(f"diameter {diameters.mean():.2f} pixels, from {diameters.min():.2f} to {diameters.max():.2f}")
# [end many]

# [claims]
assert 45.7 < diameters.min() < 45.9 and 48.3 < diameters.max() < 48.5
assert np.median(abs(np.diff(diameters))) < 0.1
assert all(first.contrast > 40 and last.contrast < -40 for first, last in rims)
assert abs(np.diff(diameters, append=diameters[:1])).max() < 0.5    # neighbours agree, the last with the first
# [end claims]

figure, axes = plt.subplots(2, 2, figsize=(7.2, 6.2))
for place in axes[0]:
    show(place, COINS)
    place.set_xlim(172, 253)
    place.set_ylim(234, 153)
outline(axes[0, 0], rect)
axes[0, 0].set_title("One caliper and its edges")
axes[0, 0].plot(*zip(*(edge.point for edge in rim)), "+", color=BLUE, markersize=10, markeredgewidth=2)
axes[0, 1].set_title("The rim at all angles")
for first, last in rims:
    axes[0, 1].plot(*zip(first.point, last.point), ".", color=BLUE, markersize=4)
axes[1, 0].stairs(profile.means, np.arange(len(profile.means) + 1), color="black")
for edge in rim:
    axes[1, 0].axvline(edge.position, color=BLUE, linewidth=1)
axes[1, 0].set(xlabel="column of the profile", ylabel="mean grey level", title="Its profile")
axes[1, 1].plot(angles, diameters, ".-", color=ORANGE, linewidth=0.8)
axes[1, 1].set(xlabel="angle in degrees", ylabel="pixels", title="The coin's diameter")
save(figure, "calipers.png")
