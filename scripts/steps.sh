# Runs the steps of a long script: every command with its output in a log and with nothing of the caller's environment, a
# sign of life while nothing is printed, and after a failure its log and its first cause. Sourced.

LOGS=${LOGS:-build}
HEARTBEAT_SECONDS=${HEARTBEAT_SECONDS:-25}
declare -A RUNNING=()
TESTS_PASSED=0

elapsed() {
    printf '%d:%02d' $((SECONDS / 60)) $((SECONDS % 60))
}

# Ends with the script, however that ends: it reads from a pipe that only the script holds open.
heartbeat() {
    local doing=Starting line status
    while :; do
        status=0
        read -r -t "$HEARTBEAT_SECONDS" line || status=$?
        if [ "$status" -gt 128 ]; then
            echo "   $(elapsed) $doing"
        elif [ "$status" -ne 0 ]; then
            return
        else
            doing=$line
        fi
    done
}

start_steps() {
    mkdir -p "$LOGS/home"
    exec {HEART}> >(trap '' INT; heartbeat)
    HEART_ID=$!
    trap end_steps EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

signal_jobs() {
    local job found=1
    for job in "${RUNNING[@]}"; do
        kill "$1" -- "-$job" 2>/dev/null && found=0
    done
    return "$found"
}

# An interrupt lets test runners clean up; what ignores it is ended after two seconds.
end_steps() {
    local moments=20
    signal_jobs -INT || moments=0
    while [ "$moments" -gt 0 ] && signal_jobs -0; do
        sleep 0.1
        moments=$((moments - 1))
    done
    signal_jobs -TERM || true
    exec {HEART}>&-
    wait "$HEART_ID" || true
}

step() {
    echo
    echo "== $* =="
    echo "$*" >&"$HEART"
}

# begin NAME [VARIABLE=VALUE...] COMMAND...: starts a command that writes NAME.log. It gets a process group of its own, so
# that all of it can be ended, and an empty home, so that nobody's settings decide; signals that the caller ignores, as
# nohup does, are none that it ignores.
begin() {
    local name=$1
    shift
    set -m
    env -i --default-signal PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME="$(realpath "$LOGS/home")" LC_ALL=C.UTF-8 "$@" \
        >"$LOGS/$name.log" 2>&1 </dev/null {HEART}>&- &
    RUNNING[$name]=$!
    set +m
}

# await NAME...: shows the closing lines of each command once it has ended, and leaves the script after a failure.
await() {
    local name status failed=()
    for name in "$@"; do
        status=0
        wait "${RUNNING[$name]}" || status=$?
        unset "RUNNING[$name]"
        if [ "$status" -eq 0 ]; then
            closing_lines "$LOGS/$name.log"
        else
            failed+=("$name")
        fi
    done
    [ ${#failed[@]} -eq 0 ] || give_up "${failed[@]}"
}

run() {
    begin "$@"
    await "$1"
}

# The runners' own, and the last line where there is none.
closing_lines() {
    local lines
    lines=$(grep -E '^[0-9]+ passed|tests passed, |^style: |^system libraries: ' "$1" || tail -n 1 "$1")
    echo "$lines"
    TESTS_PASSED=$((TESTS_PASSED + $(count_passed <<<"$lines")))
}

count_passed() {
    sed -nE 's/^([0-9]+) passed.*/\1/p; s/.*tests passed, .* out of ([0-9]+)$/\1/p' | awk '{ sum += $1 } END { print sum + 0 }'
}

# first_cause LOG: the first test that failed, else the first error of a compiler or of CMake, else the last line.
first_cause() {
    grep -m 1 -E '^(FAILED|ERROR) |[0-9]+/[0-9]+ Test .*(\*\*\*|Subprocess)' "$1" ||
        grep -m 1 -E '(^|[: ])error: |^CMake Error|undefined reference|error\]|warning: ' "$1" ||
        grep -v '^[[:space:]]*$' "$1" | tail -n 1
}

give_up() {
    local name
    for name in "$@"; do
        grep -vE '^\[[0-9]+/[0-9]+\] (Building|Linking)|^ *[0-9]+/[0-9]+ Test .* Passed|^ *Start ' "$LOGS/$name.log" |
            tail -n 200 >&2 || true
    done
    {
        echo
        printf "failed after $(elapsed), see $LOGS/%s.log\n" "$@"
        echo "first cause: $(first_cause "$LOGS/$1.log" | sed 's/^ *//')"
    } >&2
    exit 1
}
