#!/usr/bin/env python3
"""Prints the medians of a benchmark run as a table of times and ratios.

Reads Google Benchmark's JSON from the named file. Every row is an operation on a
type; the columns are who did it, and each time is also given as a ratio to the
first peer found in the same run.
"""
import json
import sys

rows = {}
for entry in json.load(open(sys.argv[1]))["benchmarks"]:
    if entry.get("aggregate_name", "median") != "median":
        continue
    name = entry["run_name"].removesuffix("/real_time")
    operation, kind, who = name.split("/")
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[entry["time_unit"]]
    rows.setdefault((operation, kind), {})[who] = entry["real_time"] * scale

peers = ("opencv", "memcpy", "memset", "plain_file")
print(f"{'operation':18} {'type':7} {'who':11} {'ms':>10}   ratio of the peer's time to ours")
for (operation, kind), times in rows.items():
    peer = next((p for p in peers if p in times), None)
    for who, time in times.items():
        ratio = ""
        if peer and who not in peers:
            ratio = f"{times[peer] / time:6.2f} x {peer}"
        print(f"{operation:18} {kind:7} {who:11} {time:10.4f}   {ratio}")
