"""The metadata: accepted values, and the effects of a run before invalid metadata ends the run."""

import unittest

from machine import CONTENT, FRESH, InstallerTestCase, as_tree, metadata, write_tree
from private_root import DIRECTORY, full_version, tree

OLD = {"old.html": b"<p>old"}
OLD_RECORD = {"tWebResourceInstallPath": "Resource0", "iUpdateId": 41,
              "tFullVersion": full_version(41), "irandom": 12345, "other": "x"}

NOT_AN_OBJECT = ["", " \n\t ", "[]", "[1,2", '"text"', "true", "tru", "null", "12", "x", ",",
                 "\ufeff" + metadata(), "\0" + metadata(),
                 '{"clear": false, "updateid": 1, "regenerate": false}',
                 '{"clear":false, "updateid":1, "regenerate":false}',
                 metadata() + " x", metadata() + "\v}"]
NOT_A_BOOLEAN = [None, "0", "1", '"true"', "null", "0.0", "[]", "{}", "", "True", '"1^"']
NOT_AN_UPDATE_NUMBER = [None, "2147483648", "-2147483649", "7.0", "7e-1", '"7"', '"7^"', "true",
                        "null", "[7]", "", "+7", "07", "-"]


class Faults(InstallerTestCase):
    def set_up_old_installation(self):
        self.machine = self.new_machine()
        write_tree(self.machine.install_root / "Resource0", OLD)
        self.machine.write_record(OLD_RECORD)

    def assert_nothing_done(self, text):
        self.set_up_old_installation()
        self.machine.write_metadata(text)
        before = self.machine.state()
        self.run_until_abort()
        self.assertEqual(self.machine.state(), before)

    def test_value_other_than_an_object_ends_the_run_before_anything_is_written(self):
        for text in NOT_AN_OBJECT:
            with self.subTest(text):
                self.assert_nothing_done(text)

    def test_bad_clear_ends_the_run_before_anything_is_written(self):
        for value in NOT_A_BOOLEAN:
            with self.subTest(value):
                self.assert_nothing_done(metadata(clear=value))

    def test_bad_clear_on_a_fresh_machine_leaves_it_fresh(self):
        self.machine.write_metadata(metadata(clear="1"))
        self.run_until_abort()
        self.assertEqual(self.machine.state(), FRESH)

    def test_missing_file_ends_the_run_before_anything_is_written(self):
        (self.machine.resources / "metadata.txt").unlink()
        self.run_until_abort()
        self.assertEqual(self.machine.state(), FRESH)

    def test_directory_in_place_of_the_file_ends_the_run_before_anything_is_written(self):
        (self.machine.resources / "metadata.txt").unlink()
        (self.machine.resources / "metadata.txt").mkdir()
        self.run_until_abort()
        self.assertEqual(self.machine.state(), FRESH)

    def test_missing_resources_directory_ends_the_run_before_anything_is_written(self):
        self.machine.resources.rename(self.machine.resources.with_name("Elsewhere"))
        self.run_until_abort()
        self.assertEqual(self.machine.state(), FRESH)

    def test_bad_updateid_ends_the_run_after_the_new_directory_is_recorded(self):
        for value in NOT_AN_UPDATE_NUMBER:
            with self.subTest(value):
                self.set_up_old_installation()
                self.machine.write_metadata(metadata(updateid=value))
                self.run_until_abort()
                self.assertEqual(tree(self.machine.install_root), {
                    b"Resource0": DIRECTORY, b"Resource0/old.html": b"<p>old",
                    b"Resource1": DIRECTORY,
                    **{b"Resource1/" + name: data for name, data in as_tree(CONTENT).items()}})
                self.assertEqual(self.machine.record(),
                                 {**OLD_RECORD, "tWebResourceInstallPath": "Resource1"})

    def test_bad_updateid_after_a_clearing_leaves_the_record_cleared(self):
        self.set_up_old_installation()
        self.machine.write_metadata(metadata(clear=True, updateid="x"))
        self.run_until_abort()
        expected = {**OLD_RECORD, "tWebResourceInstallPath": "Resource1"}
        del expected["other"]
        self.assertEqual(self.machine.record(), expected)

    def test_bad_regenerate_leaves_only_the_random_identifier_unrecorded(self):
        for value in NOT_A_BOOLEAN:
            with self.subTest(value):
                self.machine = self.new_machine()
                write_tree(self.machine.install_root / "Resource0", OLD)
                self.machine.write_metadata(metadata(regenerate=value))
                self.run_until_abort()
                self.assert_installed(as_tree(CONTENT))
                self.assertEqual(self.machine.record(), {
                    "tWebResourceInstallPath": "Resource0", "iUpdateId": 1,
                    "tFullVersion": full_version(1)})

    def test_bad_regenerate_keeps_a_recorded_random_identifier(self):
        self.set_up_old_installation()
        self.machine.write_metadata(metadata(regenerate="1"))
        self.run_until_abort()
        self.assertEqual(self.machine.record()["irandom"], 12345)

    def test_truncated_object_answers_up_to_the_truncation(self):
        self.machine.write_metadata('{"clear":false,"updateid":5')
        self.run_until_abort()
        self.assert_installed(as_tree(CONTENT))
        self.assertEqual(self.machine.record()["iUpdateId"], 5)
        self.assertNotIn("irandom", self.machine.record())


class Understood(InstallerTestCase):
    def assert_update(self, text, update, version=None):
        self.machine = self.new_machine()
        self.machine.write_metadata(text)
        self.run_installer()
        record = self.machine.record()
        self.assertEqual((record["iUpdateId"], record["tFullVersion"]),
                         (update, full_version(version or update)))

    def test_update_numbers_of_the_signed_32_bit_range(self):
        for value, update, version in (
                ("0", 0, "0"), ("-0", 0, "0"), ("-1", -1, "-1"), ("12345", 12345, "12345"),
                ("123456789", 123456789, "123456789"), ("2147483647", 2147483647, "214748364"),
                ("-2147483648", -2147483648, "-21474836"), ("5e2", 500, "500"),
                ("5E+2", 500, "500"), ("1e10", -2147483648, "-21474836"),
                ("18446744073709551617", 1, "1")):
            with self.subTest(value):
                self.assert_update(metadata(updateid=value), update, version)


if __name__ == "__main__":
    unittest.main()
