# fish completion for zyn-doctor. Never runs the program.

complete -c zyn-doctor -f
complete -c zyn-doctor -s j -l json -d 'Report as one JSON document'
complete -c zyn-doctor -s h -l help -d 'Show the usage and exit'
complete -c zyn-doctor -s V -l version -d 'Show the version and exit'
