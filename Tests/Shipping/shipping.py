"""The shared code of the tests that script/test-shipping runs."""

import os
import pathlib
import plistlib
import shutil
import subprocess
import tempfile
import unittest

import private_root
from private_root import RANDOM_IDENTIFIERS, SOURCE, add_programs, record_of

BUILD = pathlib.Path(os.environ["BUILD"])  # tests may leave files for people here
SCRATCH = pathlib.Path(os.environ["SCRATCH"])
SAMPLE_SITE = SOURCE / "Examples/sample-site"

INSTALL_ROOT = private_root.INSTALL_ROOT.lstrip("/")  # below a chroot
RECORD = private_root.RECORD.lstrip("/")


def run(*command, status=0, **options):
    """Runs a command. Returns its output. Fails unless the exit status is `status`."""
    result = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                            **options)
    if result.returncode != status:
        raise AssertionError(f"{command} ended with {result.returncode}, not {status}:\n"
                             + result.stdout)
    return result.stdout


def tree(directory):
    """The contents of all files below a directory, by relative path."""
    return {str(path.relative_to(directory)): path.read_bytes()
            for path in pathlib.Path(directory).rglob("*") if path.is_file()}


class ShippingTestCase(unittest.TestCase):
    """A test with a temporary directory for chroots."""

    maxDiff = 3000

    def setUp(self):
        directory = tempfile.TemporaryDirectory(dir=SCRATCH)
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def new_root(self, *programs):
        """Makes a chroot with these programs, given by name or path."""
        root = self.directory / "root"
        root.mkdir()
        (root / "bin").symlink_to("usr/bin")
        for program in programs:
            path = str(shutil.which(program))
            add_programs(root, path)
            link = root / path.lstrip("/")
            if not link.exists():  # the copy has the real name
                link.symlink_to(os.path.realpath(path))
        return root

    def record(self, root):
        return plistlib.loads((root / RECORD).read_bytes())

    def installed(self, root):
        return tree(root / INSTALL_ROOT)

    def assert_installed(self, root, content, update):
        """Fails unless exactly the files of `content` are installed, and `update` is recorded."""
        self.assertEqual(self.installed(root),
                         {f"Resource0/{name}": data for name, data in tree(content).items()})
        record = self.record(root)
        self.assertIn(record.pop("irandom"), RANDOM_IDENTIFIERS)
        self.assertEqual(record, record_of(update))
