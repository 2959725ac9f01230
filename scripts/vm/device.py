"""The device in the machine: its calls, its sticks and jobs; and the report of what is checked on it."""
import json
import re
import shlex

UNIT = "com-morvane-transfer-service"
LOG = "/run/device-manager.log"
DATA = "/mnt/usrdata/device/data"  # what a backup holds
JOB_END = f"grep -E '  (backup|restore|update) ' {LOG} | grep -v ': started$'"


def stickPath(port):
    return f"/media/usb/USB_X60.{port}"


def callCommand(method, signature="", *arguments):
    words = ["busctl", "--json=short", "call", "com.morvane.transfer", "/sacIntf", "com.morvane.transfer.sac", method]
    return shlex.join(words + ([signature, *map(str, arguments)] if signature else []))


def flat(value):
    """The plain values of busctl's JSON, in order."""
    if isinstance(value, dict):
        return flat(value["data"])
    return [each for part in value for each in flat(part)] if isinstance(value, list) else [value]


class Report:
    """One line for each check."""

    def __init__(self):
        self.passed = self.failed = 0

    def check(self, what, passed, detail=""):
        self.passed += bool(passed)
        self.failed += not passed
        print(f"  {'ok    ' if passed else 'FAILED'} {what}" + ("" if passed else f": {detail}"), flush=True)


class Device:
    def __init__(self, machine, report):
        self.machine, self.run, self.do, self.check = machine, machine.run, machine.do, report.check

    def expect(self, what, command, pattern="", status=0):
        """Checks output (a regular expression) and status (None: any) of a command."""
        got, output = self.run(command)
        self.check(what, status in (None, got) and re.search(pattern, output, re.MULTILINE),
                   f"status {got}: {output[-1500:]}")

    def setUp(self):
        """The simulated device, without the packages."""
        self.do("tar -C / -xf /dev/vdb && ldconfig && udevadm control --reload && systemctl daemon-reload")
        self.do("systemctl enable --now --quiet device-manager applet-control")
        self.waitFor("grep -q 'listens on' " + LOG)

    def installPackages(self):
        self.do(f"dpkg-query -s {UNIT} >/dev/null 2>&1 || dpkg -i /opt/*.deb")

    def waitFor(self, command):
        self.do(f"timeout 280 sh -c {shlex.quote(f'until {command}; do sleep 0.1; done')}")

    # ---- calls

    def call(self, method, signature="", *arguments):
        """The values of the reply; the text of an error alone."""
        status, output = self.run(callCommand(method, signature, *arguments))
        return [output] if status else flat(json.loads(output))

    def sticks(self):
        return self.call("GetUSBStickDetails")[::4]

    def names(self, port, path=""):
        return self.call("GetDirectoryIndex", "ss", f"USB_X60.{port}", path)[1::4]

    def backups(self, port, path=""):
        """The names of the files in which the device manager sees a backup."""
        return [each for each in self.call("GetBackupFilesList", "ss", f"USB_X60.{port}", path)[1::4] if each]

    def restart(self):
        """A service and a log without an earlier job."""
        self.do(f"systemctl restart {UNIT} && : >{LOG}")

    def job(self, method, signature, *arguments, restart=True):
        """Starts a job, which is a service's first, and returns the line with which the device manager ends it."""
        if restart:
            self.restart()
        answer = self.call(method, signature, *arguments)
        return self.jobEnd() if answer == [0] else f"answer {answer}"

    def jobEnd(self):
        self.waitFor(f"{JOB_END} >/dev/null")
        return self.do(JOB_END)

    def jobsTake(self, seconds):
        self.do(f"device-manager-simulator --order job-seconds {seconds}")

    # ---- sticks

    def plug(self, port, **options):
        self.machine.plug(port, **options)
        self.waitFor(f"mountpoint -q {stickPath(port)}")

    def pull(self, port):
        self.machine.pull(port)
        self.waitFor(f"! mountpoint -q {stickPath(port)}")

    def format(self, port):
        """A new stick."""
        if port in self.machine.plugged:
            self.pull(port)
        self.machine.stickFile(port).unlink(missing_ok=True)
        self.machine.plug(port)
        self.makePartition(port)

    def makePartition(self, port):
        """Gives a stick that is plugged its FAT32 partition, and waits until that is mounted."""
        disk = f"/dev/disk/by-path/*-usb-0:{port}:1.0-scsi-0:0:0:0"
        self.waitFor(f"ls {disk}")
        self.do(f"echo 2048,,c | sfdisk -q {disk} && udevadm settle && mkfs.vfat -F 32 {disk}-part1")
        self.waitFor(f"mountpoint -q {stickPath(port)}")
