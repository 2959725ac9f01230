# Sourced by scripts/inside/demo: prints steps, calls and replies. The caller sets `build`, the build folder.
# shellcheck shell=bash
. "$(dirname -- "${BASH_SOURCE[0]}")/../../simulator/device/device.bash"

readonly kOtherApplet=256
step=0
title=

begin() {
    step=$((step + 1))
    title=$*
    printf '\n%2d. %s\n' "$step" "$title"
}

tell() {
    printf '    %s\n' "$@"
}

giveUp() {
    printf '\n%s: step %d (%s) failed: %s\n' "${0##*/}" "$step" "$title" "$*" >&2
    exit 1
}

# ask METHOD [ARG...]: shows a call and its reply, which is left in `reply`.
ask() {
    local word shown=
    for word in "$@"; do
        shown+=" ${word:-"''"}"
    done
    tell "$ gdbus call …$shown"
    reply=$(call "$@" 2>&1) || giveUp "$reply"
    tell "  $reply"
}

# expect REGEX: what the last reply has to look like.
expect() {
    [[ $reply =~ $1 ]] || giveUp "expected $1, got $reply"
}

# stickSize NUMBER: the bytes of the stick, as the system counts them.
stickSize() {
    local blocks size
    read -r blocks size < <(stat -f -c '%b %S' "$(stickPath "$1")")
    printf '%d' $((blocks * size))
}

leaveApplet() {
    local status=0
    changeApplet "$kOtherApplet"
    wait "$namespace" || status=$?
    tell "applet $kOtherApplet: the service ended with status $status"
    ((status == 0)) || giveUp "expected status 0"
}
