"""The embedding guide: every command of it is run, in one shell, from an empty directory."""

import os
import re
import unittest

from shipping import SOURCE, ShippingTestCase, run

GUIDE = SOURCE / "Documentation/embedding.md"
BLOCKS = re.findall(r"^```sh\n(.*?)^```$", GUIDE.read_text(), re.MULTILINE | re.DOTALL)


class Guide(ShippingTestCase):
    def test_every_command_succeeds_and_the_product_is_installed(self):
        # `! command` alone does not end the shell.
        script = "set -eu\n" + re.sub(r"^! (.*)$", r"if \1; then exit 1; fi", "\n".join(BLOCKS),
                                      flags=re.MULTILINE)
        output = run("bash", "-c", script, cwd=self.directory, env={
            "CHECKOUT": str(SOURCE), "PATH": os.environ["PATH"], "HOME": str(self.directory),
            "CMAKE_BUILD_PARALLEL_LEVEL": "2"})
        self.assert_installed(self.directory / "machine", self.directory / "site", 2)
        self.assertIn("Hello from Resource0", output)
        self.assertIn("Package: cloud-guide", output)
        self.assertIn("+ pkgbuild", output)

    def test_no_command_is_outside_the_blocks_that_are_run(self):
        fences = re.findall(r"^```(\w*)$", GUIDE.read_text(), re.MULTILINE)
        self.assertEqual(fences, ["sh", ""] * len(BLOCKS))
        self.assertGreater(len(BLOCKS), 8)


if __name__ == "__main__":
    unittest.main()
