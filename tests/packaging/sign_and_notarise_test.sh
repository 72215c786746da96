#!/usr/bin/env bash
# Runs packaging/macos/sign_and_notarise.sh with stand-ins for Apple's tools, which record how they were
# called. Checks the calls of a good run and their order, that the script fails if any of them fails, and
# what it refuses before it signs. It cannot check that Apple's tools do what they are asked to do.
set -euo pipefail

script=$(dirname "$(realpath "$0")")/../../packaging/macos/sign_and_notarise.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
calls=$work/calls
app="Kelvane Firmware Updater.app"
contents=$work/image/$app/Contents
driver=Resources/CP210xVCPDriver.app
identity="Developer ID Application: Kelvane (ABCDE12345)"
arguments=("$work/unsigned.dmg" "$work/signed.dmg")
failures=0

mkdir "$work/bin"
cat >"$work/bin/codesign" <<'END'
#!/usr/bin/env bash
line=${0##*/}
for word in "$@"; do line+=" [${word#"$TMPDIR"/sign_and_notarise.??????/}]"; done
echo "$line" >>"$CALLS"
# bundle_check exits with 1 if there are only warnings.
[ "$(wc -l <"$CALLS")" != "${FAIL_AT:-}" ] || { [ "${0##*/}" = bundle_check ] && exit 2; exit 1; }
last=${!#}
case "$line" in
    codesign*--verify*"${UNSIGNED:-nothing}]") exit 1 ;;
    *"[submit]"*) printf '<key>id</key>\n<string>1-2-3</string>\n<key>status</key>\n<string>%s</string>\n' "${NOTARY_ANSWER:-Accepted}" ;;
    "hdiutil [attach]"*) cp -R "$IMAGE/." "${6:?}" ;;
    "hdiutil [detach]"*) find "$last" -mindepth 1 -delete ;;
    "hdiutil [create]"*) echo signed >"$last" ;;
    "ditto [-c]"*) echo zip >"$last" ;;
    ditto*) cp -R "$1" "$2" ;;
    "otool [-arch] [all] [-l]"*dfu-util]) printf 'cmd LC_BUILD_VERSION\n minos %s\n version 955.1\n' "${NEEDS:-12.0}" ;;
    "otool [-arch] [all] [-l]"*) printf 'cmd LC_VERSION_MIN_MACOSX\n version %s\ncmd LC_SOURCE_VERSION\n version 99.0\n' "${OLD_STYLE:-10.9}" ;;
    "otool [-arch] [all] [-L]"*) printf '%s (architecture x86_64):\n\t@rpath/QtCore (compatibility version 6.0.0)\n%s (architecture arm64):\n\t%s (compatibility version 1.0.0)\n' "$last" "$last" "${LIBRARY:-/usr/lib/libSystem.B.dylib}" ;;
    "lipo [-archs]"*) echo "${PROCESSORS-x86_64 arm64}" ;;
    "lipo "*"/${ONE_PROCESSOR:-nothing}] [-verify_arch] [x86_64] [arm64]") exit 1 ;;
    bundle_check*) exit "${VERDICT:-0}" ;;
esac
END
chmod +x "$work/bin/codesign"
for tool in xcrun spctl hdiutil ditto otool lipo bundle_check; do ln "$work/bin/codesign" "$work/bin/$tool"; done

# What `file` recognises as a program for macOS.
for program in "MacOS/${app%.app}" MacOS/dfu-util Frameworks/QtCore.framework/Versions/A/QtCore \
    Frameworks/libfmt.10.dylib PlugIns/platforms/libqcocoa.dylib "$driver/Contents/MacOS/CP210xVCPDriver"; do
    install -D <(printf '\xcf\xfa\xed\xfe\x0c\x00\x00\x01%b' '\0\0\0\0\02\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0') "$contents/$program"
done
ln -s Versions/A/QtCore "$contents/Frameworks/QtCore.framework/QtCore"
{
    printf '<key>CFBundleShortVersionString</key>\n<string>3.1.0</string>\n'
    printf '<key>LSMinimumSystemVersion</key>\n<string>12</string>\n'
} >"$contents/Info.plist"
echo unsigned >"$work/unsigned.dmg"
echo key >"$work/key.p8"

