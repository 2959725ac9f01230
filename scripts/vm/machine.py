"""A Debian 12 machine with systemd under QEMU: its image, its disks, its USB sticks, and commands inside it."""
import hashlib
import json
import os
import shutil
import socket
import subprocess
import tempfile
import time
from collections import namedtuple
from pathlib import Path

HERE = Path(__file__).resolve().parent
PROJECT = HERE.parent.parent
EXAMPLES = PROJECT / "packaging" / "examples"
CACHE = Path(os.environ.get("XDG_CACHE_HOME", Path.home() / ".cache")) / "morvane-machine"
PATIENCE = 900  # seconds for one command inside, on an emulated processor
STICK_SIZE = "64M"
DISK_SIZE = "1200M"
PACKAGES = ["systemd-sysv", "udev", "dbus", "kmod", "dosfstools", "fdisk", "libglib2.0-0",
            "libjson-glib-1.0-0", "libstdc++6", "zstd"]
UNUSED_MODULES = ["drivers/gpu", "drivers/media", "drivers/net", "drivers/iio", "drivers/infiniband", "net", "sound"]
BOOT_MODULES = "virtio_pci virtio_mmio virtio_blk ext4"
# What costs an emulated processor seconds of each boot and is nobody's business here.
MASKED = ("modprobe@configfs modprobe@dm_mod modprobe@drm modprobe@efi_pstore modprobe@fuse modprobe@loop "
          "dev-hugepages.mount sys-kernel-config.mount sys-kernel-debug.mount sys-kernel-tracing.mount "
          "sys-fs-fuse-connections.mount systemd-update-utmp systemd-update-utmp-runlevel systemd-pstore "
          "e2scrub_reap getty@tty1 serial-getty@")

Architecture = namedtuple("Architecture", "name emulator kernel console build packages")
ARCHITECTURES = {each.name: each for each in [
    Architecture("amd64", ["qemu-system-x86_64", "-M", "q35,sata=off", "-cpu", "qemu64"], "linux-image-amd64", "ttyS0",
                 "dev", "package"),
    Architecture("armhf", ["qemu-system-arm", "-M", "virt,highmem=off", "-cpu", "cortex-a15"], "linux-image-armmp",
                 "ttyAMA0", "arm", "package-arm")]}


def accelerator(architecture):
    """KVM where the processor's own module drives it; some nested machines have a /dev/kvm that boots nothing."""
    serves = any(Path("/sys/module", name).exists() for name in ["kvm_intel", "kvm_amd"])
    return "kvm" if serves and architecture.name == "amd64" and os.access("/dev/kvm", os.W_OK) else "tcg"


def baseImage(architecture):
    """The folder with kernel, initrd and root file system, made by mmdebstrap unless the same recipe has made it."""
    command = ["mmdebstrap", "--mode=unshare", "--variant=essential", f"--architectures={architecture.name}",
               f"--include={','.join([architecture.kernel, *PACKAGES])}", "--format=ext2",
               *[f"--dpkgopt=path-exclude=/lib/modules/*/kernel/{each}/*" for each in UNUSED_MODULES],
               '--essential-hook=cd "$1" && mkdir -p etc/initramfs-tools/conf.d usr/share/initramfs-tools/modules.d && '
               f'echo MODULES=list >etc/initramfs-tools/conf.d/machine && printf "%s\\n" {BOOT_MODULES} '
               ">usr/share/initramfs-tools/modules.d/machine",
               f"--customize-hook=copy-in {HERE}/agent /usr/local/sbin",
               f"--customize-hook=copy-in {HERE}/agent.service /etc/systemd/system",
               f'--customize-hook=systemctl --quiet --root="$1" enable agent && systemctl --quiet --root="$1" mask {MASKED}',
               '--customize-hook=cd "$1" && rm etc/dpkg/dpkg.cfg.d/99mmdebstrap && cp boot/vmlinuz-* boot/vmlinuz && '
               "cp boot/initrd.img-* boot/initrd",
               "--customize-hook=copy-out /boot/vmlinuz /boot/initrd .", "bookworm", "root",
               os.environ["MORVANE_MIRROR"]]
    recipe = "\n".join([*command, DISK_SIZE, *[(HERE / each).read_text() for each in ["agent", "agent.service"]]])
    folder = CACHE / f"{architecture.name}-{hashlib.sha256(recipe.encode()).hexdigest()[:16]}"
    if not folder.exists():
        print(f"==> Making the {architecture.name} image", flush=True)
        CACHE.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(dir=CACHE) as place:
            work = Path(place, "image")
            work.mkdir()
            subprocess.run(command, cwd=work, check=True)
            subprocess.run(["truncate", "--size", DISK_SIZE, work / "root"], check=True)
            subprocess.run(["/sbin/e2fsck", "-fy", work / "root"])  # its status tells of repairs
            for tool in [["/sbin/resize2fs"], ["/sbin/tune2fs", "-j"]]:
                subprocess.run([*tool, work / "root"], check=True)
            work.rename(folder)
    return folder


