#!/usr/bin/env python3
"""Prints the medians of a benchmark run (its JSON on standard input) as tables beside their floors.

The tables are for reading: missed aims do not fail, because a busy machine misses them, too.
"""
import json
import sys

LISTING_FLOOR = "bareLoop"
LISTING_AIMS = {  # benchmark: what it is, most ratio to the bare loop, from so many entries on
    "restoreListing": ("listing", 1.5, 1000),
    "indexReply": ("reply", 2.5, 10000),
}
MOST_GROWTH = 1.3  # of the listing's time per entry, between these numbers of entries
GROWTH_FROM, GROWTH_TO = 1000, 100000

MOST_CALL_RATIO = 1.5  # of GetUSBStickDetails to a call that does nothing
MOST_GROWTH_KB = 64    # of the service, over the calls of growthOverManyCalls


def verdict(value, most, digits=2):
    return f"{value:5.{digits}f}   {'met' if value <= most else 'MISSED'} (at most {most})"


def nanoseconds_per_entry(run):
    """CPU time by (benchmark, number of entries)."""
    result = {}
    for one in run["benchmarks"]:
        if one.get("aggregate_name") == "median":
            name, entries = one["run_name"].split("/")
            result[name, int(entries)] = one["cpu_time"] / int(entries)
    return result


def print_listings(times):
    print("CPU time per entry, medians; the floor is a bare opendir/readdir64/stat64 loop\n")
    for measured, (title, most, ratio_from) in LISTING_AIMS.items():
        print(f"{'entries':>8} {'floor':>9} {title:>9}   ratio")
        for name, entries in sorted(times):
            if name != measured:
                continue
            floor, taken = times[LISTING_FLOOR, entries], times[measured, entries]
            ratio = taken / floor
            shown = verdict(ratio, most) if entries >= ratio_from else f"{ratio:5.2f}"
            print(f"{entries:8} {floor:6.0f} ns {taken:6.0f} ns   {shown}")
        print()
    few, many = (times.get(("restoreListing", entries)) for entries in (GROWTH_FROM, GROWTH_TO))
    if few and many:
        print(f"Listing's time per entry at {GROWTH_TO} to that at {GROWTH_FROM}: {verdict(many / few, MOST_GROWTH)}")


def print_calls(run):
    print("Calls over the bus, medians; the floor is a call in turn with them that does nothing\n")
    print(f"{'call':>24} {'floor':>9} {'call':>12}   ratio")
    for one in run["benchmarks"]:
        if "ratio" not in one:
            continue
        name, number = one["name"].split("/")[:2]
        ratio = verdict(one["ratio"], MOST_CALL_RATIO) if name == "stickDetails" else f"{one['ratio']:5.2f}"
        print(f"{name + ' of ' + number:>24} {one['floor_us']:6.0f} us {one['p50_us']:9.0f} us   {ratio}")
    print()
    for one in run["benchmarks"]:
        if "growth_kB" in one:
            print(f"Anonymous memory, growth in kB over 400000 calls: {verdict(one['growth_kB'], MOST_GROWTH_KB, 0)}")
        if "peak_kB" in one:
            print(f"Peak memory of an index of 100000 entries: {one['peak_kB']:.0f} kB")


def main():
    run = json.load(sys.stdin)
    times = nanoseconds_per_entry(run)
    if times:
        print_listings(times)
    else:
        print_calls(run)


if __name__ == "__main__":
    main()
