#!/usr/bin/env python3
"""Prints a benchmark run as a table: each operation, its time, throughput, and ratio to its floor."""
import json
import sys

UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def seconds(b):
    return b["real_time"] * UNITS[b["time_unit"]]


def main(path):
    runs = [b for b in json.load(open(path))["benchmarks"] if b.get("run_type", "iteration") == "iteration"]
    by_name = {b["name"]: b for b in runs}
    print(f"{'operation':44} {'time':>12} {'MB/s':>10} {'floor':>12} {'ratio':>7}")
    for b in runs:
        name = b["name"]
        if not name.startswith("Op/"):
            continue
        floor = by_name.get("Floor/" + name[3:])
        rate = b.get("bytes_per_second")
        mbs = f"{rate / 1e6:10.1f}" if rate else f"{'':>10}"
        t = seconds(b)
        if floor:
            f = seconds(floor)
            print(f"{name[3:]:44} {t * 1e6:10.2f}us {mbs} {f * 1e6:10.2f}us {t / f:6.2f}x")
        else:
            print(f"{name[3:]:44} {t * 1e6:10.2f}us {mbs} {'':>12} {'':>7}")


if __name__ == "__main__":
    main(sys.argv[1])
