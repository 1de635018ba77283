# Runs commands whose output only matters when they fail, and shows meanwhile that they go on. All on standard error, since what
# a script is for goes to standard output. Sourced.

PROGRESS_SECONDS=${PROGRESS_SECONDS:-10}

# with_progress TITLE COMMAND...: on a terminal the command's last line, in place; elsewhere the title as soon as it takes
# longer than a moment, and the last line every so often. A command that fails has all its output shown, and a line below
# that says so. Its status is returned.
with_progress() {
    local title=$1
    shift
    {
        local status=0
        "$@" 2>&1 </dev/null || status=$?
        printf '\n%s\n' "$status"
    } | follow "$title"
}

# Its input is the output of a command and, in the last line, the command's status.
follow() {
    local title=$1 began told partial='' line='' last='' lines=() ended status width
    began=$((${EPOCHREALTIME/[.,]/} / 1000)) told=$began
    read -r _ width < <(stty size <&2 2>/dev/null) || width=0
    [ "$width" -ge 20 ] || width=80
    while :; do
        ended=0
        IFS= read -r -t 1 line || ended=$?
        partial+=$line
        if [ "$ended" -eq 0 ]; then
            lines+=("$partial")
            [ -z "$partial" ] || last=$partial
            partial=''
        elif [ "$ended" -le 128 ]; then
            break
        fi
        tell
    done
    [ ! -t 2 ] || printf '\r\033[K' >&2
    status=${lines[-1]:-1}
    unset 'lines[-1]'
    [ -n "${lines[-1]}" ] || unset 'lines[-1]' # the output had ended its last line itself
    [ "$status" -eq 0 ] || printf '%s\n' "${lines[@]}" "$1: failed with status $status, for the reason above" >&2
    return "$status"
}

# Uses and sets what `follow` keeps. Milliseconds, as SECONDS counts the clock's full ones: what began just before one would
# seem to have taken a second.
tell() {
    local now=$((${EPOCHREALTIME/[.,]/} / 1000))
    local passed=$(((now - began) / 1000))
    if [ -t 2 ]; then
        printf -v line '%s %d:%02d %s' "$title" $((passed / 60)) $((passed % 60)) "$last"
        printf '\r\033[K%s' "${line:0:width-1}" >&2
        return
    fi
    if [ -n "$title" ] && [ "$passed" -ge 1 ]; then
        echo "$title" >&2
        title=
    fi
    if [ $((now - told)) -ge $((PROGRESS_SECONDS * 1000)) ]; then
        printf '   %d:%02d %s\n' $((passed / 60)) $((passed % 60)) "$last" >&2
        told=$now
    fi
}
