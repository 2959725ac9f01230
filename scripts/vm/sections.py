"""What is checked on the machine, by section. Each takes a device on which any other may have run."""
import time

from device import UNIT, callCommand, stickPath

MEMBER = "setpriv --reuid member --regid member --init-groups"
STRANGER = "setpriv --reuid stranger --regid stranger --init-groups"
MOST_EXPOSURE = 2.5
MOST_MEMORY = 12000  # kB resident
# The system calls that the unit's filter may refuse: clone3 and sched_setattr, without which the C library and GLib go on.
KNOWN_REFUSED = {"amd64": {"435", "314"}, "armhf": {"435", "380"}}
FILES = "find / -xdev ! -path '/var/*' ! -path '/tmp/*' | sort"
ANSWERS = callCommand("GetUSBStickDetails")
EMIT = "busctl emit /scctrlIntf com.morvane.scctrl appletChanged i 256; sleep 1"


def install(device):
    before = device.do(FILES)
    device.expect("the packages install", "dpkg -i /opt/*.deb", "Setting up")
    device.expect("the unit is enabled", f"systemctl is-enabled {UNIT}", "^enabled$")
    device.expect("nothing is started", f"systemctl is-active {UNIT}", "^inactive$", status=3)
    device.expect("the init script has its place in the boot", "ls /etc/rc2.d", f"^S..{UNIT}$")
    device.expect("every file is as packaged", f"dpkg -V {UNIT} transferctl", r"\A\Z")
    device.do(f"systemctl start {UNIT}")
    device.expect("removal stops the unit", f"dpkg -r {UNIT} && systemctl is-active {UNIT}", "^inactive$", status=3)
    device.do(f"dpkg -P {UNIT} transferctl")
    left = set(device.do(FILES).splitlines()) ^ set(before.splitlines())
    device.check("purge leaves nothing", not left, left)
    device.installPackages()


def start(device):
    device.do(f"systemctl stop {UNIT}; journalctl --rotate && journalctl --vacuum-time=1s; dmesg --clear")
    device.expect("the service answers as soon as the unit has started", f"systemctl start {UNIT} && {ANSWERS}")
    device.expect("a start leaves each message once in the journal",
                  f"journalctl -b -o cat -t {UNIT} | sort | uniq -c | sort -n", r"\A( *1 .*\n)+ *1 .*\Z")
    device.expect("there is no limit of starts", f"systemctl show -P StartLimitIntervalUSec {UNIT}", "^0$")
    device.expect("seven starts in a row succeed",
                  f"for i in 1 2 3 4 5 6 7; do systemctl restart {UNIT} || exit 1; done; {ANSWERS}")
    memory = int(device.do(f"sed -n 's/^VmRSS:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/$(pidof {UNIT})/status"))
    device.check(f"it takes {memory} kB of memory", memory <= MOST_MEMORY)
    exposure = float(device.do(f"systemd-analyze security {UNIT} --no-pager | tail -n 1").split()[-3])
    device.check(f"the unit leaves an exposure of {exposure}", exposure <= MOST_EXPOSURE)
    device.expect("an applet change that is not the applet control's is ignored", f"{EMIT}; {ANSWERS}")
    checkConfinement(device)
    checkRefusedCalls(device)
    lock = "ls /var/lock/com.morvane.transfer.pid"
    device.expect("the lock file goes with the unit", f"{lock} && systemctl stop {UNIT} && ! {lock}")
    device.expect("the init script hands over to the unit", f"/etc/init.d/{UNIT} start && systemctl is-active {UNIT}")
    device.do("systemctl restart dbus; sleep 2")
    device.expect("it fails when the bus goes", f"systemctl is-active {UNIT}", "^failed$", status=3)
    device.do("systemctl restart applet-control")
    device.expect("it starts again on the new bus", f"systemctl start {UNIT} && {ANSWERS}")


def checkConfinement(device):
    process = f"/proc/$(pidof {UNIT})"
    device.expect("it has three capabilities", f"grep CapEff {process}/status", "000000000000002a$")
    device.expect("it gains no others", f"grep NoNewPrivs {process}/status", "1$")
    device.expect("it leaves no core dump", f"grep 'Max core file size' {process}/limits", "0 +0 ")
    device.do("touch /mnt/precious /tmp/neighbour")
    for path, deleted in [("/mnt/precious", False), ("/tmp/neighbour", True)]:
        answer = device.call("DeleteFile", "ss", "USB_X60.1", f"../../..{path}")
        device.check(f"a path off the stick {'reaches' if deleted else 'does not reach'} {path}", answer == [deleted], answer)


