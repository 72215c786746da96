"""A test case with a temporary directory, and commands that are called in it."""

import subprocess
import tempfile
import unittest
from pathlib import Path

PACKAGING = Path(__file__).resolve().parents[2] / "packaging"


class InDirectory(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = Path(directory.name)

    def path(self, name, content=None):
        path = self.directory / name
        if content is not None:
            path.write_bytes(content)
        return path

    def program(self, name, script):
        path = self.path(name, f"#!/bin/sh\n{script}\n".encode())
        path.chmod(0o755)
        return path

    def call(self, *command):
        return subprocess.run(
            [str(word) for word in command], capture_output=True, text=True, timeout=60
        )

    def succeed(self, *command):
        result = self.call(*command)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result
