# Completion for bash: the options that the program itself tells, and files.
_kolt_top() {
    case $2 in
    -*) mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>&1 | grep -oE -- '--[a-z][a-z-]*' | sort -u)" -- "$2") ;;
    *) mapfile -t COMPREPLY < <(compgen -f -- "$2") ;;
    esac
}
complete -o filenames -F _kolt_top kolt-top
