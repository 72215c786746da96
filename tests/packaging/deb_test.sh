#!/usr/bin/env bash
# Runs one test of the Debian packages:
#   deb_test.sh BUILD_DIRECTORY TEST
# build            cpack makes the package of the vendor tools from what has been built, and the tools make
#                  that of the demonstration; the other tests need both
# contents         files, directories, owners, permissions and dependencies of the demonstration's
# metadata         desktop entry, AppStream data and udev rules are valid
# lintian          Debian's own checker finds no error, also not in the vendor tools
# throw_away_root  dpkg installs the package into a temporary directory, the program there shows its
#                  window with the product's title, and removal leaves nothing behind
# this_machine     the same with apt-get on the machine itself; only as root and with
#                  FW_TEST_REAL_INSTALL=1 in the environment
# Exits with 77 if a tool is missing or the test was not requested.
set -euo pipefail

build=$(realpath "$1")
test=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
packages=$build/packaging/test
name=kelvane-firmware-updater
contents=usr/lib/$name/Contents
seconds=60

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

skip() {
    echo "skipped: $*"
    exit 77
}

need() {
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null || skip "$tool is not installed"
    done
}

# Sets `deb`. The fixture has built the package, unless a tool was missing.
find_package() {
    need dpkg-deb
    local found=("$packages/${name}"_*.deb)
    [ -f "${found[0]}" ] || skip "the package was not built"
    [ ${#found[@]} -eq 1 ] || fail "several packages: ${found[*]}"
    deb=${found[0]}
}

make_work() {
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
}

# The vendor tools are unpacked into vendor_tools/, where the tests of make_product_package use them.
test_build() {
    need cpack dpkg-deb dpkg-shlibdeps file
    rm -rf "$packages"
    # The builder's umask must not affect the packages.
    umask 077
    cpack --config "$build/CPackConfig.cmake" -B "$packages"
    dpkg-deb --extract "$packages"/kelvane-vendor-tools_*.deb "$packages/vendor_tools"
    "$packages/vendor_tools/usr/bin/make_product_package" --output "$packages" "$build/bundle/Contents/Resources"
    find_package
}

expect_line() {
    grep --quiet --line-regexp --extended-regexp -- "$1" "$work/list" || fail "the package lacks: $1"
}

test_contents() {
    find_package
    make_work
    dpkg-deb --contents "$deb" | awk '{ print $1, $2, $6, $7, $8 }' | sed 's/ *$//' >"$work/list"
    expect_line "-rwxr-xr-x root/root \./$contents/MacOS/firmware_updater"
    expect_line "-rw-r--r-- root/root \./$contents/Resources/config\.ini"
    expect_line "-rw-r--r-- root/root \./$contents/Resources/[^/]+\.bin"
    expect_line "-rw-r--r-- root/root \./$contents/Resources/[^/]+\.png"
    expect_line "-rw-r--r-- root/root \./$contents/Resources/KelvaneSans-Regular\.otf"
    expect_line "-rw-r--r-- root/root \./$contents/Resources/KelvaneSans-Bold\.otf"
    expect_line "lrwxrwxrwx root/root \./usr/bin/$name -> \.\./lib/$name/Contents/MacOS/firmware_updater"
    expect_line "-rw-r--r-- root/root \./usr/lib/udev/rules\.d/72-$name\.rules"
    expect_line "-rw-r--r-- root/root \./usr/share/applications/$name\.desktop"
    expect_line "-rw-r--r-- root/root \./usr/share/metainfo/com\.kelvane\.firmwareupdater\.metainfo\.xml"
    for size in 16 32 48 256; do
        expect_line "-rw-r--r-- root/root \./usr/share/icons/hicolor/${size}x$size/apps/$name\.png"
    done
    # Units on USB cannot be updated without it.
    expect_line "-rwxr-xr-x root/root \./$contents/MacOS/dfu-util"
    ! grep --invert-match --extended-regexp '^(drwxr-xr-x|-rw-r--r--|-rwxr-xr-x|lrwxrwxrwx) root/root ' \
        "$work/list" || fail "these files have the wrong owner or permissions"
    local depends dependency
    depends=$(dpkg-deb --field "$deb" Depends)
    for dependency in dfu-util qt6-qpa-plugins libqt6widgets6 libqt6serialport6 libc6; do
        grep --quiet --extended-regexp ", ${dependency}[a-z0-9]*(,| \()" <<<", $depends," ||
            fail "no dependency on $dependency: $depends"
    done
    dpkg-deb --ctrl-tarfile "$deb" | tar --list >"$work/control"
    ! grep --extended-regexp 'inst$|rm$' "$work/control" || fail "the package runs scripts as root"
}

test_metadata() {
    find_package
    need desktop-file-validate appstreamcli
    make_work
    dpkg-deb --extract "$deb" "$work"
    desktop-file-validate "$work"/usr/share/applications/*.desktop
    appstreamcli validate --no-net "$work"/usr/share/metainfo/*.xml
    # udevadm of Debian 12 has no "verify" yet.
    if udevadm verify --help >/dev/null 2>&1; then
        udevadm verify --no-summary "$work"/usr/lib/udev/rules.d/*.rules
    fi
}

test_lintian() {
    find_package
    need lintian
    lintian --fail-on error "$packages"/*.deb
}

# expect_entry WINDOW ENTRY: checks that a desktop finds the entry, and so the icon, of the window. X11 has the
# window's class, which is the command's name; under Wayland the program sets that name itself.
expect_entry() {
    local class
    class=$(sed -n 's/^StartupWMClass=//p' "$2")
    [ "$class" = "$(basename "$2" .desktop)" ] || fail "$2 has another name than the class, $class"
    xprop -id "$1" WM_CLASS | grep --quiet --fixed-strings "\"$class\"" ||
        fail "the class $class is not that of the window: $(xprop -id "$1" WM_CLASS)"
}

# expect_window ROOT: checks that the program shows a window with the product's title, which it can only
# know from the resources, and that it ends when asked to.
expect_window() {
    local program=$1/usr/bin/$name resources=$1/$contents/Resources title pattern window='' pid
    local end=$((SECONDS + seconds))
    title=$(sed -n 's/^window_title=//p' "$resources/config.ini" | tr -d '"')
    [ -n "$title" ] || skip "the product in the package has no title to look for"
    # shellcheck disable=SC2001  # escapes each of these characters
    pattern=$(sed 's/[][\.*^$+?(){}|]/\\&/g' <<<"$title")
    # The program's own files do not belong to the package.
    HOME=$work XDG_STATE_HOME='' "$program" >"$work/output" 2>&1 &
    pid=$!
    until window=$(xdotool search --onlyvisible --name "^$pattern\$" 2>/dev/null); do
        kill -0 "$pid" 2>/dev/null || fail "the program ended: $(cat "$work/output")"
        [ "$SECONDS" -lt "$end" ] || fail "no window \"$title\" appeared: $(cat "$work/output")"
        sleep 0.1
    done
    xdotool getwindowgeometry "$window" | grep --quiet 'Geometry: 665x517' || fail "the window has the wrong size"
    expect_entry "$window" "$1/usr/share/applications/$name.desktop"
    kill "$pid"
    wait "$pid" || true
    echo "the window \"$title\" appeared"
}

on_a_screen() {
    need Xvfb xdotool xprop
    [ -n "${FW_ON_A_SCREEN:-}" ] ||
        FW_ON_A_SCREEN=1 exec "$here/../support/run_test.sh" --display "$here/deb_test.sh" "$build" "$test"
}

# dpkg_there [ARGUMENT...]: runs dpkg with its own database below $work/root.
dpkg_there() {
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(fakeroot)
    # The dependencies are installed on the machine, not below that directory.
    "${as_root[@]}" dpkg --root="$work/root" --force-depends --log="$work/log" "$@"
}

test_throw_away_root() {
    find_package
    need dpkg
    [ "$(id -u)" -eq 0 ] || need fakeroot
    on_a_screen
    make_work
    mkdir -p "$work/root/var/lib/dpkg/info" "$work/root/var/lib/dpkg/updates"
    touch "$work/root/var/lib/dpkg/status"
    dpkg_there --install "$deb"
    expect_window "$work/root"
    dpkg_there --purge "$name"
    local left
    left=$(cd "$work/root" && find . -mindepth 1 -not -path './var' -not -path './var/lib' \
        -not -path './var/lib/dpkg*')
    [ -z "$left" ] || fail "removal left: $left"
}

test_this_machine() {
    find_package
    [ "${FW_TEST_REAL_INSTALL:-}" = 1 ] || skip "FW_TEST_REAL_INSTALL=1 is not set"
    [ "$(id -u)" -eq 0 ] || skip "only root installs packages"
    ! dpkg-query --show "$name" >/dev/null 2>&1 || fail "$name is installed already"
    on_a_screen
    make_work
    export DEBIAN_FRONTEND=noninteractive
    # The package is removed again, whatever goes wrong.
    local problem=''
    if apt-get install --yes --no-install-recommends "$deb"; then
        # Leaves out the directories that the package shares with others.
        dpkg-query --listfiles "$name" | while IFS= read -r path; do
            if [ ! -d "$path" ] || [[ $path == */$name* ]]; then
                echo "$path"
            fi
        done >"$work/installed"
        (expect_window '') || problem="the installed program does not work"
    else
        problem="the package cannot be installed"
    fi
    apt-get purge --yes "$name"
    [ -z "$problem" ] || fail "$problem"
    local path
    while IFS= read -r path; do
        ! stat "$path" >/dev/null 2>&1 || fail "removal left $path"
    done <"$work/installed"
}

declare -F "test_$test" >/dev/null || {
    sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//p;}' "$0" >&2
    exit 2
}
"test_$test"
