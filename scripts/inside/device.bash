# Sourced inside the sandbox: the parts of the simulated device. The caller sets `build`, the build folder.
# shellcheck shell=bash
set -euo pipefail

: "${build:?the build folder}"
readonly kState=/mnt/usrdata/device # settings, recipes, users and firmware of the simulated device
readonly kApplets=/run/applets      # ids written here become applet changes
readonly kLogs=/run/log
readonly kLimit=30 # seconds until something that should happen is given up

explain() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# What follows mounts, and starts a service that ends every process it may signal.
requireSandbox() {
    local link
    for link in "$(readlink /proc/self/ns/ipc)" "$(readlink /proc/self/ns/net)"; do
        grep -qxF -- "$link" /run/morvane-sandbox 2>/dev/null || explain "runs inside the sandbox only"
    done
}

# waitUntil SECONDS COMMAND...: until COMMAND succeeds; fails when it still does not after SECONDS.
waitUntil() {
    local limit=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS <= limit)) || return 1
        sleep 0.02
    done
}

# ---- sticks ------------------------------------------------------------------------------------------

stickPath() {
    printf '/media/usb/USB_X60.%d' "$1"
}

# plugMemoryStick NUMBER DEVICE SIZE: a stick in memory, whose mount table entry names DEVICE.
plugMemoryStick() {
    mkdir -p "$(stickPath "$1")"
    mount -t tmpfs -o "size=$3" "$2" "$(stickPath "$1")"
}

# Why there cannot be a stick with a block device; nothing when there can.
whyNoDisk() {
    if ! grep -q 4294967295 /proc/self/uid_map; then
        echo "only root may use loop devices"
    elif ! losetup -f >/dev/null 2>&1; then
        echo "this machine has no free loop device"
    elif ! type -P mkfs.ext4 >/dev/null; then
        echo "mkfs.ext4 is missing"
    fi
}

# plugDiskStick NUMBER DEVICE SIZE: a stick with ext4 on a block device of that name, a loop device. When that
# fails it says why, and no stick is plugged. The loop device is taken by a first mount, which gives it back
# by itself whatever ends this script.
plugDiskStick() {
    local image=/mnt/stick-$1.image first=/mnt/stick-$1 loop plugged=no
    mkdir -p "$first" "$(stickPath "$1")"
    truncate -s "$3" "$image"
    mkfs.ext4 -q -F "$image" || return
    loop=$(losetup -f) || return
    [[ -b $loop ]] || mknod "$loop" b 7 "${loop#/dev/loop}" || return
    mount -o loop "$image" "$first" || return
    read -r loop < <(findmnt -n -o MAJ:MIN "$first")
    mknod "$2" b "${loop%:*}" "${loop#*:}" && mount "$2" "$(stickPath "$1")" && plugged=yes
    umount "$first"
    [[ $plugged == yes ]]
}

# ---- device manager, applet control, service ---------------------------------------------------------

# logSays LOG TEXT [PID]: whether TEXT is in LOG; also true once PID has ended.
logSays() {
    grep -qF -- "$2" "$kLogs/$1" 2>/dev/null || ! kill -0 "$3" 2>/dev/null
}

lastLine() {
    local line
    line=$(tail -n 1 "$kLogs/$1")
    printf '%s' "${line:-it says nothing}"
}

# Starts a helper in the background that writes to LOG, and waits until it says READY there.
startHelper() {
    local log=$1 ready=$2 pid
    shift 2
    "$@" <&0 >>"$kLogs/$log" 2>&1 &
    pid=$!
    if ! waitUntil "$kLimit" logSays "$log" "$ready" "$pid" || ! kill -0 "$pid" 2>/dev/null; then
        explain "the ${log/-/ } does not come up: $(lastLine "$log")"
    fi
}

# startDeviceManager [OPTION...]: the options of the device-manager simulator.
startDeviceManager() {
    startHelper device-manager "listens on" "$build/device-manager-simulator" --state "$kState" "$@"
}

startAppletControl() {
    mkfifo "$kApplets"
    startHelper applet-control "owns com.morvane.scctrl" "$build/applet-control" <>"$kApplets"
}

changeApplet() {
    printf '%d\n' "$1" >"$kApplets"
}

# Starts the service in a room, where its signal to every process ends only itself. Sets `room`, the process
# whose end is the service's; the service's output is in the log "service", line by line.
startService() {
    "$build/tests/room" -- stdbuf -oL "$build/com-morvane-transfer-service" >>"$kLogs/service" 2>&1 &
    room=$!
    if ! waitUntil "$kLimit" serviceAnswersOrEnded || ! kill -0 "$room" 2>/dev/null; then
        explain "the service does not come up: $(lastLine service)"
    fi
}

# The name is owned a moment before the objects are there, so ask the object.
serviceAnswersOrEnded() {
    gdbus call --system -d com.morvane.transfer -o /sacIntf -m org.freedesktop.DBus.Properties.Get \
        com.morvane.transfer.sac organizationName >/dev/null 2>&1 || ! kill -0 "$room" 2>/dev/null
}

# call METHOD [ARG...]: calls the transfer interface and prints the reply.
call() {
    gdbus call --system -d com.morvane.transfer -o /sacIntf -m "com.morvane.transfer.sac.$1" "${@:2}"
}
