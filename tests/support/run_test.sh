#!/usr/bin/env bash
# Runs one test program with what it needs around it:
#   run_test.sh [--display] [--testbed] [--runtime LIBRARY] COMMAND [ARGUMENT...]
# --display   a private Xvfb screen (with the window manager openbox when --wm is given too)
# --wm        openbox on that screen
# --testbed   umockdev's preload library, so that the program sees the simulated sysfs and /dev
# --runtime   a sanitizer's runtime library, which must be loaded before any other
set -u
display=""
wm=""
testbed=""
runtime=""
while [ $# -gt 0 ]; do
    case "$1" in
        --display) display=1 ;;
        --wm) wm=1 ;;
        --testbed) testbed=1 ;;
        --runtime) runtime=$2; shift ;;
        *) break ;;
    esac
    shift
done

children=()
cleanup() {
    [ ${#children[@]} -eq 0 ] || kill "${children[@]}" 2>/dev/null
    [ -z "${display_file:-}" ] || rm -f "$display_file"
}
trap cleanup EXIT

# The list of windows is the last that openbox announces before it listens.
has_manager() {
    xprop -root _NET_CLIENT_LIST 2>/dev/null | grep -q 'window id'
}

if [ -n "$display" ]; then
    display_file=$(mktemp)
    # Without -noreset the server starts anew whenever its last client leaves.
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$display_file" >/dev/null 2>&1 &
    children+=($!)
    for _ in $(seq 200); do
        [ -s "$display_file" ] && break
        sleep 0.05
    done
    [ -s "$display_file" ] || { echo "Xvfb did not start" >&2; exit 1; }
    DISPLAY=":$(cat "$display_file")"
    export DISPLAY
    export QT_QPA_PLATFORM=xcb
    # No session bus: nothing here needs one, and its client library keeps memory until the end.
    export DBUS_SESSION_BUS_ADDRESS=disabled:
    unset WAYLAND_DISPLAY
    if [ -n "$wm" ]; then
        openbox >/dev/null 2>&1 &
        children+=($!)
        # A request to show a window that comes while openbox starts may wait until the next event.
        for _ in $(seq 200); do
            has_manager && break
            sleep 0.05
        done
        has_manager || { echo "openbox did not start" >&2; exit 1; }
    fi
fi

preload=$runtime
[ -n "$testbed" ] && preload="$preload libumockdev-preload.so.0"
env ${preload:+LD_PRELOAD="${preload# }"} "$@"
