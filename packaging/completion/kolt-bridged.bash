# Completion for bash: the open platform.
_kolt_bridged() {
    local words
    case $3 in
    -c | --config) mapfile -t COMPREPLY < <(compgen -f -- "$2") ;;
    --run | --pin) mapfile -t COMPREPLY < <(compgen -d -- "$2") ;;
    -m | --mode) mapfile -t COMPREPLY < <(compgen -W 'RE FAP HAP' -- "$2") ;;
    --interval | --listen) COMPREPLY=() ;;
    *)
        words='--config --mode --run --pin --interval --listen --check --release --help'
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$2")
        ;;
    esac
}
complete -o filenames -F _kolt_bridged kolt-bridged
