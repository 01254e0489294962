"""The output of script/demo: one screen for every site."""

import pathlib
import re
import shlex
import subprocess
import tempfile
import unittest

from private_root import SOURCE

SCREEN = 45  # lines


class Demo(unittest.TestCase):
    def shown(self, *arguments, status=0):
        """The output of the demo, without the lines that show the progress of the build."""
        result = subprocess.run([SOURCE / "script/demo", *arguments], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        output = re.sub(r"(?m)^   build: .*\n", "", result.stdout.decode())
        self.assertEqual(result.returncode, status, output)
        self.assertLessEqual(len(output.splitlines()), SCREEN, output)
        self.assertNotRegex(output, "[\x00-\x09\x0b-\x1f\x7f]")
        return output

    def test_output_of_200_names_that_are_not_ascii_fits_on_a_screen(self):
        with tempfile.TemporaryDirectory() as site:
            for number in range(200):
                (pathlib.Path(site) / f"caf\u00e9 {number}.html").write_text("x")
            self.assertIn("more lines", self.shown(site))

    def test_control_characters_of_names_are_not_shown(self):
        with tempfile.TemporaryDirectory() as directory:
            site = pathlib.Path(directory) / "red\x1b[31m"
            site.mkdir()
            for name in ("a.html", "b.html"):
                (site / name).write_text("x")
            self.assertIn("red", self.shown(site))
            (site / "red\x1b[31m.html").write_text("x")  # `pack` refuses the name
            self.assertIn("name-unclean", self.shown(site, status=1))

    # The last test by name: test_look.py reads the result.
    def test_sample_site_is_installed_updated_and_repaired(self):
        output = self.shown()
        commands = re.findall(r"^\$ webresources (\w+)", output, re.MULTILINE)
        self.assertEqual(commands, ["pack", "check", "install", "status", "pack", "plan", "diff",
                                    "install", "verify", "install"])
        self.assertIn("file-differs", output)
        check, status, manual = re.findall(r"^  (build/.*|man .*)$",
                                           output.split("three commands")[1], re.MULTILINE)
        for command in (check, status):
            subprocess.run(shlex.split(command), cwd=SOURCE, check=True, stdout=subprocess.DEVNULL)
        self.assertTrue((SOURCE / manual.split()[1]).is_file())


if __name__ == "__main__":
    unittest.main()
