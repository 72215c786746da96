#!/usr/bin/env bash
# Makes of the disk image that cpack built one that can be shipped:
#   sign_and_notarise.sh UNSIGNED.dmg SIGNED.dmg
# Signs every inner program and library (hardened runtime, time stamp), inside out, lets Apple notarise
# the application and the disk image, staples both, and fails unless all of it validates. The driver
# application keeps its own vendor's signature, which must be valid. UNSIGNED.dmg stays as it is, and
# SIGNED.dmg appears only when everything succeeded.
# From the environment:
#   FW_SIGN_IDENTITY   the certificate, as "Developer ID Application: NAME (TEAM)"
#   FW_NOTARY_PROFILE  what `xcrun notarytool store-credentials` keeps in the keychain; or in its place
#   FW_NOTARY_KEY, FW_NOTARY_KEY_ID, FW_NOTARY_ISSUER  an App Store Connect key: file, id, issuer
# Exits with 0 when SIGNED.dmg can be shipped, with 1 when not, with 2 when called wrongly or without
# these.
set -euo pipefail

driver_name=CP210xVCPDriver.app

fail() {
    echo "sign_and_notarise.sh: $*" >&2
    exit 1
}

usage_error() {
    echo "sign_and_notarise.sh: $*; see --help" >&2
    exit 2
}

read_credentials() {
    [ -n "${FW_SIGN_IDENTITY:-}" ] || usage_error "FW_SIGN_IDENTITY is not set"
    # What Apple notarises is signed with this kind of certificate and no other.
    [[ $FW_SIGN_IDENTITY == "Developer ID Application: "* ]] ||
        usage_error "FW_SIGN_IDENTITY is no \"Developer ID Application: ...\""
    if [ -n "${FW_NOTARY_PROFILE:-}" ]; then
        notary=(--keychain-profile "$FW_NOTARY_PROFILE")
        return
    fi
    local name
    for name in FW_NOTARY_KEY FW_NOTARY_KEY_ID FW_NOTARY_ISSUER; do
        [ -n "${!name:-}" ] || usage_error "neither FW_NOTARY_PROFILE nor $name is set"
    done
    [ -f "$FW_NOTARY_KEY" ] || usage_error "FW_NOTARY_KEY: there is no file $FW_NOTARY_KEY"
    notary=(--key "$FW_NOTARY_KEY" --key-id "$FW_NOTARY_KEY_ID" --issuer "$FW_NOTARY_ISSUER")
}

check_for_tools() {
    local tool
    for tool in codesign xcrun spctl hdiutil ditto otool file; do
        command -v "$tool" >/dev/null || usage_error "$tool is not here; is this a Mac with Xcode's tools?"
    done
}

unpack() {
    mkdir "$work/mounted"
    hdiutil attach -readonly -nobrowse -noautoopen -mountpoint "$work/mounted" "$unsigned"
    mounted=yes
    ditto "$work/mounted" "$work/contents"
    hdiutil detach "$work/mounted"
    mounted=
    local apps=("$work"/contents/*.app)
    app=${apps[0]}
    if [ ! -d "$app" ] || [ ${#apps[@]} -ne 1 ]; then
        fail "$unsigned holds no application, or several"
    fi
}

is_program() {
    [[ $(file --brief "$1") == *Mach-O* ]]
}

# Everything in the application that is signed on its own, the deepest first. Frameworks are folders
# with a signature of their own, over the one of the library in them.
list_inner_code() {
    find "$app/Contents" -path "$driver" -prune -o \( -type f -o -name '*.framework' \) -print |
        while IFS= read -r path; do
            if [ -d "$path" ] || is_program "$path"; then
                [ "$path" = "$main_program" ] || echo "$path"
            fi
        done | awk -F/ '{ print NF "\t" $0 }' | sort -k1,1nr -k2 | cut -f2-
}

# What the driver's vendor signed must still be what Apple's chain of certificates vouches for.
check_driver() {
    [ -d "$driver" ] || fail "$driver_name is missing: the program could not install the driver"
    # The signature says nothing about the right to run it.
    [ -x "$driver/Contents/MacOS/${driver_name%.app}" ] ||
        fail "$driver_name holds no executable program: the program could not install the driver"
    codesign --verify --deep --strict --test-requirement '=anchor apple generic' "$driver"
}

check_tool() {
    local tool=$app/Contents/MacOS/dfu-util
    [ ! -e "$tool" ] || is_program "$tool" || fail "dfu-util is no program for macOS"
}

# A library of the builder's own computer is on no customer's.
check_libraries() {
    local path outside
    while IFS= read -r path; do
        [ -f "$path" ] || continue
        outside=$(otool -L "$path")
        outside=$(sed -n 's/^[[:space:]]\{1,\}\(.*\) (compatibility.*/\1/p' <<<"$outside" |
            grep -Ev '^(@rpath|@executable_path|@loader_path|/usr/lib|/System/Library)/' || true)
        [ -z "$outside" ] || fail "$path needs a library from outside the bundle: $outside"
    done < <(cat "$work/inner_code"; echo "$main_program")
}

