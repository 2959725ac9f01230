"""A Debian 12 machine with systemd under QEMU: its image, its run, its USB sticks, and commands inside it."""
import hashlib
import io
import json
import os
import shutil
import socket
import subprocess
import tarfile
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
PROJECT = HERE.parent.parent
CACHE = Path(os.environ.get("XDG_CACHE_HOME", Path.home() / ".cache")) / "morvane-machine"
PATIENCE = 900  # seconds for one command inside, which an emulated processor executes
STICK_SIZE = "64M"
DISK_SIZE = "1200M"
PACKAGES = ["systemd-sysv", "udev", "dbus", "kmod", "dosfstools", "fdisk", "libarchive13", "libglib2.0-0",
            "libjson-glib-1.0-0", "libstdc++6"]
UNUSED_MODULES = ["drivers/gpu", "drivers/media", "drivers/net", "drivers/iio", "drivers/infiniband", "net", "sound"]
BOOT_MODULES = ["virtio_pci", "virtio_mmio", "virtio_blk", "ext4"]
# What costs an emulated processor seconds of each boot and is nobody's business here.
MASKED = ["modprobe@configfs", "modprobe@dm_mod", "modprobe@drm", "modprobe@efi_pstore", "modprobe@fuse",
          "modprobe@loop", "dev-hugepages.mount", "sys-kernel-config.mount", "sys-kernel-debug.mount",
          "sys-kernel-tracing.mount", "sys-fs-fuse-connections.mount", "systemd-update-utmp",
          "systemd-update-utmp-runlevel", "systemd-pstore", "e2scrub_reap", "getty@tty1", "serial-getty@"]


class Architecture:
    def __init__(self, name, emulator, kernel, console, build, packages, triplet):
        self.name, self.emulator, self.kernel, self.console = name, emulator, kernel, console
        self.build, self.packages = PROJECT / "build" / build, PROJECT / "build" / packages
        self.triplet = triplet


ARCHITECTURES = {each.name: each for each in [
    Architecture("amd64", ["qemu-system-x86_64", "-M", "q35,sata=off", "-cpu", "qemu64"], "linux-image-amd64", "ttyS0",
                 "dev", "package", "x86_64-linux-gnu"),
    Architecture("armhf", ["qemu-system-arm", "-M", "virt,highmem=off", "-cpu", "cortex-a15"], "linux-image-armmp",
                 "ttyAMA0", "arm", "package-arm", "arm-linux-gnueabihf"),
]}


def accelerator(architecture):
    """KVM where the processor's own module drives it; some nested machines have a /dev/kvm that boots nothing."""
    serves = any(Path("/sys/module", name).exists() for name in ["kvm_intel", "kvm_amd"])
    return "kvm" if serves and architecture.name == "amd64" and os.access("/dev/kvm", os.W_OK) else "tcg"


def baseImage(architecture):
    """The folder with kernel, initrd and root file system, made by mmdebstrap unless the same recipe has made it."""
    command = ["mmdebstrap", "--mode=unshare", "--variant=essential", f"--architectures={architecture.name}",
               f"--include={','.join([architecture.kernel, *PACKAGES])}", "--format=ext2",
               *[f"--dpkgopt=path-exclude=/lib/modules/*/kernel/{each}/*" for each in UNUSED_MODULES],
               '--essential-hook=mkdir -p "$1/etc/initramfs-tools/conf.d" "$1/usr/share/initramfs-tools/modules.d"',
               '--essential-hook=echo MODULES=list >"$1/etc/initramfs-tools/conf.d/machine"',
               f'--essential-hook=printf "%s\\n" {" ".join(BOOT_MODULES)} '
               '>"$1/usr/share/initramfs-tools/modules.d/machine"',
               f"--customize-hook=copy-in {HERE}/agent /usr/local/sbin",
               f"--customize-hook=copy-in {HERE}/agent.service /etc/systemd/system",
               '--customize-hook=systemctl --quiet --root="$1" enable agent',
               f'--customize-hook=systemctl --quiet --root="$1" mask {" ".join(MASKED)}',
               '--customize-hook=cp "$1"/boot/vmlinuz-* "$1/boot/vmlinuz"; cp "$1"/boot/initrd.img-* "$1/boot/initrd"',
               "--customize-hook=copy-out /boot/vmlinuz /boot/initrd .",
               '--customize-hook=rm "$1/etc/dpkg/dpkg.cfg.d/99mmdebstrap"',
               "bookworm", "root"]
    recipe = "\n".join([*command, DISK_SIZE, *[(HERE / each).read_text() for each in ["agent", "agent.service"]]])
    folder = CACHE / f"{architecture.name}-{hashlib.sha256(recipe.encode()).hexdigest()[:16]}"
    if folder.exists():
        return folder
    print(f"==> Making the {architecture.name} image", flush=True)
    CACHE.mkdir(parents=True, exist_ok=True)
    work = Path(tempfile.mkdtemp(dir=CACHE))
    try:
        log = (work / "log").open("w")
        for step in [command, ["truncate", "--size", DISK_SIZE, "root"], ["/sbin/e2fsck", "-fy", "root"],
                     ["/sbin/resize2fs", "root"], ["/sbin/tune2fs", "-j", "root"]]:
            status = subprocess.run(step, cwd=work, stdin=subprocess.DEVNULL, stdout=log, stderr=log).returncode
            if status != 0 and not (step[0].endswith("e2fsck") and status == 1):  # it has repaired something
                raise SystemExit(f"machine: {step[0]}: {(work / 'log').read_text()[-2000:]}")
        work.rename(folder)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    return folder


