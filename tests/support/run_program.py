#!/usr/bin/env python3
"""Runs one GoogleTest program for CTest and reports each of its tests.

The tests run in one process. After a crash or a time-out the remaining tests run in a new one, so one
bad test hides none of the others. Prints the output of each failed test, the reason for each skipped
one, and last a line "tests: N passed, N failed, N skipped", which count_tests.py reads. A test that
could not be run counts as failed. Exits with 0 when no test failed.
"""

import argparse
import os
import re
import selectors
import signal
import subprocess
import sys
import time

START = re.compile(r"\[ RUN      \] (\S+)$")
END = re.compile(r"\[ ( {6}OK| FAILED | SKIPPED) \] (\S+?)(?:, where .*)? \(\d+ ms\)$")
# A test that prints without end must not fill the report.
MAXIMUM_OUTPUT = 40_000


class TestResult:
    def __init__(self, status, output=""):
        self.status = status
        self.output = output


def list_tests(program, pattern="*"):
    """Returns the full names of the enabled tests that match the GoogleTest filter, in order."""
    # Listing needs no screen, but an application object may want one.
    listing = subprocess.run(
        [program, "--gtest_list_tests", f"--gtest_filter={pattern}"],
        env=os.environ | {"QT_QPA_PLATFORM": "offscreen"},
        capture_output=True, text=True, errors="replace", timeout=60, check=False)
    if listing.returncode != 0:
        sys.exit(f"{program} does not list its tests: status {listing.returncode}\n{listing.stderr}")
    names, suite = [], None
    for line in listing.stdout.splitlines():
        name = line.split("#")[0].rstrip()
        if re.fullmatch(r"\S+\.", name):
            suite = name
        elif suite and re.fullmatch(r"  \S+", name):
            names.append(suite + name.strip())
    return [name for name in names if not re.search(r"(^|[./])DISABLED_", name)]


class Run:
    """One process that runs the given tests; results has those that were started."""

    def __init__(self, command, names, seconds_per_test):
        self.results = {}
        self.stray_output = []
        self.seconds_per_test = seconds_per_test
        self._current = None
        self._output = []
        self._timed_out = False
        # A new session, so that all that the program starts can be ended with it.
        self._process = subprocess.Popen(
            [*command, "--gtest_filter=" + ":".join(names), "--gtest_color=no"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            start_new_session=True)
        try:
            self._read_all()
        except BaseException:  # an interrupted check leaves nothing running
            self._kill()
            raise
        self.status = self._process.wait()
        if self._current:
            self._finish("FAILED", f"{self._describe_end()} in this test\n")

    def _describe_end(self):
        if self._timed_out:
            return f"TIME-OUT: no end after {self.seconds_per_test} s"
        # A shell between here and the program reports its signal as 128 + number.
        number = -self.status if self.status < 0 else self.status - 128
        if number in {int(each) for each in signal.Signals}:
            return f"CRASH: the program was ended by {signal.Signals(number).name}"
        return f"CRASH: the program ended with status {self.status}"

    def failure_outside_tests(self):
        """Returns a description if the program failed although no test of this run did."""
        failed = any(result.status == "FAILED" for result in self.results.values())
        if self.status == 0 or failed:
            return None
        return f"{self._describe_end()} outside of a test\n{''.join(self.stray_output)}"

    def _read_all(self):
        os.set_blocking(self._process.stdout.fileno(), False)
        self._last_progress = time.monotonic()
        pending = b""
        with selectors.DefaultSelector() as selector:
            selector.register(self._process.stdout, selectors.EVENT_READ)
            while True:
                if selector.select(timeout=0.2):
                    data = os.read(self._process.stdout.fileno(), 65536)
                    if not data:
                        break
                    *lines, pending = (pending + data).split(b"\n")
                    for line in lines:
                        self._take(line.decode(errors="replace"))
                elif self._process.poll() is not None:
                    # A process that outlives the program may keep the pipe open.
                    break
                if time.monotonic() - self._last_progress > self.seconds_per_test:
                    self._timed_out = True
                    self._kill()
                    break
        if pending:
            self._take(pending.decode(errors="replace"))

    def _kill(self):
        for number in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(self._process.pid, number)
                self._process.wait(timeout=2)
            except (ProcessLookupError, subprocess.TimeoutExpired):
                pass

    def _take(self, line):
        if start := START.search(line):
            self._current = start[1]
            self._output = []
            self._last_progress = time.monotonic()
        elif (end := END.search(line)) and end[2] == self._current:
            self._last_progress = time.monotonic()
            self._finish(end[1].strip(), line + "\n")
        else:
            (self._output if self._current else self.stray_output).append(line + "\n")

    def _finish(self, status, last_line):
        output = "".join(self._output) + last_line
        if len(output) > MAXIMUM_OUTPUT:
            half = MAXIMUM_OUTPUT // 2
            output = output[:half] + "\n[... cut ...]\n" + output[-half:]
        self.results[self._current] = TestResult(status, output)
        self._current = None


def run_all(command, names, alone, seconds_per_test):
    """Yields (name, TestResult) for each test and for each failure outside of a test."""
    remaining = list(names)
    while remaining:
        run = Run(command, remaining[:1] if alone else remaining, seconds_per_test)
        yield from run.results.items()
        if failure := run.failure_outside_tests():
            yield "(the program itself)", TestResult("FAILED", failure)
        if not run.results:
            for name in remaining:
                yield name, TestResult("FAILED", "The program did not run this test.\n")
            return
        remaining = [name for name in remaining if name not in run.results]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--shard", default="1/1", metavar="I/N", help="run each N-th test only")
    parser.add_argument("--alone", action="store_true", help="a process for each test")
    parser.add_argument("--timeout", type=float, default=120, help="seconds for one test")
    parser.add_argument("program")
    parser.add_argument("launcher", nargs="*", help="the command that starts the program")
    arguments = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))

    index, count = map(int, arguments.shard.split("/"))
    names = list_tests(arguments.program)[index - 1::count]
    if not names:
        sys.exit(f"{arguments.program} has no tests to run")
    counts = {"OK": 0, "FAILED": 0, "SKIPPED": 0}
    command = [*arguments.launcher, arguments.program]
    for name, result in run_all(command, names, arguments.alone, arguments.timeout):
        counts[result.status] += 1
        if result.status != "OK":
            print(f"{result.status} {name}\n{result.output}", flush=True)
    print(f"tests: {counts['OK']} passed, {counts['FAILED']} failed, {counts['SKIPPED']} skipped")
    sys.exit(1 if counts["FAILED"] else 0)


if __name__ == "__main__":
    main()
