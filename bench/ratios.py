#!/usr/bin/env python3
"""Prints the medians of a listing_benchmark run (its JSON on standard input) as a table of ratios.

The table is for reading: missed aims do not fail, because a busy machine misses them, too.
"""
import json
import sys

FLOOR, MEASURED = "bareLoop", "restoreListing"
MOST_RATIO = 1.5   # to the bare loop, from RATIO_FROM entries on
RATIO_FROM = 1000
MOST_GROWTH = 1.3  # of the time per entry, between these numbers of entries
GROWTH_FROM, GROWTH_TO = 1000, 100000


def nanoseconds_per_entry(run):
    """CPU time by (benchmark, number of entries)."""
    result = {}
    for one in run["benchmarks"]:
        if one.get("aggregate_name") == "median":
            name, entries = one["run_name"].split("/")
            result[name, int(entries)] = one["cpu_time"] / int(entries)
    return result


def verdict(value, most):
    return f"{value:5.2f}   {'met' if value <= most else 'MISSED'} (at most {most})"


def main():
    times = nanoseconds_per_entry(json.load(sys.stdin))
    print("CPU time per entry, medians; the floor is a bare opendir/readdir64/stat64 loop\n")
    print(f"{'entries':>8} {'floor':>9} {'listing':>9}   ratio")
    for name, entries in sorted(times):
        if name != MEASURED:
            continue
        floor, listing = times[FLOOR, entries], times[MEASURED, entries]
        ratio = listing / floor
        shown = verdict(ratio, MOST_RATIO) if entries >= RATIO_FROM else f"{ratio:5.2f}"
        print(f"{entries:8} {floor:6.0f} ns {listing:6.0f} ns   {shown}")
    growth = times[MEASURED, GROWTH_TO] / times[MEASURED, GROWTH_FROM]
    print(f"\nTime per entry at {GROWTH_TO} to that at {GROWTH_FROM}: {verdict(growth, MOST_GROWTH)}")


if __name__ == "__main__":
    main()