def checkRefusedCalls(device):
    said = device.do(f"dmesg | sed -n 's/.*type=1326.*{UNIT}.*syscall=\\([0-9]*\\) .*/\\1/p' | sort -u").split()
    known = KNOWN_REFUSED[device.machine.architecture.name]
    device.check(f"the filter refuses the known system calls alone, {' '.join(said)}", said and set(said) <= known)


def users(device):
    device.do("systemd-sysusers --inline 'u member 61001' 'u stranger 61002' 'm member plugdev'")
    device.restart()
    device.expect("root may call", ANSWERS)
    device.expect("a member of the group may call", f"{MEMBER} {ANSWERS}")
    device.expect("a member may use the client", f"{MEMBER} transferctl status")
    device.expect("a stranger may not call", f"{STRANGER} {ANSWERS}", "Access denied", status=1)
    own = "busctl call org.freedesktop.DBus / org.freedesktop.DBus RequestName su com.morvane.transfer 2"
    device.expect("a member may not own the service's name", f"{MEMBER} {own}", "Access denied", status=1)
    device.expect("a stranger's applet change is ignored", f"{STRANGER} {EMIT}; {ANSWERS}")


def sticks(device):
    device.do(f"systemctl stop {UNIT}")
    device.format(1)
    device.do(f"systemctl start {UNIT}")
    device.check("a stick that was plugged before the start is listed", "USB_X60.1" in device.sticks())
    device.format(2)
    device.check("a stick that is plugged later is listed", device.sticks() == ["USB_X60.1", "USB_X60.2"])
    device.call("CreateDirectory", "ss", "USB_X60.2", "new/folder")
    device.check("a folder is made on it", device.names(2) == ["new"], device.names(2))
    for name in ["Töne für Größe", "n" * 255, "ü" * 127]:
        device.do(f"touch '{stickPath(2)}/{name}'")
        device.check(f"a file of the name {name[:20]} is listed", name in device.names(2), device.names(2))
        device.check("and deleted", device.call("DeleteFile", "ss", "USB_X60.2", name) == [True])
    checkCharacterSet(device)
    device.run(f"dd if=/dev/zero of={stickPath(2)}/filler bs=64k; sync")
    device.check("a backup finds no space on a full stick", device.call("DoBackup", "sus", "USB_X60.2", 1, "a.psb") == [3])
    device.check("a file is deleted from a full stick", device.call("DeleteFile", "ss", "USB_X60.2", "filler") == [True])
    device.pull(2)
    device.check("a pulled stick is not listed", device.sticks() == ["USB_X60.1"], device.sticks())
    device.plug(2, readOnly=True)
    device.check("a read-only stick is listed", "USB_X60.2" in device.sticks(), device.sticks())
    device.check("nothing is deleted from it", device.call("DeleteFile", "ss", "USB_X60.2", "Töne") == [False])
    device.check("a backup to it fails", "FAILED" in device.job("DoBackup", "sus", "USB_X60.2", 1, "a.psb"))
    device.pull(2)
    checkPulledInListing(device)
    checkPulledInJobs(device)
    checkRefusedCalls(device)


def checkCharacterSet(device):
    place = stickPath(2)
    device.do(f"mkdir {place}/Töne && systemctl stop media-usb-USB_X60.2.mount && "
              f"mount -o iocharset=iso8859-1,utf8=0 /dev/usb-stick2 {place}")
    device.check("names in another character set arrive with U+FFFD", "T\ufffdne" in device.names(2), device.names(2))
    device.do(f"umount {place} && systemctl start media-usb-USB_X60.2.mount")
    device.check("and whole from a mount in UTF-8", "Töne" in device.names(2), device.names(2))


def checkPulledInListing(device):
    device.plug(2)
    device.do(f"mkdir {stickPath(2)}/many && cd {stickPath(2)}/many && seq -f 'file %g' 400 | xargs -d '\\n' touch; sync; "
              "echo 3 >/proc/sys/vm/drop_caches")
    device.machine.start(f"for i in 1 2 3 4 5; do {callCommand('GetDirectoryIndex', 'ss', 'USB_X60.2', 'many')}; done")
    time.sleep(0.3)
    device.machine.pull(2)
    device.machine.answer()
    device.waitFor(f"! mountpoint -q {stickPath(2)}")
    device.check("the service outlives a stick that is pulled in a listing", device.sticks() == ["USB_X60.1"])


