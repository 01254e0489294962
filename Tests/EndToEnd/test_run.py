"""Sequences of runs: installations, updates, deleted entries and kept entries."""

import os
import unittest

from machine import CONTENT, InstallerTestCase, as_tree, metadata, write_tree
from private_root import DIRECTORY, INSTALL_ROOT, TAKES_LONG_PATHS, tree

OLD = {"old.html": b"<p>old", "img/": None, "img/a.png": b"\x89PNG"}
INSTALLED = as_tree(CONTENT)
SENTINEL = 12345  # an identifier that is never drawn


class Installation(InstallerTestCase):
    def have(self, *names):
        """Makes old directories with these names under the install root."""
        for name in names:
            write_tree(self.machine.install_root / name, OLD)

    def test_first_installation_uses_Resource0_from_the_start(self):
        self.machine.write_metadata(metadata(updateid=1234))
        self.run_installer()
        self.assert_installed(INSTALLED)
        self.assert_record(update=1234)

    def test_update_replaces_Resource0_and_keeps_the_random_identifier(self):
        self.run_installer()
        random = self.machine.record()["irandom"]
        self.machine.pack({"b/": None, "b/c.txt": b"2", "index.html": b"changed"})
        self.machine.write_metadata(metadata(updateid=2))
        self.run_installer()
        self.assert_installed({b"b": DIRECTORY, b"b/c.txt": b"2", b"index.html": b"changed"})
        self.assert_record(update=2, random=random)

    def test_second_run_of_the_same_package_changes_nothing(self):
        self.run_installer()
        first = self.machine.state()
        self.run_installer()
        self.assert_installed(INSTALLED)
        self.assertEqual(self.machine.state(), first)

    def test_every_state_of_the_numbering_ends_as_Resource0_alone(self):
        for names in (["Resource0", "Resource1"], ["Resource1"], ["Resource0", "Resource2"],
                      ["Resource7"], [f"Resource{number}" for number in range(12)]):
            with self.subTest(names):
                self.machine = self.new_machine()
                self.have(*names)
                self.run_installer()
                self.assert_installed(INSTALLED)
                self.assert_record(update=1)

    def test_everything_else_under_the_root_is_removed(self):
        root = self.machine.install_root
        self.have("Resource0", "Resource10", "resource1", "Other", ".hidden")
        write_tree(root, {"plain.txt": b"", "Resource3": b"a file", ".dot": b"."})
        os.mkfifo(root / "pipe")
        self.run_installer()
        self.assert_installed(INSTALLED)

    def test_links_are_removed_and_their_targets_stay(self):
        outside = self.machine.path("/outside")
        write_tree(outside, OLD)
        self.have("Resource0")
        root = self.machine.install_root
        for directory in (root, root / "Resource0", root / "Resource0/img"):
            (directory / "to-directory").symlink_to("/outside")
            (directory / "to-file").symlink_to("/outside/old.html")
            (directory / "to-nowhere").symlink_to("/nowhere")
        self.run_installer()
        self.assert_installed(INSTALLED)
        self.assertEqual(tree(outside), as_tree(OLD))

    def test_Resource0_that_is_a_link_to_a_directory_is_replaced(self):
        outside = self.machine.path("/outside")
        write_tree(outside, OLD)
        self.machine.install_root.mkdir(parents=True)
        (self.machine.install_root / "Resource0").symlink_to("/outside")
        self.run_installer()
        self.assert_installed(INSTALLED)
        self.assertEqual(tree(outside), as_tree(OLD))

    def test_Resource0_that_is_a_plain_file_is_replaced(self):
        write_tree(self.machine.install_root, {"Resource0": b"a file"})
        self.run_installer()
        self.assert_installed(INSTALLED)
        self.assert_record(update=1)

    def test_deep_tree_is_removed(self):
        self.have("Resource0/" + "/".join(f"level{number}" for number in range(90)))
        self.run_installer()
        self.assert_installed(INSTALLED)

    @unittest.skipUnless(TAKES_LONG_PATHS, "this file system takes no path of 1,024 bytes")
    def test_tree_with_paths_too_long_to_remove_keeps_its_name_and_the_new_one_its_number(self):
        deep = "/".join(["d" * 100] * 10)  # the tenth level is beyond 1,023 bytes
        self.have("Resource0/" + deep)
        self.run_installer()
        self.assertEqual(set(os.listdir(self.machine.install_root)), {"Resource0", "Resource1"})
        self.assertEqual(tree(self.machine.install_root / "Resource1"), INSTALLED)
        self.assert_record(update=1, directory="Resource1")

    def test_root_that_is_a_link_to_a_directory_is_used(self):
        self.machine.path("/elsewhere").mkdir()
        self.machine.install_root.parent.mkdir(parents=True)
        self.machine.install_root.symlink_to("/elsewhere")
        self.run_installer()
        self.run_installer()
        self.assertEqual(tree(self.machine.path("/elsewhere/Resource0")), INSTALLED)
        self.assertEqual(os.listdir(self.machine.path("/elsewhere")), ["Resource0"])