def payload(architecture, path):
    """Writes what the machine gets of this project into a tar file, which is a disk of the machine."""
    build, examples = architecture.build, PROJECT / "packaging" / "examples"
    files = {f"usr/local/lib/{each}": build / each for each in ["libDeviceManagerClient.so", "libVesk.so"]}
    files |= {f"usr/local/bin/{each}": build / each for each in ["device-manager-simulator", "applet-control"]}
    files |= {f"opt/{each.name}": each for each in architecture.packages.glob("*.deb")}
    files |= {f"etc/systemd/system/{each}.service": HERE / f"{each}.service"
              for each in ["device-manager", "applet-control"]}
    files |= {f"etc/systemd/system/{each}.service.d/restart.conf": examples / "restart.conf"
              for each in ["device-manager", "applet-control"]}
    files["etc/udev/rules.d/70-usb-sticks.rules"] = examples / "70-usb-sticks.rules"
    files["etc/dbus-1/system.d/com.morvane.scctrl.conf"] = PROJECT / "simulator" / "com.morvane.scctrl.conf"
    files["etc/morvane/transfer/transfer.sh"] = PROJECT / "simulator" / "transfer.sh"
    mount = (examples / "media-usb-USB_X60.1.mount").read_text()
    with tarfile.open(path, "w") as archive:
        for name, source in files.items():
            archive.add(source, name, filter=ownedByRoot)
        for port in range(1, 5):
            text = mount.replace("stick1", f"stick{port}").replace("X60.1", f"X60.{port}").encode()
            member = tarfile.TarInfo(f"etc/systemd/system/media-usb-USB_X60.{port}.mount")
            member.size = len(text)
            archive.addfile(member, io.BytesIO(text))


def ownedByRoot(member):
    member.uid = member.gid = 0
    member.uname = member.gname = "root"
    return member


class Broken(Exception):
    """The machine does not do what every check relies on."""


