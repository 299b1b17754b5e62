#!/usr/bin/env python3
"""Prints a benchmark run (Google Benchmark JSON) as one table graded against the goals.

Every figure is wall time. "Op/X" is divided by "Floor/X" of the same run: repetition i of the
operation by repetition i of its floor; the table shows the median of those ratios and their
range. Throughput is the counter "bytes" (input bytes of one iteration) over the wall time of an
iteration, again the median over repetitions with its range. A size-graded row must reach its
throughput at every size and stay flat: the largest size at least FLAT of the smallest's rate.
"Mem/X" rows hold the peak memory of one call beside the bytes of its result; "Limit/" rows
what bounds an operation whatever the library does: the fresh-page bandwidth for a reader writing
a large result, zlib and libdeflate alone for the archive's streams and the expanded string, the
latter also against the operation's floor.
"""
import json
import re
import statistics
import sys

UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
FLAT = 0.8

# (name, kind, bound): "ratio" at most bound; "ratios" at most bound at every shape ("name/SHAPE");
# "rate" bytes/s at least bound at every size, flat;
# "items" a ratio at most bound at every size, with the time per item flat; "peak" peak memory
# over result at most bound; "info" shown, not graded.
GOALS = [
    ("CompressString", "ratio", 1.05),
    ("DecompressString", "ratio", 0.6),
    ("Base64Encode", "rate", 2e9),
    ("Base64Decode", "rate", 2e9),
    ("CompressBINI+DecompressBINI", "ratio", 1.2),
    ("HexRead", "rate", 200e6),
    ("BinRead", "rate", 200e6),
    ("ExtractArchive", "rate", 200e6),
    ("MakeArchive", "rate", 200e6),
    ("GetIniKey/first", "ratio", 1.5),
    ("GetIniKey/repeated", "ratio", 0.2),
    ("WriteIniKey", "ratio", 1.3),
    ("writeProfile/10", "ratio", 1.2),
    ("writeProfile/100", "ratio", 1.2),
    ("writeProfile/1000", "ratio", 1.2),
    ("GetRunningProcesses", "ratio", 1.5),
    ("ps", "info", None),
    ("ReadLong", "ratio", 1.2),
    ("ReadStr", "ratio", 1.2),
    ("ReadLong64", "ratio", 1.2),
    ("ConcatStr", "items", 2.0),
    ("ArchiveExtractTool", "ratios", 1.0),
    ("ArchiveMakeTool", "ratios", 1.0),
    ("HexRead", "peak", 1.1),
    ("BinRead", "peak", 1.1),
    ("ExtractSmallMembers", "info", None),
]

# Parts of a benchmark's name that are settings, not part of what it measures.
SETTING = re.compile(r"^(min_time|real_time|iterations|repeats|manual_time|threads):?")


def key(name):
    parts = [p for p in name.split("/") if not SETTING.match(p)]
    return parts[0], "/".join(parts[1:])


