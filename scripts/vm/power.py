"""The plug is pulled: QEMU is killed at a random moment of a request, and the same disks are booted again."""
import random
import time

from device import DATA, Device, JOB_END, LOG, UNIT, callCommand, stickPath
from machine import Machine

SNAPSHOT = "ready"
SETTLE = 2  # seconds after a request in which the plug may still be pulled
JOB_FINISHED = f"until {JOB_END}; do sleep 0.1; done"
STICK = stickPath(1)

# What is asked for, by what comes before it is counted. Each names at most one file or folder of the stick.
REQUESTS = {
    "start": ["true", f"systemctl start {UNIT}"],
    "backup": [f"systemctl start {UNIT}", callCommand("DoBackup", "sus", "USB_X60.1", 1, "backups/new.psb") +
               f"; {JOB_FINISHED}"],
    "restore": [f"systemctl start {UNIT}", callCommand("DoRestore", "ss", "USB_X60.1", "backups/good.psb") +
                f"; {JOB_FINISHED}"],
    "deletion": [f"systemctl start {UNIT}", callCommand("DeleteFile", "ss", "USB_X60.1", "photos/doomed.raw")],
    "mkdir": [f"systemctl start {UNIT}", callCommand("CreateDirectory", "ss", "USB_X60.1", "new/directory/of/five/levels")],
}
NAMED = ["backups/new.psb", "photos/doomed.raw"]


def prepare(architecture, folder, report):
    """A machine just before each request, as a snapshot of its memory and disks; returns the sums of the stick's files
    that no request names, and of what a backup holds."""
    with Machine(architecture, folder, sticks=[1]) as machine:
        device = Device(machine, report)
        device.setUp()
        device.makePartition(1)
        device.installPackages()
        machine.do(f"mkdir -p {STICK}/photos/'a directory with a long name' {STICK}/music && cd {STICK} && "
                   "for i in $(seq 30); do head -c $((i * 2999)) /dev/urandom >\"photos/A photograph, number $i.jpeg\";"
                   " head -c 5000 /dev/urandom >music/Tön$i.ogg; done; "
                   "head -c 100000 /dev/urandom >'photos/a directory with a long name/x'; "
                   "head -c 8000000 /dev/urandom >photos/doomed.raw")
        machine.do(f"head -c 4000000 /dev/urandom >{DATA}/recipes/large.picture")
        device.check("a first backup is made", ": done" in device.job("DoBackup", "sus", "USB_X60.1", 1,
                                                                      "backups/good.psb"))
        sums = [machine.do(f"cd {place} && find . -type f ! -name doomed.raw | sort | xargs -d '\\n' sha256sum")
                for place in [STICK, DATA]]
        machine.do(f"systemctl stop {UNIT}; : >{LOG}; sync; sleep 2")
        machine.monitor(f"savevm {SNAPSHOT}")
    return sums


def measure(architecture, folder):
    """The seconds that each request takes when nothing happens to it."""
    seconds = {}
    for name, [before, request] in REQUESTS.items():
        with Machine(architecture, folder, [1], SNAPSHOT) as machine:
            machine.do(before)
            started = time.monotonic()
            machine.do(request)
            seconds[name] = time.monotonic() - started
    return seconds


def pullThePlug(architecture, folder, request, delay):
    before, command = REQUESTS[request]
    with Machine(architecture, folder, [1], SNAPSHOT) as machine:
        machine.do(before)
        machine.start(command)
        time.sleep(delay)


def bootAgain(architecture, folder, report, sums):
    """Checks what is left; returns what the log of this moment says of it."""
    with Machine(architecture, folder, [1]) as machine:
        device = Device(machine, report)
        up = machine.waitFor(f"systemctl is-active {UNIT} && mountpoint -q {STICK}", 300)
        report.check("the unit starts, and the stick is listed", up and device.sticks() == ["USB_X60.1"],
                     machine.run(f"journalctl -b -u {UNIT} | tail -n 20; mount | grep media")[1])
        repaired = machine.do("journalctl -b -o cat -u 'systemd-fsck@dev-usb*' | grep -E '^ |Reclaimed|Dirty|Free cluster' || true")
        for place, wanted in zip([STICK, DATA], sums):
            status, said = machine.run(f"cd {place} && sha256sum --quiet -c - <<'END'\n{wanted}\nEND")
            report.check(f"no file in {place} is lost or changed", status == 0, said + "\n" + repaired)
        accepted = device.backups(1, "backups")
        report.check("the old backup is accepted", "good.psb" in accepted, accepted)
        ended = device.firstJob("DoBackup", "sus", "USB_X60.1", 1, "backups/next.psb")
        listed = device.backups(1, "backups")
        report.check("the next backup works", ": done" in ended and "next.psb" in listed, f"{ended} {listed}")
        if "new.psb" in accepted:
            ended = device.job("DoRestore", "ss", "USB_X60.1", "backups/new.psb")
            status, said = machine.run(f"cd {DATA} && sha256sum --quiet -c - <<'END'\n{sums[1]}\nEND")
            report.check("the new backup is accepted and whole", ": done" in ended and status == 0, f"{ended} {said}")
        left = machine.do(f"cd {STICK}; find new photos/doomed.raw backups FSCK* -printf '%p:%s ' 2>/dev/null || true")
        status, said = machine.run(f"systemctl stop {UNIT}; umount {STICK}; fsck.vfat -n /dev/usb-stick1")
        report.check("the repaired file system has no fault", status == 0, said)
        return " ".join((left + " | " + repaired).split())


def power(architecture, folder, report, moments, seed):
    sums = prepare(architecture, folder, report)
    seconds = measure(architecture, folder)
    print("  " + ", ".join(f"{name} takes {each:.1f} s" for name, each in seconds.items()), flush=True)
    for number in range(1, moments + 1):
        chance = random.Random(f"{seed} {number}")
        request = list(REQUESTS)[number % len(REQUESTS)]
        delay = chance.uniform(0, seconds[request] + SETTLE)
        print(f"  moment {number} (seed {seed}): {delay:.2f} s after the beginning of a {request}", flush=True)
        pullThePlug(architecture, folder, request, delay)
        print("    " + bootAgain(architecture, folder, report, sums), flush=True)
