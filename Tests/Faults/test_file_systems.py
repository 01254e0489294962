"""Tests the installer on unusual file systems, which are mounted from an image at the install root.
Requires the permission to mount, and the programs of the file systems."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import scenarios
from faults import enter_namespace
from machine import as_tree, write_tree
from private_root import DIRECTORY, tree
from scenarios import SMALL, UPDATE
from stage import Stage

IMAGE_SIZE = 16 << 20
OLD = {"old": b"old", "sub/": None, "sub/old": b"old"}


def require_programs(*programs):
    for program in programs:
        if shutil.which(program) is None:
            raise unittest.SkipTest(f"there is no {program}")


def loop_device(image):
    result = subprocess.run(["losetup", "--find", "--show", image], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, check=False)
    if result.returncode != 0:
        raise unittest.SkipTest(f"no loop device: {result.stderr.strip()}")
    return result.stdout.strip()


class FileSystems(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.stage = Stage()

    def begin(self, content, make, mount):
        """Makes a file system with the command `make`, mounts it with `mount`, and adds an old
        installation."""
        require_programs(make[0], mount[0])
        scenario = scenarios.Scenario("mounted", content, scenarios.fresh, False, False)
        self.stage.set_up(scenario)
        self.stage.reset()
        root = self.stage.install_root
        root.mkdir(parents=True)
        with tempfile.NamedTemporaryFile() as image:
            image.truncate(IMAGE_SIZE)
            subprocess.run([*make, image.name], stdout=subprocess.DEVNULL, check=True)
            device = loop_device(image.name)
            self.addCleanup(subprocess.run, ["losetup", "--detach", device], check=True)
            self.mount(*mount, device, root)
        write_tree(root / "Resource0", OLD)
        write_tree(root, {"file": b"", "empty/": None})

    def mount(self, *command):
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True, check=False)
        if result.returncode != 0:
            self.skipTest(f"cannot be mounted: {result.stdout.strip()}")
        self.addCleanup(subprocess.run, ["umount", command[-1]], check=True)

    def run_installer(self, directory):
        result = self.stage.run()
        self.assertEqual((result.status, result.output), (0, b""))
        record = self.stage.record()
        self.assertEqual((record["iUpdateId"], record["tWebResourceInstallPath"]),
                         (UPDATE, directory))

    def test_subdirectories_survive_if_listings_have_no_entry_types(self):
        self.begin(SMALL, ["mkfs.ext4", "-q", "-O", "^filetype"], ["mount"])
        root = self.stage.install_root
        self.run_installer("Resource1")
        self.assertEqual(sorted(os.listdir(root)), ["Resource0", "Resource1"])
        self.assertEqual(tree(root / "Resource0"), as_tree(OLD))
        self.assertEqual(tree(root / "Resource1"), as_tree(SMALL))

    def test_file_system_that_ignores_case_and_refuses_names_gets_the_rest(self):
        content = {"index.html": b"first", "INDEX.HTML": b"second", "css/": None, "CSS/": None,
                   "Css/a.css": b"p{}", "a:b": b"refused", "d?/": None, "d?/f": b"refused",
                   "last": b"last"}
        self.begin(content, ["mkfs.exfat"], ["mount.exfat-fuse"])
        root = self.stage.install_root
        (root / "Resource0").rename(root / "RESOURCE0")
        self.run_installer("Resource0")
        self.assertEqual(tree(root), {
            b"Resource0": DIRECTORY, b"Resource0/index.html": b"second", b"Resource0/last": b"last",
            b"Resource0/css": DIRECTORY, b"Resource0/css/a.css": b"p{}"})


def main():
    enter_namespace()
    result = unittest.main(exit=False).result
    if len(result.skipped) == result.testsRun:
        sys.exit(77)
    sys.exit(0 if result.wasSuccessful() else 1)


if __name__ == "__main__":
    main()
