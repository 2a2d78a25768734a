# bash completion for fscan: options, the words of criteria, drive groups, directories.
# The words come from "fscan --list-words", so this file names none.
# shellcheck shell=bash

# _fscan_value NAME: prints the kind of value that the option takes. Fails if NAME is not an option.
_fscan_value() {
    local kind names value
    while IFS=$'\t' read -r kind names value _; do
        if [[ $kind == option && " $names " == *" $1 "* ]]; then
            printf '%s\n' "$value"
            return
        fi
    done <<<"$_fscan_words"
    return 1
}

# _fscan_of KIND: prints the words of that kind, one per line.
_fscan_of() {
    local kind names word
    while IFS=$'\t' read -r kind names _; do
        [[ $kind == "$1" ]] || continue
        for word in $names; do printf '%s\n' "$word"; done
    done <<<"$_fscan_words"
}

# _fscan_matching BEGIN: offers the input lines that begin so, with $_fscan_before in front.
_fscan_matching() {
    local word
    while IFS= read -r word; do
        [[ -n $word && $word == "$1"* ]] && COMPREPLY+=("$_fscan_before$word")
    done
}

# Completes the last word of a criteria, unless it is inside a quoted text.
_fscan_criteria() {
    local quotes=${cur//[!\"]/}
    ((${#quotes} % 2)) && return
    [[ $cur =~ ^(.*[^A-Za-z0-9\[])?(\[?[A-Za-z]*)$ ]] || return
    local _fscan_before=${BASH_REMATCH[1]} last=${BASH_REMATCH[2]}
    _fscan_matching "$last" < <(_fscan_of field; _fscan_of command)
    _fscan_unfinished
}

# The word continues after the completed part, so readline must add neither a blank nor a closing
# quote. It leaves the quote out only if there is more than one match.
_fscan_unfinished() {
    compopt -o nospace
    [[ -z $quote || ${#COMPREPLY[@]} -ne 1 ]] || COMPREPLY+=("${COMPREPLY[0]} ")
}

_fscan_path() {
    local group groups
    groups=$(_fscan_of group)
    for group in $groups; do
        [[ $cur == "$group"* ]] || continue
        _fscan_before=$group
        cur=${cur#"$group"}
    done
    if [[ -z $_fscan_before && $cur == \$* ]]; then
        # Without quotes the shell would expand it as a variable.
        [[ -n $quote ]] || _fscan_before=\'
        _fscan_matching "$cur" <<<"$groups"
        _fscan_unfinished
        return
    fi
    if [[ -n $_fscan_before ]]; then
        _fscan_matching '' < <(compgen -d -S / -- "$cur")
        _fscan_unfinished
    else
        compopt -o filenames
        _fscan_matching '' < <(compgen -d -- "$cur")
    fi
}

# _fscan_argument VALUE: completes the argument of an option that takes VALUE.
_fscan_argument() {
    case $1 in
        [a-z]*) _fscan_matching "$cur" <<<"${1//|/$'\n'}" ;;
        CRITERIA) _fscan_criteria ;;
        PATH | DIR) _fscan_path ;;
        TYPE) _fscan_matching "$cur" < <(sed 's/.*\t//' /proc/filesystems) ;;
        USER) _fscan_matching "$cur" < <(compgen -u) ;;
        CMD*) _fscan_matching "$cur" < <(compgen -c -- "$cur") ;;
        FILE)
            compopt -o filenames
            _fscan_matching '' < <(compgen -f -- "$cur")
            ;;
    esac
}

_fscan() {
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} word value
    local _fscan_before='' _fscan_words quote=
    COMPREPLY=()
    _fscan_words=$("$1" --list-words 2>/dev/null) || return
    # "--sort=na" comes as three words.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    # The word may begin with an opening quote, which readline adds again. A "$" outside quotes has a
    # backslash in front.
    [[ $cur != [\'\"]* ]] || quote=${cur:0:1}
    cur=${cur#[\'\"]}
    cur=${cur/#\\\$/\$}
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word != -- ]] || { _fscan_path && return; }
    done
    if value=$(_fscan_value "$previous") && [[ $value != - ]]; then
        _fscan_argument "$value"
    elif [[ $cur == -* ]]; then
        _fscan_matching "$cur" < <(_fscan_of option)
    else
        _fscan_path
    fi
}
complete -F _fscan fscan
