#!/usr/bin/env python3
"""Tests what the scripts in packaging/ write into a package, and where files go on macOS.

    files_test.py CMAKE
"""

import os
import plistlib
import shutil
import struct
import sys
import tempfile
import unittest
from pathlib import Path

from in_directory import PACKAGING, InDirectory

CMAKE = sys.argv[1]

PNG_16 = b"\x89PNG\r\n\x1a\n sixteen"
PNG_256 = b"\x89PNG\r\n\x1a\n two hundred and fifty-six"
BITMAP_32 = b"\x28\x00\x00\x00 a bitmap"


def make_ico(*pictures):
    """Returns an icon made of (width byte, data) pairs."""
    head, body = struct.pack("<HHH", 0, 1, len(pictures)), b""
    start = 6 + 16 * len(pictures)
    for width, data in pictures:
        head += struct.pack("<BBBBHHII", width, width, 0, 0, 1, 32, len(data), start + len(body))
        body += data
    return head + body


PRODUCT = """
set(FW_PRODUCT_TITLE "Nordvik Tide Updater")
set(FW_PRODUCT_VERSION 3.1.0)
set(FW_PRODUCT_PACKAGE nordvik-tide-updater)
set(FW_PRODUCT_ID com.nordvik.tideupdater)
set(FW_PRODUCT_VENDOR Nordvik)
set(FW_PRODUCT_CONTACT "Nordvik Support <support@nordvik.example>")
set(FW_PRODUCT_HOMEPAGE https://nordvik.example)
"""


class Icons(InDirectory):
    def extract(self, *options):
        return self.call(PACKAGING / "extract_icons.py", self.path("a.ico"), *options)

    def test_a_linux_desktop_gets_the_png_pictures_and_a_width_byte_of_0_means_256_pixels(self):
        self.path("a.ico", make_ico((16, PNG_16), (32, BITMAP_32), (0, PNG_256)))

        result = self.extract("--hicolor", self.path("icons"), "name")

        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(
            {str(file.relative_to(self.directory)): file.read_bytes()
             for file in self.path("icons").rglob("*.*")},
            {"icons/16x16/apps/name.png": PNG_16, "icons/256x256/apps/name.png": PNG_256},
        )

    def test_an_icon_that_contains_only_bitmaps_is_refused(self):
        self.path("a.ico", make_ico((32, BITMAP_32)))

        for wanted in (("--hicolor", self.path("icons"), "name"), ("--icns", self.path("a.icns"))):
            result = self.extract(*wanted)

            self.assertEqual(result.returncode, 1)
            self.assertIn("no picture", result.stderr)

    def test_the_macos_container_holds_each_picture_under_every_name_of_its_size(self):
        self.path("a.ico", make_ico((16, PNG_16), (48, PNG_16), (0, PNG_256)))

        result = self.extract("--icns", self.path("a.icns"))

        self.assertEqual(result.returncode, 0, result.stderr)
        icns = self.path("a.icns").read_bytes()
        self.assertEqual(
            icns,
            b"icns" + (8 + 24 + 2 * (8 + len(PNG_256))).to_bytes(4, "big")
            + b"icp4\x00\x00\x00\x18" + PNG_16
            + b"ic08" + (8 + len(PNG_256)).to_bytes(4, "big") + PNG_256
            + b"ic13" + (8 + len(PNG_256)).to_bytes(4, "big") + PNG_256,
        )

    def test_a_truncated_icon_is_refused(self):
        whole = make_ico((16, PNG_16), (0, PNG_256))
        for length in range(0, len(whole), 7):
            self.path("a.ico", whole[:length])

            result = self.extract("--icns", self.path("a.icns"))

            self.assertEqual(result.returncode, 1, f"cut to {length} bytes")
            self.assertRegex(result.stderr, "not an icon file|cut off")


