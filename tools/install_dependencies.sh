#!/usr/bin/env bash
# Installs with apt-get what is missing to build, run and check this project on Debian 12 or 13.
#   install_dependencies.sh [--style] [--clang] [--package]
# --style    also what the checks of format and shell scripts need
# --clang    also the second compiler with its standard library, clang-tidy and coverage tools
# --package  also what makes and checks the Debian package
# Never asks a question. Does nothing, and needs neither root nor sudo, when nothing is missing.
set -euo pipefail

packages=(
    # build
    cmake ninja-build g++ pkg-config
    qt6-base-dev libgl-dev qt6-serialport-dev libfmt-dev
    libgtest-dev libgmock-dev libbenchmark-dev libumockdev-dev libx11-dev
    # the build derives the window's fonts from this family; python3 also runs the tests
    fonts-inter python3 python3-fonttools
    # the simulated unit and a screen for it
    umockdev xvfb openbox xdotool imagemagick x11-utils
    # assistive technology that reads the window
    at-spi2-core dbus-daemon gir1.2-atspi-2.0 python3-gi
    # other vendors' programs, which tests use for comparison
    stm32flash dfu-util
    tshark wireshark-common
)

for option in "$@"; do
    case "$option" in
        --style) packages+=(git clang-format-19 shellcheck python3-yaml) ;;
        --package) packages+=(dpkg-dev file lintian appstream desktop-file-utils fakeroot) ;;
        --clang) packages+=(clang-19 clang-tidy-19 libclang-rt-19-dev libc++-19-dev llvm-19) ;;
        *) echo "install_dependencies.sh: unknown option $option" >&2; exit 2 ;;
    esac
done

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing=()
for package in "${packages[@]}"; do
    is_installed "$package" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

command -v apt-get >/dev/null || {
    echo "These Debian packages are needed: ${missing[*]}" >&2
    exit 1
}

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "install_dependencies.sh: run this as root: apt-get install ${missing[*]}" >&2
        exit 1
    }
    # Fails rather than asks for a password without a terminal.
    as_root=(sudo)
    [ -t 0 ] || as_root+=(--non-interactive)
fi

# Keeps changed configuration files and suppresses the questions of debconf, dpkg and needrestart.
apt_get() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive DEBIAN_PRIORITY=critical NEEDRESTART_MODE=l \
        NEEDRESTART_SUSPEND=1 APT_LISTCHANGES_FRONTEND=none UCF_FORCE_CONFFOLD=1 apt-get --yes \
        -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold "$@" </dev/null
}

update() {
    apt_get update
}

# Recommended packages would add most of a desktop.
install() {
    apt_get install --no-install-recommends "${missing[@]}"
}

echo "Installing: ${missing[*]}"
if apt-cache show "${missing[@]}" >/dev/null 2>&1; then
    # Outdated lists name package files that the mirror no longer has.
    install || { update && install; }
else
    update
    install
fi
