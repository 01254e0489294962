"""Single entries of a package: names, kinds, sizes, and the resulting files."""

import os
import stat
import subprocess
import time
import unittest
import zipfile

from expected import extracted
from machine import InstallerTestCase
from private_root import DIRECTORY, file_system_takes, tree


class EntriesTestCase(InstallerTestCase):
    def entries(self, *entries, rename=()):
        """Packs the entries in this order. An entry is (name, data), or a name without data.
        `rename` replaces names by names of the same length that zipfile would not write."""
        with zipfile.ZipFile(self.machine.package, "w", zipfile.ZIP_DEFLATED) as archive:
            for entry in entries:
                name, data = (entry, b"") if isinstance(entry, (str, zipfile.ZipInfo)) else entry
                archive.writestr(name, data)
        for name, written in rename:
            self.assertEqual(len(name), len(written))
            self.machine.package.write_bytes(
                self.machine.package.read_bytes().replace(name, written))

    def installed(self):
        """Runs the installer and returns the content of Resource0. Expects the content that the
        rules give."""
        self.run_installer()
        found = tree(self.machine.install_root / "Resource0")
        self.assertEqual(found, extracted(self.machine.package))
        self.assert_record(update=1)
        self.assertEqual(os.listdir(self.machine.install_root), ["Resource0"])
        return found


class Directories(EntriesTestCase):
    def test_file_is_written_only_after_an_entry_for_its_directory(self):
        self.entries(("css/a.css", b"early"), "css/", ("css/b.css", b"late"), ("x/y/z", b"never"))
        self.assertEqual(self.installed(), {b"css": DIRECTORY, b"css/b.css": b"late"})

    def test_directory_entry_makes_its_missing_parents(self):
        self.entries("a/b/c/", ("a/f", b"1"), ("a/b/f", b"2"))
        self.assertEqual(self.installed(), {b"a": DIRECTORY, b"a/f": b"1", b"a/b": DIRECTORY,
                                            b"a/b/f": b"2", b"a/b/c": DIRECTORY})

    def test_second_entry_for_a_directory_keeps_its_files(self):
        self.entries("x/", ("x/f", b"1"), "x/", ("x/g", b"2"))
        self.assertEqual(self.installed(), {b"x": DIRECTORY, b"x/f": b"1", b"x/g": b"2"})

    def test_directory_entry_over_a_file_changes_nothing(self):
        self.entries(("x", b"file"), "x/", "x/y/", ("x/f", b"1"))
        self.assertEqual(self.installed(), {b"x": b"file"})

    def test_file_entry_over_a_directory_changes_nothing(self):
        self.entries("x/", ("x/f", b"1"), ("x", b"file"))
        self.assertEqual(self.installed(), {b"x": DIRECTORY, b"x/f": b"1"})

    def test_last_of_two_entries_with_one_name_wins(self):
        self.entries(("f", b"a longer first"), ("f", b"second"))
        self.assertEqual(self.installed(), {b"f": b"second"})

    def test_tree_of_many_levels(self):
        names = ["/".join("d" * count) + "/" for count in range(1, 200)]
        self.entries(*names, (names[-1] + "f", b"deep"))
        self.assertEqual(len(self.installed()), 200)


