#!/usr/bin/env python3
"""Tests what the scripts and install rules in packaging/ write into a package.

    files_test.py CMAKE
"""

import os
import plistlib
import struct
import sys
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
        self.assertIn(f"FW_DFU_UTIL: {self.path('dfu-util')} does not accept", " ".join(result.stderr.split()))

    def test_a_tool_that_fails_or_is_missing_is_refused(self):
        self.assertEqual(self.check("exit 3").returncode, 1)
        missing = ("-D", "FW_DFU_UTIL=/nowhere/dfu-util", "-P", PACKAGING / "check_dfu_util.cmake")
        self.assertEqual(self.call(CMAKE, *missing).returncode, 1)


class MacBundle(InDirectory):
    """The install rules for macOS, with a dummy program and a stand-in for macdeployqt."""

    PROJECT = f"""
cmake_minimum_required(VERSION 3.25)
project(stand_in VERSION 1.0.0 LANGUAGES CXX)
set(APPLE TRUE)
add_executable(firmware_updater main.cpp)
add_executable(bundle_check main.cpp)
add_executable(Qt6::qmake IMPORTED)
set_target_properties(Qt6::qmake PROPERTIES IMPORTED_LOCATION "${{CMAKE_SOURCE_DIR}}/qt/qmake")
add_subdirectory("{PACKAGING}" packaging)
"""

    def setUp(self):
        super().setUp()
        for name in ("qt", "product", "Driver.app/Contents/MacOS"):
            self.path(name).mkdir(parents=True)
        self.path("CMakeLists.txt", self.PROJECT.encode())
        self.path("main.cpp", b"int main() {}\n")
        self.path("product/config.ini", b"firmware_filename=a.bin\n")
        self.path("product/AppIcon.ico", make_ico((16, PNG_16)))
        self.path("product/product.cmake", PRODUCT.encode())
        self.macdeployqt("QtCore.framework/QtCore libqcocoa.dylib libqoffscreen.dylib")
        self.program("dfu-util", "printf '\\t\\tfast\\n'")
        self.program("Driver.app/Contents/MacOS/CP210xVCPDriver", "")

    def macdeployqt(self, copied):
        self.program("qt/macdeployqt", f"""
            echo "$@" >>"$CALLED"; find "$1" -type f >>"$CALLED"
            for file in {copied}; do
                case $file in Qt*) folder=Frameworks ;; *) folder=PlugIns/platforms ;; esac
                install -D /dev/null "$1/Contents/$folder/$file"
            done""")

    def configure(self, *options):
        return self.call(
            CMAKE, "-G", "Ninja", "-S", self.directory, "-B", self.path("build"),
            "-D", f"FW_PRODUCT_RESOURCES={self.path('product')}", *options
        )  # fmt: skip

    def build(self):
        os.environ["CALLED"] = str(self.path("called"))
        self.succeed(CMAKE, "--build", self.path("build"))

    def install(self, name="Nordvik Tide Updater.app", *options):
        """Returns the installed application and its files, without those that macdeployqt copies."""
        self.build()
        self.succeed(CMAKE, "--install", self.path("build"), "--prefix", self.path("installed"), *options)
        app = self.path("installed") / name
        files = {str(file.relative_to(app)) for file in app.rglob("*") if file.is_file()}
        return app, {file for file in files if not file.startswith(("Contents/Frameworks", "Contents/PlugIns"))}

    def test_every_file_is_where_the_program_looks_for_it(self):
        result = self.configure(
            "-D", f"FW_DFU_UTIL={self.path('dfu-util')}", "-D", f"FW_DRIVER_APP={self.path('Driver.app')}"
        )
        self.assertEqual(result.returncode, 0, result.stderr)

        app, files = self.install()

        self.assertEqual(files, {
            "Contents/Info.plist",
            "Contents/MacOS/Nordvik Tide Updater",
            "Contents/MacOS/dfu-util",
            "Contents/Resources/AppIcon.icns",
            "Contents/Resources/AppIcon.ico",
            "Contents/Resources/config.ini",
            "Contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver",
        })  # fmt: skip
        for name in ("Contents/MacOS/dfu-util", "Contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"):
            self.assertTrue(os.access(app / name, os.X_OK), name)
        # Libraries are copied for both programs, and before the driver application is installed.
        called, *present = self.path("called").read_text().splitlines()
        self.assertEqual(called, f"{app} -always-overwrite -executable={app}/Contents/MacOS/dfu-util")
        self.assertEqual(
            {str(Path(file).relative_to(app)) for file in present},
            {"Contents/Info.plist", "Contents/MacOS/Nordvik Tide Updater", "Contents/MacOS/dfu-util"},
        )

    def test_a_driver_application_in_the_product_is_copied_unchanged(self):
        program = "CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"
        self.path("Driver.app").rename(self.path("product/CP210xVCPDriver.app"))
        self.path("product/CP210xVCPDriver.app/Contents/Current").symlink_to("MacOS")

        result = self.configure()

        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertNotIn("FW_DRIVER_APP", result.stderr)
        app, _ = self.install()
        self.assertEqual((app / "Contents/Resources" / program).stat().st_mode & 0o777, 0o755)
        self.assertTrue((app / "Contents/Resources/CP210xVCPDriver.app/Contents/Current").is_symlink())
        self.assertNotIn("CP210xVCPDriver", self.path("called").read_text(), "was there before macdeployqt ran")

    def test_a_driver_application_that_is_set_explicitly_replaces_the_one_in_the_product(self):
        self.path("product/CP210xVCPDriver.app/Contents/MacOS").mkdir(parents=True)
        self.program("product/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver", "the product's")
        self.program("Driver.app/Contents/MacOS/CP210xVCPDriver", "the named one")

        self.configure("-D", f"FW_DRIVER_APP={self.path('Driver.app')}")

        app, _ = self.install()
        program = app / "Contents/Resources/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"
        self.assertIn("the named one", program.read_text())

    def test_info_plist_describes_the_bundle(self):
        self.configure("-D", "CMAKE_OSX_DEPLOYMENT_TARGET=12.0")

        app, files = self.install()

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

    def test_a_bundle_without_tool_and_driver_is_built_with_a_warning(self):
        result = self.configure()

        self.assertEqual(result.returncode, 0, result.stderr)
        for part in ("FW_DFU_UTIL", "FW_DRIVER_APP"):
            self.assertIn(f"{part} is not set: do not ship this bundle", " ".join(result.stderr.split()))
        _, files = self.install()
        self.assertNotIn("Contents/MacOS/dfu-util", files)

    def test_a_macdeployqt_that_copies_nothing_is_noticed(self):
        self.configure()
        self.build()
        for copied in ("libqcocoa.dylib", "QtCore.framework/QtCore"):
            self.macdeployqt(copied)

            result = self.call(CMAKE, "--install", self.path("build"), "--prefix", self.path(copied))

            self.assertNotEqual(result.returncode, 0, f"only {copied} was copied")
            self.assertIn("macdeployqt did not copy", result.stderr)

    def test_bundle_check_is_an_application_in_a_disk_image_of_its_own(self):
        self.configure()

        app, files = self.install("bundle_check.app", "--component", "bundle_check")

        self.assertEqual(files, {"Contents/Info.plist", "Contents/MacOS/bundle_check"})
        called = self.path("called").read_text().splitlines()[0]
        self.assertTrue(called.startswith(f"{app} -always-overwrite"), called)
        self.assertEqual([path.name for path in self.path("installed").iterdir()], ["bundle_check.app"])
        names = []
        for config in ("CPackConfig.cmake", "CPackBundleCheck.cmake"):
            self.path("print.cmake", f"""include("{self.path('build') / config}")
message("${{CPACK_PACKAGE_FILE_NAME}} ${{CPACK_DMG_VOLUME_NAME}}")""".encode())
            names.append(self.succeed(CMAKE, "-P", self.path("print.cmake")).stderr.strip())
        self.assertEqual(names, ["nordvik-tide-updater-3.1.0 Nordvik Tide Updater",
                                 "kelvane-bundle-check-1.0.0 Kelvane bundle_check"])

    def test_a_folder_that_is_not_the_driver_application_or_not_a_product_is_refused(self):
        for option, folder, reason in (
            ("FW_DRIVER_APP", "product", "is not the driver application"),
            ("FW_PRODUCT_RESOURCES", "qt", "FW_PRODUCT_RESOURCES: there is no"),
        ):
            result = self.configure("-D", f"{option}={self.path(folder)}")

            self.assertEqual(result.returncode, 1)
            self.assertIn(reason, " ".join(result.stderr.split()))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
