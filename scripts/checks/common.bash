# Sourced by the checks, which run in the project's folder.
# shellcheck shell=bash
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.."

# ownFiles [PATTERN...]: the files that belong to the project, each ended by a zero byte.
ownFiles() {
    git ls-files -z --cached --others --exclude-standard -- "$@"
}

# testUnder PRESET [COMMAND...]: builds the preset and passes the tests, through COMMAND.
testUnder() {
    local preset=$1
    shift
    . scripts/setup.bash
    build "$preset"
    "$@" ctest --test-dir "build/$preset" --output-on-failure
}
