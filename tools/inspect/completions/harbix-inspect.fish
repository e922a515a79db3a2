# Completes the command line of harbix-inspect in fish.

set -l commands list verify checksums compare extract plan
set -l none "not __fish_seen_subcommand_from $commands"
complete -c harbix-inspect -n $none -f
complete -c harbix-inspect -n $none -l version -d 'print the version'
complete -c harbix-inspect -n $none -a list -d 'print the packages of an archive, or the items of some'
complete -c harbix-inspect -n $none -a verify -d 'find all that is wrong with archives'
complete -c harbix-inspect -n $none -a checksums -d 'print a SHA-256 for each file, as sha256sum does'
complete -c harbix-inspect -n $none -a compare -d 'print what differs between two archives'
complete -c harbix-inspect -n $none -a extract -d 'put some files below a folder'
complete -c harbix-inspect -n $none -a plan -d 'on a device, print what a restore would do'
complete -c harbix-inspect -s h -l help -d 'print help'
complete -c harbix-inspect -n "__fish_seen_subcommand_from $commands" -l json -d 'print one JSON object a line'
complete -c harbix-inspect -n '__fish_seen_subcommand_from list' -s l -l long -d 'print the items of all packages'
complete -c harbix-inspect -n '__fish_seen_subcommand_from list' -s b -l bytes -d 'print all sizes in bytes'
complete -c harbix-inspect -n '__fish_seen_subcommand_from list plan' -l color -x -a 'auto always never' -d colours
complete -c harbix-inspect -n '__fish_seen_subcommand_from verify' -l checksums -r -d 'a list that checksums has made'
complete -c harbix-inspect -n '__fish_seen_subcommand_from verify' -l notes -d 'print also what costs nothing'
complete -c harbix-inspect -n '__fish_seen_subcommand_from extract' -l to -x -a '(__fish_complete_directories)' -d 'the folder'
complete -c harbix-inspect -n '__fish_seen_subcommand_from plan' -a 'app media settings' -d 'a keyword'