class FailedInstallation(InstallerTestCase):
    """The new directory cannot be made. The run records only the random identifier and returns
    0."""

    def assert_only_random_recorded(self):
        self.assertEqual(list(self.machine.record()), ["irandom"])
        self.assert_drawn(self.machine.record()["irandom"])

    def test_file_in_place_of_any_directory_on_the_way_to_the_root(self):
        parts = INSTALL_ROOT.strip("/").split("/")
        for count in range(2, len(parts) + 1):
            with self.subTest(parts[:count]):
                self.machine = self.new_machine()
                write_tree(self.machine.root, {"/".join(parts[:count]): b"in the way"})
                self.run_installer()
                self.assert_only_random_recorded()
                self.assertEqual(self.machine.path("/".join(parts[:count])).read_bytes(),
                                 b"in the way")

    def test_dangling_link_in_place_of_the_new_directory_leaves_the_others_alone(self):
        # No readable entry exists, so the name counts as free, but the directory cannot be made.
        write_tree(self.machine.install_root / "Resource1", OLD)
        (self.machine.install_root / "Resource0").symlink_to("/nowhere")
        before = tree(self.machine.install_root)
        self.run_installer()
        self.assertEqual(tree(self.machine.install_root), before)
        self.assert_only_random_recorded()

    def test_update_number_is_not_asked_for(self):
        self.machine.block_installation()
        self.machine.write_metadata(metadata(updateid=None))
        self.run_installer()
        self.assert_only_random_recorded()

    def test_regenerate_is_asked_for(self):
        self.machine.block_installation()
        self.machine.write_metadata(metadata(regenerate=None))
        self.run_until_abort()
        self.assertFalse(self.machine.record_file.exists())


class RandomIdentifier(InstallerTestCase):
    def test_kept_when_recorded_and_not_to_be_regenerated(self):
        self.machine.write_record({"irandom": SENTINEL})
        self.run_installer()
        self.assert_record(update=1, random=SENTINEL)

    def test_drawn_again_when_to_be_regenerated(self):
        self.machine.write_record({"irandom": SENTINEL})
        self.machine.write_metadata(metadata(regenerate=True))
        self.run_installer()
        self.assert_record(update=1)

    def test_drawn_when_there_is_none_whether_to_be_regenerated_or_not(self):
        for regenerate in (False, True):
            with self.subTest(regenerate):
                self.machine = self.new_machine()
                self.machine.write_metadata(metadata(regenerate=regenerate))
                self.run_installer()
                self.assert_record(update=1)

    def test_recorded_under_another_type_counts_as_present(self):
        self.machine.write_record({"irandom": "a text"})
        self.run_installer()
        self.assert_record(update=1, random="a text")


class Clearing(InstallerTestCase):
    OTHERS = {"other": "x", "IRANDOM": 1, "list": [1, {"a": b"b"}]}

    def run_without_installation(self):
        """Without an installation, no other value is recorded after the clearing."""
        self.machine.block_installation()
        self.machine.write_metadata(metadata(clear=True))
        self.run_installer()

    def test_keys_of_other_programs_go_and_the_four_values_stay(self):
        values = {"tWebResourceInstallPath": "Resource5", "iUpdateId": 7,
                  "tFullVersion": "any text", "irandom": SENTINEL}
        self.machine.write_record({**values, **self.OTHERS})
        self.run_without_installation()
        self.assertEqual(self.machine.record(), values)

    def test_before_an_installation_only_the_random_identifier_stays_unchanged(self):
        self.machine.write_record({"iUpdateId": 7, "irandom": SENTINEL, **self.OTHERS})
        self.machine.write_metadata(metadata(clear=True, updateid=8))
        self.run_installer()
        self.assert_record(update=8, random=SENTINEL)

    def test_clearing_and_regenerating_draws_again(self):
        self.machine.write_record({"irandom": SENTINEL, **self.OTHERS})
        self.machine.write_metadata(metadata(clear=True, regenerate=True))
        self.run_installer()
        self.assert_record(update=1)

    def test_without_clearing_keys_of_other_programs_stay(self):
        self.machine.write_record(self.OTHERS)
        self.run_installer()
        record = self.machine.record()
        self.assertEqual({key: record[key] for key in self.OTHERS}, self.OTHERS)
        self.assertEqual(len(record), len(self.OTHERS) + 4)

    def test_machine_without_a_record_can_be_cleared(self):
        self.machine.write_metadata(metadata(clear=True))
        self.run_installer()
        self.assert_record(update=1)


if __name__ == "__main__":
    unittest.main()
