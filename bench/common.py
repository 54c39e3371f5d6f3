"""Shared pieces of the Python benchmarks: seeded graphs, problems, timing and memory."""

import os
import random
import statistics
import time

import sympy


def random_regular_graph(n, degree, seed):
    """A simple random `degree`-regular graph on n nodes (pairing model with restarts)."""
    rng = random.Random(seed)
    while True:
        stubs = [v for v in range(n) for _ in range(degree)]
        rng.shuffle(stubs)
        edges = set()
        ok = True
        for a, b in zip(stubs[::2], stubs[1::2]):
            edge = (min(a, b), max(a, b))
            if a == b or edge in edges:
                ok = False
                break
            edges.add(edge)
        if ok:
            return sorted(edges)


def maxcut_polynomial(edges, n):
    """sum over edges of -(x_i + x_j - 2 x_i x_j): its minimum is minus the maximum cut."""
    xs = sympy.symbols(f"x0:{n}")
    return sum(-(xs[i] + xs[j] - 2 * xs[i] * xs[j]) for i, j in edges)


def status_bytes(field):
    """A memory figure of this process from /proc/self/status (e.g. "VmRSS"), in bytes."""
    with open("/proc/self/status") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
    return 0


def peak_rss_bytes():
    """Peak resident memory of this process so far (VmHWM)."""
    return status_bytes("VmHWM")


def reset_peak_rss():
    """Restart the VmHWM count (Linux: writing 5 to clear_refs), so a row reports its own peak."""
    try:
        with open("/proc/self/clear_refs", "w") as refs:
            refs.write("5")
    except OSError:
        pass


def median_seconds(fn, repeats, warmup=1):
    for _ in range(warmup):
        fn()
    samples = []
    for _ in range(repeats):
        start = time.perf_counter()
        fn()
        samples.append(time.perf_counter() - start)
    return statistics.median(samples)


def best_seconds_in_turns(calls, rounds, warmup=1):
    """The best time of each of `calls` over `rounds` rounds that call each once in turn, so
    that load from other work on a shared machine falls on all of them alike."""
    for call in calls:
        for _ in range(warmup):
            call()
    best = [float("inf")] * len(calls)
    for _ in range(rounds):
        for i, call in enumerate(calls):
            start = time.perf_counter()
            call()
            best[i] = min(best[i], time.perf_counter() - start)
    return best


def machine_line():
    cpus = os.cpu_count()
    model = "unknown CPU"
    try:
        with open("/proc/cpuinfo") as info:
            for line in info:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    return f"{model}, {cpus} cores"
