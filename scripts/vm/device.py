"""What the sections do with the device in the machine, and how they report."""
import json
import shlex
import re

UNIT = "com-morvane-transfer-service"
LOG = "/run/device-manager.log"
DATA = "/mnt/usrdata/device/data"  # what a backup holds


def stickPath(port):
    return f"/media/usb/USB_X60.{port}"


class Report:
    """One line for each check."""

    def __init__(self):
        self.passed = self.failed = 0

    def check(self, what, passed, detail=""):
        self.passed += bool(passed)
        self.failed += not passed
        print(f"  {'ok    ' if passed else 'FAILED'} {what}" + ("" if passed else f": {detail}"), flush=True)
        return passed


class Device:
    """The device: a machine with the parts of the simulated device, and a report."""

    def __init__(self, machine, report):
        self.machine, self.report = machine, report
        self.run, self.do, self.check = machine.run, machine.do, report.check

    def expect(self, what, command, pattern, status=0):
        """Checks output (a regular expression) and status (None: any) of a command."""
        got, output = self.run(command)
        matches = re.search(pattern, output, re.MULTILINE)
        return self.check(what, status in (None, got) and matches, f"status {got}: {output[-1500:]}")

    def setUp(self):
        """The simulated device, without the packages."""
        self.do("tar -C / -xf /dev/vdb && ldconfig && udevadm control --reload && systemctl daemon-reload")
        self.do("systemctl enable --now --quiet device-manager applet-control")
        self.await_("grep -q 'listens on' " + LOG)

    def installPackages(self):
        self.do(f"dpkg-query -s {UNIT} >/dev/null 2>&1 || dpkg -i /opt/*.deb")

    def await_(self, command, seconds=60):
        """Waits inside the machine until the command succeeds."""
        quoted = shlex.quote(f"until {command}; do sleep 0.1; done")
        self.do(f"timeout {seconds} sh -c {quoted}")

    def restart(self):
        """A service without the texts of an earlier job."""
        self.do(f"systemctl restart {UNIT}")

    # ---- calls

    def call(self, method, signature="", *arguments, prefix=""):
        """The values of the reply, without their types; or the text of an error."""
        status, output = self.run(f"{prefix} {callCommand(method, signature, *arguments)}")
        return output if status != 0 else plain(json.loads(output)["data"])

    def records(self, field, method, *arguments):
        """One field of each record of four that a listing answers; or the text of an error."""
        reply = self.call(method, *arguments)
        return reply if isinstance(reply, str) else flat(reply[0])[field::4]

    def sticks(self):
        return self.records(0, "GetUSBStickDetails")

    def names(self, port, path=""):
        return self.records(1, "GetDirectoryIndex", "ss", f"USB_X60.{port}", path)

    def backups(self, port, path=""):
        """The names of the files in which the device manager sees a backup."""
        return [each for each in self.records(1, "GetRestoreFilesList", "ss", f"USB_X60.{port}", path) if each]

    def job(self, method, signature, *arguments):
        """Starts a job in a new service and returns the line with which the device manager ends it."""
        self.restart()
        return self.firstJob(method, signature, *arguments)

    def firstJob(self, method, signature, *arguments):
        self.do(f": >{LOG}")
        answer = self.call(method, signature, *arguments)
        if answer != [0]:
            return f"answer {answer}"
        return self.jobEnd()

    def jobEnd(self):
        self.await_(JOB_END)
        return self.do(JOB_END)

    # ---- sticks

    def plug(self, port, **options):
        self.machine.plug(port, **options)
        self.await_(f"mountpoint -q {stickPath(port)}")

    def pull(self, port):
        self.machine.pull(port)
        self.await_(f"! mountpoint -q {stickPath(port)}")

    def format(self, port):
        """A new stick: plugs it, gives it a FAT32 partition, and has it mounted."""
        if port in self.machine.plugged:
            self.pull(port)
        self.machine.stickFile(port).unlink(missing_ok=True)
        self.machine.plug(port)
        self.makePartition(port)

    def makePartition(self, port):
        disk = f"/dev/disk/by-path/*-usb-0:{port}:1.0-scsi-0:0:0:0"
        self.await_(f"ls {disk}")
        self.do(f"echo 2048,,c | sfdisk -q {disk} && udevadm settle && mkfs.vfat -F 32 {disk}-part1")
        self.await_(f"mountpoint -q {stickPath(port)}")


JOB_END = f"grep -E '  (backup|restore|update) ' {LOG} | grep -v ': started$'"


def callCommand(method, signature="", *arguments):
    words = ["busctl", "--json=short", "call", "com.morvane.transfer", "/sacIntf", "com.morvane.transfer.sac", method]
    words += [signature, *map(str, arguments)] if signature else []
    return shlex.join(words)


def plain(value):
    """A value of busctl's JSON without the types of the variants in it."""
    if isinstance(value, dict) and set(value) == {"type", "data"}:
        return plain(value["data"])
    return [plain(each) for each in value] if isinstance(value, list) else value


def flat(values):
    return [each for value in values for each in (flat(value) if isinstance(value, list) else [value])]
