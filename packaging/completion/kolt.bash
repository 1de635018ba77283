# Completion for bash: the daemon.
_kolt() {
    case $3 in
    -c) mapfile -t COMPREPLY < <(compgen -f -- "$2") ;;
    *) mapfile -t COMPREPLY < <(compgen -W '-c -h' -- "$2") ;;
    esac
}
complete -o filenames -F _kolt kolt
