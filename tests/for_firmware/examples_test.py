#!/usr/bin/env python3
"""Compiles the examples in docs/for-vendors/the-unit.md as a firmware engineer would.

    examples_test.py COMPILER
"""

import re
import subprocess
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs/for-vendors/the-unit.md"


class Examples(unittest.TestCase):
    def test_each_example_compiles_without_a_warning_at_every_level_of_optimisation(self):
        examples = re.findall(r"^```c\n(.*?)^```", PAGE.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)
        self.assertTrue(examples)
        for example in examples:
            for level in ("-O0", "-O2", "-Os"):
                result = subprocess.run(
                    [COMPILER, "-x", "c", "-std=c11", level, "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                     "-I", ROOT / "for_firmware", "-c", "-o", "/dev/null", "-"],
                    input=example, capture_output=True, text=True, check=False,
                )  # fmt: skip
                self.assertEqual((result.returncode, result.stderr), (0, ""), level)


if __name__ == "__main__":
    COMPILER = sys.argv.pop()
    unittest.main(verbosity=2)
