# fish completion for webresources. Commands and options come from the command's own --help, where
# each description begins in column 31, on the same line or alone on the next line.

function __webresources_needs_command
    set -l words (commandline -opc)
    set -l before (string match -v -- '-*' $words[2..])
    test -z "$before" -o "$before" = help
end

function __webresources_commands
    set -l words (commandline -opc)
    $words[1] --help | string replace -rf '^  ([a-z]+) +(.*)' '$1'\t'$2'
end

function __webresources_options
    set -l words (commandline -opc)
    set -l before (string match -v -- '-*' $words[2..])
    $words[1] $before[1] --help | awk '
        /^ +-/ && match($0, /--[a-z-]+/) { name = substr($0, RSTART, RLENGTH) }
        /^ +-/ && substr($0, 30, 1) != " " { next }
        name { print name "\t" substr($0, 31); name = "" }'
end

complete -c webresources -n __webresources_needs_command -f -a '(__webresources_commands)'
complete -c webresources -n 'string match -q -- "-*" (commandline -ct)' -a '(__webresources_options)'
