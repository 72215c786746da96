#!/usr/bin/python3
"""Tests the workflow in .github/workflows as far as that is possible without running it:

    workflow_test.py

Runs with the system's Python, which can import Debian's python3-yaml.
"""

import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

try:
    import yaml
except ImportError:
    print("skipped: python3-yaml is not installed")
    sys.exit(77)

ROOT = Path(__file__).resolve().parents[2]
WORKFLOW = ROOT / ".github/workflows/build.yml"
CHECK_PINS = ROOT / "packaging/check_pins.sh"
COMMIT = "0123456789abcdef0123456789abcdef01234567"


def get_steps(jobs):
    return [(name, step) for name, job in jobs.items() for step in job["steps"]]


def get_needs(job):
    needs = job.get("needs", [])
    return [needs] if isinstance(needs, str) else needs


def find_unpinned(jobs):
    return [step["uses"] for _, step in get_steps(jobs)
            if "uses" in step and not re.fullmatch(r"[^@]+@[0-9a-f]{40}", step["uses"])]


class Workflow(unittest.TestCase):
    def setUp(self):
        self.workflow = yaml.safe_load(WORKFLOW.read_text())
        self.jobs = self.workflow["jobs"]

    def needed_by(self, name):
        """All jobs that have ended when this one begins."""
        needed = set()
        for other in get_needs(self.jobs[name]):
            needed |= {other} | self.needed_by(other)
        return needed

    def test_every_job_waits_for_the_one_that_refuses_actions_without_a_commit(self):
        guard = self.jobs["pinned"]
        self.assertEqual([step for step in guard["steps"] if "uses" in step], [])
        self.assertIn("packaging/check_pins.sh .github/workflows/*.yml", guard["steps"][-1]["run"])
        for name in self.jobs:
            self.assertTrue(name == "pinned" or "pinned" in get_needs(self.jobs[name]), name)

    def test_the_refusal_agrees_with_what_the_workflow_uses(self):
        result = subprocess.run([CHECK_PINS, WORKFLOW], capture_output=True, text=True)

        for action in find_unpinned(self.jobs):
            self.assertIn(action, result.stderr)
        self.assertEqual(result.returncode, 1 if find_unpinned(self.jobs) else 0)

    def test_the_refusal_knows_a_commit_from_a_tag_or_a_branch(self):
        for reference, pinned in ((COMMIT, True), (COMMIT + "  # v4", True), ("v4", False), ("main", False),
                                  (COMMIT[1:], False), (COMMIT + "0", False), ("v4  # " + COMMIT, False)):
            with tempfile.NamedTemporaryFile("w") as file:
                file.write(f"    steps:\n      - uses: a/b@{reference}\n")
                file.flush()
                result = subprocess.run([CHECK_PINS, file.name], capture_output=True)
            self.assertEqual(result.returncode, 0 if pinned else 1, reference)

    def test_an_artifact_is_downloaded_only_after_a_job_that_uploads_it(self):
        uploads = {}
        for name, step in get_steps(self.jobs):
            if step.get("uses", "").startswith("actions/upload-artifact@"):
                artifact = step["with"]["name"]
                for release in self.jobs[name].get("strategy", {}).get("matrix", {}).get("release", [""]):
                    uploads[artifact.replace("${{ matrix.release }}", str(release))] = name
        downloads = [(name, step["with"]["name"]) for name, step in get_steps(self.jobs)
                     if step.get("uses", "").startswith("actions/download-artifact@")]
        self.assertTrue(downloads)
        for name, artifact in downloads:
            self.assertIn(uploads.get(artifact), self.needed_by(name), artifact)

    def test_no_job_may_write_or_run_without_a_limit(self):
        self.assertEqual(self.workflow["permissions"], {"contents": "read"})
        for name, job in self.jobs.items():
            self.assertNotIn("permissions", job)
            self.assertIn("timeout-minutes", job, name)

    def test_every_secret_is_documented(self):
        page = (ROOT / "docs/for-vendors/packaging.md").read_text()
        secrets = set(re.findall(r"secrets\.(\w+)", WORKFLOW.read_text()))
        self.assertTrue(secrets)
        for secret in secrets:
            self.assertIn(f"`{secret}`", page)

    def test_every_file_of_the_repository_that_a_step_runs_exists(self):
        files = [word for _, step in get_steps(self.jobs)
                 for word in re.findall(r"(?:packaging|tools|\.ci)/[\w./-]+", step.get("run", ""))]
        self.assertTrue(files)
        for file in files:
            self.assertTrue((ROOT / file).is_file(), file)

    @unittest.skipUnless(shutil.which("shellcheck"), "shellcheck is not installed")
    def test_shellcheck_finds_nothing_in_the_steps(self):
        for name, step in get_steps(self.jobs):
            script = re.sub(r"\$\{\{.*?\}\}", "word", step.get("run", ""))
            result = subprocess.run(["shellcheck", "--shell=bash", "-"], input=script, capture_output=True,
                                    text=True)  # fmt: skip
            self.assertEqual(result.returncode, 0, f"{name}: {step.get('name')}\n{result.stdout}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
