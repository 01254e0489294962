"""Installations on the double of a Mac's file system (test_darwin_files.py)."""

import errno
import os
import unittest
from unittest import mock

import machine
from machine import APPLICATION, CONTENT, InstallerTestCase, as_tree, metadata, tree

COMMAND = os.environ.get("WEBRESOURCES")
COMPOSED, DECOMPOSED = "\u00e9.html", "e\u0301.html"
ATTRIBUTES = {"user.com.apple.quarantine": b"0081;5f0e;Safari;", "user.com.apple.macl": b"\0" * 72}


class Skipping(InstallerTestCase):
    """On a volume whose listing skips entries during a removal, each directory is listed once, on
    purpose."""

    def test_new_content_is_complete_and_a_run_that_skips_nothing_removes_the_old(self):
        old = {f"{number}.html": b"old" for number in range(40)}
        self.machine.pack(old)
        self.machine.run()
        self.machine.pack(CONTENT)
        self.machine.write_metadata(metadata(updateid=2))
        self.run_and_compare({"Resource0", "Resource1"})  # with a part of the old content
        with mock.patch.dict(machine.ENVIRONMENT, DARWIN_FILES_MODE=""):
            self.run_and_compare({"Resource0"})

    def run_and_compare(self, names):
        self.assertEqual(self.machine.run().returncode, 0)
        self.assertEqual(set(os.listdir(self.machine.install_root)), names)
        current = self.machine.record()["tWebResourceInstallPath"]
        self.assertEqual(tree(self.machine.install_root / current), as_tree(CONTENT))


class Verify(InstallerTestCase):
    """The properties that a correct installation on a Mac can have, and `verify` does not report.
    Each test installs by the command, then gives the installation one property."""

    def setUp(self):
        super().setUp()
        self.machine.root.chmod(0o755)  # the topmost directory of the machine
        self.machine.add_programs(COMMAND)

    def webresources(self, command, status=0):
        """Runs the command on the bundle and returns its output."""
        result = self.machine.run(COMMAND, command, APPLICATION)
        self.assertEqual(result.returncode, status, result.stdout)
        return result.stdout.decode()

    def install(self, content=None):
        self.machine.pack(content or CONTENT)
        self.webresources("install")

    def directories(self):
        """Every directory from the vendor's to the content's deepest."""
        vendor = self.machine.install_root.parents[2]
        return [vendor, *(path for path in vendor.rglob("*") if path.is_dir())]

    def assert_correct(self):
        """`verify` reports nothing, but still finds a changed file."""
        self.webresources("verify")
        (self.machine.install_root / "Resource0/index.html").write_bytes(b"changed")
        self.assertIn("index.html", self.webresources("verify", status=1))

    def test_extended_attributes_and_quarantine_are_not_read(self):
        self.install()
        for directory in self.directories():
            for path in (directory, *directory.iterdir()):
                for name, value in ATTRIBUTES.items():
                    try:
                        os.setxattr(path, name, value)
                    except OSError as error:
                        if error.errno == errno.ENOTSUP:
                            self.skipTest("this file system has no extended attributes")
                        raise
        self.assert_correct()

    def test_files_of_the_finder_are_correct_in_every_directory(self):
        self.install()
        for directory in self.directories():
            (directory / ".DS_Store").write_bytes(b"\0\0\0\1Bud1")
        self.assert_correct()
        self.webresources("install")  # runs the installer: a file is changed
        self.assertEqual(list(self.machine.install_root.rglob(".DS_Store")), [])

    def test_decomposed_name_is_kept_as_it_is_stored(self):
        self.install({**CONTENT, DECOMPOSED: b"decomposed"})
        self.assertIn(DECOMPOSED, os.listdir(self.machine.install_root / "Resource0"))
        self.assert_correct()

    def test_composed_name_is_kept_as_it_is_stored(self):
        self.install({**CONTENT, COMPOSED: b"composed"})
        self.assertIn(COMPOSED, os.listdir(self.machine.install_root / "Resource0"))
        self.assert_correct()

    def test_case_of_names_is_kept_on_a_volume_that_ignores_case(self):
        self.install({**CONTENT, "Read Me.HTML": b"mixed"})
        self.assertTrue((self.machine.install_root / "resource0/READ ME.html").exists())
        self.assertIn("Read Me.HTML", os.listdir(self.machine.install_root / "Resource0"))
        self.assert_correct()


if __name__ == "__main__":
    unittest.main()
