"""Times kip beside OpenCV and scikit-image: what a user of each pays for a call from Python, in one run.

    PYTHONPATH=build/release/python python3 python/bench/compare.py [rounds]

A rectangle of 120 x 40 samples, turned by 17 degrees, in a picture of 4096 x 3000 pixels of 8 bits: straightened, and
added up into a profile. All run in turn in every round, on one thread. The times are the least of a call over the
rounds, the ratios medians of those within a round. scikit-image gets the picture as doubles, which it would make of it
in every call, or else cut its samples down to whole levels, and does not look for its least and greatest value
(clip=False).
"""

import statistics
import sys
import timeit

import cv2
import numpy as np
from skimage.measure import profile_line
from skimage.transform import AffineTransform, warp

import kip

WIDTH, HEIGHT = 120, 40


def scene():
    rng = np.random.default_rng(1)
    return np.kron(rng.integers(0, 225, (375, 512), np.uint8), np.ones((8, 8), np.uint8)) + rng.integers(
        0, 31, (3000, 4096), np.uint8
    )


def cases(image):
    rect = kip.AffineRect.from_center((2000.3, 1500.2), (WIDTH, HEIGHT), degrees=17)
    sampler = kip.Sampler(rect)
    out = np.empty((HEIGHT, WIDTH), np.uint8)

    # The same samples for the others, whose pixels have their centres at whole numbers.
    origin, x_end, y_end = map(np.array, (rect.origin, rect.x_end, rect.y_end))
    step = np.column_stack([(x_end - origin) / WIDTH, (y_end - origin) / HEIGHT])
    matrix = np.column_stack([step, origin + step @ [0.5, 0.5] - 0.5])
    transform = AffineTransform(np.vstack([matrix, [0, 0, 1]]))
    doubles = image.astype(float)
    start, end = (rect.at(u, 0.5) for u in (0.5 / WIDTH, 1 - 0.5 / WIDTH))
    flags = cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP

    def warp_affine():
        return cv2.warpAffine(image, matrix, (WIDTH, HEIGHT), flags=flags)

    straighten = {
        "kip.Sampler.transform(out=)": lambda: sampler.transform(image, out=out),
        "kip.Sampler.transform": lambda: sampler.transform(image),
        "kip.transform": lambda: kip.transform(image, rect),
        "cv2.warpAffine": warp_affine,
        "skimage warp": lambda: warp(doubles, transform, order=1, output_shape=(HEIGHT, WIDTH),
                                     preserve_range=True, clip=False),
    }
    project = {
        "kip.Sampler.project": lambda: sampler.project(image),
        "kip.project": lambda: kip.project(image, rect),
        "cv2.warpAffine, cv2.reduce": lambda: cv2.reduce(warp_affine(), 0, cv2.REDUCE_SUM, dtype=cv2.CV_32S)[0],
        "skimage profile_line": lambda: HEIGHT
        * profile_line(doubles, start[1::-1] - np.array(0.5), end[1::-1] - np.array(0.5), linewidth=HEIGHT, order=1),
    }
    return straighten, project


def call_overhead(image):
    """What a call costs beside its samples: a single one."""
    rect = kip.AffineRect.from_center((2000.3, 1500.2), (WIDTH, HEIGHT), degrees=17)
    sampler = kip.Sampler(rect, size=(1, 1))
    return {
        "kip.Sampler.transform, 1 x 1": lambda: sampler.transform(image),
        "kip.Sampler.project, 1 x 1": lambda: sampler.project(image),
        "numpy.empty, 120 x 40": lambda: np.empty((HEIGHT, WIDTH), np.uint8),
    }


def check(group, bound):
    """Everyone has to do the same work, or there is nothing to compare."""
    results = [np.asarray(call(), float) for call in group.values()]
    for name, result in zip(group, results):
        difference = np.abs(result[..., : results[0].shape[-1]] - results[0]).mean()
        if difference > bound:
            sys.exit(f"{name} differs by {difference:.2f} on average")


def measure(group, rounds):
    timers = {name: timeit.Timer(call) for name, call in group.items()}
    counts = {name: max(1, int(0.01 / timer.timeit(1))) for name, timer in timers.items()}
    times = {name: [] for name in group}
    for _ in range(rounds):
        for name, timer in timers.items():
            times[name].append(timer.timeit(counts[name]) / counts[name] * 1e6)
    return times


def print_table(title, times):
    first = next(iter(times))
    print(f"\n| {title} | microseconds | times {first} |\n|---|--:|--:|")
    for name, rounds in times.items():
        ratio = statistics.median(theirs / mine for theirs, mine in zip(rounds, times[first]))
        print(f"| {name} | {min(rounds):.2f} | {ratio:.2f} |")


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 30
    kip.set_threads(1)
    cv2.setNumThreads(1)
    image = scene()
    straighten, project = cases(image)
    check(straighten, 1)
    check(project, HEIGHT)
    print(f"kip {kip.__version__}, OpenCV {cv2.__version__}, numpy {np.__version__}, best of {rounds} rounds")
    print_table("straighten", measure(straighten, rounds))
    print_table("profile", measure(project, rounds))
    print_table("a call itself", measure(call_overhead(image), rounds))


if __name__ == "__main__":
    main()
