# Sourced by the scripts: installing packages, configuring, building.
# shellcheck shell=bash
set -euo pipefail

readonly kCannotInstall=2
# Tests at once: most wait for most of their time, for a bus, a process, the second of a job.
CTEST_PARALLEL_LEVEL=$((4 * $(nproc)))
export CTEST_PARALLEL_LEVEL
project=$(cd -P -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)
readonly project

say() {
    printf '==> %s\n' "$*"
}

# ensurePackages GROUP...: installs what is missing of these groups of scripts/packages. Without the rights to
# do that it prints the command to run and ends the script with status 2.
ensurePackages() {
    local missing asRoot=()
    mapfile -t missing < <(missingPackages "$@")
    ((${#missing[@]} > 0)) || return 0
    type -P apt-get >/dev/null || askForPackages "${missing[@]}"
    if ((EUID != 0)); then
        canSudo || askForPackages "${missing[@]}"
        asRoot=(sudo)
    fi
    say "Installing ${missing[*]}"
    # sudo drops the environment, and with it the proxy that a package source may be behind.
    asRoot+=(env DEBIAN_FRONTEND=noninteractive)
    [[ -z ${http_proxy-} ]] || asRoot+=("http_proxy=$http_proxy")
    [[ -z ${https_proxy-} ]] || asRoot+=("https_proxy=$https_proxy")
    asRoot+=(apt-get -q -o DPkg::Lock::Timeout=120 -o Dpkg::Use-Pty=0)
    if ! "${asRoot[@]}" update || ! "${asRoot[@]}" install -y --no-install-recommends "${missing[@]}"; then
        askForPackages "${missing[@]}"
    fi
}

missingPackages() {
    local group line wanted=()
    for group in "$@"; do
        read -ra line <<<"$(packagesOf "$group")"
        wanted+=("${line[@]}")
    done
    comm -23 <(printf '%s\n' "${wanted[@]}" | sort -u) <(installedOf "${wanted[@]}" | sort -u)
}

codename() {
    (. /etc/os-release && printf '%s' "$VERSION_CODENAME")
}

# mirror: where this machine gets the distribution from.
mirror() {
    # shellcheck disable=SC2016 # it is apt-get that expands it
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' "Codename: $(codename)" | sed 1q
}

# packagesOf GROUP: prints what that group of scripts/packages names, in one line.
packagesOf() {
    sed -n "s/^$1: *//p" "$project/scripts/packages"
}

installedOf() {
    # It complains about packages that it has never heard of, and those are not installed either.
    dpkg-query --show --showformat '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | sed -n 's/^installed //p'
}

# Whether sudo works: without asking, or by asking on a terminal.
canSudo() {
    type -P sudo >/dev/null && { sudo -n true 2>/dev/null || { [[ -t 0 ]] && sudo -v; }; }
}

askForPackages() {
    printf 'Debian 12 packages are missing. As root, run:\n  apt-get update && apt-get install -y %s\n' "$*" >&2
    exit "$kCannotInstall"
}

# prepareCrossBuild arm|arm64 [GROUP...]: compiler, emulator, libraries and headers for that processor, and the
# packages of these groups.
prepareCrossBuild() {
    local architecture=$1
    [[ $architecture != arm ]] || architecture=armhf
    ensurePackages cross mmdebstrap "$architecture" "${@:2}"
    "$project/scripts/sysroot" "$architecture"
}

# build PRESET [TARGET...]: configures once and builds into build/PRESET, everything or these targets. One at a time:
# two builds of one folder damage each other.
build() {
    local preset=$1 lock
    shift
    cd "$project"
    mkdir -p build
    exec {lock}>"build/$preset.lock"
    flock "$lock"
    if [[ ! -e build/$preset/build.ninja ]]; then
        say "Configuring build/$preset"
        cmake --preset "$preset"
    fi
    say "Building build/$preset"
    cmake --build "build/$preset" --parallel "$(nproc)" ${1+--target "$@"}
    exec {lock}>&-
}

# ownFiles [PATTERN...]: the files that belong to the project, each ended by a zero byte.
ownFiles() {
    git ls-files -z --cached --others --exclude-standard -- "$@"
}

# testInShares PRESET [COMMAND...]: builds the preset and passes the tests, many in one process, through COMMAND.
# Says how many passed, and fails when that and the failed and skipped ones are not all, as when a share ends early.
testInShares() {
    local folder=$project/build/$1 status=0 passed failed skipped all
    build "$1"
    "${@:2}" ctest --test-dir "$folder" --output-on-failure --no-tests=error -LE single || status=$?
    passed=$(countTests "$folder" PASSED) failed=$(countTests "$folder" FAILED) skipped=$(countTests "$folder" SKIPPED)
    ((skipped == 0)) || reportSkipped "$folder" # before ctest lists the tests, which empties its log
    all=$(ctest --test-dir "$folder" -N -L single | sed -n 's/^Total Tests: //p')
    say "Of $all tests in shares $passed passed, $failed failed, $skipped were left out"
    ((all > 0 && passed + failed + skipped == all)) || {
        say "FAILED: $((all - passed - failed - skipped)) tests have not come to an end"
        status=1
    }
    return "$status"
}

# reportSkipped FOLDER: one line for each reason, with the number of tests.
reportSkipped() {
    say "Left out"
    sed -n '/: Skipped$/{n;p}' "$1/Testing/Temporary/LastTest.log" | sort | uniq -c
}

# countTests FOLDER WORD: the sum of the numbers of tests that the shares give with WORD at their end.
countTests() {
    sed -nE "s/^\[  $2 +\] ([0-9]+) tests?[.,].*/\1/p" "$1/Testing/Temporary/LastTest.log" |
        awk '{ sum += $1 } END { print sum + 0 }'
}

# takeState ARG...: sets state, the folder that a leading "--state FOLDER" names, which is made where it is
# missing, and rest, the arguments after that and an optional "--".
takeState() {
    state=
    rest=("$@")
    if [[ ${1-} == --state ]]; then
        [[ -n ${2-} && $2 != *$'\n'* ]] || misused "--state needs a folder"
        mkdir -p -- "$2"
        state=$(realpath -- "$2")
        rest=("${@:3}")
    fi
    [[ ${rest[0]-} != -- ]] || rest=("${rest[@]:1}")
}

# runInDevice COMMAND...: runs it in the simulated device, whose state is that of takeState.
runInDevice() {
    enterDevice ${state:+--keep "$state"} -- simulator/device/run "$state" "$@"
}

# enterDevice [OPTION...] -- SCRIPT [ARG...]: builds the simulated device and goes on in the sandbox, which gets
# the options, with SCRIPT of the project, which gets the build folder and the arguments.
enterDevice() {
    local options=()
    while [[ $1 != -- ]]; do
        options+=("$1")
        shift
    done
    # What is said here is no output of the device's, and the caller stays in the folder where he is.
    (
        ensurePackages build run
        build dev com-morvane-transfer-service transferctl device-manager-simulator applet-control pid-namespace
    ) >&2
    exec "$project/simulator/sandbox/sandbox" "${options[@]}" -- "$project/$2" "$project/build/dev" "${@:3}"
}
