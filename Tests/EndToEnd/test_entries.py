"""Single entries of a package: names, kinds, sizes, and the resulting files."""

import os
import stat
import subprocess
import unittest
import zipfile

from expected import extracted
from machine import InstallerTestCase
from private_root import tree


class EntriesTestCase(InstallerTestCase):
    def entries(self, *entries):
        """Packs the entries, which are (name, data), in this order."""
        with zipfile.ZipFile(self.machine.package, "w", zipfile.ZIP_DEFLATED) as archive:
            for name, data in entries:
                archive.writestr(name, data)

    def installed(self):
        """Runs the installer and returns the content of Resource0. Expects the content that the
        rules give."""
        self.run_installer()
        found = tree(self.machine.install_root / "Resource0")
        self.assertEqual(found, extracted(self.machine.package))
        self.assert_record(update=1)
        self.assertEqual(os.listdir(self.machine.install_root), ["Resource0"])
        return found


class Data(EntriesTestCase):
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
                self.entries((self.entry("d/", stat.S_IFDIR | 0o500), b""),
                             (self.entry("d/run", stat.S_IFREG | 0o4755), b"#!"),
                             (self.entry("none", stat.S_IFREG), b""))
                self.run_installer(umask=umask)
                resources = self.machine.install_root / "Resource0"
                modes = {name: stat.S_IMODE((resources / name).stat().st_mode)
                         for name in (".", "d", "d/run", "none")}
                self.assertEqual(modes, {".": directory, "d": directory, "d/run": file,
                                         "none": file})

    def test_device_entry_is_written_as_a_plain_file(self):
        self.entries((self.entry("device", stat.S_IFCHR | 0o666), b"1"),
                     (self.entry("pipe", stat.S_IFIFO | 0o666), b"2"))
        self.assertEqual(self.installed(), {b"device": b"1", b"pipe": b"2"})


if __name__ == "__main__":
    unittest.main()
