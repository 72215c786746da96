#!/usr/bin/env bash
# Runs packaging/macos/sign_and_notarise.sh with stand-ins for Apple's tools, which record how they were
# called. The tests check what is signed, in which order and with which options, and that the script
# fails if any call fails. They cannot check that Apple's tools do what they are asked to do.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
script=$here/../../packaging/macos/sign_and_notarise.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
calls=$work/calls
identity="Developer ID Application: Kelvane (ABCDE12345)"
app="Kelvane Firmware Updater.app"
failures=0

# make_stand_in NAME: creates a tool that records its call, then does what standard input says.
make_stand_in() {
    {
        cat <<'END'
#!/usr/bin/env bash
line=${0##*/}
for word in "$@"; do line+=" [$word]"; done
echo "$line" >>"$CALLS"
mapfile -t calls <"$CALLS"
[ "${#calls[@]}" != "${FAIL_AT:-}" ] || { echo "fails on request" >&2; exit 1; }
last=${!#}
END
        cat
    } >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

make_tools() {
    mkdir "$work/bin"
    make_stand_in codesign <<'END'
case "$line" in *--verify*"${UNSIGNED:-nothing}]") echo "invalid signature" >&2; exit 1 ;; esac
END
    make_stand_in spctl </dev/null
    make_stand_in xcrun <<'END'
case "$line" in
    *"[notarytool] [submit]"*)
        printf '<dict>\n<key>id</key>\n<string>1-2-3</string>\n<key>status</key>\n<string>%s</string>\n</dict>\n' \
            "${NOTARY_ANSWER:-Accepted}" ;;
esac
END
    make_stand_in hdiutil <<'END'
case "$1" in
    attach) cp -R "$IMAGE_CONTENTS/." "${6:?}" ;;
    detach) [ ! -d "$last" ] || find "$last" -mindepth 1 -delete ;;
    create) echo signed >"$last" ;;
esac
END
    make_stand_in ditto <<'END'
case "$1" in
    -c) echo zip >"$last" ;;
    *) cp -R "$1" "$2" ;;
esac
END
    make_stand_in otool <<'END'
if [ "$1 $2 $3" = "-arch all -l" ]; then
    tool=12.0
    case "$last" in */dfu-util) tool=${TOOL_NEEDS:-12.0} ;; esac
    printf '      cmd LC_BUILD_VERSION\n platform 1\n    minos %s\n      sdk 14.4\n  version 955.13\n' "$tool"
    printf '      cmd LC_VERSION_MIN_MACOSX\n  version %s\n      sdk 14.4\n' "${OLD_STYLE:-10.9}"
    printf '      cmd LC_SOURCE_VERSION\n  version 99.0\n'
    exit
fi
printf '%s:\n\t@rpath/QtCore.framework/Versions/A/QtCore (compatibility version 6.0.0, current version 6.8.0)\n' "$last"
printf '\t/usr/lib/libSystem.B.dylib (compatibility version 1.0.0, current version 1.0.0)\n'
case "$last" in */dfu-util) [ -z "${OUTSIDE:-}" ] || printf '\t%s (compatibility version 3.0.0)\n' "$OUTSIDE" ;; esac
END
}

# Writes the first bytes of a program for macOS, as `file` recognises them.
make_program() {
    mkdir -p "$(dirname "$1")"
    printf '\xcf\xfa\xed\xfe\x0c\x00\x00\x01\x00\x00\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00' >"$1"
    chmod +x "$1"
}

write_description() {
    printf '<dict>\n\t<key>CFBundleVersion</key>\n\t<string>99.0</string>\n\t<key>LSMinimumSystemVersion</key>\n\t<string>%s</string>\n</dict>\n' \
        "$1" >"$contents/Info.plist"
}

