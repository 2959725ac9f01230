# Completion of transferctl for bash: commands, options, sticks, and the files on them.
# shellcheck shell=bash

# Sets `words`, the words before the cursor's, and `current`, what stands before the cursor of its own word,
# both as typed. bash has split them at the characters of COMP_WORDBREAKS, of which the colon belongs into a
# place: pieces that nothing stands between belong together.
_transferctl_read_line() {
    local line=${COMP_LINE:0:COMP_POINT} i gap piece
    words=() current=''
    for ((i = 0; i <= COMP_CWORD; i++)); do
        gap=${line%%[![:blank:]]*}
        line=${line:${#gap}}
        if [[ -n $gap ]]; then
            words+=("$current")
            current=''
        fi
        piece=${COMP_WORDS[i]}
        ((i < COMP_CWORD)) || piece=$line
        line=${line:${#piece}}
        current+=$piece
    done
}

# Takes the quotes and backslashes off `current`. Sets `plain`, the text meant; `head`, that part of it which
# readline leaves alone when it puts in a candidate, because an unquoted character of COMP_WORDBREAKS, or a
# quote that is still open, ends it; and `quote`, that quote.
_transferctl_unquote() {
    local i char before
    plain='' head='' quote=''
    for ((i = 0; i < ${#current}; i++)); do
        char=${current:i:1}
        if [[ $quote == "$char" ]]; then
            quote='' head=$before
        elif [[ -z $quote && $char == [\"\'] ]]; then
            quote=$char before=$head head=$plain
        elif [[ $char == \\ && $quote != \' ]] && _transferctl_is_escaped "${current:i+1:1}"; then
            i=$((i + 1))
            plain+=${current:i:1}
        else
            plain+=$char
            [[ -n $quote || $COMP_WORDBREAKS != *"$char"* ]] || head=$plain
        fi
    done
}

# Whether a backslash takes the meaning off the character: off any, but within double quotes off few.
_transferctl_is_escaped() {
    [[ -n $1 && ($quote != \" || $1 == [\"\\\`\$]) ]]
}

# Sets REPLY to the text as it has to be typed behind the quote that is open.
_transferctl_quote() {
    local char
    case $quote in
        \') REPLY=$1 ;;
        \")
            REPLY=$1
            for char in \\ \" \` \$; do
                REPLY=${REPLY//"$char"/\\"$char"}
            done
            ;;
        *) printf -v REPLY %q "$1" ;;
    esac
}

# Puts the lines read from standard input into COMPREPLY, each as readline wants it: without the head, quoted.
_transferctl_offer() {
    local candidate
    while IFS= read -r candidate; do
        [[ $candidate != *[:/] ]] || compopt -o nospace 2>/dev/null
        _transferctl_quote "${candidate#"$head"}"
        COMPREPLY+=("$REPLY")
    done
}

# Offers those of the words given that begin with `plain`.
_transferctl_offer_words() {
    _transferctl_offer < <(compgen -W "$*" -- "$plain")
}

_transferctl_offer_places() {
    local limit=${TRANSFERCTL_PATIENCE:-3} # seconds
    _transferctl_offer < <("${words[0]}" --timeout "$limit" __complete "$1" "$plain" 2>/dev/null)
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
    local words current plain head quote command REPLY
    COMPREPLY=()
    _transferctl_read_line
    _transferctl_unquote
    _transferctl_find_command
    case ${words[-1]} in
        --type | -t)
            _transferctl_offer_words full recipes users
            return
            ;;
        --name | -n | --timeout) return ;;
    esac
    case $plain in
        --type=*) _transferctl_offer_words --type=full --type=recipes --type=users ;;
        -*) _transferctl_offer_options ;;
        *) _transferctl_offer_argument ;;
    esac
}

complete -F _transferctl transferctl