class DfuUtil(InDirectory):
    HELP = "  -s --dfuse-address address<:...>\n\t\tleave\t\tLeave DFU mode\n"

    def check(self, script):
        tool = self.path("dfu-util", b"#!/bin/sh\n" + script.encode())
        tool.chmod(0o755)
        return self.call(
            CMAKE, "-D", f"FW_DFU_UTIL={tool}", "-P", PACKAGING / "check_dfu_util.cmake"
        )

    def test_a_tool_that_lists_fast_among_its_modifiers_is_accepted(self):
        result = self.check(f"cat <<'END'\n{self.HELP}\t\tfast\t\tIgnore the waits\nEND\n")

        self.assertEqual(result.returncode, 0, result.stderr)

    def test_a_tool_that_does_not_list_fast_is_refused_and_named(self):
        result = self.check(f"cat <<'END'\nfaster than ever\n{self.HELP}\t\tfaster\nEND\n")

        self.assertEqual(result.returncode, 1)
        self.assertIn(f"{self.path('dfu-util')} does not accept", " ".join(result.stderr.split()))

    def test_a_tool_that_fails_or_is_missing_is_refused(self):
        self.assertEqual(self.check("exit 3").returncode, 1)
        missing = ("-D", "FW_DFU_UTIL=/nowhere/dfu-util", "-P", PACKAGING / "check_dfu_util.cmake")
        self.assertEqual(self.call(CMAKE, *missing).returncode, 1)


MACDEPLOYQT = """#!/bin/sh
echo "$@" >>"$CALLED"; find "$1" -type f >>"$CALLED"
for file in ${COPIED-QtCore.framework/QtCore libqcocoa.dylib libqoffscreen.dylib}; do
    case $file in Qt*) folder=Frameworks ;; *) folder=PlugIns/platforms ;; esac
    install -D /dev/null "$1/Contents/$folder/$file"
done
"""
FAST = "printf '\\t\\tfast\\n'"
# Copies what would be in the disk image.
CPACK = """
sed -n 's/^set(\\(CPACK_[A-Z_]*\\) \\[==\\[\\(.*\\)\\]==\\])$/\\1=\\2/p' "$2" >"$CALLED"
work=$(dirname "$2")
cp -R "$work/stage" "$work/packages/image.dmg"
"""


class OnAMac(InDirectory):
    """The rules for macOS, with dummy programs and stand-ins for macdeployqt and cpack."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.project = Path(folder.name)
        (cls.project / "qt").mkdir()
        (cls.project / "qt/macdeployqt").write_text(MACDEPLOYQT)
        (cls.project / "qt/dfu-util").write_text(f"#!/bin/sh\n{FAST}\n")
        for name in ("macdeployqt", "dfu-util"):
            (cls.project / "qt" / name).chmod(0o755)
        (cls.project / "main.cpp").write_text("int main() {}\n")
        (cls.project / "CMakeLists.txt").write_text(f"""
cmake_minimum_required(VERSION 3.25)
project(stand_in VERSION 1.0.0 LANGUAGES CXX)
set(PROJECT_SOURCE_DIR "{PACKAGING.parent}")
set(APPLE TRUE)
foreach(program firmware_updater bundle_check make_otp session_view)
  add_executable(${{program}} main.cpp)