def load(doc):
    """Per (kind, name): the iteration runs, ordered by repetition; and the error of each run
    that failed."""
    runs, failed = {}, {}
    for b in doc["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        if b.get("error_occurred"):
            failed[key(b["name"])] = b.get("error_message", "")
            continue
        runs.setdefault(key(b["name"]), []).append(b)
    for reps in runs.values():
        reps.sort(key=lambda b: b.get("repetition_index", 0))
    return runs, failed


def seconds(b):
    return b["real_time"] * UNITS[b["time_unit"]]


def spread(values, fmt):
    if len(values) < 2:
        return ""
    return f"{fmt(min(values))}-{fmt(max(values))}"


def duration(s):
    for unit, scale in (("s", 1.0), ("ms", 1e-3), ("us", 1e-6)):
        if s >= scale:
            return f"{s / scale:.3g} {unit}"
    return f"{s / 1e-9:.3g} ns"


def rate_text(r):
    return f"{r / 1e9:.2f} GB/s" if r >= 1e9 else f"{r / 1e6:.0f} MB/s"


def ratio_text(r):
    return f"{r:.2f}x"


def sizes_of(runs, base, kind="Op"):
    """The sized names "base/N" of a family, smallest N first; or just base."""
    sized = sorted((n for k, n in runs if k == kind and n.startswith(base + "/") and
                    n[len(base) + 1:].isdigit()), key=lambda n: int(n.rsplit("/", 1)[1]))
    return sized or ([base] if (kind, base) in runs else [])


class Table:
    def __init__(self, failed):
        self.rows = []
        self.crossing = False
        self.seen = set()  # the operations a row shows
        self.failed = failed

    def absent(self, kinds, name, label, goal):
        """A goal without figures: a row when one of its benchmarks (of those kinds, that name or
        a size of it) failed, none when they did not run."""
        for (kind, n), error in self.failed.items():
            if kind in kinds and (n == name or n.startswith(name + "/")):
                self.add(label, goal=goal, met="failed: " + error)
                return

    def add(self, op, time="", rate="", floor="", ratio="", rng="", goal="", met=""):
        self.rows.append((op, time, rate, floor, ratio, rng, goal, met))

    def grade(self, ok, values, bound, higher):
        """met / missed on the median; a "*" when the range of the runs crosses the goal."""
        crosses = values and (min(values) < bound <= max(values) if higher
                              else min(values) <= bound < max(values))
        self.crossing |= bool(crosses)
        return ("met" if ok else "missed") + (" *" if crosses else "")

    def print(self):
        head = ("operation", "time", "throughput", "floor", "ratio", "range", "goal", "")
        widths = [max(len(str(r[i])) for r in self.rows + [head]) for i in range(len(head))]
        for r in [head] + self.rows:
            cells = [str(c).ljust(w) if i in (0, 6, 7) else str(c).rjust(w)
                     for i, (c, w) in enumerate(zip(r, widths))]
            print("  ".join(cells).rstrip())
        if self.crossing:
            print("* the range of the repetitions crosses the goal: the machine was noisy")


def ratios(ops, floors):
    return [seconds(o) / seconds(f) for o, f in zip(ops, floors)]


def rates(reps, counter="bytes"):
    return [b[counter] / seconds(b) for b in reps if counter in b]


def ratio_row(t, runs, name, bound):
    t.seen.add(name)
    ops, floors = runs.get(("Op", name)), runs.get(("Floor", name))
    if not ops or not floors:
        t.absent(("Op", "Floor"), name, name, f"<= {bound}x")
        return
    rs = ratios(ops, floors)
    med = statistics.median(rs)
    rt = rates(ops)
    t.add(name, duration(statistics.median(map(seconds, ops))),
          rate_text(statistics.median(rt)) if rt else "",
          duration(statistics.median(map(seconds, floors))), ratio_text(med),
          spread(rs, ratio_text), f"<= {bound}x", t.grade(med <= bound, rs, bound, False))


def ratio_rows(t, runs, base, bound):
    """A ratio row for each shape the operation or its floor ran or failed at, in the order of
    the names."""
    names = sorted({n for k, n in list(runs) + list(t.failed)
                    if k in ("Op", "Floor") and n.startswith(base + "/")})
    for name in names:
        ratio_row(t, runs, name, bound)


def flat_row(t, base, medians, unit):
    """The largest size's rate against the smallest's."""
    if len(medians) < 2:
        return
    (small, r0), (large, r1) = medians[0], medians[-1]
    flat = r1 / r0
    t.add(f"{base}, {large} vs {small} {unit}", ratio=ratio_text(flat),
          goal=f">= {FLAT}x (flat)", met=t.grade(flat >= FLAT, [], FLAT, True))


def rate_rows(t, runs, base, bound):
    names = sizes_of(runs, base)
    if not names:
        t.absent(("Op",), base, base, f">= {rate_text(bound)}")
        return
    medians = []
    for name in names:
        t.seen.add(name)
        ops = runs[("Op", name)]
        rt = rates(ops)
        med = statistics.median(rt)
        suffix = name[len(base) + 1:]
        medians.append((suffix, med))
        floors = runs.get(("Floor", name))
        floor, ratio = "", ""
        if floors:
            floor = duration(statistics.median(map(seconds, floors)))
            ratio = ratio_text(statistics.median(ratios(ops, floors)))
        label = f"{name} MiB" if suffix else name
        t.add(label, duration(statistics.median(map(seconds, ops))), rate_text(med), floor, ratio,
              spread(rt, rate_text), f">= {rate_text(bound)}",
              t.grade(med >= bound, rt, bound, True))
    flat_row(t, base, medians, "MiB")


def items_rows(t, runs, base, bound):
    """Ratio rows per size; flat when the time per item grows no faster than the floor's: the
    floor's own slowdown with size (caches, fresh memory) is what the machine allows."""
    names = sizes_of(runs, base)
    per_item, floor_per_item = [], []
    for name in names:
        ratio_row(t, runs, name, bound)
        size = name[len(base) + 1:]
        per_item.append((size, statistics.median(rates(runs[("Op", name)], "items"))))
        if ("Floor", name) in runs:
            floor_per_item.append((size, statistics.median(rates(runs[("Floor", name)], "items"))))
    if len(floor_per_item) == len(per_item) > 1:
        (small, r0), (large, r1) = floor_per_item[0], floor_per_item[-1]
        t.add(f"limit: {base} floor, {large} vs {small} appends", ratio=ratio_text(r1 / r0))
        per_item = [(size, r / f) for (size, r), (_, f) in zip(per_item, floor_per_item)]
        flat_row(t, base + " against its floor", per_item, "appends")
    else:
        flat_row(t, base, per_item, "appends")


def peak_row(t, runs, name, bound):
    reps = runs.get(("Mem", name + "/100"))
    if not reps or "peak_bytes" not in reps[0]:
        t.absent(("Mem",), name, f"{name} 100 MiB: peak memory, result", f"<= {bound}x")
        return
    peak, result = reps[0]["peak_bytes"], reps[0]["result_bytes"]
    r = peak / result
    t.add(f"{name} 100 MiB: peak memory, result", f"{peak / 1e6:.0f} MB", "", f"{result / 1e6:.0f} MB",
          ratio_text(r), "", f"<= {bound}x", t.grade(r <= bound, [], bound, False))


# The engines alone: (benchmark under "Limit/", what the row says it is).
LIMITS = [
    ("Deflate", "zlib deflate of a member alone (MakeArchive)"),
    ("Inflate", "zlib inflate of a member alone (ExtractArchive)"),
    ("InflateLibdeflate", "libdeflate inflate of a member alone (ExtractArchive)"),
    ("DecompressString", "libdeflate inflate alone (DecompressString)"),
]


def limit_row(t, runs, name, label):
    """One engine alone, with its ratio to the operation's floor when there is one."""
    reps = runs.get(("Limit", name))
    if not reps:
        return
    floors = runs.get(("Floor", name))
    floor, ratio = "", ""
    if floors:
        floor = duration(statistics.median(map(seconds, floors)))
        ratio = ratio_text(statistics.median(ratios(reps, floors)))
    t.add(f"limit: {label}", duration(statistics.median(map(seconds, reps))),
          rate_text(statistics.median(rates(reps))), floor, ratio, spread(rates(reps), rate_text))


def limit_rows(t, runs):
    """Fresh-page bandwidth, and what it allows a reader whose result is k times its input; the
    engines alone."""
    large = {}  # kind -> rates at the largest size
    for kind in ("FreshPages", "FreshHugePages"):
        for name in sizes_of(runs, kind, "Limit"):
            reps = runs[("Limit", name)]
            rs = rates(reps)
            t.add(f"limit: {name} MiB", duration(statistics.median(map(seconds, reps))),
                  rate_text(statistics.median(rs)), rng=spread(rs, rate_text))
            large[kind] = rs
    for name, label in LIMITS:
        limit_row(t, runs, name, label)
    if not large:
        return
    # The kind of fresh memory that is faster at the largest size, with its range.
    best = max(large.values(), key=statistics.median)
    for name in ("HexRead", "BinRead"):
        reps = runs.get(("Mem", name + "/100"))
        if reps and "result_bytes" in reps[0]:
            per_input = reps[0]["result_bytes"] / (100 << 20)
            t.add(f"limit: {name} 100 MiB, {per_input:.1f} result bytes per input byte",
                  rate=rate_text(statistics.median(best) / per_input),
                  rng=spread([r / per_input for r in best], rate_text))


def info_row(t, runs, base):
    for k, name in sorted(runs):
        if k == "Op" and (not base or name == base or name.startswith(base + "/")) and \
                name not in t.seen:
            t.seen.add(name)
            ops = runs[(k, name)]
            per = [seconds(b) / b["items"] for b in ops if "items" in b]
            t.add(name, duration(statistics.median(map(seconds, ops))),
                  f"{duration(statistics.median(per))}/item" if per else "")


def describe(doc):
    """The machine and the run, so that figures are read with them."""
    c = doc["context"]
    reps = max((b.get("repetitions", 1) for b in doc["benchmarks"]), default=1)
    load_avg = " ".join(f"{x:.2f}" for x in c.get("load_avg", []))
    print(f"{c.get('date', '')}: {c.get('num_cpus', '?')} CPUs at {c.get('mhz_per_cpu', '?')} MHz, "
          f"load average {load_avg or '?'} at the start, {reps} repetitions; wall time")


def main(path):
    doc = json.load(open(path))
    describe(doc)
    runs, failed = load(doc)
    t = Table(failed)
    for name, kind, bound in GOALS:
        if kind == "ratio":
            ratio_row(t, runs, name, bound)
        elif kind == "ratios":
            ratio_rows(t, runs, name, bound)
        elif kind == "rate":
            rate_rows(t, runs, name, bound)
        elif kind == "items":
            items_rows(t, runs, name, bound)
        elif kind == "peak":
            peak_row(t, runs, name, bound)
        else:
            info_row(t, runs, name)
    info_row(t, runs, "")  # any operation without a goal
    limit_rows(t, runs)
    t.print()


if __name__ == "__main__":
    main(sys.argv[1])
