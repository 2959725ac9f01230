# Sourced inside the sandbox: the parts of the simulated device. The caller sets `build`, the build folder.
# shellcheck shell=bash
set -euo pipefail

: "${build:?the build folder}"
readonly kState=/mnt/usrdata/device # settings, recipes, users and firmware of the simulated device
readonly kRun=/run/device           # what the running device needs: processes, applets, commands
readonly kApplets=$kRun/applets     # lines written here are what the applet control follows
readonly kLogs=/run/log
readonly kLimit=30       # seconds until something that should happen is given up
readonly kLeftBytes=4096 # on a stick that is nearly full
# shellcheck disable=SC2034 # for those who source this
readonly kJobSeconds=3 # long enough to be watched

# What the service and its callers agree on.
contract=$(<"$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../../transfer/contract.h")
[[ $contract =~ kLastStick\ =\ ([0-9]+) ]] && kSticks=${BASH_REMATCH[1]}
[[ $contract =~ kMountBase\ =\ \"([^\"]+) ]] && kStickPath=${BASH_REMATCH[1]}
[[ $contract =~ kStickPrefix\ =\ \"([^\"]+) ]] && kStickPath+=/${BASH_REMATCH[1]}
readonly kSticks kStickPath

# What has to stand in front of the programs of this build, which is nothing unless it is for another processor.
emulator=()
[[ ! -s $build/emulator ]] || read -ra emulator <"$build/emulator"
readonly simulator=("${emulator[@]}" "$build/device-manager-simulator")

explain() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# attempt COMMAND...: when it fails, its first line of complaint ends the script.
attempt() {
    local said
    said=$("$@" 2>&1) || explain "${said%%$'\n'*}"
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

# ---- the log -----------------------------------------------------------------------------------------

# note TEXT: a line in the device's log, of the form that device manager and applet control use.
note() {
    printf '%s  %s\n' "$(date '+%F %T.%3N')" "$1" >>"$kLogs/device"
}

# logEnd LOG: how long LOG is; what logSays may begin with.
logEnd() {
    stat -c %s "$kLogs/$1" 2>/dev/null || printf 0
}

# logSays LOG TEXT PID [FROM]: whether TEXT is in LOG after FROM bytes; also true once PID has ended.
logSays() {
    grep -qF -- "$2" < <(tail -c "+$((${4-0} + 1))" "$kLogs/$1" 2>/dev/null) || ! kill -0 "$3" 2>/dev/null
}

lastLine() {
    local line
    line=$(tail -n 1 "$kLogs/$1")
    printf '%s' "${line:-it says nothing}"
}

# ---- sticks ------------------------------------------------------------------------------------------

stickPath() {
    printf '%s%d' "$kStickPath" "$1"
}

stickDevice() {
    local letters=abcdefghi
    printf '/dev/sd%s1' "${letters:$1-1:1}"
}

isPlugged() {
    mountpoint -q "$(stickPath "$1")"
}

# plugStick NUMBER SIZE [FOLDER [READ-ONLY [NEARLY-FULL]]]: a stick in memory that nobody sees before it is
# complete: with the contents of FOLDER unless that is empty, and what is "yes" of the other two. When that
# fails it says why, and no stick is plugged.
plugStick() {
    local place=$kRun/stick-$1 plugged=no
    mkdir -p "$place"
    mount -t tmpfs -o "size=$2" "$(stickDevice "$1")" "$place" || return
    prepareStick "$place" "${3-}" "${4-no}" "${5-no}" && showStick "$place" "$(stickPath "$1")" && plugged=yes
    umount "$place" && rmdir "$place"
    [[ $plugged == yes ]] || return
    note "stick $1: plugged, $(describeStick "$1")"
}

showStick() {
    mkdir -p "$2" && mount --bind "$1" "$2"
}

prepareStick() {
    local place=$1 from=$2 readOnly=$3 nearlyFull=$4
    # Nobody owns what is on a stick; the rest is copied as it is.
    [[ -z $from ]] || cp -a --no-preserve=ownership -- "$from/." "$place/" || return
    [[ $nearlyFull != yes ]] || fillStick "$place" || return
    # With its source named, mount leaves the other options alone: an ordinary user could not set them again.
    [[ $readOnly != yes ]] || mount -o remount,ro tmpfs "$place"
}

# A file takes all but the last bytes. It lies in memory, of which the machine must have enough.
fillStick() {
    local blocks size left memory filler
    read -r blocks size < <(stat -f -c '%a %S' "$1")
    read -r _ memory _ < <(grep '^MemAvailable:' /proc/meminfo)
    left=$((blocks * size - kLeftBytes))
    ((left > 0)) || return 0
    ((left / 1024 <= memory / 2)) || { echo "too little memory to fill a stick of this size" >&2 && return 1; }
    filler=$(mktemp "$1/filler.XXXXXX") && fallocate -l "$left" "$filler"
}

# Whoever has a file open on it may use that on, but nobody finds the stick any more.
pullStick() {
    umount --lazy "$(stickPath "$1")" || return # "attempt" turns "set -e" off
    rmdir "$(stickPath "$1")" 2>/dev/null || true
    note "stick $1: pulled"
}

describeStick() {
    local device size free options
    read -r device size free options < <(findmnt -r -n -o SOURCE,SIZE,AVAIL,OPTIONS --mountpoint "$(stickPath "$1")" | tail -n 1)
    printf '%s, %s, %s free' "$device" "$size" "$free"
    [[ $options != ro,* ]] || printf ', read-only'
}

listSticks() {
    local number none=yes
    for ((number = 1; number <= kSticks; number++)); do
        isPlugged "$number" || continue
        none=no
        printf '%d  %s%d  %s\n' "$number" "${kStickPath##*/}" "$number" "$(describeStick "$number")"
    done
    [[ $none == no ]] || echo "no stick is plugged"
}

# ---- processes ---------------------------------------------------------------------------------------

# processOf PART: prints its process id; fails when the part does not run.
processOf() {
    local pid
    { read -r pid <"$kRun/$1.pid"; } 2>/dev/null && kill -0 "$pid" 2>/dev/null && printf '%s' "$pid"
}

runs() {
    processOf "$1" >/dev/null
}

isGone() {
    ! kill -0 "$1" 2>/dev/null
}

# startPart PART READY COMMAND...: starts a part of the device that writes to the device's log, and waits until
# it says READY there. It outlives this script, and gets this function's input.
startPart() {
    local part=$1 ready=$2 pid from
    shift 2
    from=$(logEnd device)
    pid=$("$@" <&0 >>"$kLogs/device" 2>&1 & echo "$!")
    printf '%d\n' "$pid" >"$kRun/$part.pid"
    if ! waitUntil "$kLimit" logSays device "$ready" "$pid" "$from" || isGone "$pid"; then
        explain "the ${part/-/ } does not come up: $(lastLine device)"
    fi
}

# stopPart PART: ends it in order, or at once when it does not.
stopPart() {
    local pid
    pid=$(processOf "$1") || return 0
    kill "$pid" 2>/dev/null || return 0
    waitUntil "$kLimit" isGone "$pid" || kill -KILL "$pid"
}

# startDeviceManager SECONDS: what a job takes.
startDeviceManager() {
    startPart device-manager "listens on" "${simulator[@]}" --state "$kState" \
        --job-seconds "$1" </dev/null
}

startAppletControl() {
    mkfifo "$kApplets"
    startPart applet-control "owns com.morvane.scctrl" "${emulator[@]}" "$build/applet-control" <>"$kApplets"
}

tellAppletControl() {
    printf '%s\n' "$1" >"$kApplets"
}

# ---- the service -------------------------------------------------------------------------------------

# Starts the service in a PID namespace, where its signal to every process ends only itself. Sets `namespace`, the process
# whose end is the service's; the service's output is in the log "service", line by line. The namespace dies with
# the process that calls this.
startService() {
    # The service flushes only to a terminal, and its lines are wanted as they are written.
    "${emulator[@]}" "$build/pid-namespace" --terminal -- "${emulator[@]}" "$build/com-morvane-transfer-service" \
        </dev/null >>"$kLogs/service" 2>&1 &
    namespace=$!
    printf '%d\n' "$namespace" >"$kRun/namespace.pid"
    if ! waitUntil "$kLimit" serviceAnswersOrEnded "$namespace" || isGone "$namespace"; then
        explain "the service does not come up: $(lastLine service)"
    fi
    note "service: answers"
}

# The name is owned a moment before the objects are there, so ask the object.
serviceAnswers() {
    gdbus call --system --timeout 5 -d com.morvane.transfer -o /sacIntf -m org.freedesktop.DBus.Properties.Get \
        com.morvane.transfer.sac organizationName >/dev/null 2>&1
}

serviceAnswersOrEnded() {
    isGone "$1" || serviceAnswers
}

# keepService always|once: starts the service and, with "always", starts it again after every end, as a supervisor does.
keepService() {
    local status
    while true; do
        startService
        status=0
        wait "$namespace" || status=$?
        note "service: ended with status $status"
        [[ $1 != once ]] || return 0
    done
}

# startServiceKeeper always|once: has the service kept by a process that outlives this script.
startServiceKeeper() {
    local keeper
    keeper=$(keepService "$1" </dev/null >>"$kLogs/device" 2>&1 & echo "$!")
    printf '%d\n' "$keeper" >"$kRun/service.pid"
    serviceComesUp "$keeper" || explain "the service does not come up: $(lastLine device)"
}

# serviceComesUp KEEPER: waits until the service answers; fails when its keeper has ended.
serviceComesUp() {
    waitUntil $((2 * kLimit)) serviceAnswersOrEnded "$1" && ! isGone "$1"
}

stopService() {
    local namespace
    stopPart service
    # The namespace has gone with its keeper, or is about to.
    ! namespace=$(processOf namespace) || waitUntil "$kLimit" isGone "$namespace"
    note "service: stopped"
}

# changeApplet ID: announces an applet. Returns once a service that runs has taken notice: it has ended, or it
# answers again.
changeApplet() {
    local control heard said namespace
    control=$(processOf applet-control) || explain "the applet control does not run"
    said=$(logEnd device)
    heard=$(logEnd service)
    namespace=$(processOf namespace) || namespace=
    tellAppletControl "$1"
    waitUntil "$kLimit" logSays device "applet control: applet $1" "$control" "$said" ||
        explain "the applet control says nothing"
    [[ -n $namespace ]] || return 0
    if ! waitUntil "$kLimit" logSays service "Signal received with ID $1" "$namespace" "$heard" ||
        ! waitUntil "$kLimit" serviceAnswersOrEnded "$namespace"; then
        explain "the service does not take notice of applet $1"
    fi
}

# call METHOD [ARG...]: calls the transfer interface and prints the reply.
call() {
    gdbus call --system -d com.morvane.transfer -o /sacIntf -m "com.morvane.transfer.sac.$1" "${@:2}"
}

# ---- the whole ---------------------------------------------------------------------------------------

# The folder of the running device, with its commands.
layOut() {
    requireSandbox
    mkdir -p "$kRun/bin" "$kState"
    ln -s "$build" "$kRun/build"
    ln -s "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/device" "$kRun/bin/device"
    provideProgram device-manager-simulator # makes update files
    [[ ! -x $build/transferctl ]] || provideProgram transferctl
}

# provideProgram NAME: makes a program of the build a command of the device's.
provideProgram() {
    printf '#!/bin/bash\nexec%s "$@"\n' "$(printf ' %q' "${emulator[@]}" "$build/$1")" >"$kRun/bin/$1"
    chmod +x "$kRun/bin/$1"
}

# useState FOLDER: keeps the device's state in FOLDER, which one device may do at a time: as long as a process
# holds the lock.
useState() {
    local lock
    mount --rbind "$1" "$kState"
    exec {lock}<"$kState"
    flock --nonblock "$lock" || explain "another simulated device uses $1"
}

# Two sticks, the second with an update that the device takes.
plugFirstSticks() {
    local version
    plugStick 1 32M
    plugStick 2 16M
    read -r version <"$kState/firmware/version"
    "${simulator[@]}" --make-update "$((${version%%.*} + 1)).0.0" "$(stickPath 2)/device.fwf"
}