class Names(EntriesTestCase):
    def test_path_traversal_is_skipped(self):
        self.entries("d/", ("../up", b""), ("d/../../up", b""), ("../../../../../../up", b""),
                     ("../Resource0/in", b""), "../dir/", "..", "/../", ("/../up", b""),
                     ("./../up", b""), ("d//../../up", b""), ("after", b"1"))
        self.assertEqual(self.installed(), {b"d": DIRECTORY, b"after": b"1"})
        self.assertFalse(self.machine.path("/up").exists())

    def test_dots_inside_the_destination_are_written_as_stored(self):
        self.entries("d/", ("d/../f", b"1"), ("./g", b"2"), "e/../h/", ("..i", b"3"), ("...", b"4"),
                     ("missing/../f", b"never"), ("d/..", b"never"), (".", b"never"))
        self.assertEqual(self.installed(), {
            b"d": DIRECTORY, b"e": DIRECTORY, b"h": DIRECTORY,
            b"f": b"1", b"g": b"2", b"..i": b"3", b"...": b"4"})

    def test_leading_slash_stays_below_the_destination(self):
        self.entries(("/f", b"1"), "/d/", ("//d//g", b"2"), "/")
        self.assertEqual(self.installed(), {b"f": b"1", b"d": DIRECTORY, b"d/g": b"2"})

    def test_name_of_511_bytes_is_the_longest(self):
        directory = "d" * 250 + "/" + "e" * 250 + "/"
        names = [directory + "f" * (length - len(directory)) for length in (511, 512, 513)]
        self.entries(directory, *((name, b"x") for name in names), ("after", b"1"))
        found = self.installed()
        self.assertIn(names[0].encode(), found)
        self.assertEqual(len(found), 4)

    def test_directory_name_of_512_bytes_is_skipped(self):
        name = "/".join(["d" * 200] * 2) + "/"
        self.entries(name + "e" * (510 - len(name)) + "/", name + "f" * (511 - len(name)) + "/")
        self.assertEqual(len(self.installed()), 3)

    def test_very_long_name_is_skipped(self):
        self.entries(("n" * 65000, b"x"), ("after", b"1"))
        self.assertEqual(self.installed(), {b"after": b"1"})

    def test_component_too_long_for_the_file_system_is_skipped(self):
        self.entries(("n" * 256, b"x"), ("m" * 255, b"y"), "o" * 256 + "/", ("after", b"1"))
        self.assertEqual(self.installed(), {b"m" * 255: b"y", b"after": b"1"})

    def test_empty_name_is_skipped(self):
        self.entries(("####", b"x"), ("after", b"1"), rename=[(b"####", b"\0\0\0\0")])
        self.assertEqual(self.installed(), {b"after": b"1"})

    def test_name_ends_at_its_first_zero_byte(self):
        self.entries(("f#g", b"x"), ("d#/", b"y"), rename=[(b"f#g", b"f\0g"), (b"d#/", b"d\0/")])
        self.assertEqual(self.installed(), {b"f": b"x", b"d": b"y"})

    def test_bytes_of_a_name_are_kept_for_every_encoding(self):
        other = b"caf\xe9" if file_system_takes(b"caf\xe9") else b"cafe"
        self.entries(("grüße/", b""), ("grüße/日本.html", b"1"), ("caf#", b"2"),
                     rename=[(b"caf#", other)])
        self.assertEqual(self.installed(), {
            "grüße".encode(): DIRECTORY, "grüße/日本.html".encode(): b"1", other: b"2"})

    def test_characters_special_elsewhere_are_ordinary(self):
        names = ["a b", "a\\b", "c:d", "%s%n", "~", "$HOME", "*", "a\nb", "\x01", "-r", "Resource0"]
        self.entries(*((name, name.encode()) for name in names))
        self.assertEqual(self.installed(), {name.encode(): name.encode() for name in names})


