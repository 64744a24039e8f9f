# Completion of treectl(1) for fish: commands, options, servers, and addresses from the live tree.

set -l commands servers list get set describe watch wait dump restore diff record replay help

function __treectl_servers
    treectl --timeout 0.3 -q servers 2>/dev/null | cut -f 1
end

function __treectl_addresses
    set -l word (commandline -ct)
    set -l parent (string replace -r '/[^/]*$' '' -- $word)
    set -l words (commandline -opc)
    set -l at (contains -i -- -s $words; or contains -i -- --server $words)
    if test -n "$at"; and test (count $words) -gt $at
        set -l place /
        test -n "$parent"; and set place $parent
        treectl --timeout 0.3 -q -s $words[(math $at + 1)] list $place 2>/dev/null
    else if test -z (string trim -lc / -- "$parent")
        __treectl_servers | string replace -r '(.*)' '/$1/'
    else
        treectl --timeout 0.3 -q list $parent 2>/dev/null
    end
end

complete -c treectl -f
complete -c treectl -n "not __fish_seen_subcommand_from $commands" -a "$commands"
complete -c treectl -n "__fish_seen_subcommand_from help" -a "$commands"
complete -c treectl -n "__fish_seen_subcommand_from list get set describe watch wait dump record restore diff" -a "(__treectl_addresses)"
complete -c treectl -n "__fish_seen_subcommand_from restore replay diff" -F
complete -c treectl -l json -d "print JSON"
complete -c treectl -s s -l server -x -a "(__treectl_servers)" -d "begin at a server's root"
complete -c treectl -l timeout -x -d "the longest time to wait"
complete -c treectl -s q -l quiet -d "no messages"
complete -c treectl -l color -x -a "auto always never"
complete -c treectl -s V -l version
complete -c treectl -s h -l help
complete -c treectl -n "__fish_seen_subcommand_from servers" -l wait -x -a "(__treectl_servers)"
complete -c treectl -n "__fish_seen_subcommand_from list" -s r -l recursive
complete -c treectl -n "__fish_seen_subcommand_from list" -s l -l long
complete -c treectl -n "__fish_seen_subcommand_from get" -l raw
complete -c treectl -n "__fish_seen_subcommand_from set" -l stop -l array -l stdin
complete -c treectl -n "__fish_seen_subcommand_from set restore replay" -l protected
complete -c treectl -n "__fish_seen_subcommand_from restore" -l dry-run
complete -c treectl -n "__fish_seen_subcommand_from watch" -l time
complete -c treectl -n "__fish_seen_subcommand_from watch" -l changes
complete -c treectl -n "__fish_seen_subcommand_from watch" -l csv
complete -c treectl -n "__fish_seen_subcommand_from watch" -l live
complete -c treectl -n "__fish_seen_subcommand_from watch" -l plot
complete -c treectl -n "__fish_seen_subcommand_from watch" -l fail-on-loss
complete -c treectl -n "__fish_seen_subcommand_from watch" -l count -x
complete -c treectl -n "__fish_seen_subcommand_from watch" -l every -x
complete -c treectl -n "__fish_seen_subcommand_from watch wait record" -l for -x
complete -c treectl -n "__fish_seen_subcommand_from dump record" -s o -l output -r -F
complete -c treectl -n "__fish_seen_subcommand_from replay" -l speed -x
complete -c treectl -n "__fish_seen_subcommand_from replay" -l as-fast-as-possible
