#!/usr/bin/env bash
# Turns the disk image that cpack built into one that can be shipped:
#   sign_and_notarise.sh UNSIGNED.dmg SIGNED.dmg
# The script signs every program and library from the inside out (hardened runtime, time stamp), has
# Apple notarise the application and the disk image, staples both, and fails unless everything validates.
# The driver application keeps its own vendor's signature, which must be valid. UNSIGNED.dmg is not
# changed, and SIGNED.dmg is created only if every step succeeds.
# Set in the environment:
#   FW_SIGN_IDENTITY   the certificate, as "Developer ID Application: NAME (TEAM)"
#   FW_NOTARY_PROFILE  the name under which `xcrun notarytool store-credentials` stored the credentials;
#                      or instead an App Store Connect key:
#   FW_NOTARY_KEY, FW_NOTARY_KEY_ID, FW_NOTARY_ISSUER  its file, id and issuer
#   FW_BUNDLE_CHECK    the program bundle_check; if not set, the one in the same vendor tools as this script,
#                      or else the one in PATH
#   FW_BENCH_PACKAGE   ON: the image is for benches and may carry firmware that is not for customers
# The exit status is 0 if SIGNED.dmg can be shipped, 1 if not, and 2 if the arguments or the environment
# are wrong.
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
    # Apple notarises only what is signed with this kind of certificate.
    [[ $FW_SIGN_IDENTITY == "Developer ID Application: "* ]] ||
        usage_error "FW_SIGN_IDENTITY is not a \"Developer ID Application: ...\""
    if [ -n "${FW_NOTARY_PROFILE:-}" ]; then
        notary=(--keychain-profile "$FW_NOTARY_PROFILE")
        return
    fi
    local name
    for name in FW_NOTARY_KEY FW_NOTARY_KEY_ID FW_NOTARY_ISSUER; do
        [ -n "${!name:-}" ] || usage_error "neither FW_NOTARY_PROFILE nor $name is set"
    done
    [ -f "$FW_NOTARY_KEY" ] || usage_error "FW_NOTARY_KEY: the file $FW_NOTARY_KEY does not exist"
    notary=(--key "$FW_NOTARY_KEY" --key-id "$FW_NOTARY_KEY_ID" --issuer "$FW_NOTARY_ISSUER")
}

check_for_tools() {
    local tool
    for tool in codesign xcrun spctl hdiutil ditto otool lipo file; do
        command -v "$tool" >/dev/null || usage_error "$tool was not found; is this a Mac with Xcode's tools?"
    done
    command -v "$bundle_check" >/dev/null ||
        usage_error "bundle_check was not found; set FW_BUNDLE_CHECK to the program in the vendor tools"
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
        fail "$unsigned must contain exactly one application"
    fi
}

is_program() {
    [[ $(file --brief "$1") == *Mach-O* ]]
}

# Lists everything in the application that needs its own signature, deepest first. A framework is a
# folder with its own signature, in addition to that of the library inside it.
list_inner_code() {
    find "$app/Contents" -path "$driver" -prune -o \( -type f -o -name '*.framework' \) -print |
        while IFS= read -r path; do
            if [ -d "$path" ] || is_program "$path"; then
                [ "$path" = "$main_program" ] || echo "$path"
            fi
        done | awk -F/ '{ print NF "\t" $0 }' | sort -k1,1nr -k2 | cut -f2-
}

# The driver's signature must still be valid and lead to Apple's root certificate.
check_driver() {
    [ -d "$driver" ] || fail "$driver_name is missing; without it the program cannot install the driver"
    # The signature does not cover the permission to execute it.
    [ -x "$driver/Contents/MacOS/${driver_name%.app}" ] ||
        fail "$driver_name contains no executable program; without it the program cannot install the driver"
    codesign --verify --deep --strict --test-requirement '=anchor apple generic' "$driver"
}

check_tool() {
    local tool=$app/Contents/MacOS/dfu-util
    [ ! -e "$tool" ] || is_program "$tool" || fail "dfu-util is not a program for macOS"
}

# read_plist KEY: the text of a key in the application's Info.plist.
read_plist() {
    tr -d '[:space:]' <"$app/Contents/Info.plist" | sed -n "s/.*<key>$1<\/key><string>\([^<]*\)<.*/\1/p"
}