def checkPulledInJobs(device):
    device.check("a backup is made", ": done" in device.job("DoBackup", "sus", "USB_X60.1", 1, "a.psb"))
    device.do(f"device-manager-simulator --make-update 9.0.0 {stickPath(1)}/a.fwf && sync")
    device.jobsTake(10)
    for method, *arguments in [("DoBackup", "sus", "USB_X60.1", 1, "b.psb"), ("DoRestore", "ss", "USB_X60.1", "a.psb"),
                               ("DoOSUpdate", "ss", "USB_X60.1", "a.fwf")]:
        device.restart()
        device.do("echo 3 >/proc/sys/vm/drop_caches")
        started = device.call(method, *arguments)
        device.pull(1)
        ended = device.jobEnd()
        device.check(f"the service outlives a stick that is pulled in a {method}", started == [0] and device.sticks() == [],
                     f"{started} {ended} {device.sticks()}")
        device.plug(1)
        accepted = device.backups(1)
        device.check("the old backup is accepted, half a new one is not",
                     accepted == ["a.psb"], f"{accepted} {ended}")
        device.expect("the stick was repaired when it was plugged again",
                      "systemctl stop media-usb-USB_X60.1.mount; fsck.vfat -n /dev/usb-stick1")
        device.do("systemctl start media-usb-USB_X60.1.mount")
    device.jobsTake(2)


def jobs(device):
    device.format(1)
    device.check("a backup is made", ": done" in device.job("DoBackup", "sus", "USB_X60.1", 1, "backups/a.psb"))
    device.check("it is listed", device.backups(1, "backups") == ["a.psb"], device.backups(1, "backups"))
    device.check("it is restored", ": done" in device.job("DoRestore", "ss", "USB_X60.1", "backups/a.psb"))
    device.do(f"device-manager-simulator --make-update 10.0.0 {stickPath(1)}/a.fwf")
    ended = device.job("DoOSUpdate", "ss", "USB_X60.1", "a.fwf")
    device.check("an update is installed", ": done" in ended, ended)
    device.restart()
    device.jobsTake(20)
    device.call("DoBackup", "sus", "USB_X60.1", 1, "backups/b.psb")
    device.do("systemctl kill --signal=KILL device-manager; sleep 3")
    device.check("the service outlives a device manager that is killed in a job", device.sticks() == ["USB_X60.1"])
    device.check("half a backup is not accepted", device.backups(1, "backups") == ["a.psb"], device.backups(1, "backups"))
    for action in ["restart", "stop"]:
        device.restart()
        device.call("DoBackup", "sus", "USB_X60.1", 1, f"backups/{action}.psb")
        device.expect(f"{action} does not wait for a job", f"timeout 20 systemctl {action} {UNIT}")
    device.restart()
    device.jobsTake(20)
    before = device.do(f"pidof {UNIT}")
    device.call("DoBackup", "sus", "USB_X60.1", 1, "backups/upgrade.psb")
    device.do("dpkg -i /opt/*.deb")
    ended = device.jobEnd()
    device.check("an upgrade leaves service and job alone", device.do(f"pidof {UNIT}") == before and ": done" in ended, ended)


def applet(device):
    device.do("systemd-run --collect --unit=bystander --uid=61001 sleep infinity")
    device.restart()
    device.expect("the transfer applet leaves the service alone", f"echo 257 >/run/applets; sleep 1; {ANSWERS}")
    device.run("echo 256 >/run/applets; sleep 5")
    device.expect("another applet ends the service, and it stays down", f"systemctl is-active {UNIT}", "^inactive$", 3)
    device.expect("it has ended well", f"systemctl show -P ExecMainStatus {UNIT}", "^0$")
    device.expect("a unit without Restart=always stays down", "systemctl is-active bystander", "^inactive$", None)
    for unit in ["device-manager", "applet-control", "dbus", "systemd-journald", "systemd-udevd", "systemd-logind"]:
        device.expect(f"{unit} comes back", f"timeout 60 sh -c 'until systemctl is-active {unit}; do sleep 1; done'")
    device.expect("systemd calls the machine running", "systemctl is-system-running")
    device.expect("whoever opens the transfer applet starts it again", f"systemctl start {UNIT} && {ANSWERS}")


SECTIONS = {each.__name__: each for each in [install, start, users, sticks, jobs, applet]}
