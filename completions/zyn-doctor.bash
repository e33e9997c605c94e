# shellcheck shell=bash
# bash completion for zyn-doctor. Never runs the program.

_zyn_doctor() {
    local word=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-j --json -h --help -V --version' -- "$word")
    fi
}

complete -F _zyn_doctor zyn-doctor
