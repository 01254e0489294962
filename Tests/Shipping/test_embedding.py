"""The guides. One shell runs every command of the embedding guide in an empty directory, and then the
commands of the deployment guide for one machine. test_fleet.py runs the command for Ansible."""

import os
import re
import unittest

from shipping import INSTALL_ROOT, SOURCE, ShippingTestCase, run

GUIDE = SOURCE / "Documentation/embedding.md"
DEPLOYMENT = SOURCE / "Documentation/deployment.md"

# The deployment guide begins with a machine that has the command and the bundle.
ANOTHER_MACHINE = """
mkdir another
cp -R tools/bin/webresources Product.app another/
webresources() { "$CHECKOUT/script/lib/private-root" run another /webresources "$@"; }
"""


# The guide's reader of the record, as a program of the machine.
READER = """
c++ -std=c++17 reader.cpp -o machine/reader -lpugixml
in_machine /reader
"""


def blocks(guide, language="sh"):
    return re.findall(rf"^```{language}\n(.*?)^```$", guide.read_text(), re.MULTILINE | re.DOTALL)



BLOCKS = blocks(GUIDE)


class Guide(ShippingTestCase):
    def test_every_command_succeeds_and_the_product_is_installed(self):
        # `! command` alone does not end the shell.
        script = "set -eu\n" + re.sub(r"^! (.*)$", r"if \1; then exit 1; fi", "\n".join(BLOCKS),
                                      flags=re.MULTILINE)
        [reader] = blocks(GUIDE, "cpp")
        (self.directory / "reader.cpp").write_text(
            "#include <iostream>\n#include <string>\n#include <pugixml.hpp>\n" + reader
            + 'int main() { std::cout << "content: " << ContentDirectory() << "\\n"; }\n')
        script += READER + ANOTHER_MACHINE + blocks(DEPLOYMENT)[0]
        output = run("bash", "-c", script, cwd=self.directory, env={
            "CHECKOUT": str(SOURCE), "PATH": os.environ["PATH"], "HOME": str(self.directory),
            "CMAKE_BUILD_PARALLEL_LEVEL": "2"})
        for machine in ("machine", "another"):
            self.assert_installed(self.directory / machine, self.directory / "site", 2)
        self.assertIn("Hello from Resource0", output)
        self.assertIn("up to date", output)
        self.assertIn("install will run the installer", output)
        self.assertTrue((self.directory / "product/CloudGuide.app").is_dir())
        self.assertIn("Package: cloud-guide", output)
        self.assertIn("+ pkgbuild", output)
        self.assertIn(f"content: /{INSTALL_ROOT}/Resource0/\n", output)

    def test_no_command_is_outside_the_blocks_that_are_run(self):
        fences = re.findall(r"^```(\w*)$", GUIDE.read_text(), re.MULTILINE)
        self.assertEqual(set(fences), {"sh", "cmake", "cpp", ""})
        self.assertEqual(fences.count("sh"), len(BLOCKS))
        self.assertGreater(len(BLOCKS), 8)


if __name__ == "__main__":
    unittest.main()
