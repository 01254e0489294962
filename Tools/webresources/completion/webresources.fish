# fish completion for webresources

complete -c webresources -f
complete -c webresources -n __fish_use_subcommand -l version -d 'Show the version'
complete -c webresources -l help -d 'Show help'

function __webresources_command -a name purpose
    complete -c webresources -n __fish_use_subcommand -a $name -d $purpose
    complete -c webresources -n "__fish_seen_subcommand_from $name" -a '(__fish_complete_directories)'
    complete -c webresources -n "__fish_seen_subcommand_from $name" -l json -d 'Write one JSON document'
    complete -c webresources -n "__fish_seen_subcommand_from $name" -l quiet \
        -d 'Say nothing but findings and errors'
end

function __webresources_option -a commands
    complete -c webresources -n "__fish_seen_subcommand_from $commands" $argv[2..]
end

__webresources_command pack 'Make a bundle\'s package and metadata of a directory'
__webresources_command check 'Tell what the installer will do with a bundle'
__webresources_command diff 'Tell what changes from one bundle to another'
__webresources_command plan 'Tell what install would change on this machine'
__webresources_command install 'Run a bundle\'s installer step on this machine, and verify'
__webresources_command verify 'Compare what is installed with a bundle, or with itself'
__webresources_command installcheck 'Exit with 0 if a bundle is to be installed, 1 if not'
__webresources_command status 'Tell what is installed here, and if it is sound'

__webresources_option pack -l update-id -x -d 'The update number to record'
__webresources_option pack -l output -r -d 'A bundle, or its Resources directory'
__webresources_option pack -l clear -d 'Wipe foreign keys from the record first'
__webresources_option pack -l regenerate -d 'Draw a new random identifier'
__webresources_option pack -l exclude -x -d 'Leave out what matches'
__webresources_option pack -l keep -x -d 'Pack what matches, junk or not'
__webresources_option pack -l require -x -d 'Refuse if there is no such file'
__webresources_option pack -l follow -d 'Pack what symbolic links lead to'
__webresources_option pack -l create -d 'Write to any directory, make it if missing'
__webresources_option check -l prove -d 'Also extract into a scratch directory, compare'
__webresources_option 'check diff plan install' -l max-size -x -d 'Refuse a package that can hold more'
__webresources_option 'plan install' -l force -d 'Run the step even if nothing would change'
__webresources_option 'plan install' -l allow-downgrade -d 'Install over a newer update'
__webresources_option install -l dry-run -d 'Change nothing, and tell what would be done'
__webresources_option install -l wait -x -d 'How long to wait while another installation runs'
__webresources_option 'plan verify installcheck status' -l root -r \
    -d 'Where the installed system\'s files are'
__webresources_option 'plan install verify installcheck status' -l ignore-modes \
    -d 'Do not compare modes and owners'
