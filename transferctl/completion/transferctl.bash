# Completion of transferctl for bash: commands, options, sticks, and the files on them.
# shellcheck shell=bash

# Sets REPLY to a word without its quotes and backslashes.
_transferctl_unquote() {
    local word=$1 plain=
    [[ $word != [\"\']* ]] || word=${word:1}
    while [[ $word == *\\* ]]; do
        plain+=${word%%\\*}
        word=${word#*\\}
        plain+=${word:0:1}
        word=${word:1}
    done
    REPLY=$plain$word
}

# Sets `words`, the words before the cursor's, and `current`, what stands before the cursor of its own word.
# bash has split them at the characters of COMP_WORDBREAKS, of which the colon belongs into a place: pieces
# that nothing stands between belong together. `head` is the part of `current` that bash leaves alone when it
# puts in a candidate.
_transferctl_read_line() {
    local line=${COMP_LINE:0:COMP_POINT} i piece gap
    words=() current='' head=''
    for ((i = 0; i <= COMP_CWORD; i++)); do
        piece=${COMP_WORDS[i]}
        gap=${line%%[![:blank:]]*}
        line=${line:${#gap}}
        ((i < COMP_CWORD)) || piece=${line}
        line=${line:${#piece}}
        if [[ -n $gap ]]; then
            words+=("$current")
            current='' head=''
        fi
        if ((i < COMP_CWORD)) || [[ $piece == : || $piece == = ]]; then
            current+=$piece
            head=$current
        else
            current+=$piece
        fi
    done
}

# Puts the lines read from standard input that begin with `current` into COMPREPLY, each as bash wants it:
# without the head, and quoted unless a quote is open.
_transferctl_offer() {
    local candidate plainHead quoted=no
    [[ $current != [\"\']* ]] || quoted=yes
    _transferctl_unquote "$head"
    plainHead=$REPLY
    while IFS= read -r candidate; do
        [[ $candidate != *[:/=] ]] || compopt -o nospace 2>/dev/null
        candidate=${candidate#"$plainHead"}
        [[ $quoted == yes ]] || printf -v candidate %q "$candidate"
        COMPREPLY+=("$candidate")
    done
}

# Offers those of the words given that begin with `current`.
_transferctl_offer_words() {
    _transferctl_offer < <(compgen -W "$*" -- "$current")
}

_transferctl_offer_places() {
    _transferctl_unquote "$current"
    _transferctl_offer < <("${words[0]}" __complete "$1" "$REPLY" 2>/dev/null)
}

# Sets `command` to the command among the words; nothing before it has been typed.
_transferctl_find_command() {
    local i
    command=
    for ((i = 1; i < ${#words[@]}; i++)); do
        case ${words[i]} in
            --timeout) i=$((i + 1)) ;;
            -*) ;;
            *)
                command=${words[i]}
                return
                ;;
        esac
    done
}

_transferctl_offer_options() {
    local options='--help --json --timeout'
    case $command in
        '') options+=' --version' ;;
        backup) options+=' --type --name --wait --force' ;;
        restore | update) options+=' --force' ;;
    esac
    _transferctl_offer_words "$options"
}

_transferctl_offer_argument() {
    case $command in
        '') _transferctl_offer_words status sticks ls backups updates mkdir rm name backup restore update monitor ;;
        ls | rm) _transferctl_offer_places any ;;
        backups | updates | mkdir | backup) _transferctl_offer_places directory ;;
        restore) _transferctl_offer_places backup ;;
        update) _transferctl_offer_places update ;;
    esac
}

_transferctl() {
    local words current head command REPLY
    COMPREPLY=()
    _transferctl_read_line
    _transferctl_find_command
    case ${words[-1]} in
        --type | -t) _transferctl_offer_words full recipes users && return ;;
        --name | -n | --timeout) return ;;
    esac
    case $current in
        --type=*)
            current=${current#--type=} head=''
            _transferctl_offer_words full recipes users
            ;;
        -*) _transferctl_offer_options ;;
        *) _transferctl_offer_argument ;;
    esac
}

complete -F _transferctl transferctl