endforeach()
add_executable(Qt6::qmake IMPORTED)
set_target_properties(Qt6::qmake PROPERTIES IMPORTED_LOCATION "${{CMAKE_SOURCE_DIR}}/qt/qmake")
add_subdirectory("{PACKAGING}" packaging)
""")
        test = cls()
        test.succeed(CMAKE, "-G", "Ninja", "-S", cls.project, "-B", cls.project / "build",
                     "-D", f"FW_DFU_UTIL={cls.project / 'qt/dfu-util'}",
                     "-D", "CMAKE_OSX_DEPLOYMENT_TARGET=12.0")  # fmt: skip
        test.succeed(CMAKE, "--build", cls.project / "build")
        os.environ["CALLED"] = str(cls.project / "called")
        test.succeed(CMAKE, "--install", cls.project / "build", "--prefix", cls.project / "installed")
        cls.tools = cls.project / "installed/kelvane-vendor-tools"
        cls.called = (cls.project / "called").read_text().splitlines()

    def setUp(self):
        super().setUp()
        for name in ("product", "Driver.app/Contents/MacOS"):
            self.path(name).mkdir(parents=True)
        self.path("product/config.ini", b"firmware_filename=a.bin\n")
        self.path("product/AppIcon.ico", make_ico((16, PNG_16)))
        self.path("product/product.cmake", PRODUCT.encode())
        self.program("Driver.app/Contents/MacOS/CP210xVCPDriver", "")
        self.path("bin").mkdir()
        self.program("bin/cpack", CPACK)
        os.environ["CALLED"] = str(self.path("called"))
        self.addCleanup(os.environ.update, PATH=os.environ["PATH"])
        os.environ["PATH"] = f"{self.path('bin')}:{os.environ['PATH']}"

    def make(self, *options):
        return self.call(self.tools / "packaging/make_product_package", "--output", self.path("made"), *options,
                         self.path("product"))  # fmt: skip

    def make_app(self, *options):
        """Returns the application in the disk image, and its files without those that macdeployqt copied."""
        result = self.make(*options)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, f"{self.path('made')}/image.dmg\n")
        app = self.path("made/image.dmg/Nordvik Tide Updater.app")
        return app, list_files(app)

    def test_the_vendor_tools_are_one_folder_with_qt_in_both_applications(self):
        self.assertEqual([path.name for path in (self.project / "installed").iterdir()], ["kelvane-vendor-tools"])
        self.assertEqual(list_files(self.tools / "bundle_check.app"), {
            "Contents/Info.plist",
            "Contents/MacOS/bundle_check", "Contents/MacOS/make_otp", "Contents/MacOS/session_view",
        })  # fmt: skip
        self.assertEqual(list_files(self.tools / "firmware_updater.app"), {
            "Contents/Info.plist", "Contents/MacOS/firmware_updater", "Contents/MacOS/dfu-util",
        })  # fmt: skip
        updater, checker = (line for line in self.called if " -always-overwrite" in line)
        app = self.tools / "firmware_updater.app"
        self.assertEqual(updater, f"{app} -always-overwrite -executable={app}/Contents/MacOS/dfu-util")
        app = self.tools / "bundle_check.app"
        self.assertEqual(checker, f"{app} -always-overwrite -executable={app}/Contents/MacOS/make_otp "
                                  f"-executable={app}/Contents/MacOS/session_view")  # fmt: skip
        for file in ("packaging/macos/sign_and_notarise.sh", "packaging/dfu-util-launcher"):
            self.assertTrue(os.access(self.tools / file, os.X_OK), file)
        for file in ("docs/for-vendors/README.md", "for_firmware/unit_side.h", "resources/uart/product.cmake"):
            self.assertTrue((self.tools / file).is_file(), file)
        self.assertFalse((self.tools / "packaging/linux").exists())
        self.assertEqual(self.read_cpack(self.project / "build/CPackConfig.cmake"),
                         "kelvane-vendor-tools-1.0.0 Kelvane vendor tools")  # fmt: skip

    def read_cpack(self, config):
        self.path("print.cmake", f"""include("{config}")
