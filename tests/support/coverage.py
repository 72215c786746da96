#!/usr/bin/env python3
"""Fails when the tests run too few lines of what ships: coverage.py BUILD_DIR MINIMUM_PER_CENT

Reads what the programs of a build with FW_COVERAGE wrote to BUILD_DIR/profiles. Prints the
files with lines that no test runs, the least covered first. Code that only death tests run counts as
not run: those processes write no profile.
"""

import json
import pathlib
import subprocess
import sys

SHIPPED = ("app", "config", "updater", "modules", "mcuboot", "hal", "record", "runtime")
root = pathlib.Path(__file__).resolve().parent.parent.parent


def main():
    build, minimum = pathlib.Path(sys.argv[1]).resolve(), float(sys.argv[2])
    profiles = sorted(build.glob("profiles/*.profraw"))
    if not profiles:
        sys.exit(f"{build}/profiles has no profile; first: ctest --preset {build.name}")
    merged = build / "profiles/merged.profdata"
    subprocess.run(["llvm-profdata-19", "merge", "--sparse", "-o", merged, *profiles], check=True)

    programs = [line.split(";")[0] for line in (build / "tests/programs.txt").read_text().split()]
    programs.append(str(build / "bundle/Contents/MacOS/firmware_updater"))
    objects = [option for program in programs for option in ("--object", program)][1:]
    export = subprocess.run(
        ["llvm-cov-19", "export", "--summary-only", f"--instr-profile={merged}", *objects,
         *(root / folder for folder in SHIPPED)],
        stdout=subprocess.PIPE, check=True).stdout

    files = []
    for file in json.loads(export)["data"][0]["files"]:
        path = pathlib.Path(file["filename"])
        if path.is_relative_to(root) and path.relative_to(root).parts[0] in SHIPPED:
            lines = file["summary"]["lines"]
            if lines["count"]:
                files.append((lines["covered"], lines["count"], path.relative_to(root)))
    for covered, count, path in sorted(files, key=lambda file: file[0] / file[1]):
        if covered < count:
            print(f"{100 * covered / count:6.1f} %  {count - covered:4} lines not run  {path}")
    covered, count = (sum(file[i] for file in files) for i in (0, 1))
    if not count:
        sys.exit("no line of what ships is in these programs")
    share = 100 * covered / count
    print(f"{share:.2f} % of {count} lines; the floor is {minimum:g} %")
    sys.exit(share < minimum)


if __name__ == "__main__":
    main()
