"""main.py ARCHITECTURE [SECTION...]: runs the sections on a new machine; status 1 when a check has failed."""
import sys
import tempfile
import time
from pathlib import Path

from device import Device, Report
from machine import ARCHITECTURES, PROJECT, Broken, Machine
from power import power
from sections import SECTIONS

MOMENTS = 20
USAGE = f"usage: machine [amd64|armhf] [{'|'.join(SECTIONS)}...] [power [MOMENTS [SEED]]]"


def timed(report, name, section, *arguments):
    print(f"{name}:", flush=True)
    started = time.monotonic()
    try:
        section(*arguments)
    except Broken as reason:
        report.check(f"{name} can be carried out", False, reason)
    print(f"  ({time.monotonic() - started:.0f} s)", flush=True)


def runSections(architecture, folder, report, names):
    with Machine(architecture, folder) as machine:
        device = Device(machine, report)
        device.setUp()
        for name in names:
            if name != "install":
                device.installPackages()
            timed(report, name, SECTIONS[name], device)


def main():
    architecture = ARCHITECTURES[sys.argv[1]]
    names = [word for word in sys.argv[2:] if not word.isdigit()] or [*SECTIONS, "power"]
    numbers = [int(word) for word in sys.argv[2:] if word.isdigit()]
    if set(names) - {*SECTIONS, "power"} or len(numbers) > 2:
        sys.exit(USAGE)
    moments, seed = numbers + [MOMENTS, 1][len(numbers):]
    report = Report()
    with tempfile.TemporaryDirectory(dir=PROJECT / "build", prefix="machine-") as folder:
        once = [name for name in names if name != "power"]
        if once:
            runSections(architecture, Path(folder), report, once)
    if "power" in names:
        with tempfile.TemporaryDirectory(dir=PROJECT / "build", prefix="machine-") as folder:
            timed(report, "power", power, architecture, Path(folder), report, moments, seed)
    print(f"{report.passed} checks passed, {report.failed} failed")
    return 1 if report.failed else 0


sys.exit(main())