class Machine:
    """A running machine. Its disks are files in a folder and stay when it ends."""

    def __init__(self, architecture, folder, sticks=(), snapshot=None):
        self.architecture, self.folder, self.plugged = architecture, folder, set(sticks)
        image = baseImage(architecture)
        root, tar = folder / "root.qcow2", folder / "payload.tar"
        if not root.exists():
            createDisk(root, base=image / "root")
            payload(architecture, tar)
        self.qmpSocket, qmpEnd = socket.socketpair()
        self.agentSocket, agentEnd = socket.socketpair()
        command = [
            *architecture.emulator, "-accel", accelerator(architecture), "-smp", "1", "-m", "512", "-no-reboot",
            "-nodefaults", "-display", "none", "-serial", f"file:{folder}/console",
            "-kernel", str(image / "vmlinuz"), "-initrd", str(image / "initrd"),
            # An audit record for each refused system call; the processor is nobody's, so nothing is mitigated.
            "-append", f"root=/dev/vda rw console={architecture.console} quiet mitigations=off audit=1 "
                       "systemd.default_timeout_start_sec=900 "
                       "SYSTEMD_LOG_SECCOMP=1",
            "-drive", f"if=none,id=root,file={root}", "-device", "virtio-blk-pci,drive=root",
            "-drive", f"if=none,id=tar,format=raw,readonly=on,file={tar}", "-device", "virtio-blk-pci,drive=tar",
            "-chardev", f"socket,id=qmp,fd={qmpEnd.fileno()}", "-mon", "chardev=qmp,mode=control",
            "-chardev", f"socket,id=agent,fd={agentEnd.fileno()}", "-device", "virtio-serial-pci",
            "-device", "virtserialport,chardev=agent,name=agent", "-device", "qemu-xhci,id=usb"]
        for port in sticks:
            command += ["-blockdev", json.dumps(self.stickDisk(port)), "-device",
                        f"usb-storage,id=stick{port},drive=disk{port},bus=usb.0,port={port},removable=on"]
        if snapshot:
            command += ["-loadvm", snapshot]
        self.process = subprocess.Popen(command, pass_fds=[qmpEnd.fileno(), agentEnd.fileno()],
                                        stdin=subprocess.DEVNULL)
        qmpEnd.close()
        agentEnd.close()
        self.qmpLines = self.qmpSocket.makefile("r")
        self.qmpLines.readline()  # the greeting
        self.qmp("qmp_capabilities")
        self.run("true")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.cut()

    def cut(self):
        """Pulls the plug."""
        self.process.kill()
        self.process.wait()
        self.qmpSocket.close()
        self.agentSocket.close()

    def qmp(self, command, **arguments):
        self.qmpSocket.sendall(json.dumps({"execute": command, "arguments": arguments}).encode())
        for line in self.qmpLines:
            answer = json.loads(line)
            if "error" in answer:
                raise Broken(f"{command}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]
        raise Broken("QEMU has ended")

    def monitor(self, command):
        said = self.qmp("human-monitor-command", **{"command-line": command})
        if said.strip():
            raise Broken(f"{command}: {said}")

    def start(self, command):
        """Hands a command in, whose end is not waited for."""
        self.agentSocket.sendall(command.encode() + b"\0")

    def answer(self):
        """Status and output of the command that was handed in."""
        self.agentSocket.settimeout(PATIENCE)
        received = b""
        while not received.endswith(b"\0"):
            try:
                some = self.agentSocket.recv(65536)
            except TimeoutError:
                some = b""
            if not some:
                raise Broken(f"the machine does not answer; see {self.folder}/console")
            received += some
        output, status = received[:-1].decode(errors="replace").rsplit("\n", 1)
        return int(status), output.strip()

    def run(self, command):
        """Status and output of a command of the shell as root."""
        self.start(command)
        return self.answer()

    def do(self, command):
        """The output of a command that has to succeed."""
        status, output = self.run(command)
        if status != 0:
            raise Broken(f"{command}: status {status}: {output}")
        return output

    def waitFor(self, command, seconds=60):
        """Whether the command succeeds within that time."""
        limit = time.monotonic() + seconds
        while self.run(command)[0] != 0:
            if time.monotonic() > limit:
                return False
            time.sleep(0.1)
        return True

    def stickFile(self, port):
        return self.folder / f"stick{port}.qcow2"

    def stickDisk(self, port, readOnly=False):
        path = self.stickFile(port)
        if not path.exists():
            createDisk(path, STICK_SIZE)
        return {"driver": "qcow2", "node-name": f"disk{port}", "read-only": readOnly,
                "file": {"driver": "file", "filename": str(path)}}

    def plug(self, port, readOnly=False):
        self.qmp("blockdev-add", **self.stickDisk(port, readOnly))
        self.qmp("device_add", driver="usb-storage", id=f"stick{port}", drive=f"disk{port}", bus="usb.0",
                 port=str(port), removable=True)
        self.plugged.add(port)

    def pull(self, port):
        self.qmp("device_del", id=f"stick{port}")
        self.plugged.discard(port)
        for _ in range(100):
            try:
                return self.qmp("blockdev-del", **{"node-name": f"disk{port}"})
            except Broken:
                time.sleep(0.05)
        raise Broken("the disk of the stick is still in use")


def createDisk(path, size=DISK_SIZE, base=None):
    backing = ["-b", str(base), "-F", "raw"] if base else []
    subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", *backing, str(path), size], check=True)
