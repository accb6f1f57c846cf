"""The transcripts in README.md and docs/ are what these programs print."""
import os
import shutil
import subprocess
import tempfile
import unittest

from lab import BIN

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
PARTS = ["README.md", "docs", "examples", "tools"]


def transcripts(top, *arguments):
    """(exit code, output) of the script in a tree."""
    done = subprocess.run([os.path.join(top, "tools/transcripts"), *arguments, "--bin", BIN],
                          capture_output=True, text=True, timeout=500, check=False)
    return done.returncode, done.stdout + done.stderr


class Transcripts(unittest.TestCase):
    def test_none_is_stale(self):
        code, output = transcripts(TOP, "--check")
        self.assertEqual(code, 0, output)
        self.assertRegex(output, r"^[1-9]\d* transcripts, 0 stale")

    def test_a_stale_one_is_named_and_renewed_and_a_marker_alone_is_refused(self):
        with tempfile.TemporaryDirectory() as top:
            for part in PARTS[1:]:
                shutil.copytree(os.path.join(TOP, part), os.path.join(top, part))
            show = os.path.join(top, "docs/show.md")
            readme = os.path.join(top, "README.md")
            with open(show, "w", encoding="utf-8") as file:
                file.write("Before.\n\n<!-- transcript: pel scenario check examples/ecmp.yaml -->\n```\n"
                           "$ pel scenario check examples/ecmp.yaml\n7 VRFs\n```\nAfter.\n")
            with open(readme, "w", encoding="utf-8") as file:
                file.write("<!-- transcript: pel up --once --scenario examples/ecmp.yaml -->\n```\n```\n")
            os.remove(os.path.join(top, "docs/pel.md"))
            with open(os.path.join(top, "docs/pel.md"), "w", encoding="utf-8") as file:
                file.write("Nothing here.\n")
            code, output = transcripts(top, "--check")
            self.assertEqual(code, 1, output)
            self.assertIn("-7 VRFs", output)
            self.assertIn("2 transcripts, 2 stale", output)
            code, output = transcripts(top)
            self.assertEqual(code, 0, output)
            with open(show, encoding="utf-8") as file:
                self.assertEqual(file.read(),
                                 "Before.\n\n<!-- transcript: pel scenario check examples/ecmp.yaml -->\n```\n"
                                 "$ pel scenario check examples/ecmp.yaml\n"
                                 "examples/ecmp.yaml: 1 VRF, 4 next hops, 3 FECs, 5 routes, 0 steps\n```\nAfter.\n")
            with open(readme, encoding="utf-8") as file:
                self.assertRegex(file.read(), r"next hops +4\n")
            code, output = transcripts(top, "--check")
            self.assertEqual(code, 0, output)
            with open(readme, "a", encoding="utf-8") as file:
                file.write("<!-- transcript: pel show status -->\nno fence\n")
            code, output = transcripts(top, "--check")
            self.assertEqual(code, 1, output)
            self.assertIn("README.md: a marker without a fenced block", output)
