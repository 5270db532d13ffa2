# shellcheck shell=bash
# Completes the words of this project's commands in bash. The packages install it; in a checkout:
#
#     source packaging/completion/orvexsnmp.bash
#
# The words come from the command's own --help, so the two cannot differ.

# _orvexsnmp_value_type OPTION: what the usage on standard input says follows the option: DIR, FILE, N, ... or nothing.
_orvexsnmp_value_type() {
    grep -oE -- "(^|[^a-z-])$1 [A-Z]+" | sed -n '1s/.* //p'
}

# _orvexsnmp_words GIVEN...: the words that may follow, from the usage on standard input. GIVEN are the words after the
# program's name without options. Without a command the commands and the program's options; else what has its place in
# a form of the command ("set pan|tilt POSITION"), and the command's options.
_orvexsnmp_words() {
    awk -v given="$*" '
        function fits(form, place,    choices, i, n) {
            if (form[place] !~ /^[a-z0-9-]+([|][a-z0-9-]+)*$/) return 1
            n = split(form[place], choices, "|")
            for (i = 1; i <= n; i++) if (choices[i] == words[place]) return 1
            return 0
        }
        function options(text) {
            while (match(text, /(^|[^a-zA-Z0-9-])--?[a-z][a-z-]*/)) {
                option = substr(text, RSTART, RLENGTH)
                text = substr(text, RSTART + RLENGTH)
                sub(/^[^-]/, "", option)
                print option
            }
        }
        BEGIN { count = split(given, words, " ") }
        /^[^ ]/ { inCommands = /^Commands:/; mine = 0 }
        inCommands { hasCommands = 1 }
        !inCommands { head = head "\n" $0 }
        inCommands && /^  [a-z]/ {
            if (count == 0) { print $1; next }
            mine = $1 == words[1]
            if (!mine) next
            shown = substr($0, 3)
            sub(/  +.*/, "", shown)
            gsub(/\[--[a-z-]+( [A-Z]+)?\] ?/, "", shown)
            n = split(shown, form, " ")
            place = count + 1
            if (place > n && form[n] ~ /[.][.][.]/) place = n
            for (i = 2; i < place && i <= count; i++) if (!fits(form, i)) place = n + 1
            if (place <= n && form[place] ~ /^[a-z0-9-]+([|][a-z0-9-]+)*$/) {
                gsub(/[|]/, "\n", form[place])
                print form[place]
            } else if (place <= n) {
                gsub(/[^A-Z]/, "", form[place])
                name = form[place]
                print name
            }
        }
        mine { options($0); text = text " " $0 }
        END {
            if (count == 0 || !hasCommands) options(head)
            # The usage may list what a name in capitals stands for: "AXIS: pan tilt zoom; ..."
            if (name && match(text, name ": [a-z0-9 ]+")) {
                list = substr(text, RSTART + length(name) + 2, RLENGTH - length(name) - 2)
                gsub(/ +/, "\n", list)
                print list
            }
        }'
}

_orvexsnmp() {
    local program=$1 current=${COMP_WORDS[COMP_CWORD]} i word words usage type given=() start
    usage=$(timeout 5 "$program" --help </dev/null 2>/dev/null) || return 0
    type=
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        [[ $word != = ]] || continue # bash splits --state=DIR at the sign
        if [[ $type ]]; then
            type=
        elif [[ $word == -* ]]; then
            type=$(_orvexsnmp_value_type "$word" <<<"$usage")
        else
            given+=("$word")
        fi
    done
    [[ $current != = ]] || current=
    current=${current#[\"\']}
    COMPREPLY=()
    [[ $type ]] && words= || words=$(_orvexsnmp_words "${given[@]}" <<<"$usage")
    case $type:$'\n'$words$'\n' in
        DIR:*)
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
            ;;
        FILE:* | *$'\nFILE\n'*)
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            ;;
        *$'\nKEY\n'*) words+=$'\n'$("$program" keys | sed 's/  .*//') ;;
        *$'\nPATH\n'*) words+=$'\n'$("$program" keys | sed 's/^\[//; s/].*//') ;;
    esac
    while IFS= read -r start; do
        # A name in capitals stands for a word that is not known.
        [[ ! $start || $start =~ ^[A-Z]+$ || $start != "$current"* ]] || COMPREPLY+=("$start")
    done < <(sort -u <<<"$words")
}

complete -F _orvexsnmp domectl myname orvex-conform orvex-dome orvex-session orvexsnmp-add-user tavos-settings

# Other projects have a `run` and a `check`, too, and to ask those for help might start them: completes this one's only.
_orvexsnmp_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
_orvexsnmp_in_checkout() {
    local command
    for command in run check bench/run; do
        [[ ! $1 -ef $_orvexsnmp_root/$command ]] || _orvexsnmp "$@"
    done
}
[[ ! -f $_orvexsnmp_root/scripts/prepare-state ]] || complete -F _orvexsnmp_in_checkout -o default run check