def payload(architecture, path):
    """Writes what the machine gets of this project into a tar file, which is a disk of the machine."""
    build, packages = PROJECT / "build" / architecture.build, PROJECT / "build" / architecture.packages
    with tempfile.TemporaryDirectory() as root:
        def put(folder, *sources):
            place = Path(root, folder)
            place.mkdir(parents=True, exist_ok=True)
            for source in sources:
                shutil.copy(source, place)

        put("usr/local/lib", build / "libDeviceManagerClient.so", build / "libVesk.so")
        put("usr/local/bin", build / "device-manager-simulator", build / "applet-control")
        put("opt", *packages.glob("*.deb"))
        put("etc/udev/rules.d", EXAMPLES / "70-usb-sticks.rules")
        put("etc/dbus-1/system.d", PROJECT / "simulator" / "com.morvane.scctrl.conf")
        for unit in ["device-manager.service", "applet-control.service"]:
            put("etc/systemd/system", HERE / unit)
            put(f"etc/systemd/system/{unit}.d", EXAMPLES / "restart.conf")
        mount = (EXAMPLES / "media-usb-USB_X60.1.mount").read_text()
        for port in range(1, 5):
            Path(root, f"etc/systemd/system/media-usb-USB_X60.{port}.mount").write_text(
                mount.replace("stick1", f"stick{port}").replace("X60.1", f"X60.{port}"))
        # Without the folder itself, whose mode the root of the machine would get.
        subprocess.run(["tar", "-C", root, "--owner=0", "--group=0", "--mode=u+rwX,go+rX", "-cf", path,
                        *os.listdir(root)], check=True)


class Broken(Exception):
    """The machine does not do what every check relies on."""


class Machine:
    """A running machine. Its disks are files in a folder and stay when it ends."""

    def __init__(self, architecture, folder, sticks=(), snapshot=None):
        self.architecture, self.folder, self.plugged = architecture, folder, set(sticks)
        image, root, tar = baseImage(architecture), folder / "root.qcow2", folder / "payload.tar"
        if not root.exists():
            createDisk(root, DISK_SIZE, "-b", image / "root", "-F", "raw")
            payload(architecture, tar)
        self.qmpSocket, qmpEnd = socket.socketpair()
        self.agentSocket, agentEnd = socket.socketpair()
        command = [
            *architecture.emulator, "-accel", accelerator(architecture), "-smp", "1", "-m", "512", "-no-reboot",
            "-nodefaults", "-display", "none", "-serial", f"file:{folder}/console",
            "-kernel", image / "vmlinuz", "-initrd", image / "initrd",
            # The processor is slow and nobody else's; systemd has the kernel report each refused system call.
            "-append", f"root=/dev/vda rw console={architecture.console} quiet mitigations=off audit=1 "
                       "systemd.default_timeout_start_sec=900 SYSTEMD_LOG_SECCOMP=1",
            "-drive", f"if=none,id=root,file={root}", "-device", "virtio-blk-pci,drive=root",
            "-drive", f"if=none,id=tar,format=raw,readonly=on,file={tar}", "-device", "virtio-blk-pci,drive=tar",
            "-chardev", f"socket,id=qmp,fd={qmpEnd.fileno()}", "-mon", "chardev=qmp,mode=control",
            "-chardev", f"socket,id=agent,fd={agentEnd.fileno()}", "-device", "virtio-serial-pci",
            "-device", "virtserialport,chardev=agent,name=agent", "-device", "qemu-xhci,id=usb"]
        for port in sticks:
            command += ["-blockdev", json.dumps(self.stickDisk(port)), "-device",
                        f"usb-storage,id=stick{port},drive=disk{port},bus=usb.0,port={port},removable=on"]
        command += ["-loadvm", snapshot] if snapshot else []
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

    def start(self, command):
        """Hands a command in, whose end is not waited for."""
        self.agentSocket.sendall(command.encode() + b"\0")

    def answer(self):
        """Status and output of the command that was handed in."""
        self.agentSocket.settimeout(PATIENCE)
        received = b""
        try:
            while not received.endswith(b"\0"):
                received += self.agentSocket.recv(65536) or b"1\0"
        except TimeoutError:
            raise Broken("the machine does not answer")
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

    def stickFile(self, port):
        return self.folder / f"stick{port}.qcow2"

    def stickDisk(self, port, readOnly=False):
        if not self.stickFile(port).exists():
            createDisk(self.stickFile(port), STICK_SIZE)
        return {"driver": "qcow2", "node-name": f"disk{port}", "read-only": readOnly,
                "file": {"driver": "file", "filename": str(self.stickFile(port))}}

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
            except Broken:  # still in use
                time.sleep(0.05)
        raise Broken("the disk of the stick is still in use")


def createDisk(path, size, *options):
    subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", *options, path, size], check=True)