make_application() {
    contents=$work/image/$app/Contents
    make_program "$contents/MacOS/Kelvane Firmware Updater"
    make_program "$contents/MacOS/dfu-util"
    make_program "$contents/Frameworks/QtCore.framework/Versions/A/QtCore"
    make_program "$contents/Frameworks/libfmt.10.dylib"
    make_program "$contents/PlugIns/platforms/libqcocoa.dylib"
    make_program "$contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"
    ln -s A "$contents/Frameworks/QtCore.framework/Versions/Current"
    ln -s Versions/Current/QtCore "$contents/Frameworks/QtCore.framework/QtCore"
    mkdir -p "$contents/Resources"
    echo 'firmware_filename=a.bin' >"$contents/Resources/config.ini"
    write_description 12.0
    ln -s /Applications "$work/image/Applications"
    echo unsigned >"$work/unsigned.dmg"
    echo key >"$work/key.p8"
}

# run [NAME=VALUE...]: runs the script in a clean environment; sets `status`, `output` and the calls.
run() {
    rm -f "$calls" "$work/signed.dmg"
    touch "$calls"
    status=0
    output=$(env -i PATH="$work/bin:/usr/bin:/bin" TMPDIR="$work" CALLS="$calls" \
        IMAGE_CONTENTS="$work/image" FW_SIGN_IDENTITY="$identity" FW_NOTARY_PROFILE=kelvane "$@" \
        "$script" "$work/unsigned.dmg" "$work/signed.dmg" 2>&1) || status=$?
}

complain() {
    echo "  FAILED: $*"
    failures=$((failures + 1))
}

expect_status() {
    [ "$status" -eq "$1" ] || complain "status $status instead of $1: $output"
}

expect_output() {
    [[ $output == *"$1"* ]] || complain "\"$1\" is missing from: $output"
}

expect_no_result() {
    [ ! -e "$work/signed.dmg" ] || complain "a signed image was created nevertheless"
    [ "$(cat "$work/unsigned.dmg")" = unsigned ] || complain "the unsigned image was changed"
    [ -z "$(find "$work" -maxdepth 1 -name 'sign_and_notarise.*')" ] || complain "the work directory was left behind"
}

expect_nothing_signed() {
    ! grep --fixed-strings -e '[--sign]' "$calls" || complain "something was signed"
    ! grep --fixed-strings -e '[submit]' "$calls" || complain "something was sent to Apple"
}

# Prints the calls that match, without the name of the work directory.
calls_with() {
    grep --fixed-strings -e "$1" "$calls" | sed "s|$work/sign_and_notarise\.[A-Za-z0-9]*/||g"
}

expect_calls() {
    local actual
    actual=$(calls_with "$1" || true)
    [ "$actual" = "$2" ] || complain "the calls with $1 are"$'\n'"$actual"$'\n'"instead of"$'\n'"$2"
}

everything_is_signed_inside_out_with_hardened_runtime_and_time_stamp_and_the_driver_is_not() {
    local with="codesign [--force] [--timestamp] [--sign] [$identity]" inside="contents/$app/Contents"
    run
    expect_status 0
    expect_calls '[--sign]' "$with [--options] [runtime] [$inside/Frameworks/QtCore.framework/Versions/A/QtCore]
$with [--options] [runtime] [$inside/PlugIns/platforms/libqcocoa.dylib]
$with [--options] [runtime] [$inside/Frameworks/QtCore.framework]
$with [--options] [runtime] [$inside/Frameworks/libfmt.10.dylib]
$with [--options] [runtime] [$inside/MacOS/dfu-util]
$with [--options] [runtime] [contents/$app]
$with [signed.dmg]"
}

