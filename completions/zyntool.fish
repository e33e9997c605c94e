# fish completion for zyntool. Never runs the tool.

function __zyntool_command --description 'Whether the command line has one of these commands'
    set -l words (commandline -opc)
    test (count $words) -ge 2; and contains -- (string lower -- $words[2]) $argv
end

function __zyntool_no_command --description 'Whether the command word is still to come'
    test (count (commandline -opc)) -eq 1
end

complete -c zyntool -f
complete -c zyntool -n __zyntool_no_command -a clean -d 'Delete all log files'
complete -c zyntool -n __zyntool_no_command -a export -d 'Convert binary log files into text'
complete -c zyntool -n __zyntool_no_command -a pause -d 'Pause tracing'
complete -c zyntool -n __zyntool_no_command -a performance -d 'Print one line'
complete -c zyntool -n __zyntool_no_command -a preservation -d 'Turn preservation on or off'
complete -c zyntool -n __zyntool_no_command -a reload -d 'Read the configuration again'
complete -c zyntool -n __zyntool_no_command -a resume -d 'Go on with paused tracing'
complete -c zyntool -n __zyntool_no_command -a test -d 'Show handles and status'

complete -c zyntool -n '__zyntool_command export' -o d -xa '(__fish_complete_directories)' -d 'Directory of log files'
complete -c zyntool -n '__zyntool_command export' -o s -rF -d 'One log file'
complete -c zyntool -n '__zyntool_command export' -o f -rF -d 'One text file'
complete -c zyntool -n '__zyntool_command export' -o m -xa '(__fish_complete_directories)' -d 'Directory of text files'
complete -c zyntool -n '__zyntool_command export' -o l -x -d 'Columns, or this separator'
complete -c zyntool -n '__zyntool_command export' -o silent -d 'No progress display'
complete -c zyntool -n '__zyntool_command clean' -o f -d 'Delete without asking'
complete -c zyntool -n '__zyntool_command preservation' -o on -d Activate
complete -c zyntool -n '__zyntool_command preservation' -o off -d Deactivate
complete -c zyntool -n '__zyntool_command test' -o m -x -d Module
complete -c zyntool -n '__zyntool_command test' -o l -x -d Label
complete -c zyntool -n '__zyntool_command test' -o c -x -d Client
complete -c zyntool -n '__zyntool_command performance' -o t -x -d Number
