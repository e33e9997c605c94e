# shellcheck shell=bash
# bash completion for zynlog-cat. Never runs the program.

_zynlog_cat() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $before in
        -o | --output)
            mapfile -t COMPREPLY < <(compgen -W 'columns short json csv count count-json timeline' -- "$word")
            return
            ;;
        --color)
            mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$word")
            return
            ;;
        -S | --since | -U | --until)
            mapfile -t COMPREPLY < <(compgen -W 'now today yesterday' -- "$word")
            return
            ;;
        -m | --module | -c | --client | -l | --label | --host | -p | --pid | -t | --tid | -g | --grep | \
            -n | --lines | --begin-label | --end-label)
            return
            ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W \
            '-S --since -U --until -m --module -c --client -l --label --host -p --pid -t --tid -g --grep
            -i --ignore-case -n --lines -o --output --no-header --color --utc --begin-label --end-label
            --merge -f --follow --cursor-file --live --quiet -h --help -V --version' -- "$word")
        return
    fi
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -X '!*zynlog-*' -- "$word"; compgen -d -- "$word")
}

complete -F _zynlog_cat zynlog-cat