class Data(EntriesTestCase):
    def test_sizes_around_the_copy_buffer(self):
        noise = os.urandom(300_000)
        for method in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED):
            with self.subTest(method):
                self.machine = self.new_machine()
                self.machine.pack({str(size): noise[:size] for size in (
                    0, 1, 8191, 8192, 8193, 16384, 65535, 65536, 65537, 300_000)}, method)
                self.installed()

    def test_highly_compressed_data(self):
        self.entries(("zeros", bytes(20_000_000)))
        self.installed()

    def test_entry_written_without_its_sizes_ahead(self):
        with open(self.machine.package, "wb") as stream:
            class Unseekable:  # makes zipfile write data descriptors
                write, flush = stream.write, stream.flush

            with zipfile.ZipFile(Unseekable(), "w", zipfile.ZIP_DEFLATED) as archive:
                archive.writestr("f", b"streamed" * 5000)
        self.assertEqual(self.installed(), {b"f": b"streamed" * 5000})

    def test_encrypted_entry_without_a_password_is_written_as_it_is_read(self):
        # The zip library opens the entry and returns the encrypted bytes, as many as were packed.
        work = self.machine.path("/source")
        work.mkdir()
        (work / "secret").write_bytes(b"0123456789" * 5)
        self.machine.package.unlink()
        subprocess.run(["zip", "-q", "-0", "-P", "password", self.machine.package, "secret"],
                       cwd=work, check=True)
        with zipfile.ZipFile(self.machine.package) as archive:
            start = archive.getinfo("secret").header_offset
        self.run_installer()
        data = (self.machine.install_root / "Resource0/secret").read_bytes()
        self.assertEqual(len(data), 50)
        self.assertIn(data, self.machine.package.read_bytes()[start:])

    def test_bzip2_entry_is_written_as_it_is_read(self):
        # The zip library opens the entry and returns the compressed bytes.
        with zipfile.ZipFile(self.machine.package, "w", zipfile.ZIP_BZIP2) as archive:
            archive.writestr("f", b"bz" * 5000)
            size = archive.getinfo("f").compress_size
        self.run_installer()
        data = (self.machine.install_root / "Resource0/f").read_bytes()
        self.assertEqual((len(data), data[:3]), (size, b"BZh"))

    def test_entry_of_an_unsupported_method_is_skipped(self):
        with zipfile.ZipFile(self.machine.package, "w", zipfile.ZIP_LZMA) as archive:
            archive.writestr("f", b"lzma" * 5000)
            archive.writestr("g", b"deflated" * 50, zipfile.ZIP_DEFLATED)
        self.run_installer()
        self.assert_installed({b"g": b"deflated" * 50})


class Attributes(EntriesTestCase):
    def entry(self, name, mode):
        info = zipfile.ZipInfo(name)  # the year 1980
        info.external_attr = mode << 16
        return info

    def test_modes_come_from_the_umask_alone(self):
        for umask, directory, file in ((0o022, 0o755, 0o644), (0o077, 0o700, 0o600),
                                       (0, 0o777, 0o666)):
            with self.subTest(f"{umask:o}"):
                self.machine = self.new_machine()
                self.entries(self.entry("d/", stat.S_IFDIR | 0o500),
                             (self.entry("d/run", stat.S_IFREG | 0o4755), b"#!"),
                             (self.entry("none", stat.S_IFREG), b""))
                self.run_installer(umask=umask)
                resources = self.machine.install_root / "Resource0"
                modes = {name: stat.S_IMODE((resources / name).stat().st_mode)
                         for name in (".", "d", "d/run", "none")}
                self.assertEqual(modes, {".": directory, "d": directory, "d/run": file,
                                         "none": file})

    def test_modification_time_is_that_of_the_installation(self):
        self.entries((self.entry("f", stat.S_IFREG | 0o644), b"1"))
        start = time.time() - 2
        self.run_installer()
        self.assertGreater((self.machine.install_root / "Resource0/f").stat().st_mtime, start)

    def test_link_entry_is_written_as_a_plain_file(self):
        self.entries((self.entry("link", stat.S_IFLNK | 0o777), b"/etc/passwd"),
                     (self.entry("up", stat.S_IFLNK | 0o777), b".."), ("up/f", b"never"))
        self.assertEqual(self.installed(), {b"link": b"/etc/passwd", b"up": b".."})

    def test_device_entry_is_written_as_a_plain_file(self):
        self.entries((self.entry("device", stat.S_IFCHR | 0o666), b"1"),
                     (self.entry("pipe", stat.S_IFIFO | 0o666), b"2"))
        self.assertEqual(self.installed(), {b"device": b"1", b"pipe": b"2"})


if __name__ == "__main__":
    unittest.main()