# What the application says of itself: LSMinimumSystemVersion.
read_oldest_system() {
    tr -d '[:space:]' <"$app/Contents/Info.plist" |
        sed -n 's/.*<key>LSMinimumSystemVersion<\/key><string>\([0-9.]*\)<.*/\1/p'
}

# newer_than VERSION: those systems in otool's list of load commands that come after it.
newer_than() {
    awk -v oldest="$1" '
        function number(version, parts) {
            split(version, parts, ".")
            return parts[1] * 10000 + parts[2] * 100 + parts[3]
        }
        $1 == "cmd" { command = $2 }
        # What older tools wrote in its place is the second one.
        (command == "LC_BUILD_VERSION" && $1 == "minos" ||
            command == "LC_VERSION_MIN_MACOSX" && $1 == "version") &&
            number($2) > number(oldest) { print $2 }'
}

# Code for a newer macOS than the application asks for is not even loaded on the older one.
check_systems() {
    local oldest path commands newer
    oldest=$(read_oldest_system)
    [ -n "$oldest" ] || fail "Info.plist names no LSMinimumSystemVersion"
    while IFS= read -r path; do
        [ -f "$path" ] || continue
        commands=$(otool -arch all -l "$path")
        newer=$(newer_than "$oldest" <<<"$commands")
        [ -z "$newer" ] || fail "$path needs macOS $newer, but the application is to run on $oldest"
    done < <(cat "$work/inner_code"; echo "$main_program")
}

sign() {
    codesign --force --timestamp --sign "$FW_SIGN_IDENTITY" "$@"
}

sign_application() {
    local path
    while IFS= read -r path; do
        sign --options runtime "$path"
    done <"$work/inner_code"
    sign --options runtime "$app"
    codesign --verify --deep --strict --verbose=2 "$app"
}

# notarise FILE: its exit status alone does not tell; a refused file can be an orderly end as well.
notarise() {
    local answer id
    answer=$(xcrun notarytool submit "$1" "${notary[@]}" --wait --output-format plist) ||
        fail "Apple's notary service could not be asked about $1: $answer"
    if ! tr -d '[:space:]' <<<"$answer" | grep -q '<key>status</key><string>Accepted</string>'; then
        id=$(tr -d '[:space:]' <<<"$answer" | sed -n 's/.*<key>id<\/key><string>\([^<]*\)<.*/\1/p')
        [ -z "$id" ] || xcrun notarytool log "$id" "${notary[@]}" >&2 || true
        fail "Apple's notary service did not accept $1: $answer"
    fi
}

staple() {
    xcrun stapler staple "$1"
    xcrun stapler validate "$1"
}

# The application's own ticket is for a customer who first starts it without a network.
notarise_application() {
    ditto -c -k --keepParent "$app" "$work/app.zip"
    notarise "$work/app.zip"
    staple "$app"
}

make_disk_image() {
    image=$work/signed.dmg
    hdiutil create -srcfolder "$work/contents" -volname "$(basename "$app" .app)" -format UDZO "$image"
    sign "$image"
    notarise "$image"
    staple "$image"
}

validate() {
    codesign --verify --deep --strict --verbose=2 "$app"
    check_driver
    spctl --assess --type execute --verbose=2 "$app"
    codesign --verify --strict --verbose=2 "$image"
    spctl --assess --type open --context context:primary-signature --verbose=2 "$image"
}

clean_up() {
    [ -z "$mounted" ] || hdiutil detach -force "$work/mounted" || true
    rm -rf "$work"
}

if [ "${1:-}" = --help ]; then
    sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//p;}' "$0"
    exit 0
fi
[ $# -eq 2 ] || usage_error "two disk images are needed, what there is and what is to be made"
unsigned=$1
signed=$2
[ -f "$unsigned" ] || usage_error "there is no $unsigned"
[ ! -e "$signed" ] || usage_error "$signed is there already"
read_credentials
check_for_tools

mounted=
work=$(mktemp -d "${TMPDIR:-/tmp}/sign_and_notarise.XXXXXX")
trap clean_up EXIT

unpack
driver=$app/Contents/Resources/$driver_name
main_program=$app/Contents/MacOS/$(basename "$app" .app)
[ -f "$main_program" ] || fail "there is no $main_program"
list_inner_code >"$work/inner_code"
check_driver
check_tool
check_libraries
check_systems
sign_application
notarise_application
make_disk_image
validate
mv "$image" "$signed"
echo "$signed can be shipped"
