"""The output of script/demo: one screen for every site."""

import pathlib
import re
import subprocess
import tempfile
import unittest

from private_root import SOURCE

SCREEN = 70  # lines


class Demo(unittest.TestCase):
    def shown(self, *arguments):
        result = subprocess.run([SOURCE / "script/demo", *arguments], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        output = result.stdout.decode()
        self.assertEqual(result.returncode, 0, output)
        self.assertLessEqual(len(output.splitlines()), SCREEN, output)
        self.assertNotRegex(output, "[\x00-\x09\x0b-\x1f\x7f]")
        return output

    def test_output_of_200_names_that_are_not_ascii_fits_on_a_screen(self):
        with tempfile.TemporaryDirectory() as site:
            for number in range(200):
                (pathlib.Path(site) / f"caf\u00e9 {number}.html").write_text("x")
            self.assertIn("more lines", self.shown(site))

    def test_sample_site_is_installed_updated_and_repaired(self):  # the last test: test_look.py reads the result
        output = self.shown()
        commands = re.findall(r"^\$ webresources (\w+)", output, re.MULTILINE)
        self.assertEqual(commands, ["pack", "check", "install", "status", "pack", "check", "diff",
                                    "plan", "install", "verify", "install"])
        self.assertIn("file-differs", output)
        self.assertEqual(len(re.findall(r"^  (build/|man )", output.split("three commands")[1],
                                        re.MULTILINE)), 3)


if __name__ == "__main__":
    unittest.main()
