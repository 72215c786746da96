#!/usr/bin/env bash
# Installs with apt-get what is missing to build, run and check this project on Debian 12 or 13.
#   install_dependencies.sh [--format] [--clang] [--package]
# --format   also what the format check needs
# --clang    also the second compiler and clang-tidy
# --package  also what makes and checks the Debian package
# Asks nothing, does nothing when nothing is missing, and needs root or sudo only otherwise.
set -euo pipefail

packages=(
    # build
    cmake ninja-build g++ pkg-config
    qt6-base-dev libgl-dev qt6-serialport-dev libfmt-dev
    libgtest-dev libgmock-dev libbenchmark-dev libumockdev-dev libx11-dev
    # the window's fonts are derived from this family at build time
    fonts-inter python3 python3-fonttools
    # the simulated unit and a screen for it
    umockdev xvfb openbox xdotool imagemagick x11-utils
    # other vendors' programs that tests compare with
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
    echo "These packages of Debian's are needed: ${missing[*]}" >&2
    exit 1
}

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "As root, please: apt-get install ${missing[*]}" >&2
        exit 1
    }
    as_root=(sudo)
fi

update() {
    "${as_root[@]}" apt-get update
}

# Recommended packages would bring a desktop's worth of additions.
install() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install --yes --no-install-recommends "${missing[@]}"
}

echo "Installing: ${missing[*]}"
if apt-cache show "${missing[@]}" >/dev/null 2>&1; then
    # Lists that are too old name package files that the mirror has no longer.
    install || { update && install; }
else
    update
    install
fi