complain() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# expect STATUS TEXT [NAME=VALUE...]: runs the script in a clean environment with these additions, and
# compares its status and a part of what it prints.
expect() {
    local wanted=$1 text=$2 status=0 output
    shift 2
    rm -f "$work/signed.dmg"
    : >"$calls"
    output=$(env -i PATH="$work/bin:/usr/bin:/bin" TMPDIR="$work" CALLS="$calls" IMAGE="$work/image" \
        FW_SIGN_IDENTITY="$identity" FW_NOTARY_PROFILE=kelvane "$@" "$script" "${arguments[@]}" 2>&1) || status=$?
    [[ $status == "$wanted" && $output == *"$text"* ]] ||
        complain "status $status instead of $wanted, or not \"$text\": $output ($*)"
    [ "$status" -eq 0 ] || [ ! -e "$work/signed.dmg" ] || complain "a signed image was created: $text"
    [ "$status" -ne 2 ] || [ ! -s "$calls" ] || complain "tools were called: $text"
    [ "$(cat "$work/unsigned.dmg")" = unsigned ] || complain "the unsigned image was changed: $text"
    [ -z "$(find "$work" -name 'sign_and_notarise.*')" ] || complain "the work directory was left: $text"
}

# expect_refusal TEXT [NAME=VALUE...]: status 1 before anything is signed or sent to Apple.
expect_refusal() {
    expect 1 "$@"
    ! grep -e '\[--sign\]' -e '\[submit\]' "$calls" || complain "signed or sent although: $1"
}

# expect_refusal_without PATH TEXT: the same while this file or folder is not there.
expect_refusal_without() {
    mv "$1" "$work/aside"
    expect_refusal "$2"
    mv "$work/aside" "$1"
}

# ---- A good run: from the inside out, and the driver keeps its own signature ----
sign="codesign [--force] [--timestamp] [--sign] [$identity]"
verify="codesign [--verify] [--deep] [--strict]"
submit="[--keychain-profile] [kelvane] [--wait] [--output-format] [plist]"
expect 0 "can be shipped"
[ "$(cat "$work/signed.dmg")" = signed ] || complain "no signed image was created"
diff <(grep -v -e '^otool' -e '^lipo' "$calls") - <<END || complain "the calls differ from the expected ones"
hdiutil [attach] [-readonly] [-nobrowse] [-noautoopen] [-mountpoint] [mounted] [$work/unsigned.dmg]
ditto [mounted] [contents]
hdiutil [detach] [mounted]
$verify [--test-requirement] [=anchor apple generic] [contents/$app/Contents/$driver]
bundle_check [--package-version] [3.1.0] [--for-customers] [contents/$app]
$sign [--options] [runtime] [contents/$app/Contents/Frameworks/QtCore.framework/Versions/A/QtCore]
$sign [--options] [runtime] [contents/$app/Contents/PlugIns/platforms/libqcocoa.dylib]
$sign [--options] [runtime] [contents/$app/Contents/Frameworks/QtCore.framework]
$sign [--options] [runtime] [contents/$app/Contents/Frameworks/libfmt.10.dylib]
$sign [--options] [runtime] [contents/$app/Contents/MacOS/dfu-util]
$sign [--options] [runtime] [contents/$app]
$verify [--verbose=2] [contents/$app]
ditto [-c] [-k] [--keepParent] [contents/$app] [app.zip]
xcrun [notarytool] [submit] [app.zip] $submit
xcrun [stapler] [staple] [contents/$app]
xcrun [stapler] [validate] [contents/$app]
hdiutil [create] [-srcfolder] [contents] [-volname] [${app%.app}] [-format] [UDZO] [signed.dmg]
$sign [signed.dmg]
xcrun [notarytool] [submit] [signed.dmg] $submit
xcrun [stapler] [staple] [signed.dmg]
xcrun [stapler] [validate] [signed.dmg]
$verify [--verbose=2] [contents/$app]
$verify [--test-requirement] [=anchor apple generic] [contents/$app/Contents/$driver]
spctl [--assess] [--type] [execute] [--verbose=2] [contents/$app]
codesign [--verify] [--strict] [--verbose=2] [signed.dmg]
spctl [--assess] [--type] [open] [--context] [context:primary-signature] [--verbose=2] [signed.dmg]
END

# ---- Any call that fails ----
count=$(wc -l <"$calls")
for ((call = 1; call <= count; ++call)); do
    expect 1 "" FAIL_AT="$call"
