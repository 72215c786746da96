#!/usr/bin/env bash
# Installs, with apt-get, the missing packages for building, running and checking this project on
# Debian 12 or 13.
#   install_dependencies.sh [--format] [--clang] [--package]
# --format   also the packages for the format check
# --clang    also the second compiler and clang-tidy
# --package  also the packages that make and check the Debian package
# It asks no questions. It needs root or sudo only if a package is missing.
set -euo pipefail

packages=(
    # build
    cmake ninja-build g++ pkg-config
    qt6-base-dev libgl-dev qt6-serialport-dev libfmt-dev
    libgtest-dev libgmock-dev libbenchmark-dev libumockdev-dev libx11-dev
    # the build derives the window's fonts from this family
    fonts-inter python3 python3-fonttools
    # the simulated unit and a screen for it
    umockdev xvfb openbox xdotool imagemagick x11-utils
    # other vendors' programs, which tests use for comparison
    stm32flash dfu-util
)

for option in "$@"; do
    case "$option" in
        --format) packages+=(git clang-format-19) ;;
        --package) packages+=(dpkg-dev file lintian appstream desktop-file-utils fakeroot) ;;
        --clang) packages+=(clang-19 clang-tidy-19 libclang-rt-19-dev) ;;
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
    echo "install_dependencies.sh: install these Debian packages: ${missing[*]}" >&2
    exit 1
}

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "install_dependencies.sh: run this as root: apt-get install ${missing[*]}" >&2
        exit 1
    }
    as_root=(sudo)
fi

update() {
    "${as_root[@]}" apt-get update
}

# Recommended packages would add most of a desktop.
install() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install --yes --no-install-recommends "${missing[@]}"
}

echo "Installing: ${missing[*]}"
if apt-cache show "${missing[@]}" >/dev/null 2>&1; then
    # Outdated lists name package files that the mirror no longer has.
    install || { update && install; }
else
    update
    install
fi