application_and_disk_image_are_notarised_stapled_and_validated() {
    run
    expect_status 0
    [ "$(cat "$work/signed.dmg")" = signed ] || complain "no signed image was created"
    expect_calls '[submit]' "xcrun [notarytool] [submit] [app.zip] [--keychain-profile] [kelvane] [--wait] [--output-format] [plist]
xcrun [notarytool] [submit] [signed.dmg] [--keychain-profile] [kelvane] [--wait] [--output-format] [plist]"
    expect_calls '[stapler]' "xcrun [stapler] [staple] [contents/$app]
xcrun [stapler] [validate] [contents/$app]
xcrun [stapler] [staple] [signed.dmg]
xcrun [stapler] [validate] [signed.dmg]"
    expect_calls 'spctl' "spctl [--assess] [--type] [execute] [--verbose=2] [contents/$app]
spctl [--assess] [--type] [open] [--context] [context:primary-signature] [--verbose=2] [signed.dmg]"
    local driver="codesign [--verify] [--deep] [--strict] [--test-requirement] [=anchor apple generic] [contents/$app/Contents/Resources/CP210xVCPDriver.app]"
    expect_calls '[--verify]' "$driver
codesign [--verify] [--deep] [--strict] [--verbose=2] [contents/$app]
codesign [--verify] [--deep] [--strict] [--verbose=2] [contents/$app]
$driver
codesign [--verify] [--strict] [--verbose=2] [signed.dmg]"
}

the_script_fails_if_any_call_fails() {
    local count call
    run
    count=$(wc -l <"$calls")
    [ "$count" -ge 20 ] || complain "only $count calls"
    for ((call = 1; call <= count; ++call)); do
        run FAIL_AT="$call"
        [ "$status" -eq 1 ] || complain "status $status though this failed: $(sed -n "${call}p" "$calls")"
        expect_no_result
    done
}

a_rejection_by_apple_is_a_failure_even_with_exit_status_0_and_the_reasons_are_fetched() {
    run NOTARY_ANSWER=Invalid
    expect_status 1
    expect_output "did not accept"
    expect_calls '[log]' "xcrun [notarytool] [log] [1-2-3] [--keychain-profile] [kelvane]"
    expect_no_result
}

without_credentials_nothing_is_touched() {
    local missing
    for missing in FW_SIGN_IDENTITY= FW_NOTARY_PROFILE= FW_SIGN_IDENTITY=-; do
        run "$missing"
        expect_status 2
        expect_output "${missing%%=*}"
        [ ! -s "$calls" ] || complain "called without credentials: $(cat "$calls")"
        expect_no_result
    done
}

a_key_replaces_the_keychain_and_must_be_complete() {
    local key=(FW_NOTARY_PROFILE= "FW_NOTARY_KEY=$work/key.p8" FW_NOTARY_KEY_ID=K1 FW_NOTARY_ISSUER=I1) name
    run "${key[@]}"
    expect_status 0
    expect_calls '[--key]' "xcrun [notarytool] [submit] [app.zip] [--key] [$work/key.p8] [--key-id] [K1] [--issuer] [I1] [--wait] [--output-format] [plist]
xcrun [notarytool] [submit] [signed.dmg] [--key] [$work/key.p8] [--key-id] [K1] [--issuer] [I1] [--wait] [--output-format] [plist]"
    for name in FW_NOTARY_KEY FW_NOTARY_KEY_ID FW_NOTARY_ISSUER; do
        run "${key[@]}" "$name="
        expect_status 2
        expect_output "$name is set"
        [ ! -s "$calls" ] || complain "called without $name"
    done
    run "${key[@]}" FW_NOTARY_KEY=/nowhere/key.p8
    expect_status 2
    [ ! -s "$calls" ] || complain "called without the key's file"
}

a_driver_application_that_is_missing_or_not_validly_signed_is_refused_before_anything_is_signed() {
    run UNSIGNED=CP210xVCPDriver.app
    expect_status 1
    expect_nothing_signed
    mv "$contents/Resources/CP210xVCPDriver.app" "$work/aside"
    run
    mv "$work/aside" "$contents/Resources/CP210xVCPDriver.app"
    expect_status 1
    expect_output "CP210xVCPDriver.app is missing"
    expect_nothing_signed
    expect_no_result
}

