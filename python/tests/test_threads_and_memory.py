"""Threads side by side, and what a million calls leave behind."""

import sys
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
from conftest import MODES, noise

import kip


@pytest.fixture(autouse=True)
def own_thread_count():
    yield
    kip.set_threads(0)


def test_threads_in_parallel():
    """Functions, samplers of each thread and one sampler of all threads give what one thread gives."""
    # Of two sizes, for which a sampler's tables differ.
    images = [noise(300, 400 + 7 * (seed // 2), dtype, seed) for seed, dtype in enumerate([np.uint8, np.uint16] * 2)]
    rects = [kip.AffineRect.from_center((200, 150), (150, 100), degrees) for degrees in (10, 75)]
    shared = kip.Sampler(rects[0], mode="cubic")
    expected = {(i, r, m): kip.transform(image, rect, mode=m)
                for i, image in enumerate(images) for r, rect in enumerate(rects) for m in MODES}
    start = threading.Barrier(4)

    def work(seed):
        rng = np.random.default_rng(seed)
        own = {(r, m): kip.Sampler(rect, mode=m) for r, rect in enumerate(rects) for m in MODES}
        start.wait()
        for _ in range(150):
            i, r, m = rng.integers(4), rng.integers(2), MODES[rng.integers(4)]
            assert np.array_equal(kip.transform(images[i], rects[r], mode=m), expected[i, r, m])
            assert np.array_equal(own[r, m].transform(images[i]), expected[i, r, m])
            assert np.array_equal(shared.transform(images[i]), expected[i, 0, "cubic"])
            assert np.array_equal(kip.project(images[i], rects[r]), expected[i, r, "bilinear"].sum(0))
        return True

    with ThreadPoolExecutor(4) as pool:
        assert all(pool.map(work, range(4)))


def test_the_interpreter_runs_during_the_work():
    """Without a switch of threads of its own, the interpreter goes on only where a call lets it go."""
    image = noise(3000, 3000)
    rect = kip.AffineRect.from_center((1500, 1500), (2000, 2000), 10)
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1000)
    try:
        kip.set_threads(1)
        for _ in range(20):
            begun, ended = threading.Event(), threading.Event()

            def work():
                begun.set()
                kip.transform(image, rect, mode="cubic")
                ended.set()

            thread = threading.Thread(target=work)
            thread.start()
            begun.wait()
            during = not ended.is_set()
            thread.join()
            if during:
                return
    finally:
        sys.setswitchinterval(interval)
    pytest.fail("the call kept the interpreter to itself")


@pytest.mark.parametrize("threads", [1, 3])
def test_results_do_not_depend_on_the_number_of_threads(threads):
    image = noise(900, 900)
    rect = kip.AffineRect.from_center((450, 450), (600, 600), 10)
    calls = [lambda m=m: f(image, rect, mode=m) for f in (kip.transform, kip.project) for m in MODES]
    expected = [call() for call in calls]
    for split_all in (False, True):
        kip.set_threads(threads, split_all=split_all)
        for call, result in zip(calls, expected):
            assert np.array_equal(call(), result)


def resident() -> int:
    with open("/proc/self/statm") as numbers:
        return int(numbers.read().split()[1]) * 4096


@pytest.mark.skipif(sys.platform != "linux", reason="counts the pages of /proc")
def test_a_million_calls_leave_nothing_behind():
    image, small = noise(20, 20), kip.AffineRect.from_center((10, 10), (3, 2), 10)
    outside = kip.AffineRect.from_center((0, 10), (3, 2), 10)
    sampler, out = kip.Sampler(small), np.empty((2, 3), np.uint8)
    # What is called, and how often in a hundred.
    calls = [
        (24, lambda: sampler.transform(image)),
        (24, lambda: kip.project(image, small)),
        (20, lambda: kip.transform(image, small, out=out)),
        (8, lambda: kip.transform(image, small, mode="cubic", size=(2, 2))),
        (6, lambda: kip.transform_clipped(image, outside)),
        (6, lambda: kip.find_edges(kip.project_mean(image, outside), rect=small)),
        (3, lambda: kip.AffineRect.from_center((10, 10), (3, 2), degrees=1)),
        (3, lambda: kip.row_sums(image)),
        (2, lambda: kip.Sampler(small, size=(2, 2))),
        (2, lambda: kip.transform(image, outside)),
        (1, lambda: kip.transform(out[:, ::2], small)),
        (1, lambda: kip.transform(image, small, mode="none")),
    ]

    def run(count):
        for share, call in calls:
            for _ in range(count * share // 100):
                try:
                    call()
                except (kip.Error, ValueError):
                    pass

    run(50_000)
    before = resident()
    run(1_000_000)
    # Ten bytes a call of any of these would make more.
    assert resident() - before < 100_000 + 10 * 10_000


def test_threads_leave_nothing_behind():
    image, rect = noise(400, 400), kip.AffineRect.from_center((200, 200), (250, 250), 10)

    def run(count):
        for _ in range(count):
            thread = threading.Thread(target=kip.transform, args=(image, rect), kwargs={"mode": "cubic"})
            thread.start()
            thread.join()

    run(20)
    before = resident()
    run(200)
    assert resident() - before < 2_000_000  # a thread keeps tables of some ten kilobytes and more
