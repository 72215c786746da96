#!/usr/bin/env python3
"""Tests what a package takes from its product, and which products are refused: real Debian packages of
the demonstrations and of invented products, made with the vendor tools, without a compiler.

    product_test.py BUILD_DIRECTORY
"""

import os
import re
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

from in_directory import PACKAGING, InDirectory

BUILD = Path(sys.argv[1])
USR = BUILD / "packaging/test/vendor_tools/usr"
BUNDLES = {"uart": "bundle", "usb": "bundle-usb", "mcuboot": "bundle-mcuboot"}
TIDE = {
    "TITLE": "Nordvik Tide Updater",
    "VERSION": "3.1.0",
    "PACKAGE": "nordvik-tide-updater",
    "ID": "com.nordvik.tideupdater",
    "VENDOR": "Nordvik",
    "CONTACT": "Nordvik Support <support@nordvik.example>",
    "HOMEPAGE": "https://nordvik.example",
}
WAVE = TIDE | {"TITLE": "Wave Updater", "PACKAGE": "wave-updater", "ID": "com.nordvik.wave"}
BUILD_TOOLS = re.compile(r"(.*[^a-z])?(gcc|g\+\+|cc|c\+\+|cpp|c\d\d|clang|clang\+\+|ld|mold|make|gmake|ninja|ccache)(-[\d.]+)?")


def setUpModule():
    """PATH has every program of this machine, but no compiler and no build program."""
    folder = tempfile.TemporaryDirectory()
    unittest.addModuleCleanup(folder.cleanup)
    programs = Path(folder.name, "programs")
    programs.mkdir()
    for name in os.environ["PATH"].split(":"):
        for program in Path(name).iterdir() if Path(name).is_dir() else ():
            if not BUILD_TOOLS.fullmatch(program.name) and not (programs / program.name).is_symlink():
                (programs / program.name).symlink_to(program)
    for tool in ("c++", "g++", "cc", "gcc", "clang", "clang++-19", "make", "ninja"):
        assert not shutil.which(tool, path=programs), tool
    # It takes longer than all the rest, so only one test uses the real one.
    Path(folder.name, "dpkg-shlibdeps").write_text("#!/bin/sh\necho shlibs:Depends=libc6\n")
    Path(folder.name, "dpkg-shlibdeps").chmod(0o755)
    os.environ["PATH"] = f"{folder.name}:{programs}"


class Product(InDirectory):
    def setUp(self):
        super().setUp()
        shutil.copytree(BUILD / "bundle/Contents/Resources", self.path("product"))
        self.set("fw_version", "3.1.0")
        self.describe(TIDE)

    def set(self, key, value):
        """Sets a value in config.ini."""
        config = self.path("product/config.ini")
        lines = [line for line in config.read_text().splitlines() if not line.startswith(key + "=")]
        config.write_text("\n".join([*lines, f"{key}={value}", ""]))

    def describe(self, values, further=""):
        """Writes product.cmake."""
        lines = [f'set(FW_PRODUCT_{name} "{value}")\n' for name, value in values.items()]
        self.path("product/product.cmake", ("".join(lines) + further).encode())

    def make(self, *options, folder=None):
        shutil.rmtree(self.path("packages"), ignore_errors=True)
        return self.call(USR / "bin/make_product_package", "--output", self.path("packages"), *options,
                         folder or self.path("product"))  # fmt: skip

    def package(self, *options, folder=None):
        """Returns the only package that is made."""
        result = self.make(*options, folder=folder)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        package, = self.path("packages").iterdir()
        self.assertEqual(result.stdout, f"{package}\n")
        return package

    def refusal(self, *options):
        """Returns what is printed when no package is made."""
        result = self.make(*options)
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertEqual(list(self.path("packages").iterdir()), [])
        self.assertNotRegex(result.stderr, "CMake|Call Stack")
        return " ".join((result.stdout + result.stderr).split())

    def field(self, package, name):
        return self.succeed("dpkg-deb", "--field", package, name).stdout.strip()

    def files(self, package):
        listing = self.succeed("dpkg-deb", "--contents", package).stdout.splitlines()
        return {line.split()[5] for line in listing if not line.startswith("d")}

    def unpack(self, package):
        root = self.path("unpacked")
        shutil.rmtree(root, ignore_errors=True)
        self.succeed("dpkg-deb", "--extract", package, root)
        return root


