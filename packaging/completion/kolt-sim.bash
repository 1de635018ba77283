# Completion for bash: the modelled node.
_kolt_sim() {
    local command=${COMP_WORDS[1]} words=
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W 'run compare check list --help' -- "$2")
        return
    fi
    case $3 in
    --report | --json) mapfile -t COMPREPLY < <(compgen -f -- "$2") && return ;;
    --build) mapfile -t COMPREPLY < <(compgen -d -- "$2") && return ;;
    --speed | --jobs) COMPREPLY=() && return ;;
    esac
    case $2 in
    -*)
        case $command in
        run) words='--report --json --speed --build --help' ;;
        compare) words='--json --jobs --build --help' ;;
        *) words=--help ;;
        esac
        ;;
    *) [ "$command" = list ] || words=$(kolt-sim list 2>/dev/null | sed -nE 's/^([a-z][a-z-]*) .*/\1/p') ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$2" && compgen -f -X '!*.json' -- "$2")
}
complete -o filenames -F _kolt_sim kolt-sim
