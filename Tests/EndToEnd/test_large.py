"""Deeply nested metadata, and more entries, bytes and leftovers than a package has."""

import os
import shutil
import signal
import string
import unittest
import zipfile

from expected import LONGEST_NAME
from machine import (APPLICATION, BACKEND, CONTENT, EXECUTABLE, FRESH, InstallerTestCase,
                     as_tree, metadata, posix_only, write_tree)
from private_root import DIRECTORY, program, tree

SMALL_STACK = 512 << 10
USUAL_STACK = 8 << 20
MEMORY = 1 << 20  # the limit of writable data; the smallest package needs 400 KiB


def arrays(depth):
    return "[" * depth + "]" * depth


def objects(depth):
    return '{"a":' * depth + "0" + "}" * depth


def mixed(depth):
    return '{"a":[' * (depth // 2) + "]}" * (depth // 2)


def objects_of_many_members(depth):
    """Nests in the last member, which is the farthest from the root of a balanced tree."""
    first = "{" + "".join(f'"a{number:03}":0,' for number in range(127)) + '"b":'
    return first * depth + "0" + "}" * depth


def cut_short(depth):
    return '[{"a":' * (depth // 2)


def limited(**limits):
    """Returns the command that runs the installer with these resource limits."""
    return [program("prlimit"), *(f"--{name}={value}" for name, value in limits.items()),
            f"{APPLICATION}/{EXECUTABLE}"]


@posix_only("how large the stack is can be told to a program")
class Nesting(InstallerTestCase):
    """Metadata that is too deeply nested ends the run like other invalid metadata, but by another
    signal."""

    def setUp(self):
        super().setUp()
        self.machine.add_programs(program("prlimit"))

    def is_installed(self, nested, stack):
        """Returns whether a new machine was installed. Otherwise expects that the run ended before
        any write."""
        shutil.rmtree(self.machine.path("/Library"), ignore_errors=True)
        self.machine.write_metadata(metadata()[:-1] + ',"nested":' + nested + "}")
        result = self.machine.run(*limited(stack=stack))
        self.assertEqual(result.stdout, b"")
        if result.returncode != 0:
            self.assertEqual(result.returncode, -signal.SIGSEGV)
            self.assertEqual(self.machine.state(), FRESH)
            return False
        self.assert_installed(as_tree(CONTENT))
        self.assert_record(update=1)
        return True

    def test_too_deep_metadata_ends_the_run_before_anything_is_written(self):
        for shape in (arrays, objects, mixed, objects_of_many_members, cut_short):
            with self.subTest(shape.__name__):
                installed, ended = 10, 20_000
                while ended - installed > 10:
                    depth = (installed + ended) // 2
                    if self.is_installed(shape(depth), SMALL_STACK):
                        installed = depth
                    else:
                        ended = depth
                for depth in range(installed - 10, ended + 10, 2):
                    self.is_installed(shape(depth), SMALL_STACK)

    def test_twenty_thousand_levels_fit_the_usual_stack(self):
        for shape in (arrays, objects, mixed):
            with self.subTest(shape.__name__):
                self.assertTrue(self.is_installed(shape(20_000), USUAL_STACK))

    def test_a_million_levels_end_the_run_before_anything_is_written(self):
        for shape in (arrays, objects, mixed, cut_short):
            with self.subTest(shape.__name__):
                self.assertFalse(self.is_installed(shape(1_000_000), USUAL_STACK))


class Many(InstallerTestCase):
    def setUp(self):
        super().setUp()
        self.command = []
        if BACKEND == "posix":
            self.machine.add_programs(program("prlimit"))
            self.command = limited(data=MEMORY)

    def test_memory_does_not_grow_with_thirty_thousand_entries(self):
        with zipfile.ZipFile(self.machine.package, "w") as archive:
            for directory in range(30):
                archive.writestr(zipfile.ZipInfo(f"d{directory}/"), b"")
                for file in range(999):
                    archive.writestr(zipfile.ZipInfo(f"d{directory}/f{file}"), b"%d" % file)
        self.run_installer(*self.command)
        self.assertEqual(tree(self.machine.install_root / "Resource0"),
                         {b"d%d" % directory: DIRECTORY for directory in range(30)} |
                         {b"d%d/f%d" % (directory, file): b"%d" % file
                          for directory in range(30) for file in range(999)})
        self.assertEqual(os.listdir(self.machine.install_root), ["Resource0"])
        self.assert_record(update=1)

    def test_memory_does_not_grow_with_the_size_of_an_entry(self):
        data = bytes(64 << 20)
        self.machine.pack({"large": data})
        self.run_installer(*self.command)
        self.assert_installed({b"large": data})

    def test_ten_thousand_leftovers_are_removed(self):
        """Half of the leftovers have names that a new directory could get."""
        for number in range(2500):
            write_tree(self.machine.install_root, {
                f"Resource{2 * number}/sub/f": b"", f"Resource{2 * number + 1}": b"",
                f"directory{number}/f": b""})
            os.mkfifo(self.machine.install_root / f"fifo{number}")
        self.run_installer(*self.command)
        self.assert_installed(as_tree(CONTENT))
        self.assert_record(update=1)


class Names(InstallerTestCase):
    @staticmethod
    def name_of_length(length):
        """Returns the name of a file, in directories with the longest names of the file system."""
        count = (length - 1) // 255
        directories = "".join(letter * 254 + "/" for letter in string.ascii_letters[:count])
        return directories + "0" * (length - len(directories))

    def test_names_of_every_length_up_to_511_bytes_are_extracted_and_longer_ones_are_not(self):
        names = {length: self.name_of_length(length) for length in range(1, 1100)}
        directories = {name.rpartition("/")[0] + "/" for name in names.values() if "/" in name}
        self.machine.pack({**{name: None for name in sorted(directories)},
                           **{name: b"%d" % length for length, name in names.items()}})
        self.run_installer()
        self.assertEqual(tree(self.machine.install_root / "Resource0"), {
            b"a" * 254: DIRECTORY, b"a" * 254 + b"/" + b"b" * 254: DIRECTORY,
            **{names[length].encode(): b"%d" % length for length in range(1, LONGEST_NAME + 1)}})
        self.assert_record(update=1)

    def test_tree_of_ten_thousand_bytes_of_path_is_left_where_its_paths_are_too_long(self):
        write_tree(self.machine.install_root, {"old/f": b"", "plain": b""})
        top = os.open(self.machine.install_root / "old", os.O_RDONLY)
        directory = top
        for _ in range(100):
            os.mkdir("d" * 100, dir_fd=directory)
            deeper = os.open("d" * 100, os.O_RDONLY, dir_fd=directory)
            os.close(directory)
            directory = deeper
        os.close(directory)
        self.run_installer()
        self.assertEqual(set(os.listdir(self.machine.install_root)), {"Resource0", "old"})
        self.assertEqual(os.listdir(self.machine.install_root / "old"), ["d" * 100])
        self.assertEqual(tree(self.machine.install_root / "Resource0"), as_tree(CONTENT))
        self.assert_record(update=1)


if __name__ == "__main__":
    unittest.main()
