#!/usr/bin/env bash
# Runs one test program with what it needs around it:
#   run_test.sh [--display [--wm] [--accessibility]] [--testbed] [--runtime LIBRARY] COMMAND [ARGUMENT...]
# --display   a private Xvfb screen (with the window manager openbox when --wm is given too)
# --wm        openbox on that screen
# --accessibility  a private session bus, over which assistive technology reads the program
# --testbed   umockdev's preload library, so that the program sees the simulated sysfs and /dev
# --runtime   a sanitizer's runtime library, which must be loaded before any other
set -u
display=""
wm=""
accessibility=""
testbed=""
runtime=""
while [ $# -gt 0 ]; do
    case "$1" in
        --display) display=1 ;;
        --wm) wm=1 ;;
        --accessibility) accessibility=1 ;;
        --testbed) testbed=1 ;;
        --runtime) runtime=$2; shift ;;
        *) break ;;
    esac
    shift
done

children=()
cleanup() {
    [ ${#children[@]} -eq 0 ] || kill "${children[@]}" 2>/dev/null
    rm -f "${display_file:-}" "${bus_file:-}"
}
trap cleanup EXIT

# The list of windows is the last that openbox announces before it listens.
has_manager() {
    xprop -root _NET_CLIENT_LIST 2>/dev/null | grep -q 'window id'
}

wait_for_content() {
    for _ in $(seq 200); do
        [ ! -s "$1" ] || return 0
        sleep 0.05
    done
    return 1
}

if [ -n "$display" ]; then
    display_file=$(mktemp)
    # Without -noreset the server starts anew whenever its last client leaves.
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$display_file" >/dev/null 2>&1 &
    children+=($!)
    wait_for_content "$display_file" || { echo "Xvfb did not start" >&2; exit 1; }
    DISPLAY=":$(cat "$display_file")"
    export DISPLAY
    export QT_QPA_PLATFORM=xcb
    # Usually no session bus: its client library keeps memory until the end.
    export DBUS_SESSION_BUS_ADDRESS=disabled:
    unset WAYLAND_DISPLAY
    if [ -n "$accessibility" ]; then
        bus_file=$(mktemp)
        # The bus starts the services of assistive technology when they are asked for; they must not
        # read or write the settings of this user's desktop.
        GSETTINGS_BACKEND=memory dbus-daemon --session --nofork --print-address=3 3>"$bus_file" \
            >/dev/null 2>&1 &
        children+=($!)
        wait_for_content "$bus_file" || { echo "the session bus did not start" >&2; exit 1; }
        DBUS_SESSION_BUS_ADDRESS=$(cat "$bus_file")
        export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
    fi
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
