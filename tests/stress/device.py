"""The sandboxed device under stress: sticks, the service and its methods."""
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402 - the version comes first

BUS_NAME = "com.morvane.transfer"
SERVICE = "com-morvane-transfer-service"
MEDIA = Path("/media/usb")
PATIENCE = 10  # seconds
LISTS = ("(av)", "(vu)", "(vi)")  # the types of replies that hold records
STANDARD = "org.freedesktop.DBus."
SANDBOX_MARK = Path("/run/morvane-sandbox")


def refuse_outside_sandbox():
    """Ends the program outside the project's sandbox: the service signals every process that it sees."""
    links = SANDBOX_MARK.read_text(encoding="ascii").split() if SANDBOX_MARK.exists() else []
    if not {os.readlink("/proc/self/ns/" + kind) for kind in ("ipc", "net")} <= set(links):
        sys.exit("this program runs in the sandbox only; see ./dev help")


def wait_until(condition, seconds=PATIENCE):
    """What condition() gives, as soon as that is true or when the time is over."""
    end = time.monotonic() + seconds
    while not (result := condition()) and time.monotonic() < end:
        time.sleep(0.002)
    return result


def stick(number):
    return MEDIA / f"USB_X60.{number}"


def plug(number, files):
    """Mounts a stick that holds files, relative paths as bytes. It appears when it is complete."""
    path, staging = stick(number), Path("/run/stick")
    staging.mkdir(exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16m", f"/dev/sd{'abcdefghi'[number - 1]}1", staging], check=True)
    fill(staging, files)

    def bind():
        path.mkdir(parents=True, exist_ok=True)  # a call may remove it again before the mount
        done = subprocess.run(["mount", "--bind", staging, path], stderr=subprocess.DEVNULL, check=False)
        return done.returncode == 0
    if not wait_until(bind):
        raise RuntimeError(f"cannot mount {path}")
    subprocess.run(["umount", staging], check=True)


def fill(root, files):
    for name in files:
        target = os.path.join(os.fsencode(root), name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as file:
            file.write(b"content of " + name)


def pull(number):
    """Unmounts a stick; its directory stays when a call has made something in there since."""
    subprocess.run(["umount", "--lazy", stick(number)], check=True)
    try:
        stick(number).rmdir()
    except OSError:
        pass


GONE = (FileNotFoundError, ProcessLookupError)  # what reading of a process that has ended gives


def status_field(pid, name):
    """A number of /proc/PID/status; 0 of a process that has ended."""
    try:
        lines = Path(f"/proc/{pid}/status").read_text(encoding="utf-8").splitlines()
    except GONE:
        return 0
    return next((int(line.split()[1]) for line in lines if line.startswith(name + ":")), 0)


def process_state(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text(encoding="utf-8").rpartition(") ")[2][0]
    except GONE:
        return "X"


def is_running(pid):
    return process_state(pid) not in ("Z", "X")


def descriptors(pid):
    """What the open descriptors are; sockets are all alike."""
    try:
        numbers = os.listdir(f"/proc/{pid}/fd")
    except GONE:
        return []
    return [link(f"/proc/{pid}/fd/{number}").split("[")[0] for number in numbers]


def link(path):
    try:
        return os.readlink(path)
    except GONE:
        return ""


def start_service(build, *arguments, held=False, environment=None, **streams):
    """Starts the service; a held one is stopped before its first system call."""
    command = [build / SERVICE, *arguments]
    if held:
        command = ["sh", "-c", 'kill -STOP $$; exec "$@"', "sh", *command]
    process = subprocess.Popen(command, env={**os.environ, **(environment or {})}, **streams)
    if held:
        wait_until(lambda: process_state(process.pid) == "T")
    return process


def service_processes():
    """The ids of the processes that run the service, in the order of their start."""
    return [pid for pid in sorted(int(name) for name in os.listdir("/proc") if name.isdigit()) if runs_service(pid)]


def runs_service(task):
    """Whether a process or thread runs the service, and not another program or nothing any more."""
    return link(f"/proc/{task}/exe").endswith("/" + SERVICE)


def send(number, pid):
    """Sends a signal to a process that may be gone."""
    try:
        os.kill(pid, number)
    except ProcessLookupError:
        pass


def kill(pid):
    """Kills a process and waits until it is gone."""
    send(signal.SIGKILL, pid)
    wait_until(lambda: not is_running(pid))


def connect(address=None):
    """A connection of its own to the system bus, or to the one at an address: one client."""
    flags = Gio.DBusConnectionFlags
    return Gio.DBusConnection.new_for_address_sync(
        address or Gio.dbus_address_get_for_bus_sync(Gio.BusType.SYSTEM),
        flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION)


def call(bus, path, interface, method, arguments=None, name=BUS_NAME, seconds=PATIENCE):
    """The reply, or raises GLib.Error."""
    return bus.call_sync(name, path, interface, method, arguments, None, Gio.DBusCallFlags.NO_AUTO_START,
                         seconds * 1000, None)


def error_name(error):
    return Gio.DBusError.get_remote_error(error) or error.message


def service_process(bus):
    """The process that owns the service's name; None where nobody does."""
    try:
        return call(bus, "/", "org.freedesktop.DBus", "GetConnectionUnixProcessID", GLib.Variant("(s)", (BUS_NAME,)),
                    "org.freedesktop.DBus")[0]
    except GLib.Error:
        return None


def answers(bus):
    """Whether the service has exported its objects, which it does last of all."""
    try:
        return service_process(bus) is not None and bool(own_interfaces(bus, "/sacIntf"))
    except GLib.Error:
        return False


def introspect(bus, path):
    return Gio.DBusNodeInfo.new_for_xml(call(bus, path, STANDARD + "Introspectable", "Introspect")[0])


def own_interfaces(bus, path):
    return [each for each in introspect(bus, path).interfaces if not each.name.startswith(STANDARD)]


class Method:
    """A method as the service describes it."""

    def __init__(self, path, interface, info):
        self.path, self.interface, self.name = path, interface, info.name
        self.inputs = [argument.signature for argument in info.in_args]
        self.output = "(" + "".join(argument.signature for argument in info.out_args) + ")"

    def call(self, bus, arguments):
        return call(bus, self.path, self.interface, self.name, arguments)

    def arguments(self, text, number):
        """Arguments of its types, the strings from text() and the numbers from number(type)."""
        return GLib.Variant.new_tuple(*(value(signature, text, number) for signature in self.inputs))

    starts_job = property(lambda self: self.output == "(i)")
    lists = property(lambda self: self.output in LISTS)


def value(signature, text, number):
    """A value of any type, with one element in each array."""
    kind = signature[0]
    if kind == "v":
        return GLib.Variant.new_variant(GLib.Variant("s", text()))
    if kind == "(":
        return GLib.Variant.new_tuple(*(value(each, text, number) for each in GLib.Variant.split_signature(signature)))
    if kind == "{":
        return GLib.Variant.new_dict_entry(value(signature[1], text, number), value(signature[2:-1], text, number))
    if kind == "a":
        return GLib.Variant.new_array(None, [value(signature[1:], text, number)])
    if kind in "sog":
        return GLib.Variant(kind, {"s": text, "o": lambda: "/", "g": lambda: "as"}[kind]())
    return GLib.Variant(kind, number(kind))


def methods(bus):
    """All methods of all objects but the bus's own, from what the service says of itself."""
    return [Method("/" + node.path, interface.name, info)
            for node in introspect(bus, "/").nodes
            for interface in own_interfaces(bus, "/" + node.path)
            for info in interface.methods]


def records(reply):
    """The records of a list, each as a string; None when the list has half a record or another count."""
    body, *count = children(reply)
    texts = [unboxed(each).print_(False) for each in children(body)]
    groups = [" ".join(texts[at:at + 4]) for at in range(0, len(texts), 4)]
    if count and count[0].unpack() == 0 and len(groups) == 1:
        groups = []  # the placeholder of an empty list
    return groups if len(texts) % 4 == 0 and (not count or count[0].unpack() == len(groups)) else None


def children(variant):
    variant = unboxed(variant)
    return [variant.get_child_value(index) for index in range(variant.n_children())]


def unboxed(variant):
    return variant.get_variant() if variant.get_type_string() == "v" else variant
