"""Tests `webresources pack` under faults that could redirect a write or change a file during
packing."""

import os
import random
import shutil
import unittest
import zipfile

from faults import enter_namespace
from machine import write_tree
from private_root import add_programs, tree
from stage import Stage

WEBRESOURCES = os.environ["WEBRESOURCES"]
NOISE = random.Random(1).randbytes(150_000)  # stored, and read twice
TEXT = b"line of a text that shrinks\n" * 5_000  # deflated, and read once
SITE = {"noise": NOISE, "text": TEXT}


class Packing(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.stage = Stage()
        add_programs(cls.stage.root, WEBRESOURCES)
        cls.top = cls.stage.root / "packing"
        cls.output = cls.top / "Resources"
        cls.command = (os.path.realpath(WEBRESOURCES), "pack", "/packing/site", "--update-id", "2",
                       "--output", "/packing/Resources")

    def setUp(self):
        shutil.rmtree(self.top, ignore_errors=True)
        write_tree(self.top, {
            "site/noise": NOISE, "site/text": TEXT, "Resources/OrloWebResources.zip": b"old",
            "Resources/metadata.txt": b"old", "victim": b"not to be written to"})
        self.before = tree(self.output)

    def run_with(self, *action):
        return self.stage.run_with(*action, command=self.command)

    def calls(self, *names):
        """Returns the numbers and paths of these calls in an undisturbed run. Restores the
        directory afterwards."""
        found = [call for call in self.stage.calls_and_paths(self.command) if call[0] in names]
        self.setUp()
        return found

    def packed(self):
        with zipfile.ZipFile(self.output / "OrloWebResources.zip") as archive:
            return {info.filename: archive.read(info) for info in archive.infolist()}

    def assert_refused(self, result):
        self.assertEqual(result.status, 2)
        self.assertIn(b"webresources", result.output)
        self.assertEqual(tree(self.output), self.before)

    def test_failed_sync_is_reported_and_leaves_the_old_pair(self):
        numbers = [number for _, number, _ in self.calls("fsync")]
        self.assertGreaterEqual(len(numbers), 3)  # for both files and the directory
        for number in numbers[:-1]:
            with self.subTest(number):
                self.setUp()
                self.assert_refused(self.run_with("EIO", "fsync", number))

    def test_failed_sync_of_the_directory_is_reported(self):
        last = [number for _, number, _ in self.calls("fsync")][-1]
        result = self.run_with("EIO", "fsync", last)
        self.assertEqual(result.status, 2)
        self.assertIn(b"webresources", result.output)

    def test_link_planted_where_a_file_is_made_is_not_followed(self):
        for target in ("/packing/victim", "/packing/new"):
            for _, number, path in self.calls("openat"):
                if not path.startswith("/packing/Resources/"):
                    continue
                with self.subTest(target, path=path):
                    self.setUp()
                    script = f'sh:[ -e ".$OPENED" ] || ln -s {target} ".$OPENED"'
                    self.run_with(script, "openat", number)
                    self.assert_only_the_output_is_written()

    def test_link_planted_in_the_place_of_a_temporary_file_is_not_opened(self):
        for link in ("-f", "-sf"):
            for call, number, _ in self.calls("openat", "fcntl", "lseek", "fsync"):
                with self.subTest(link, call=call, number=number):
                    self.setUp()
                    result = self.run_with(
                        'sh:for f in packing/Resources/.*.tmp-*; do [ ! -e "$f" ] || '
                        f'ln {link} packing/victim "$f"; done', call, number)
                    self.assert_only_the_output_is_written()
                    if result.status == 0:
                        self.assertEqual(self.packed(), SITE)

    def assert_only_the_output_is_written(self):
        self.assertEqual((self.top / "victim").read_bytes(), b"not to be written to")
        self.assertFalse((self.top / "new").exists())

    def test_file_that_changes_during_packing_is_complete_or_reported(self):
        for name, data in SITE.items():
            other = bytes(reversed(data))
            write_tree(self.top, {"other": other})
            for call, number, _ in self.calls("openat", "read", "lseek", "write"):
                with self.subTest(name, call=call, number=number):
                    self.setUp()
                    write_tree(self.top, {"other": other})
                    result = self.run_with(f"sh:cat packing/other > packing/site/{name}", call,
                                           number)
                    if result.status == 0:
                        self.assertTrue(self.packed()[name] in (data, other), "packs a mixture")
                    else:
                        self.assert_refused(result)


if __name__ == "__main__":
    enter_namespace()
    unittest.main()