done
# notarytool exits with 0 although Apple rejects the file; the script fetches the reasons.
expect 1 "did not accept" NOTARY_ANSWER=Invalid
grep -q '\[log\] \[1-2-3\] \[--keychain-profile\] \[kelvane\]' "$calls" || complain "the reasons were not fetched"

# ---- Credentials and arguments ----
key=(FW_NOTARY_PROFILE= "FW_NOTARY_KEY=$work/key.p8" FW_NOTARY_KEY_ID=K1 FW_NOTARY_ISSUER=I1)
expect 0 "" "${key[@]}"
[ "$(grep -c "\[--key\] \[$work/key.p8\] \[--key-id\] \[K1\] \[--issuer\] \[I1\]" "$calls")" -eq 2 ] || complain "no key"
for variable in FW_NOTARY_KEY= FW_NOTARY_KEY_ID= FW_NOTARY_ISSUER= FW_NOTARY_KEY=/nowhere/key.p8 \
    FW_SIGN_IDENTITY= FW_SIGN_IDENTITY=-; do
    expect 2 "${variable%%=*}" "${key[@]}" "$variable"
done
expect 2 FW_NOTARY_PROFILE FW_NOTARY_PROFILE=
for words in "" "only-one" "$work/unsigned.dmg $work/key.p8" "/nowhere.dmg $work/new.dmg" "a b c"; do
    read -ra arguments <<<"$words"
    expect 2 "see --help"
done
arguments=(--help)
expect 0 FW_SIGN_IDENTITY
arguments=("$work/unsigned.dmg" "$work/signed.dmg")

# ---- What is refused before anything is signed ----
expect_refusal "" UNSIGNED=CP210xVCPDriver.app
expect_refusal_without "$contents/$driver" "CP210xVCPDriver.app is missing"
expect_refusal_without "$contents/$driver/Contents/MacOS/CP210xVCPDriver" "contains no executable program"
expect_refusal_without "$work/image/$app" "must contain exactly one application"
expect_refusal "dfu-util needs macOS 14.0, but the application declares that it runs on 12" NEEDS=14.0
expect_refusal "needs macOS 12.0.1" OLD_STYLE=12.0.1
expect_refusal "needs a library from outside the bundle: /opt/libusb.dylib" LIBRARY=/opt/libusb.dylib
expect_refusal "bundle_check refuses the application" VERDICT=2
expect 0 "can be shipped" VERDICT=1
expect 0 "can be shipped" FW_BENCH_PACKAGE=ON
grep -q '^bundle_check \[--package-version\] \[3.1.0\] \[contents' "$calls" || complain "benches need no customers' firmware"
expect 2 "bundle_check was not found" FW_BUNDLE_CHECK=/nowhere/bundle_check
# In the vendor tools, the script finds their bundle_check.
mkdir -p "$work/tools/packaging/macos" "$work/tools/bundle_check.app/Contents/MacOS"
mv "$work/bin/bundle_check" "$work/tools/bundle_check.app/Contents/MacOS/"
expect 2 "bundle_check was not found"
in_source_tree=$script
script=$work/tools/packaging/macos/sign.sh
cp "$in_source_tree" "$script"
expect 0 "can be shipped"
script=$in_source_tree
mv "$work/tools/bundle_check.app/Contents/MacOS/bundle_check" "$work/bin/"
for code in QtCore libfmt.10.dylib libqcocoa.dylib dfu-util; do
    expect_refusal "$code is not for all processors of the program: x86_64 arm64" ONE_PROCESSOR=$code
done
expect_refusal "names no processor" PROCESSORS=
chmod a-x "$contents/$driver/Contents/MacOS/CP210xVCPDriver"
expect_refusal "contains no executable program"
chmod a+x "$contents/$driver/Contents/MacOS/CP210xVCPDriver"
printf '<key>LSMinimumSystemVersion</key>\n<string></string>\n' >"$contents/Info.plist"
expect_refusal "names no LSMinimumSystemVersion"
echo '#!/bin/sh' >"$contents/MacOS/dfu-util"
expect_refusal "dfu-util is not a program for macOS"
mkdir "$work/image/Other.app"
expect_refusal "must contain exactly one application"

echo "$failures failures"
[ "$failures" -eq 0 ]