message("${{CPACK_PACKAGE_FILE_NAME}} ${{CPACK_DMG_VOLUME_NAME}}")""".encode())
        return self.succeed(CMAKE, "-P", self.path("print.cmake")).stderr.strip()

    def test_a_macdeployqt_that_copies_nothing_is_noticed(self):
        self.addCleanup(os.environ.pop, "COPIED")
        for copied in ("libqcocoa.dylib", "QtCore.framework/QtCore"):
            os.environ["COPIED"] = copied

            result = self.call(CMAKE, "--install", self.project / "build", "--prefix", self.path(copied))

            self.assertNotEqual(result.returncode, 0, f"only {copied} was copied")
            self.assertIn("macdeployqt did not copy", result.stderr)

    def test_every_file_is_where_the_program_looks_for_it(self):
        app, files = self.make_app("--driver", self.path("Driver.app"))

        self.assertEqual(files, {
            "Contents/Info.plist",
            "Contents/MacOS/Nordvik Tide Updater",
            "Contents/MacOS/dfu-util",
            "Contents/Resources/AppIcon.icns",
            "Contents/Resources/AppIcon.ico",
            "Contents/Resources/config.ini",
            "Contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver",
        })  # fmt: skip
        for name in ("Contents/MacOS/Nordvik Tide Updater", "Contents/MacOS/dfu-util",
                     "Contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"):  # fmt: skip
            self.assertTrue(os.access(app / name, os.X_OK), name)
        self.assertTrue((app / "Contents/Frameworks/QtCore.framework/QtCore").is_file())
        values = self.path("called").read_text().splitlines()
        for line in ("CPACK_GENERATOR=DragNDrop", "CPACK_PACKAGE_FILE_NAME=nordvik-tide-updater-3.1.0",
                     "CPACK_DMG_VOLUME_NAME=Nordvik Tide Updater"):  # fmt: skip
            self.assertIn(line, values)

    def test_a_driver_application_in_the_product_is_copied_unchanged(self):
        program = "CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"
        self.path("Driver.app").rename(self.path("product/CP210xVCPDriver.app"))
        self.path("product/CP210xVCPDriver.app/Contents/Current").symlink_to("MacOS")

        app, _ = self.make_app()

        self.assertEqual((app / "Contents/Resources" / program).stat().st_mode & 0o777, 0o755)
        self.assertTrue((app / "Contents/Resources/CP210xVCPDriver.app/Contents/Current").is_symlink())

    def test_a_driver_application_or_dfu_util_that_is_given_replaces_the_one_that_is_there(self):
        self.path("product/CP210xVCPDriver.app/Contents/MacOS").mkdir(parents=True)
        self.program("product/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver", "the product's")
        self.program("Driver.app/Contents/MacOS/CP210xVCPDriver", "the given one")
        tool = self.program("dfu-util", f"{FAST}\n# the given one")

        app, _ = self.make_app("--driver", self.path("Driver.app"), "--dfu-util", tool)

        program = app / "Contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"
        self.assertIn("the given one", program.read_text())
        self.assertIn("the given one", (app / "Contents/MacOS/dfu-util").read_text())

    def test_info_plist_describes_the_bundle(self):
        app, files = self.make_app()

        plist = plistlib.loads((app / "Contents/Info.plist").read_bytes())
        self.assertEqual(plist["CFBundleIdentifier"], "com.nordvik.tideupdater")
        self.assertEqual(plist["CFBundlePackageType"], "APPL")
        self.assertIn("Contents/Resources/" + plist["CFBundleIconFile"], files)
        self.assertIn("Contents/MacOS/" + plist["CFBundleExecutable"], files)
        self.assertEqual(plist["CFBundleName"], "Nordvik Tide Updater")
        self.assertEqual(plist["CFBundleShortVersionString"], "3.1.0")
        self.assertEqual(plist["CFBundleVersion"], "3.1.0")
        self.assertEqual(plist["LSMinimumSystemVersion"], "12.0")
        self.assertIs(plist["NSHighResolutionCapable"], True)

    def test_a_signature_of_the_program_alone_is_not_copied_but_those_inside_are(self):
        for folder in ("Contents", "Contents/Frameworks/QtCore.framework"):
            signature = self.tools / "firmware_updater.app" / folder / "_CodeSignature"
            signature.mkdir()
            self.addCleanup(shutil.rmtree, signature)

        app, _ = self.make_app()

        self.assertFalse((app / "Contents/_CodeSignature").exists())
        self.assertTrue((app / "Contents/Frameworks/QtCore.framework/_CodeSignature").exists())

    def test_a_folder_that_is_not_the_driver_application_is_refused(self):
        result = self.make("--driver", self.path("product"))

        self.assertEqual(result.returncode, 1)
        self.assertIn("is not the driver application", " ".join(result.stderr.split()))

    def test_what_bundle_check_refuses_is_not_packed(self):
        check = self.tools / "bundle_check.app/Contents/MacOS/bundle_check"
        check.rename(self.path("aside"))
        self.addCleanup(self.path("aside").replace, check)
        check.write_text('#!/bin/sh\necho "checked: $*"\nexit 2\n')
        check.chmod(0o755)

        result = self.make()

        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, "checked: --package-version 3.1.0 --for-customers .*Nordvik Tide Updater.app\n")
        self.assertEqual(list(self.path("made").iterdir()), [])


def list_files(app):
    files = {str(file.relative_to(app)) for file in app.rglob("*") if file.is_file()}
    return {file for file in files if not file.startswith(("Contents/Frameworks", "Contents/PlugIns"))}


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
