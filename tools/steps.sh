# Sourced by the scripts at the repository's root: stages that print one line when they start and one
# when they end, and whose output goes to a log. The sourcing script sets log_directory.
# shellcheck shell=bash disable=SC2154

# step NAME COMMAND [ARGUMENT...]: prints NAME and its log, runs the command, and prints the time it
# took. On failure prints the end of its output as well and returns the command's status.
step() {
    local name=$1 log status=0 start=$SECONDS
    shift
    log="$log_directory/${name//[^A-Za-z0-9]/_}.log"
    mkdir -p "$log_directory"
    printf '%-28s started; its output is in %s\n' "$name" "$log"
    "$@" >"$log" 2>&1 </dev/null || status=$?
    if [ "$status" -eq 0 ]; then
        printf '%-28s ok %5d s\n' "$name" $((SECONDS - start))
        return 0
    fi
    printf '%-28s FAILED after %d s; its output, whole in %s, ends:\n' \
        "$name" $((SECONDS - start)) "$log"
    tail --lines=150 "$log"
    return "$status"
}

# build_preset NAME [TARGET...]: configures and builds; without targets, everything.
build_preset() {
    local preset=$1
    shift
    cmake --preset "$preset" || return
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}
