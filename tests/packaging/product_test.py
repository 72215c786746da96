#!/usr/bin/env python3
"""Tests what a package takes from its product, and which products are refused: real Debian packages of
invented products, with a dummy program and the real bundle_check.

    product_test.py CMAKE BUNDLE_CHECK RESOURCES

RESOURCES is the folder of a clean product for customers.
"""

import shutil
import sys
import unittest
from pathlib import Path

from in_directory import PACKAGING, InDirectory

CMAKE, BUNDLE_CHECK, RESOURCES = sys.argv[1:4]
CPACK = Path(CMAKE).with_name("cpack")

PROJECT = f"""
cmake_minimum_required(VERSION 3.25)
project(stand_in VERSION 1.0.0 LANGUAGES CXX)
add_executable(firmware_updater main.cpp)
add_executable(bundle_check main.cpp)
add_subdirectory("{PACKAGING}" packaging)
"""
# The dummy of both programs runs bundle_check.
MAIN = f"""
#include <unistd.h>
int main(int, char** arguments) {{ return execv("{BUNDLE_CHECK}", arguments); }}
"""
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


class Product(InDirectory):
    def setUp(self):
        super().setUp()
        self.path("CMakeLists.txt", PROJECT.encode())
        self.path("main.cpp", MAIN.encode())
        shutil.copytree(RESOURCES, self.path("product"))
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

    def configure(self, *options):
        return self.call(
            CMAKE, "-G", "Ninja", "-S", self.directory, "-B", self.path("build"),
            "-D", f"FW_PRODUCT_RESOURCES={self.path('product')}", *options
        )  # fmt: skip

    def build(self, *options):
        result = self.configure(*options)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.succeed(CMAKE, "--build", self.path("build"))

    def cpack(self, config="CPackConfig.cmake"):
        shutil.rmtree(self.path("packages"), ignore_errors=True)
        return self.call(CPACK, "--config", self.path("build") / config, "-B", self.path("packages"))

    def package(self, config="CPackConfig.cmake"):
        """Returns the only package that cpack makes."""
        result = self.cpack(config)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        package, = self.path("packages").glob("*.deb")
        return package

    def refusal(self):
        """Returns what is printed when cpack makes no package."""
        result = self.cpack()
        self.assertNotEqual(result.returncode, 0, result.stdout)
        self.assertEqual(list(self.path("packages").glob("*.deb")), [])
        return " ".join((result.stdout + result.stderr).split())

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
        self.build()

        package = self.package()

        self.assertRegex(package.name, r"^nordvik-tide-updater_3\.1\.0_[a-z0-9]+\.deb$")
        field = lambda name: self.succeed("dpkg-deb", "--field", package, name).stdout.strip()  # noqa: E731
        self.assertEqual(field("Package"), "nordvik-tide-updater")
        self.assertEqual(field("Version"), "3.1.0")
        self.assertEqual(field("Maintainer"), TIDE["CONTACT"])
        root = self.unpack(package)
        entry = (root / "usr/share/applications/com.nordvik.tideupdater.desktop").read_text()
        for line in ("Name=Nordvik Tide Updater", "Exec=nordvik-tide-updater", "Icon=nordvik-tide-updater"):
            self.assertIn(line + "\n", entry)
        self.assertTrue((root / "usr/share/icons/hicolor/48x48/apps/nordvik-tide-updater.png").is_file())
        self.assertIn("ea60", (root / "usr/lib/udev/rules.d/72-nordvik-tide-updater.rules").read_text())
        # What describes the package is not shipped.
        self.assertEqual(list(root.rglob("product.cmake")), [])
        everything = [path for path in root.rglob("*") if path.is_file() and not path.is_relative_to(
            root / "usr/lib/nordvik-tide-updater")]
        for path in everything:
            self.assertNotIn(b"elvane", path.read_bytes(), path)

    def test_two_products_have_no_file_in_common_and_the_next_firmware_a_higher_version(self):
        self.build()
        tide = self.files(self.package())
        self.describe(WAVE | {"VERSION": "3.10.0"})
        self.set("fw_version", "3.10.0")
        self.build()
        package = self.package()

        self.assertEqual(tide & self.files(package), set())
        version = self.succeed("dpkg-deb", "--field", package, "Version").stdout.strip()
        self.succeed("dpkg", "--compare-versions", version, "gt", "3.1.0")

    def test_bundle_check_has_a_package_of_its_own(self):
        self.build()

        package = self.package("CPackBundleCheck.cmake")

        self.assertRegex(package.name, r"^kelvane-bundle-check_[0-9.]+_")
        self.assertEqual(self.files(package), {
            "./usr/bin/bundle_check",
            "./usr/share/doc/kelvane-bundle-check/changelog.gz",
            "./usr/share/doc/kelvane-bundle-check/copyright",
            "./usr/share/man/man1/bundle_check.1.gz",
        })  # fmt: skip

    def test_only_firmware_for_customers_is_packed_unless_the_package_is_for_benches(self):
        self.set("fw_target_type", "service")
        self.build()
        self.assertIn("'service' is not firmware for customers", self.refusal())

        self.build("-D", "FW_BENCH_PACKAGE=ON")
        self.package()

        # An error is none of the bench's business.
        self.set("otp_size", "none")
        self.assertIn("otp_size", self.refusal())

    def test_a_package_with_another_version_than_the_firmware_is_refused(self):
        self.describe(TIDE | {"VERSION": "3.0.9"})
        self.build()

        self.assertIn("'3.1.0' is not the version of the package, '3.0.9'", self.refusal())

    def test_a_licence_text_that_the_copyright_file_names_must_be_in_the_package(self):
        licence = """set(FW_PRODUCT_COPYRIGHT "Files: @resources@/*.otf
Copyright: Somebody
License: OFL-1.1
 The full text is in /@resources@/KelvaneSans-LICENCE.txt.")"""
        self.describe(TIDE, licence)
        self.build()
        root = self.unpack(self.package())
        copyright = (root / "usr/share/doc/nordvik-tide-updater/copyright").read_text()
        self.assertIn("usr/lib/nordvik-tide-updater/Contents/Resources/KelvaneSans-LICENCE.txt", copyright)

        self.path("product/KelvaneSans-LICENCE.txt").unlink()

        self.assertIn("KelvaneSans-LICENCE.txt, but the package does not contain it", self.refusal())


class Values(Product):
    def test_values_that_are_missing_or_cannot_be_used_are_refused(self):
        for name, value in (
            ("TITLE", ""), ("TITLE", 'a"b'), ("TITLE", "a/b"), ("TITLE", "a "), ("TITLE", "a [b]"),
            ("VERSION", "3"), ("VERSION", "v3.1"), ("VERSION", "3.1-beta"), ("VERSION", "3..1"),
            ("PACKAGE", "Tide"), ("PACKAGE", "tide updater"), ("ID", "tide"), ("ID", "com.tide/x"),
            ("VENDOR", "a<b"), ("CONTACT", "support@nordvik.example"), ("HOMEPAGE", "nordvik.example"),
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
        script = self.path("values.cmake", f"""include("{PACKAGING.parent}/packaging/product_values.cmake")
message("version: ${{FW_PRODUCT_VERSION}}")""".encode())
        return self.call(CMAKE, "-D", f"FW_PRODUCT_RESOURCES={self.path('product')}", *given, "-P", script)


if __name__ == "__main__":
    for tool in ("cpack", "dpkg-deb", "dpkg-shlibdeps", "file"):
        if not shutil.which(tool):
            print(f"skipped: {tool} is not installed")
            sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
