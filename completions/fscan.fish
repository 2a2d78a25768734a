# fish completion for fscan: options, the words of criteria, drive groups, directories.
# The words come from "fscan --list-words", so this file names none.

# The words of a kind, one per line, each with a tab and its meaning.
function __fscan_of
    fscan --list-words 2>/dev/null | string match "$argv[1]"\t\* | string replace -r '^[^\t]*\t([^\t]*)\t[^\t]*\t' '$1\t'
end

# The current word without an opening quote.
function __fscan_current
    commandline -ct | string replace -r '^[\'"]' ''
end

# Completes the last word of a criteria, unless it is inside a quoted text.
function __fscan_criteria
    set -l current (__fscan_current)
    test (math (string replace -ra '[^"]' '' -- $current | string length) % 2) = 0; or return
    set -l before (string replace -r '\[?[A-Za-z]*$' '' -- $current)
    for word in (__fscan_of field) (__fscan_of command)
        printf '%s%s\n' $before $word
    end
end

function __fscan_paths
    set -l current (__fscan_current | string replace -a '\\$' '$')
    set -l group (string match -r '^\$[a-z]+::' -- $current)
    if test -n "$group"
        for directory in (__fish_complete_directories (string replace -- $group '' $current))
            printf '%s%s\n' $group $directory
        end
    else
        __fscan_of group
        __fish_complete_directories (commandline -ct)
    end
end

complete -c fscan -f
complete -c fscan -n 'not string match -q -- "-*" (commandline -ct)' -a '(__fscan_paths)'
fscan --list-words 2>/dev/null | while read -d \t kind names value help
    test $kind = option; or continue
    set -l option -c fscan -d $help
    for name in (string split ' ' -- $names)
        if string match -q -- '--*' $name
            set -a option -l (string sub -s 3 -- $name)
        else
            set -a option -s (string sub -s 2 -- $name)
        end
    end
    switch $value
        case -
        case (string match -r '^[a-z|]+$' -- $value)
            set -a option -x -a (string replace -a '|' ' ' -- $value)
        case CRITERIA
            set -a option -x -a '(__fscan_criteria)'
        case PATH DIR
            set -a option -x -a '(__fish_complete_directories (commandline -ct))'
        case FILE
            set -a option -r -F
        case TYPE
            set -a option -x -a "(string replace -r '.*\t' '' </proc/filesystems)"
        case USER
            set -a option -x -a '(__fish_complete_users)'
        case 'CMD*'
            set -a option -x -a '(__fish_complete_command)'
        case '*'
            set -a option -x
    end
    complete $option
end