# No customer gets an application in which bundle_check finds an error. Its rules for customers also exclude
# firmware that is only for benches.
check_bundle() {
    local rules=(--package-version "$(read_plist CFBundleShortVersionString)") status=0
    [ "${FW_BENCH_PACKAGE:-}" = ON ] || rules+=(--for-customers)
    "$bundle_check" "${rules[@]}" "$app" || status=$?
    # Exit status 1 means that there are only warnings.
    [ "$status" -le 1 ] || fail "bundle_check refuses the application ($status); its report is above"
}

# Code that lacks one of the program's processors is not loaded on a Mac with that processor.
check_processors() {
    local processors path
    read -ra processors <<<"$(lipo -archs "$main_program")"
    [ ${#processors[@]} -gt 0 ] || fail "$main_program names no processor"
    while IFS= read -r path; do
        [ -f "$path" ] || continue
        lipo "$path" -verify_arch "${processors[@]}" ||
            fail "$path is not for all processors of the program: ${processors[*]}"
    done <"$work/inner_code"
}

# A library on the build computer does not exist on a customer's.
check_libraries() {
    local path outside
    while IFS= read -r path; do
        [ -f "$path" ] || continue
        outside=$(otool -arch all -L "$path")
        outside=$(sed -n 's/^[[:space:]]\{1,\}\(.*\) (compatibility.*/\1/p' <<<"$outside" |
            grep -Ev '^(@rpath|@executable_path|@loader_path|/usr/lib|/System/Library)/' || true)
        [ -z "$outside" ] || fail "$path needs a library from outside the bundle: $outside"
    done < <(cat "$work/inner_code"; echo "$main_program")
}

# newer_than VERSION: prints the systems in otool's list of load commands that are newer than VERSION.
newer_than() {
    awk -v oldest="$1" '
        function number(version, parts) {
            split(version, parts, ".")
            return parts[1] * 10000 + parts[2] * 100 + parts[3]
        }
        $1 == "cmd" { command = $2 }
        # The second command is what older tools wrote instead of the first.
        (command == "LC_BUILD_VERSION" && $1 == "minos" ||
            command == "LC_VERSION_MIN_MACOSX" && $1 == "version") &&
            number($2) > number(oldest) { print $2 }'
}

# An older macOS does not even load code that was built for a newer one.
check_systems() {
    local oldest path commands newer
    oldest=$(read_plist LSMinimumSystemVersion)
    [ -n "$oldest" ] || fail "Info.plist names no LSMinimumSystemVersion"
    while IFS= read -r path; do
        [ -f "$path" ] || continue
        commands=$(otool -arch all -l "$path")
        newer=$(newer_than "$oldest" <<<"$commands")
        [ -z "$newer" ] ||
            fail "$path needs macOS $newer, but the application declares that it runs on $oldest"
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

# notarise FILE: notarytool may exit with 0 even if Apple rejects the file, so its answer is read as well.
notarise() {
    local answer id
    answer=$(xcrun notarytool submit "$1" "${notary[@]}" --wait --output-format plist) ||
        fail "Apple's notary service could not be reached for $1: $answer"
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

# The application gets its own ticket, so that it also starts for the first time without a network.
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
[ $# -eq 2 ] || usage_error "two arguments are needed: the unsigned disk image and the signed one to create"
unsigned=$1
signed=$2
[ -f "$unsigned" ] || usage_error "$unsigned does not exist"
[ ! -e "$signed" ] || usage_error "$signed already exists"
bundle_check=$(dirname "$0")/../../bundle_check.app/Contents/MacOS/bundle_check
[ -x "$bundle_check" ] || bundle_check=bundle_check
bundle_check=${FW_BUNDLE_CHECK:-$bundle_check}
read_credentials
check_for_tools

mounted=
work=$(mktemp -d "${TMPDIR:-/tmp}/sign_and_notarise.XXXXXX")
trap clean_up EXIT

unpack
driver=$app/Contents/Resources/$driver_name
main_program=$app/Contents/MacOS/$(basename "$app" .app)
[ -f "$main_program" ] || fail "$main_program does not exist"
list_inner_code >"$work/inner_code"
check_driver
check_tool
check_bundle
check_processors
check_libraries
check_systems
sign_application
notarise_application
make_disk_image
validate
mv "$image" "$signed"
echo "$signed can be shipped"
