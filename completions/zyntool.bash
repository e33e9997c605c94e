# shellcheck shell=bash
# bash completion for zyntool. Never runs the tool.

_zyntool() {
    local word=${COMP_WORDS[COMP_CWORD]} before='' command options=''
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W \
            'clean export pause performance preservation reload resume test' -- "${word,,}")
        return
    fi
    # Commands and options may be typed in any case.
    command=${COMP_WORDS[1],,}
    before=${COMP_WORDS[COMP_CWORD - 1],,}
    if [[ $command == export && $word != -* ]]; then
        case $before in
            -d | -m)
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -d -- "$word")
                return
                ;;
            -s)
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -X '!*zynlog-*' -- "$word"; compgen -d -- "$word")
                return
                ;;
            -f)
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
                return
                ;;
            -l)
                return
                ;;
        esac
    fi
    case $command in
        export) options='-d -f -l -m -s -silent' ;;
        clean) options='-f' ;;
        preservation) options='-off -on' ;;
        test) options='-c -l -m' ;;
        performance) options='-t' ;;
    esac
    # A value follows these, and it can be anything.
    if [[ $word != -* ]]; then
        case $command:$before in
            test:-[clm] | performance:-t) return ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}

complete -F _zyntool zyntool
