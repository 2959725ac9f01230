#!/usr/bin/env python3
"""Makes the table and the plot of a run of the benchmarks, whose figures come on standard input.

    report.py [--markdown] FOLDER

Prints the table and leaves in FOLDER figures.json, table.md, cost.dat and cost.svg. Missed aims do not fail: a busy
machine misses them, too.
"""
import argparse
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys

HEAD = ("what", "floor in the same run", "floor", "measured", "ratio", "aim", "")
NUMBERS = (2, 3, 4)  # columns that are aligned to the right
SMALL_RATIO = 0.1    # a ratio below it is shown with more digits

PLOT = """
set terminal svg size 900,600 dynamic font "sans,14" background "white"
set output "cost.svg"
set title "Time of one directory listing"
set xlabel "files in the directory"
set ylabel "milliseconds"
set logscale xy
set key left top
set grid
plot for [i=0:{last}] "cost.dat" index i using 1:($2/1000) with linespoints linewidth 2 title columnheader(1)
"""


def compared(row):
    """The figure that the aim is about: the median over the rounds."""
    pairs = list(zip(row["measured"], row["floor"]))
    if row["compared"] == "difference":
        return statistics.median(measured - floor for measured, floor in pairs)
    return statistics.median(measured / floor for measured, floor in pairs)


def shown(value, unit):
    if unit == "us" and value >= 10000:
        return f"{value / 1000:.1f} ms"
    return f"{value:.{0 if value >= 100 else 1 if value >= 1 else 3}f} {unit}"


def verdict(row, value):
    if row["compared"] == "nothing":
        return "", "reported"
    if row["compared"] == "difference":
        return f"+ ≤ {row['aim']:g} {row['unit']}", "met" if value <= row["aim"] else "MISSED"
    return f"≤ {row['aim']:g}", "met" if value <= row["aim"] else "MISSED"


def line(row):
    value = compared(row)
    ratio = f"+ {value:.0f} {row['unit']}" if row["compared"] == "difference" else f"{value:.{2 if value >= SMALL_RATIO else 3}f}"
    return (row["what"], row["floor is"], shown(statistics.median(row["floor"]), row["unit"]),
            shown(statistics.median(row["measured"]), row["unit"]), ratio, *verdict(row, value))


def table(rows, markdown):
    lines = [HEAD] + [line(row) for row in rows]
    if markdown:
        rule = "|" + "|".join("--:" if i in NUMBERS else "---" for i in range(len(HEAD))) + "|"
        text = ["| " + " | ".join(cells) + " |" for cells in lines]
        return "\n".join([text[0], rule] + text[1:])
    widths = [max(len(cells[i]) for cells in lines) for i in range(len(HEAD))]
    return "\n".join("  ".join(cell.rjust(width) if i in NUMBERS else cell.ljust(width)
                               for i, (cell, width) in enumerate(zip(cells, widths))).rstrip()
                     for cells in lines)


def machine(run):
    """The outline of the machine in one line."""
    info = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    model = next((text.split(":")[1].strip() for text in info.splitlines() if text.startswith("model name")), "processor")
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True, check=True).stdout.splitlines()[0]
    return (f"{os.cpu_count()} × {model} ({platform.machine()}), Linux {platform.release()}, {compiler}; "
            f"services on core {run['service core']}, client and message bus on core {run['client core']}")


def write_plot(rows, folder):
    curves = {}
    for row in rows:
        if row["curve"]:
            curves.setdefault(row["curve"], {})[row["size"]] = statistics.median(row["measured"])
            curves.setdefault(row["floor is"], {})[row["size"]] = statistics.median(row["floor"])
    if not curves:
        return
    blocks = ("\n".join([f'"{name}"'] + [f"{size:g} {cost:.3f}" for size, cost in sorted(points.items())])
              for name, points in curves.items())
    (folder / "cost.dat").write_text("\n\n\n".join(blocks) + "\n", encoding="utf-8")
    subprocess.run(["gnuplot"], input=PLOT.format(last=len(curves) - 1), text=True, cwd=folder, check=True)


def main():
    options = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    options.add_argument("--markdown", action="store_true", help="print the table as Markdown")
    options.add_argument("folder", type=pathlib.Path)
    chosen = options.parse_args()
    run = json.load(sys.stdin)
    chosen.folder.mkdir(parents=True, exist_ok=True)
    run["machine"] = machine(run)
    for row in run["rows"]:
        row["result"] = compared(row)
    markdown = f"{run['machine']}\n\n{table(run['rows'], True)}\n"
    (chosen.folder / "figures.json").write_text(json.dumps(run, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")
    (chosen.folder / "table.md").write_text(markdown, encoding="utf-8")
    write_plot(run["rows"], chosen.folder)
    print(markdown if chosen.markdown else f"{run['machine']}\n\n{table(run['rows'], False)}")


if __name__ == "__main__":
    main()