a_driver_application_that_is_not_executable_is_refused_before_anything_is_signed() {
    local program=$contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver
    chmod a-x "$program"
    run
    chmod a+x "$program"
    expect_status 1
    expect_output "CP210xVCPDriver.app contains no executable program"
    expect_nothing_signed
    expect_no_result
}

code_for_a_newer_system_than_the_application_declares_is_refused_before_anything_is_signed() {
    run TOOL_NEEDS=14.0
    expect_status 1
    expect_output "dfu-util needs macOS 14.0, but the application declares that it runs on 12.0"
    expect_nothing_signed
    expect_no_result
    run OLD_STYLE=12.0.1
    expect_status 1
    expect_output "needs macOS 12.0.1"
    expect_nothing_signed
    write_description 12
    run
    expect_status 0
    write_description ''
    run
    write_description 12.0
    expect_status 1
    expect_output "names no LSMinimumSystemVersion"
}

a_library_from_the_build_computer_is_refused_before_anything_is_signed() {
    run OUTSIDE=/opt/homebrew/lib/libusb-1.0.0.dylib
    expect_status 1
    expect_output "dfu-util needs a library from outside the bundle: /opt/homebrew/lib/libusb-1.0.0.dylib"
    expect_nothing_signed
    expect_no_result
}

a_script_instead_of_dfu_util_is_refused_before_anything_is_signed() {
    mv "$contents/MacOS/dfu-util" "$work/aside"
    printf '#!/bin/sh\nexec dfu-util "$@"\n' >"$contents/MacOS/dfu-util"
    run
    mv "$work/aside" "$contents/MacOS/dfu-util"
    expect_status 1
    expect_output "dfu-util is not a program for macOS"
    expect_nothing_signed
}

an_image_with_two_applications_or_none_is_refused() {
    mkdir "$work/image/Other.app"
    run
    rmdir "$work/image/Other.app"
    expect_status 1
    expect_output "must contain exactly one application"
    mv "$work/image/$app" "$work/aside"
    run
    mv "$work/aside" "$work/image/$app"
    expect_status 1
    expect_output "must contain exactly one application"
    expect_nothing_signed
}

wrong_arguments_are_refused_and_help_is_available() {
    local words
    for words in "" "only-one" "$work/unsigned.dmg $work/key.p8" "/nowhere.dmg $work/new.dmg" "a b c"; do
        status=0
        # shellcheck disable=SC2086  # several words
        output=$(env FW_SIGN_IDENTITY="$identity" FW_NOTARY_PROFILE=p "$script" $words 2>&1) || status=$?
        expect_status 2
    done
    status=0
    output=$("$script" --help) || status=$?
    expect_status 0
    expect_output "FW_SIGN_IDENTITY"
}

make_tools
make_application
tests=(
    everything_is_signed_inside_out_with_hardened_runtime_and_time_stamp_and_the_driver_is_not
    application_and_disk_image_are_notarised_stapled_and_validated
    the_script_fails_if_any_call_fails
    a_rejection_by_apple_is_a_failure_even_with_exit_status_0_and_the_reasons_are_fetched
    without_credentials_nothing_is_touched
    a_key_replaces_the_keychain_and_must_be_complete
    a_driver_application_that_is_missing_or_not_validly_signed_is_refused_before_anything_is_signed
    a_driver_application_that_is_not_executable_is_refused_before_anything_is_signed
    code_for_a_newer_system_than_the_application_declares_is_refused_before_anything_is_signed
    a_library_from_the_build_computer_is_refused_before_anything_is_signed
    a_script_instead_of_dfu_util_is_refused_before_anything_is_signed
    an_image_with_two_applications_or_none_is_refused
    wrong_arguments_are_refused_and_help_is_available
)
for test in "${tests[@]}"; do
    echo "${test//_/ }"
    "$test"
done
echo "${#tests[@]} tests, $failures failures"
[ "$failures" -eq 0 ]
