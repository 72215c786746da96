#!/usr/bin/env python3
"""Tests what run_program.py reports of a program whose tests end in every way: run_program_test.py PROGRAM"""

import pathlib
import re
import subprocess
import sys
import unittest

support = pathlib.Path(__file__).resolve().parent
program = sys.argv.pop()


def run(*options, path=program):
    return subprocess.run([support / "run_program.py", "--timeout", "2", *options, path],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)


class Report(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.result = run()
        cls.reports = {}
        for report in re.split(r"^(?=FAILED|SKIPPED)", cls.result.stdout, flags=re.MULTILINE)[1:]:
            first, _, rest = report.partition("\n")
            cls.reports[first] = rest

    def test_counts_every_test_once(self):
        self.assertEqual(self.result.stdout.splitlines()[-1],
                         "tests: 4 passed, 6 failed, 1 skipped")
        self.assertEqual(self.result.returncode, 1)

    def test_names_each_failed_test_with_its_reason(self):
        for name, reason in {
                "FAILED Misbehaving.Fails": '{ "a reason", "b" }',
                "FAILED Misbehaving.Crashes": "ended by SIGKILL",
                "FAILED Misbehaving.EndsTheProgram": "ended with status 0",
                "FAILED Misbehaving.Hangs": "no end after 2",
                "FAILED Misbehaving.LogsAWarning": "unexpected warning in the log: smoke",
                "FAILED Misbehaving.LogsAnErrorWithoutTheExpectedOne":
                    'missing warning in the log: is equal to "fire"',
                "SKIPPED Misbehaving.IsSkipped": "no such hardware",
        }.items():
            self.assertIn(reason, self.reports.get(name, ""), name)
        self.assertEqual(len(self.reports), 7)

    def test_two_shards_run_all_tests(self):
        sums = [run("--shard", f"{i}/2").stdout.splitlines()[-1] for i in (1, 2)]
        figures = [list(map(int, re.findall(r"\d+", line))) for line in sums]
        self.assertEqual([a + b for a, b in zip(*figures)], [4, 6, 1])

    def test_a_program_without_tests_is_an_error(self):
        self.assertNotEqual(run("--shard", "100/100").returncode, 0)

    def test_tests_that_never_start_count_as_failed(self):
        result = subprocess.run([support / "run_program.py", program, "--", "false"],
                                stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual(result.stdout.splitlines()[-1], "tests: 0 passed, 12 failed, 0 skipped")
        self.assertEqual(result.returncode, 1)


if __name__ == "__main__":
    unittest.main()
