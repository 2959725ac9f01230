"""The plug is pulled: QEMU is killed at a random moment of a request, and the same disks are booted again."""
import random
import time

from device import DATA, JOB_END, LOG, UNIT, Device, callCommand, stickPath
from machine import Machine

STICK = stickPath(1)
SETTLE = 2  # seconds after a request in which the plug may still be pulled
JOB_FINISHED = f"until {JOB_END}; do sleep 0.1; done"
# Each names at most one file or folder of the stick.
REQUESTS = {
    "start": f"systemctl start {UNIT}",
    "backup": callCommand("DoBackup", "sus", "USB_X60.1", 1, "backups/new.psb") + f"; {JOB_FINISHED}",
    "restore": callCommand("DoRestore", "ss", "USB_X60.1", "backups/good.psb") + f"; {JOB_FINISHED}",
    "deletion": callCommand("DeleteFile", "ss", "USB_X60.1", "photos/doomed.raw"),
    "mkdir": callCommand("CreateDirectory", "ss", "USB_X60.1", "new/folder/of/five/levels")}


def prepare(architecture, folder, report):
    """A machine just before each request, as a snapshot of its memory and disks. Returns the checksums of the stick's
    files that no request names, and of what a backup holds."""
    with Machine(architecture, folder, sticks=[1]) as machine:
        device = Device(machine, report)
        device.setUp()
        device.makePartition(1)
        device.installPackages()
        machine.do(f"mkdir -p {STICK}/photos/'a folder with a long name' {STICK}/music && cd {STICK} && "
                   'for i in $(seq 12); do head -c $((i * 2999)) /dev/urandom >"photos/A photograph, number $i.jpeg"; '
                   "head -c 5000 /dev/urandom >music/Tön$i.ogg; done; "
                   "head -c 100000 /dev/urandom >'photos/a folder with a long name/x'; "
                   f"head -c 2000000 /dev/urandom >photos/doomed.raw; head -c 1000000 /dev/urandom >{DATA}/recipes/large; "
                   f"systemctl start {UNIT}")
        ended = device.job("DoBackup", "sus", "USB_X60.1", 1, "backups/good.psb", restart=False)
        device.check("a first backup is made", ": done" in ended, ended)
        sums = {place: machine.do(f"cd {place} && find . -type f ! -name doomed.raw | sort | xargs -d '\\n' sha256sum")
                for place in [STICK, DATA]}
        machine.do(f"systemctl stop {UNIT}; : >{LOG}; sync; sleep 2")
        said = machine.qmp("human-monitor-command", **{"command-line": "savevm ready"})
        device.check("the snapshot is made", not said.strip(), said)
    return sums


def request(architecture, folder, name, seconds=None):
    """Makes the request and pulls the plug after that time, or returns the time that it takes."""
    with Machine(architecture, folder, [1], "ready") as machine:
        machine.do("true" if name == "start" else f"systemctl start {UNIT}")
        started = time.monotonic()
        machine.start(REQUESTS[name])
        if seconds is None:
            machine.answer()
        else:
            time.sleep(seconds)
        return time.monotonic() - started


def bootAgain(architecture, folder, report, sums):
    """Checks what is left, and shows what fsck has said and which of the named files there are."""
    with Machine(architecture, folder, [1]) as machine:
        device = Device(machine, report)
        device.expect("the unit starts, and the stick is mounted",
                      f"timeout 280 sh -c 'until systemctl is-active {UNIT} && mountpoint -q {STICK}; do sleep 1; done'")
        for place in sums:
            device.expect(f"no file in {place} is lost or changed", intact(place, sums))
        accepted = device.backups(1, "backups")
        device.check("the old backup is accepted", "good.psb" in accepted, accepted)
        ended = device.job("DoBackup", "sus", "USB_X60.1", 1, "backups/next.psb", restart=False)
        listed = device.backups(1, "backups")
        device.check("the next backup works", ": done" in ended and "next.psb" in listed, f"{ended} {listed}")
        if "new.psb" in accepted:
            ended = device.job("DoRestore", "ss", "USB_X60.1", "backups/new.psb")
            device.check("the new backup can be restored", ": done" in ended, ended)
            device.expect("and is whole", intact(DATA, sums))
        print("    " + " ".join(machine.do(
            f"cd {STICK}; find new photos/doomed.raw backups FSCK* -printf '%p:%s\\n' 2>/dev/null; journalctl -b -o cat "
            "-u 'systemd-fsck@dev-usb*' | grep -E '^ |Reclaimed|Free cluster' || true").split()), flush=True)
        device.expect("the repaired file system has no fault",
                      f"systemctl stop {UNIT}; umount {STICK}; fsck.vfat -n /dev/usb-stick1")


def intact(place, sums):
    return f"cd {place} && sha256sum --quiet -c - <<'END'\n{sums[place]}\nEND"


def power(architecture, folder, report, moments, seed):
    sums = prepare(architecture, folder, report)
    lasts = {name: request(architecture, folder, name) for name in REQUESTS}
    print("  " + ", ".join(f"{name} takes {seconds:.1f} s" for name, seconds in lasts.items()), flush=True)
    for number in range(moments):
        name = list(REQUESTS)[number % len(REQUESTS)]
        seconds = random.Random(f"{seed} {number}").uniform(0, lasts[name] + SETTLE)
        print(f"  moment {number + 1} of seed {seed}: {seconds:.2f} s after the beginning of a {name}", flush=True)
        request(architecture, folder, name, seconds)
        bootAgain(architecture, folder, report, sums)
