"""Missing packages, damaged packages, and packages from other tools."""

import os
import pathlib
import struct
import subprocess
import unittest
import zipfile

from expected import extracted
from machine import CONTENT, InstallerTestCase, as_tree, large, write_tree
from private_root import DIRECTORY, SEVEN_ZIP, tree

WEB_PACKAGE = pathlib.Path("/usr/share/javascript")
WEB_DIRECTORIES = ("dojo", "dijit", "dojox")


class Missing(InstallerTestCase):
    """A package without readable entries: the run installs an empty directory, and deletes the old
    resources."""

    def assert_empty_installation(self):
        write_tree(self.machine.install_root / "Resource0", {"old": b""})
        self.run_installer()
        self.assert_installed({})
        self.assert_record(update=1)

    def test_no_package(self):
        self.machine.package.unlink()
        self.assert_empty_installation()

    def test_no_package_on_a_fresh_machine(self):
        self.machine.package.unlink()
        self.run_installer()
        self.assert_installed({})
        self.assert_record(update=1)

    def test_directory_in_place_of_the_package(self):
        self.machine.package.unlink()
        self.machine.package.mkdir()
        self.assert_empty_installation()

    def test_empty_file(self):
        self.machine.package.write_bytes(b"")
        self.assert_empty_installation()

    def test_not_a_zip(self):
        for data in (b"PK", b"PK\3\4" + bytes(100), b"<html>" * 1000, os.urandom(100_000)):
            with self.subTest(data[:6]):
                self.machine = self.new_machine()
                self.machine.package.write_bytes(data)
                self.assert_empty_installation()

    def test_archive_without_entries(self):
        self.machine.pack({})
        self.assert_empty_installation()

    def test_archive_truncated_before_its_directory(self):
        self.machine.pack({str(number): os.urandom(500) for number in range(100)})
        whole = self.machine.package.read_bytes()
        for size in (1, 100, len(whole) // 2, whole.index(b"PK\1\2"), len(whole) - 22):
            with self.subTest(size):
                self.machine = self.new_machine()
                self.machine.package.write_bytes(whole[:size])
                self.assert_empty_installation()


class Damaged(InstallerTestCase):
    def assert_extracted(self, content):
        self.run_installer()
        self.assert_installed(as_tree(content))
        self.assert_record(update=1)

    def test_stored_data_beyond_the_end_of_the_archive(self):
        self.machine.pack({"a": b"first", "b": b"second"}, zipfile.ZIP_STORED)
        data = bytearray(self.machine.package.read_bytes())
        with zipfile.ZipFile(self.machine.package) as archive:
            offset = archive.getinfo("b").header_offset
        central = data.index(b"PK\1\2", data.index(b"PK\1\2") + 1)
        for sizes in (offset + 18, central + 20):
            struct.pack_into("<LL", data, sizes, 1 << 30, 1 << 30)
        self.machine.package.write_bytes(data)
        self.run_installer()
        self.assert_record(update=1)
        found = tree(self.machine.install_root / "Resource0")
        self.assertEqual(found[b"a"], b"first")
        self.assertTrue((b"second" + bytes(data[offset + 37:])).startswith(found[b"b"]))

    def test_archive_with_a_comment_is_found(self):
        self.machine.pack(CONTENT)
        with zipfile.ZipFile(self.machine.package, "a") as archive:
            archive.comment = b"comment " * 8000
        self.assert_extracted(CONTENT)


class Many(InstallerTestCase):
    @large
    def test_more_entries_than_fit_without_zip64(self):
        with zipfile.ZipFile(self.machine.package, "w") as archive:
            for _ in range(66_000):
                archive.writestr(zipfile.ZipInfo("d/"), b"")
            archive.writestr("d/last", b"1")
        self.run_installer()
        self.assert_installed({b"d": DIRECTORY, b"d/last": b"1"})

    def test_entry_with_zip64_sizes(self):
        with zipfile.ZipFile(self.machine.package, "w") as archive:
            with archive.open("f", "w", force_zip64=True) as stream:
                stream.write(b"data")
        self.run_installer()
        self.assert_installed({b"f": b"data"})


class Tools(InstallerTestCase):
    """One tree, packed by different tools, must give the same bytes."""

    TREE = {"index.html": b"<p>", "empty": b"", "no files/": None, "css/a.css": b"p{}" * 9999,
            "css/deep/er/b.css": bytes(range(256)) * 300, "img/ä ö.png": os.urandom(70_000),
            "Z": b"z", ".hidden": b"."}

    def setUp(self):
        super().setUp()
        self.source = self.machine.path("/source")
        write_tree(self.source, self.TREE)
        self.machine.package.unlink()

    def assert_installed_from(self, *command):
        subprocess.run(command, cwd=self.source, check=True, stdout=subprocess.DEVNULL)
        self.run_installer()
        self.assert_installed(tree(self.source))
        self.assertEqual(extracted(self.machine.package), tree(self.source))

    def test_zip(self):
        self.assert_installed_from("zip", "-qr", self.machine.package, ".")

    def test_zip_storing_only(self):
        self.assert_installed_from("zip", "-qr0", self.machine.package, ".")

    def test_7z(self):
        self.assert_installed_from(SEVEN_ZIP, "a", "-tzip", self.machine.package, ".")

    def test_7z_at_its_strongest(self):
        self.assert_installed_from(SEVEN_ZIP, "a", "-tzip", "-mx=9", self.machine.package, ".")

    def test_bsdtar(self):
        self.assert_installed_from("bsdtar", "--format", "zip", "-cf", self.machine.package, ".")

    def test_python(self):
        names = sorted(tree(self.source))
        with zipfile.ZipFile(self.machine.package, "w", zipfile.ZIP_DEFLATED) as archive:
            for name in map(os.fsdecode, names):
                archive.write(self.source / name, name)
        self.assert_installed_from("true")

    def test_zip_without_directory_entries_installs_only_the_files_at_the_top(self):
        subprocess.run(["zip", "-qrD", self.machine.package, "."], cwd=self.source, check=True)
        self.run_installer()
        self.assert_installed({name.encode(): data for name, data in self.TREE.items()
                               if "/" not in name})


class WebPackage(InstallerTestCase):
    @large
    def test_thousands_of_files_of_a_real_web_package(self):
        self.machine.package.unlink()
        subprocess.run(["zip", "-qr", "-1", self.machine.package, *WEB_DIRECTORIES],
                       cwd=WEB_PACKAGE, check=True)
        self.run_installer()
        for name in WEB_DIRECTORIES:
            packed = tree(WEB_PACKAGE / name)
            self.assertGreater(len(packed), 500)
            self.assertEqual(tree(self.machine.install_root / "Resource0" / name), packed)
        self.assertEqual(set(os.listdir(self.machine.install_root / "Resource0")),
                         set(WEB_DIRECTORIES))
        self.machine.pack(CONTENT)
        self.run_installer()
        self.assert_installed(as_tree(CONTENT))


if __name__ == "__main__":
    unittest.main()
