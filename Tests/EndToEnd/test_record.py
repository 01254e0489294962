"""The states of the record's file before and after a run."""

import datetime
import os
import plistlib
import stat
import unittest

from machine import CONTENT, InstallerTestCase, as_tree, metadata, posix_only, write_tree
from private_root import RECORD, tree

OTHERS = {
    "text": "grüße & <tags> \u65e5",
    "empty": "",
    "number": 42,
    "negative": -5,
    "largest": 2**63 - 1,
    "smallest": -2**63,
    "real": 0.1,
    "yes": True,
    "no": False,
    "date": datetime.datetime(2017, 2, 3, 4, 5, 6),
    "data": bytes(range(256)),
    "array": [1, "two", [3.5], {}],
    "dictionary": {"a": {"b": {"c": []}}, "": "empty key"},
}


class RecordTestCase(InstallerTestCase):
    def assert_values_of_others_kept(self):
        record = self.machine.record()
        self.assertEqual({key: record[key] for key in OTHERS}, OTHERS)
        self.assertEqual([type(record[key]) for key in OTHERS],
                         [type(value) for value in OTHERS.values()])

    def assert_files(self, *names):
        """Expects that the preferences directory has only these files."""
        self.assertEqual(set(os.listdir(self.machine.record_file.parent)),
                         {os.path.basename(RECORD), *names})


class File(RecordTestCase):
    def test_is_XML_and_readable_by_all_for_every_umask(self):
        for umask in (0o022, 0o077, 0):
            with self.subTest(f"{umask:o}"):
                self.machine = self.new_machine()
                self.run_installer(umask=umask)
                file = self.machine.record_file
                self.assertTrue(file.read_bytes().startswith(b"<?xml"))
                self.assertEqual(stat.S_IMODE(file.stat().st_mode), 0o644)
        self.assert_files()

    @posix_only("CoreFoundation lets its group write")
    def test_directories_made_for_it_are_not_writable_by_others(self):
        for umask in (0o022, 0o077, 0):
            with self.subTest(f"{umask:o}"):
                self.machine = self.new_machine()
                self.run_installer(umask=umask)
                directory = self.machine.record_file.parent
                self.assertEqual(stat.S_IMODE(directory.stat().st_mode), 0o755)

    def test_values_have_the_types_of_their_keys(self):
        self.run_installer()
        types = {key: type(value) for key, value in self.machine.record().items()}
        self.assertEqual(types, {"tWebResourceInstallPath": str, "iUpdateId": int,
                                 "tFullVersion": str, "irandom": int})

    def test_values_of_other_programs_of_every_type_stay(self):
        self.machine.write_record(OTHERS)
        self.run_installer()
        self.assert_values_of_others_kept()
        self.assertEqual(len(self.machine.record()), len(OTHERS) + 4)
        self.assertTrue(self.machine.record_file.read_bytes().startswith(b"<?xml"))
        self.assert_files()

    def test_values_of_other_programs_stay_after_many_runs(self):
        self.machine.write_record(OTHERS)
        for _ in range(5):
            self.run_installer()
        self.assert_values_of_others_kept()

    def test_empty_dictionary_is_filled(self):
        self.machine.write_record({})
        self.run_installer()
        self.assert_record(update=1)


@posix_only("CoreFoundation keeps no copy")
class Corrupt(RecordTestCase):
    def test_file_that_cannot_be_parsed_is_moved_aside_and_the_record_starts_empty(self):
        xml, binary = (plistlib.dumps(OTHERS, fmt=form)
                       for form in (plistlib.FMT_XML, plistlib.FMT_BINARY))
        for data in (b"garbage", b"<?xml", xml[:-30], binary, binary[:-5], os.urandom(500),
                     xml.decode().encode("utf-16")):
            with self.subTest(data[:20]):
                self.machine = self.new_machine()
                self.machine.write_record({})
                self.machine.record_file.write_bytes(data)
                self.run_installer()
                self.assert_record(update=1)
                self.assert_installed(as_tree(CONTENT))
                aside = os.path.basename(RECORD) + ".corrupt"
                self.assert_files(aside)
                self.assertEqual((self.machine.record_file.parent / aside).read_bytes(), data)


class Unusable(RecordTestCase):
    """If the first registration fails, the new directory keeps its numbered name. No file is
    deleted, no other value is recorded, and the exit status is 0."""

    def assert_run_stops_at_the_first_registration(self):
        write_tree(self.machine.install_root / "Resource0", {"old": b""})
        self.machine.write_metadata(metadata(updateid=None))  # no query asks for the number
        self.run_installer()
        root = self.machine.install_root
        self.assertEqual(set(os.listdir(root)), {"Resource0", "Resource1"})
        self.assertEqual(tree(root / "Resource0"), {b"old": b""})
        self.assertEqual(tree(root / "Resource1"), as_tree(CONTENT))

    def test_directory_in_place_of_the_file(self):
        self.machine.record_file.mkdir(parents=True)
        self.assert_run_stops_at_the_first_registration()
        self.assertEqual(tree(self.machine.record_file.parent),
                         {os.path.basename(RECORD).encode(): "a directory"})

    def test_file_in_place_of_the_directory(self):
        directory = self.machine.record_file.parent
        write_tree(directory.parent, {directory.name: b"in the way"})
        self.assert_run_stops_at_the_first_registration()
        self.assertEqual(directory.read_bytes(), b"in the way")

    def test_random_identifier_is_not_recorded_but_the_run_returns_0(self):
        self.machine.record_file.mkdir(parents=True)
        self.machine.write_metadata(metadata(clear=True, regenerate=True))
        self.run_installer()


if __name__ == "__main__":
    unittest.main()
