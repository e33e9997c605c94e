# shellcheck shell=bash
# bash completion for zynlog-verify. Never runs the program.

_zynlog_verify() {
    local word=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if [[ ${COMP_WORDS[COMP_CWORD - 1]} == --salvage ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
    fi
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W \
            '-b --blocks -j --json -l --live -q --quiet -s --separate --salvage -h --help -V --version' -- "$word")
        return
    fi
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -X '!*zynlog-*' -- "$word"; compgen -d -- "$word")
}

complete -F _zynlog_verify zynlog-verify
