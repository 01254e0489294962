"""The workflow's job for a Mac, and the command by which it runs tests as root."""

import pathlib
import re
import subprocess
import tempfile
import textwrap
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
WORKFLOW = SOURCE / ".github/workflows/ci.yml"

# As root's own sudo: some variables are removed even with --preserve-env.
SUDO = """#!/bin/sh
[ "$1" = --preserve-env ] || exit 64
shift
unset PYTHONPATH PYTHONHOME PYTHONINSPECT PYTHONUSERBASE PERL5LIB BASH_ENV ENV LD_PRELOAD
exec "$@"
"""


def steps(job):
    """The steps of a job, each as its text without comments."""
    text = re.search(rf"^  {job}:\n((?:    .*\n|\n)+)", WORKFLOW.read_text(), re.MULTILINE)[1]
    text = re.sub(r"^ *#.*\n", "", text, flags=re.MULTILINE)
    return re.split(r"^      - ", text, flags=re.MULTILINE)[1:]


def run_blocks(text):
    """The commands of a step, or of the whole workflow, as one text for each."""
    for match in re.finditer(r"^( *)(?:- )?run: (?:\|\n((?:\1  +.*\n)+)|(.*))", text,
                             re.MULTILINE):
        yield textwrap.dedent(match[2]) if match[2] else match[3] + "\n"


class ThrowawayMachine(unittest.TestCase):
    def test_tests_find_their_modules_as_root(self):
        with tempfile.TemporaryDirectory() as directory:
            sudo = pathlib.Path(directory) / "sudo"
            sudo.write_text(SUDO)
            sudo.chmod(0o755)
            result = subprocess.run(
                [SOURCE / "Tests/Support/on-throwaway-machine", "/usr/bin/env"], text=True,
                check=True, stdout=subprocess.PIPE, env={
                    "PATH": f"{directory}:/usr/bin:/bin", "CI": "true", "THROWAWAY_MACHINE": "1",
                    "PYTHONPATH": "/the modules", "BUNDLE": "/b"})
        self.assertIn("PYTHONPATH=/the modules\n", result.stdout)
        self.assertIn("BUNDLE=/b\n", result.stdout)


class Workflow(unittest.TestCase):
    def test_intel_mac_needs_no_homebrew(self):
        for step in steps("macos"):
            if re.search(r"brew |--preset|throwaway-machine ", step):
                self.assertTrue(step.startswith("if: matrix.processor == 'arm'\n"), step)
            else:
                self.assertNotIn("if:", step)

    def test_intel_mac_builds_and_installs_the_package(self):
        commands = [block for step in steps("macos") if not step.startswith("if:")
                    for block in run_blocks("      - " + step)]
        self.assertTrue(any("script/package-macos " in block for block in commands))
        self.assertTrue(any("installer -pkg " in block for block in commands))
        self.assertTrue(any(" verify " in block for block in commands))

    def test_actions_are_pinned_by_digest(self):
        uses = re.findall(r"uses: \S+@(\S+)", WORKFLOW.read_text())
        self.assertTrue(uses)
        self.assertEqual([digest for digest in uses if not re.fullmatch(r"[0-9a-f]{40}", digest)],
                         [])


class ShellCheck(unittest.TestCase):
    """Needs shellcheck, so it is no part of an ordinary test run."""

    def test_finds_nothing_in_run_blocks(self):
        blocks = list(run_blocks(WORKFLOW.read_text()))
        self.assertGreater(len(blocks), 15)
        for block in blocks:
            script = "#!/bin/bash\nset -eo pipefail\n" + re.sub(r"\$\{\{.*?\}\}", "word", block)
            with self.subTest(block):
                result = subprocess.run(["shellcheck", "-"], input=script, text=True,
                                        stdout=subprocess.PIPE, check=False)
                self.assertEqual(result.stdout, "")


if __name__ == "__main__":
    unittest.main()