class Packages(Product):
    def test_a_package_carries_name_version_and_identifier_of_its_product(self):
        package = self.package()

        self.assertRegex(package.name, r"^nordvik-tide-updater_3\.1\.0_[a-z0-9]+\.deb$")
        self.assertEqual(self.field(package, "Package"), "nordvik-tide-updater")
        self.assertEqual(self.field(package, "Version"), "3.1.0")
        self.assertEqual(self.field(package, "Maintainer"), TIDE["CONTACT"])
        root = self.unpack(package)
        entry = (root / "usr/share/applications/nordvik-tide-updater.desktop").read_text()
        for line in ("Name=Nordvik Tide Updater", "Exec=nordvik-tide-updater", "Icon=nordvik-tide-updater"):
            self.assertIn(line + "\n", entry)
        self.assertTrue((root / "usr/share/icons/hicolor/48x48/apps/nordvik-tide-updater.png").is_file())
        self.assertIn("ea60", (root / "usr/lib/udev/rules.d/72-nordvik-tide-updater.rules").read_text())
        # What describes the package is not shipped.
        self.assertEqual(list(root.rglob("product.cmake")), [])
        for path in root.rglob("*"):
            if path.is_file() and not path.is_symlink() and not path.is_relative_to(root / "usr/lib/nordvik-tide-updater"):
                self.assertFalse(b"elvane" in path.read_bytes(), path)

    def test_the_dependencies_of_the_program_are_found_without_a_compiler(self):
        path = os.environ["PATH"]
        self.addCleanup(os.environ.update, PATH=path)
        os.environ["PATH"] = path.split(":")[1]

        self.assertIn("libqt6widgets6", self.field(self.package(), "Depends"))

    def test_two_products_have_no_file_in_common_and_the_next_firmware_a_higher_version(self):
        tide = self.files(self.package())
        self.describe(WAVE | {"VERSION": "3.10.0"})
        self.set("fw_version", "3.10.0")
        package = self.package()

        self.assertEqual(tide & self.files(package), set())
        self.succeed("dpkg", "--compare-versions", self.field(package, "Version"), "gt", "3.1.0")

    def test_each_demonstration_becomes_a_package_that_holds_its_files_and_the_program(self):
        for transport, bundle in BUNDLES.items():
            product = BUILD / bundle / "Contents/Resources"
            package = self.package(folder=BUILD / bundle)

            contents = self.unpack(package) / "usr/lib" / self.field(package, "Package") / "Contents"
            self.assertEqual({file.name: file.read_bytes() for file in (contents / "Resources").iterdir()},
                             {file.name: file.read_bytes() for file in product.iterdir()
                              if file.name != "product.cmake"}, transport)  # fmt: skip
            self.assertEqual((contents / "MacOS/firmware_updater").read_bytes(),
                             (USR / "lib/kelvane-vendor-tools/firmware_updater").read_bytes())
            self.assertEqual((contents / "MacOS/dfu-util").read_bytes(), (PACKAGING / "dfu-util-launcher").read_bytes())

    def test_a_text_that_is_cut_off_a_wrong_kind_of_file_and_service_firmware_are_refused(self):
        image = self.path("product/kelvane_lumen.bin")
        raw = image.read_bytes()
        for key, value, content, reason in (
            ("fw_version", "2026.11.21", raw, "'2026.11.21' would be shown as"),
            ("fw_version", "3.1.0", b"\x7fELF" + raw, "ELF"),
            ("fw_target_type", "service", raw, "'service' is not firmware for customers"),
        ):
            self.set(key, value)
            image.write_bytes(content)
            version = "2026.11.21" if value == "2026.11.21" else "3.1.0"

            self.assertIn(reason, self.refusal("-D", f"FW_PRODUCT_VERSION={version}"))

    def test_a_package_for_benches_has_another_name_and_may_have_service_firmware_but_no_error(self):
        self.set("fw_target_type", "service")
        package = self.package("--bench")

        self.assertEqual(self.field(package, "Package"), "nordvik-tide-updater-bench")
        self.assertIn("benches", self.field(package, "Description"))
        self.describe(TIDE, "set(FW_BENCH_PACKAGE ON)\n")
        self.assertIn("'service' is not firmware for customers", self.refusal())

        self.set("otp_size", "none")
        self.assertIn("otp_size", self.refusal("--bench"))

    def test_a_link_to_a_file_is_refused_and_a_link_to_the_folder_is_followed(self):
        image = self.path("product/kelvane_lumen.bin")
        self.path("linked").symlink_to(self.path("product"))
        self.assertIn("./usr/lib/nordvik-tide-updater/Contents/Resources/kelvane_lumen.bin",
                      self.files(self.package(folder=self.path("linked"))))  # fmt: skip

        image.rename(self.path("lumen.bin"))
        image.symlink_to(self.path("lumen.bin"))
        self.assertIn("these are symbolic links", self.refusal())
        self.assertIn("Resources/kelvane_lumen.bin", self.refusal())

    def test_a_package_with_another_version_than_the_firmware_is_refused(self):
        self.describe(TIDE | {"VERSION": "3.0.9"})

        self.assertIn("'3.1.0' is not the version of the package, '3.0.9'", self.refusal())

    def test_a_licence_text_that_the_copyright_file_names_must_be_in_the_package(self):
        licence = """set(FW_PRODUCT_COPYRIGHT "Files: @resources@/*.otf
Copyright: Somebody
License: OFL-1.1
 The full text is in /@resources@/KelvaneSans-LICENCE.txt.")"""
        self.describe(TIDE, licence)
        root = self.unpack(self.package())
        copyright = (root / "usr/share/doc/nordvik-tide-updater/copyright").read_text()
        self.assertIn("usr/lib/nordvik-tide-updater/Contents/Resources/KelvaneSans-LICENCE.txt", copyright)

        self.path("product/KelvaneSans-LICENCE.txt").unlink()

        self.assertIn("KelvaneSans-LICENCE.txt, but the package does not contain it", self.refusal())


    def test_a_dfu_util_that_is_given_replaces_the_launcher_if_it_knows_fast(self):
        tool = self.program("dfu-util", "printf '\\t\\tfast\\n'")
        launcher = "usr/lib/nordvik-tide-updater/Contents/MacOS/dfu-util"

        root = self.unpack(self.package("--dfu-util", tool))
        self.assertEqual((root / launcher).read_bytes(), tool.read_bytes())

        self.program("dfu-util", "printf '\\t\\tfaster\\n'")
        self.assertIn(f"{tool} does not accept", self.refusal("--dfu-util", tool))

    def test_the_size_of_the_slot_is_passed_to_bundle_check_if_it_is_set(self):
        for size, options in (("", "--package-version 3.1.0 --for-customers"),
                              ("0x38000", "--package-version 3.1.0 --for-customers --slot-size 0x38000")):
            check = self.program("bundle_check", 'echo "options: $*"; exit 2')

            result = self.call("cmake", "-D", f"FW_BUNDLE_CHECK={check}", "-D", "bundle=BUNDLE",
                               "-D", "FW_PRODUCT_VERSION=3.1.0", "-D", f"FW_PRODUCT_SLOT_SIZE={size}",
                               "-P", PACKAGING / "check_bundle.cmake")  # fmt: skip

            self.assertNotEqual(result.returncode, 0)
            self.assertIn(f"options: {options} BUNDLE\n", result.stderr)

    def test_an_image_that_is_larger_than_the_slot_is_refused(self):
        shutil.rmtree(self.path("product"))
        shutil.copytree(BUILD / "bundle-mcuboot/Contents/Resources", self.path("product"))

        self.assertIn("more than the slot of 229376", self.refusal("-D", "FW_PRODUCT_SLOT_SIZE=0x38000"))
        self.package("-D", "FW_PRODUCT_SLOT_SIZE=0x70000")

    def test_wrong_arguments_are_refused_before_anything_is_made(self):
        for arguments, reason in (((), "no folder"), (("a", "b"), "only one folder"), (("--faster",), "--faster"),
                                  (("a", "--output"), "needs a value"), (("a",), "no config.ini"),
                                  ((self.path("product"), "-D", "FW_PRODUCT_SLOT=1"), "not FW_PRODUCT_SLOT=1"),
                                  ((self.path("product"), "-D", "FW_PRODUCT_TITLE"), "= and the value"),
                                  ((self.path("product"), "--output", "a;b"), "semicolon")):
            result = self.call(USR / "bin/make_product_package", *arguments)

            self.assertEqual(result.returncode, 2, arguments)
            self.assertIn(reason, result.stderr)


