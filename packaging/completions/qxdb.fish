# fish completion for qxdb, which says itself what may stand next.
function __qxdb_complete
    set -l words (commandline -opc)
    set -l begun (commandline -ct)
    test (count $begun) -eq 0; and set begun ''
    for line in ($words[1] complete -- $words[2..-1] $begun 2>/dev/null)
        if test "$line" = :files
            __fish_complete_path $begun
        else if string match -q ':files *' -- $line
            for ending in (string split ' ' -- (string replace ':files ' '' -- $line))
                __fish_complete_suffix $ending
            end
        else
            echo $line
        end
    end
end
complete -c qxdb -f -a '(__qxdb_complete)'
