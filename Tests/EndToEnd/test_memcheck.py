"""Tests the memory use and the open descriptors of the shipped installer with valgrind."""

import os
import pathlib
import re
import shutil
import subprocess
import unittest

from machine import (APPLICATION, CONTENT, EXECUTABLE, InstallerTestCase, SANITIZED, metadata,
                     write_tree)
from private_root import INSTALL_ROOT, program, tree


@unittest.skipUnless(shutil.which("valgrind.bin"), "there is no valgrind")
@unittest.skipIf(SANITIZED, "valgrind and the sanitizers exclude each other")
class UnderValgrind(InstallerTestCase):
    ERROR = 99

    def setUp(self):
        super().setUp()
        libexec = pathlib.Path("/usr/libexec/valgrind")
        self.valgrind = program("valgrind.bin")
        self.machine.add_programs(self.valgrind)
        inside = self.machine.path(str(libexec))
        inside.mkdir(parents=True)
        for pattern in ("memcheck-*-linux", "vgpreload_*-linux.so", "default.supp"):
            for file in libexec.glob(pattern):
                shutil.copy(file, inside)
        self.add_loader_symbols()

    def add_loader_symbols(self):
        """Adds the debugging symbols of the dynamic loader, without which valgrind does not
        start."""
        loader = next(self.machine.path("/lib64").glob("ld-linux-*"))
        notes = subprocess.run(["readelf", "--notes", loader], check=True, text=True,
                               stdout=subprocess.PIPE).stdout
        build_id = re.search("Build ID: ([0-9a-f]+)", notes).group(1)
        symbols = f"/usr/lib/debug/.build-id/{build_id[:2]}/{build_id[2:]}.debug"
        self.machine.path(symbols).parent.mkdir(parents=True)
        shutil.copy(symbols, self.machine.path(symbols))

    def run_under_valgrind(self, *options):
        self.run_installer(
            self.valgrind, "-q", f"--error-exitcode={self.ERROR}", "--leak-check=full",
            "--show-leak-kinds=definite,indirect,possible",
            "--errors-for-leak-kinds=definite,indirect,possible", *options,
            f"{APPLICATION}/{EXECUTABLE}", proc=True)

    def test_whole_run_has_no_leak_and_no_error(self):
        write_tree(self.machine.install_root, {"Resource0/old/er/f": b"", "plain": b""})
        self.machine.write_record({"other": [{"a": b"b"}], "tFullVersion": "x", "irandom": 7})
        self.machine.write_metadata(metadata(clear=True, updateid=3, regenerate=True))
        self.machine.pack({**CONTENT, "large": os.urandom(100_000), "../up": b"",
                           "missing/f": b"x", "zero": b""})
        self.run_under_valgrind()
        found = tree(self.machine.install_root / "Resource0")
        self.assertEqual(len(found), len(CONTENT) + 2)
        self.assert_record(update=3)

    def test_listing_of_the_install_root_alone_is_open_at_the_end(self):
        write_tree(self.machine.install_root, {"Resource0/old/f": b"", "plain": b""})
        self.machine.write_metadata(metadata(clear=True))
        self.machine.write_record({"other": 1, "irandom": 7})
        # Newer versions of valgrind report an open descriptor at the end as an error.
        self.run_under_valgrind("--error-exitcode=0", "--track-fds=yes", "--log-file=/descriptors")
        report = self.machine.path("/descriptors").read_text()
        opened = re.findall(r"Open (?:file descriptor|\w+ socket) \d+: (.*)\n(.*)", report)
        self.assertEqual([what for what, origin in opened if "<inherited" not in origin],
                         [INSTALL_ROOT + "/"])
        self.assert_record(update=1, random=7)

    def test_damaged_package_and_record_bring_no_error(self):
        self.machine.write_record({})
        self.machine.record_file.write_bytes(b"<?xml garbage")
        self.machine.package.write_bytes(self.machine.package.read_bytes()[10:])
        self.run_under_valgrind()
        self.assert_record(update=1)

    def test_failed_installation_brings_no_error(self):
        self.machine.block_installation()
        self.run_under_valgrind()
        self.assertEqual(list(self.machine.record()), ["irandom"])


if __name__ == "__main__":
    unittest.main()
