#!/usr/bin/env python3
"""Runs the benchmarks and prints one table of times and ratios.

    bench/ratios.py BUILD_FOLDER [--quick] [part of an operation's name]
    bench/ratios.py --table TIMINGS.json...

Each operation on each type is a run of its own of the benchmark program: all who do it
take their turns in random order there. What the program cannot run itself - numpy,
ImageMagick - it asks for here, so that it is timed in turns with the rest. Medians of
the repetitions count. A ratio to a peer is the peer's time over ours, to a limit ours
over the limit's. The second form prints the table of earlier runs again.
"""
import json
import os
import shutil
import statistics
import subprocess
import sys
import time

WIDTH, HEIGHT = 6000, 4000

# (operation, type or None for all): (what, bound) with "peer" a least ratio to the best
# peer, a peer's name a least ratio to that one, "limit" (and the names of other bounds)
# a most ratio to it. Held against the kernel path on two threads where that exists.
GOALS = {
    ("minmax", None): [("opencv", 3.5), ("numpy", 2.5), ("limit", 1.15)],
    ("minmaxavr", "uint16"): [("peer", 4), ("limit", 1.6)],
    ("minmaxavr", "int32"): [("peer", 2.5)],
    ("minmaxavr", "float"): [("peer", 4), ("limit", 1.35)],
    ("minmaxavr", "double"): [("peer", 2), ("limit", 1.2)],
    ("average", "float"): [("opencv", 1.15), ("limit", 1.25)],
    ("average", "double"): [("opencv", 1.15), ("limit", 1.25)],
    ("deviation", "uint16"): [("peer", 3)],
    ("deviation", "int32"): [("peer", 3)],
    ("deviation", "float"): [("peer", 3)],
    ("deviation", "double"): [("peer", 1.5)],
    ("histogram256", "uint8"): [("peer", 3)],
    ("histogram256", "uint16"): [("opencv", 7)],
    ("histogram256", "float"): [("opencv", 4.5)],
    ("histogram65536", "uint16"): [("vips", 3.4), ("opencv", 10)],
    ("normalize", "uint16->uint8"): [("opencv", 3.5), ("limit", 1.7)],
    ("normalize", "uint16->int16"): [("limit", 1.7)],
    ("normalize", "float->uint8"): [("opencv", 3.5), ("limit", 1.5)],
    ("normalize", "float->uint16"): [("opencv", 3.5), ("limit", 1.5)],
    ("normalize", "double->int32"): [("limit", 1.15)],
    ("normalize", "double->uint32"): [("limit", 1.15)],
    ("minmax+normalize", "uint16->uint8"): [("opencv", 1.7)],
    ("minmax+normalize", "float->uint8"): [("opencv", 1.9)],
    ("shift_clamp", "float->uint8"): [("limit", 1.15)],
    ("shift_clamp", "float->uint16"): [("limit", 1.15)],
    ("shift_clamp", "uint16->uint8"): [("limit", 1.7)],
    ("shift_clamp", "uint16->int16"): [("limit", 1.7)],
    ("static_cast", None): [("limit", 1.1)],
    ("fill", None): [("memset", 1.3)],
    ("copy", None): [("memcpy", 1.1)],
    ("change_bits", None): [("kernels", 1.25)],
    ("miss_out_and_in", None): [("us", 35)],
    ("paging_bookkeeping", "28000_records"): [("us", 1)],
    ("paging_bookkeeping", "28000_scattered"): [("us", 1)],
    ("minmax_4x_budget", None): [("pread+kernel", 1.25), ("vips", 3.5), ("imagemagick", 25)],
    ("fetch_row", None): [("us", 0.1)],
    ("load_fits", None): [("cfitsio", 1.2)],
}
OURS = ("kernel", "row", "korin")
# Columns of times that bound ours from below, rather than another program's.
LIMITS = ("limit", "memset", "kernels", "pwrite+pread", "pread", "memcpy", "pread+kernel",
          "pread_ring+kernel", "cfitsio")
PEERS = ("opencv", "vips", "numpy", "imagemagick")
ROW_TO_KERNEL = 1.3
THREADS_SCALE = 1.85
SMALL_BLOCK = 1.1
SCRATCH_MIB = 16
# Arithmetic binds, not memory, where half of the time on one thread is still this many
# times the limit's on two.
BOUND_BY_ARITHMETIC = 1.5


