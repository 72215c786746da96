#!/usr/bin/python3
"""Tests the workflow in .github/workflows as far as that is possible without running it:

    workflow_test.py

Runs with the system's Python, which can import Debian's python3-yaml.
"""

import re
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

try:
    import yaml
except ImportError:
    print("skipped: python3-yaml is not installed")
    sys.exit(77)

ROOT = Path(__file__).resolve().parents[2]
WORKFLOW = ROOT / ".github/workflows/build.yml"
FOR_A_TAG = "startsWith(github.ref, 'refs/tags/')"


def get_steps(jobs):
    return [(name, step) for name, job in jobs.items() for step in job["steps"]]


def get_needs(job):
    needs = job.get("needs", [])
    return [needs] if isinstance(needs, str) else needs


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

    def test_it_runs_no_code_from_other_repositories(self):
        for name, step in get_steps(self.jobs):
            self.assertNotIn("uses", step, name)
        for name, job in self.jobs.items():
            self.assertNotIn("uses", job, name)

    def test_only_the_steps_that_need_it_see_the_token(self):
        for name, step in get_steps(self.jobs):
            needs_token = re.search(r"CHECK_OUT|\bgh release", step["run"]) is not None
            self.assertEqual("GH_TOKEN" in step.get("env", {}), needs_token, f"{name}: {step['name']}")
        self.assertNotIn("GH_TOKEN", self.workflow["env"])

    def test_a_release_is_changed_only_for_a_tag_and_after_it_was_drafted(self):
        changed = [(name, step) for name, step in get_steps(self.jobs) if "gh release" in step["run"]]
        self.assertTrue(changed)
        for name, step in changed:
            conditions = self.jobs[name].get("if", ""), step.get("if", "")
            self.assertIn(FOR_A_TAG, conditions, f"{name}: {step['name']}")
            self.assertTrue(name == "draft" or "draft" in self.needed_by(name), name)

    def test_what_is_downloaded_was_uploaded_by_a_job_before(self):
        downloads = [(name, pattern) for name, step in get_steps(self.jobs)
                     for pattern in re.findall(r'gh release download.*--pattern "([^"]+)"', step["run"])]
        self.assertTrue(downloads)
        for name, pattern in downloads:
            uploads = [file for other in self.needed_by(name) for step in self.jobs[other]["steps"]
                       for file in re.findall(r"gh release upload \S+ (\S+)", step["run"])]
            self.assertIn(pattern, uploads)

    def test_only_jobs_that_change_the_release_may_write(self):
        self.assertEqual(self.workflow["permissions"], {"contents": "read"})
        for name, job in self.jobs.items():
            changes = any("gh release" in step["run"] for step in job["steps"])
            self.assertEqual(job.get("permissions"), {"contents": "write"} if changes else None, name)

    def test_every_job_has_a_time_limit(self):
        for name, job in self.jobs.items():
            self.assertIn("timeout-minutes", job, name)

    def test_every_secret_is_documented(self):
        page = (ROOT / "docs/for-vendors/packaging.md").read_text()
        secrets = set(re.findall(r"secrets\.(\w+)", WORKFLOW.read_text()))
        self.assertTrue(secrets)
        for secret in secrets:
            self.assertIn(f"`{secret}`", page)

    def test_every_file_of_the_repository_that_a_step_runs_exists(self):
        files = [word for _, step in get_steps(self.jobs)
                 for word in re.findall(r"(?<![\w/-])(?:packaging|tools|\.ci)/[\w./-]+", step["run"])]
        self.assertTrue(files)
        for file in files:
            self.assertTrue((ROOT / file).is_file(), file)

    @unittest.skipUnless(shutil.which("shellcheck"), "shellcheck is not installed")
    def test_shellcheck_finds_nothing_in_the_steps(self):
        scripts = [(f"{name}: {step['name']}", step["run"]) for name, step in get_steps(self.jobs)]
        for name, script in [("CHECK_OUT", self.workflow["env"]["CHECK_OUT"])] + scripts:
            script = re.sub(r"\$\{\{.*?\}\}", "word", script)
            result = subprocess.run(["shellcheck", "--shell=bash", "-"], input=script, capture_output=True,
                                    text=True)  # fmt: skip
            self.assertEqual(result.returncode, 0, f"{name}\n{result.stdout}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
