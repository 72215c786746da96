#!/usr/bin/env python3
"""Tests the package of the vendor tools: that it is complete, and that its guide and manual pages are right.

    vendor_tools_test.py BUILD_DIRECTORY
"""

import gzip
import re
import subprocess
import sys
import unittest
from pathlib import Path

PACKAGES = Path(sys.argv[1]) / "packaging/test"
USR = PACKAGES / "vendor_tools/usr"
TOOLS = USR / "share/kelvane-vendor-tools"
SOURCE = Path(__file__).resolve().parents[2]

sys.path.append(str(SOURCE / "tests/docs"))
from documents_test import Tree, find_broken_links  # noqa: E402

COMMANDS = ("bundle_check", "make_otp", "session_view", "make_product_package")


def run(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=60)


def read_manual(command):
    text = gzip.decompress((USR / f"share/man/man1/{command}.1.gz").read_bytes()).decode()
    return text.replace("\\-", "-")


class VendorTools(unittest.TestCase):
    def test_it_has_the_c_header_the_fonts_an_example_for_each_transport_and_pictures(self):
        for file in ("for_firmware/unit_side.h", "resources/pictures/AppIcon.ico", "resources/pictures/background.png",
                     "resources/uart/config.ini", "resources/usb/config.ini", "resources/mcuboot/config.ini",
                     "resources/uart/product.cmake", "resources/usb/product.cmake",
                     "resources/mcuboot/product.cmake"):  # fmt: skip
            self.assertEqual((TOOLS / file).read_bytes(), (SOURCE / file).read_bytes(), file)
        for folder in ("fonts-72", "fonts-96"):
            self.assertEqual({file.name for file in (TOOLS / "resources" / folder).iterdir()},
                             {"KelvaneSans-Regular.otf", "KelvaneSans-Bold.otf"})  # fmt: skip

    def test_every_command_runs_and_its_manual_page_has_its_options(self):
        for command in COMMANDS:
            printed = run(USR / "bin" / command, "--help").stdout
            options = set(re.findall(r"^ *(?:-h, )?(--?[a-zA-Z][a-z-]*)", printed, re.MULTILINE)) - {"--help"}
            self.assertTrue(options, command)
            manual = read_manual(command)
            for option in options:
                self.assertIn(option, manual, f"the manual page of {command}")
            self.assertNotIn("@", manual, "a placeholder is left")

    def test_no_package_that_it_depends_on_is_a_compiler(self):
        package, = PACKAGES.glob("kelvane-vendor-tools_*.deb")
        depends = run("dpkg-deb", "--field", package, "Depends").stdout
        names = {part.split()[0] for part in depends.split(",")}
        for name in ("cmake", "dpkg-dev", "file", "python3", "dfu-util", "libc6"):
            self.assertIn(name, names)
        self.assertEqual({name for name in names if re.search(r"gcc(?!-s1)|g\+\+|clang|make$|ninja|build-ess", name)}
                         - {"cmake"}, set())  # fmt: skip

    def test_the_links_of_its_pages_lead_to_files_in_the_package(self):
        self.assertTrue((USR / "share/doc/kelvane-vendor-tools/guide/for-vendors/README.md").is_file())
        tree = Tree(TOOLS)
        pages = sorted(TOOLS.rglob("*.md"))
        self.assertGreater(len(pages), 8)
        for page in pages:
            folder = page.parent.relative_to(TOOLS).as_posix() + "/"
            self.assertEqual(find_broken_links(page.read_text(), tree, folder), [], page)


if __name__ == "__main__":
    if not TOOLS.is_dir():
        print("skipped: the package was not built")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