class Numpy:
    """Answers questions about numpy's time for an operation."""

    def __init__(self):
        try:
            import numpy
        except ImportError:
            numpy = None
        self.numpy = numpy
        self.frames = {}
        self.sweeper = None

    def frame(self, kind):
        if kind not in self.frames:
            random = self.numpy.random.default_rng(1)
            low, high = (0, 64) if kind == "uint8" else (1000, 5096)
            frame = random.integers(low, high, (HEIGHT, WIDTH), "uint16")
            self.frames = {kind: frame.astype("float32" if kind == "float" else
                                              "float64" if kind == "double" else kind)}
        return self.frames[kind]

    def seconds(self, operation, kind):
        if self.numpy is None:
            return None
        run = {
            "minmax": lambda a: (a.min(), a.max()),
            "minmaxavr": lambda a: (a.min(), a.max(), a.mean()),
            "average": lambda a: a.mean(),
            "deviation": lambda a: a.std(),
        }.get(operation)
        if run is None:
            return None
        frame = self.frame(kind)
        if self.sweeper is None:
            self.sweeper = self.numpy.zeros(16 << 20, "uint64")
        self.sweeper += 1
        start = time.perf_counter()
        run(frame)
        return time.perf_counter() - start


def magick_seconds(shape, budget, name):
    convert = shutil.which("convert")
    if convert is None:
        return None
    limits = ["-limit", "memory", f"{budget}MiB", "-limit", "map", f"{budget}MiB"]
    command = [convert, *limits, "-size", shape, "-depth", "16", "-endian", "LSB",
               f"gray:{name}", "-format", "%[min] %[max]", "info:"]
    start = time.perf_counter()
    done = subprocess.run(command, capture_output=True, text=True)
    return time.perf_counter() - start if done.returncode == 0 and done.stdout else None


def answer(question, numpy):
    words = question.split(" ", 3)
    if words[0] == "numpy":
        return numpy.seconds(words[1], words[2])
    return magick_seconds(*words[1:])


def run_program(command, numpy):
    """Runs the benchmark program and answers what it asks."""
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True) as process:
        for line in process.stdout:
            if line.startswith("ask "):
                seconds = answer(line[4:].strip(), numpy)
                process.stdin.write(f"{-1.0 if seconds is None else seconds}\n")
                process.stdin.flush()
        errors = process.stderr.read()
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)} failed\n{errors}")


def measure(folder, quick, is_wanted):
    """Google Benchmark's records of the runs of all operations that are wanted."""
    program = os.path.join(folder, "korin_bench")
    listed = subprocess.run([program, "--benchmark_list_tests"], check=True,
                            capture_output=True, text=True).stdout.split()
    runs = {}  # in the order of the list
    for name in listed:
        operation, kind, who, threads = name.split("/")[:4]
        # What is added to memory shows only in a process that has done nothing else.
        part = f"{who}/memory" if threads == "memory" else "[^/]*/[12]"
        if is_wanted(operation):
            runs[f"^{operation}/{kind}/{part}/".replace("+", "[+]")] = None
    records = []
    numpy = Numpy()
    out = os.path.join(folder, "run.json")
    for pattern in runs:
        options = ["--driven", f"--benchmark_filter={pattern}", f"--benchmark_out={out}"]
        run_program([program, *options, *(["--benchmark_repetitions=3"] if quick else [])], numpy)
        with open(out, encoding="utf-8") as file:
            records += json.load(file)["benchmarks"]
    # What was timed, for whoever wants to look again.
    with open(os.path.join(folder, "timings.json"), "w", encoding="utf-8") as file:
        json.dump(records, file, indent=1)
    return records


def medians(records):
    """{(operation, type): {who: {threads: nanoseconds}}} and the same of figures of memory."""
    times = {}
    memory = {}
    for record in records:
        if record["run_type"] != "iteration" or record.get("error_occurred"):
            continue
        operation, kind, who, threads = record["name"].split("/")[:4]
        if threads == "memory":
            figures = {name: value for name, value in record.items() if name.endswith("_MiB")}
            memory.setdefault((operation, kind), {})[who] = figures
        else:
            contest = times.setdefault((operation, kind), {}).setdefault(who, {})
            contest.setdefault(int(threads), []).append(record["real_time"])
    for contest in times.values():
        for counts in contest.values():
            counts.update((threads, statistics.median(all)) for threads, all in counts.items())
    return times, memory


def show(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.2f} {unit}"
    return f"{nanoseconds:.0f} ns"