class Values(Product):
    def test_values_that_are_missing_or_cannot_be_used_are_refused(self):
        for name, value in (
            ("TITLE", ""), ("TITLE", 'a"b'), ("TITLE", "a/b"), ("TITLE", "a "), ("TITLE", "a [b]"),
            ("VERSION", "3"), ("VERSION", "v3.1"), ("VERSION", "3.1-beta"), ("VERSION", "3..1"),
            ("PACKAGE", "Tide"), ("PACKAGE", "tide updater"), ("ID", "tide"), ("ID", "com.tide/x"),
            ("VENDOR", "a<b"), ("CONTACT", "support@nordvik.example"), ("HOMEPAGE", "nordvik.example"),
            ("SLOT_SIZE", "0x"), ("SLOT_SIZE", "0"), ("SLOT_SIZE", "448K"),
        ):  # fmt: skip
            self.describe(TIDE | {name: value.replace('"', '\\"')})

            result = self.values()

            self.assertNotEqual(result.returncode, 0, f"{name}={value}")
            self.assertIn(f"FW_PRODUCT_{name} is", result.stderr)
            self.assertIn("product.cmake", result.stderr)

    def test_a_value_on_the_command_line_takes_precedence(self):
        self.describe({})
        given = [option for name, value in TIDE.items() for option in ("-D", f"FW_PRODUCT_{name}={value}")]
        self.assertEqual(self.values(*given).returncode, 0)

        self.describe(TIDE | {"VERSION": "1.0"})

        self.assertIn("version: 3.1.0", self.values(*given).stderr)

    def values(self, *given):
        script = self.path("values.cmake", f"""include("{PACKAGING}/product_values.cmake")
message("version: ${{FW_PRODUCT_VERSION}}")""".encode())
        return self.call("cmake", "-D", f"FW_PRODUCT_RESOURCES={self.path('product')}", *given, "-P", script)


if __name__ == "__main__":
    if not USR.is_dir():
        print("skipped: the package of the vendor tools was not built")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
