# fish completion for zynlog-verify. Never runs the program.

complete -c zynlog-verify -s b -l blocks -d 'Report every block'
complete -c zynlog-verify -s j -l json -d 'Report as one JSON document'
complete -c zynlog-verify -s l -l live -d 'The newest file may end within a block'
complete -c zynlog-verify -s q -l quiet -d 'Report nothing, only exit'
complete -c zynlog-verify -s s -l separate -d 'Verify each file as a log of its own'
complete -c zynlog-verify -l salvage -x -a '(__fish_complete_directories)' -d 'Copy what is good of a damaged log'
complete -c zynlog-verify -s h -l help -d 'Show the usage and exit'
complete -c zynlog-verify -s V -l version -d 'Show the version and exit'