def at(times, who, threads):
    """A contender's time; what never uses a second thread has but one."""
    return times[who].get(threads, times[who][1])


def verdict(text, met):
    return f"{text} {'met' if met else 'NOT MET'}"


def goals_of(operation, kind, times, threads, ours):
    """The goals of a row with what was reached, as texts."""
    texts = []
    best_peer = min((at(times, p, threads) for p in PEERS if p in times), default=None)
    for what, bound in GOALS.get((operation, kind), GOALS.get((operation, None), [])):
        if what == "us":
            texts.append(verdict(f"<= {bound} us", ours <= bound * 1e3))
        elif what in LIMITS:
            if what in times:
                ratio = ours / at(times, what, threads)
                texts.append(verdict(f"<= {bound} x {what} ({ratio:.2f})", ratio <= bound))
        else:
            known = at(times, what, threads) if what in times else None
            peer = best_peer if what == "peer" else known
            if peer is not None:
                name = "best peer" if what == "peer" else what
                texts.append(verdict(f">= {bound} x {name} ({peer / ours:.2f})",
                                     peer / ours >= bound))
    return texts


def print_table(records):
    contests, memory = medians(records)
    header = ["operation", "type", "path", "1 thread", "2 threads", "scale", "peer", "x peer 1",
              "x peer 2", "limit", "/ limit 1", "/ limit 2", "goals"]
    rows = [header]
    for (operation, kind), times in contests.items():
        for who in [name for name in OURS if name in times]:
            mine = times[who]
            threads = max(mine)
            peers = [p for p in PEERS if p in times]
            peer = min(peers, key=lambda p: at(times, p, threads)) if peers else None
            limit = next((name for name in LIMITS if name in times), None)
            row = [operation, kind, who, show(mine[1]), show(mine[2]) if 2 in mine else "",
                   f"{mine[1] / mine[2]:.2f}" if 2 in mine else "", peer or "",
                   *(f"{at(times, peer, t) / mine[t]:.2f}" if peer and t in mine else ""
                     for t in (1, 2)),
                   limit or "",
                   *(f"{mine[t] / at(times, limit, t):.2f}" if limit and t in mine else ""
                     for t in (1, 2))]
            texts = []
            if who in ("kernel", "korin") or "kernel" not in times or (
                    operation in ("change_bits", "load_fits")):
                texts += goals_of(operation, kind, times, threads, mine[threads])
            if who == "row" and "kernel" in times and operation not in (
                    "change_bits", "load_fits", "copy_image"):
                worst = max(mine[t] / times["kernel"][t] for t in mine)
                texts.append(verdict(f"<= {ROW_TO_KERNEL} x kernel path ({worst:.2f})",
                                     worst <= ROW_TO_KERNEL))
            if who == "kernel" and "limit" in times and (
                    mine[1] / 2 >= BOUND_BY_ARITHMETIC * times["limit"][2]):
                texts.append(verdict(f"threads >= {THREADS_SCALE}",
                                     mine[1] / mine[2] >= THREADS_SCALE))
            texts += [f"{mine[threads] / at(times, name, threads):.2f} x {name}"
                      for name in LIMITS if name in times and name != limit and
                      not any(name in text for text in texts)]
            if operation.startswith("small_"):
                texts.append(verdict(f"<= {SMALL_BLOCK} x serial",
                                     mine[2] <= SMALL_BLOCK * mine[1]))
            row.append("; ".join(texts))
            rows.append(row)
    widths = [max(len(row[i]) for row in rows) for i in range(len(header))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())

    print()
    for (operation, kind), paths in memory.items():
        for who, figures in paths.items():
            if "scratch_MiB" in figures:
                what, value, bound = "scratch", figures["scratch_MiB"], SCRATCH_MIB
            else:
                what, value = "peak", figures["peak_MiB"]
                bound = figures["source_result_and_one_block_MiB"]
            text = verdict(f"<= {bound:.1f}", value <= bound)
            print(f"{operation}  {kind}  {who}  {what} {value:.2f} MiB  {text}")


def main():
    if sys.argv[1] == "--table":
        records = []
        for name in sys.argv[2:]:
            with open(name, encoding="utf-8") as file:
                records += json.load(file)
    else:
        options = sys.argv[2:]
        part = "".join(option for option in options if option != "--quick")
        records = measure(sys.argv[1], "--quick" in options, lambda name: part in name)
    print_table(records)


if __name__ == "__main__":
    main()
