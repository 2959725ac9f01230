# Sourced by tests that are scripts: each function testNAME is a test. Status 0: passed; 77: this machine
# cannot show it, and says why; anything else: failed.
# shellcheck shell=bash
readonly kSkipped=77 kLimit=10

fail() {
    printf 'FAILED: %s\n' "$*" >&2
    exit 1
}

skip() {
    printf 'skipped: %s\n' "$*"
    [[ -z ${CI-} ]] || fail "skipped, although CI is set and asks for every test"
    exit "$kSkipped"
}

equal() {
    [[ $1 == "$2" ]] || fail "expected '$2', got '$1'"
}

match() {
    [[ $1 =~ $2 ]] || fail "expected something like '$2', got '$1'"
}

waitUntil() {
    local limit=$((SECONDS + kLimit))
    until "$@"; do
        ((SECONDS <= limit)) || fail "waited too long for: $*"
        sleep 0.01
    done
}

# makeFolder [PARENT]: sets folder to a new one, which goes with the test. The sandbox shows /var/tmp as it is.
makeFolder() {
    folder=$(mktemp -d "${1:-/var/tmp}/morvane-test.XXXXXX")
    # shellcheck disable=SC2064 # the folder as it is now
    trap "rm -rf '$folder'" EXIT
}

# runTest --list | NAME: prints the names of the tests, or runs one.
runTest() {
    local names
    mapfile -t names < <(declare -F | sed -n 's/^declare -f test//p')
    case ${1-} in
        --list) printf '%s\n' "${names[@]}" ;;
        *)
            [[ " ${names[*]} " == *" ${1-} "* ]] || fail "no test of the name ${1-}; see --list"
            "test$1"
            ;;
    esac
}
