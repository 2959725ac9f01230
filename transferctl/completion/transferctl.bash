# Completion of transferctl for bash, with the helpers of bash-completion: the program knows the candidates.
# shellcheck shell=bash

_transferctl() {
    # shellcheck disable=SC2034 # _init_completion sets all four
    local cur prev words cword
    _init_completion -n := || return
    mapfile -t COMPREPLY < <(
        "$1" --timeout "${TRANSFERCTL_PATIENCE:-3}" __complete -- "${words[@]:1:cword}" 2>/dev/null
    )
    [[ ${COMPREPLY[0]-} != *[:/] ]] || compopt -o nospace
    __ltrim_colon_completions "$cur"
}

complete -F _transferctl transferctl
