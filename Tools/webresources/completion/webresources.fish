# fish completion for webresources. What it offers is read from the command's own --help.

function __webresources_offered
    set -l words (commandline -opc)
    if test (count $words) -eq 1
        $words[1] --help | string replace -rf '^  ([a-z]+) +(.*)' '$1'\t'$2'
    end
    $words[1] $words[2..2] --help | string replace -rf '^ +(?:-., *)?(--[a-z-]+).*' '$1'
end

complete -c webresources -n 'test (count (commandline -opc)) -eq 1' -f
complete -c webresources -a '(__webresources_offered)'
