"""Tests `webresources` with failing system calls that could cause a wrong result."""

import unittest

import scenarios
from commands import Install, Installed, Reading
from faults import enter_namespace
from private_root import RECORD


def chosen(name):
    [scenario] = scenarios.chosen(name)
    return scenario


class Commands(unittest.TestCase):
    def test_identifier_survives_a_record_that_cannot_be_read_once(self):
        subject = Install(chosen("installed: small"))
        subject.begin()
        opened = [number for name, number, path in subject.stage.calls_and_paths(subject.command)
                  if name == "openat" and path == RECORD]
        # The reads before the lock, under the lock, by the installer, and by the verification.
        self.assertEqual(len(opened), 4)
        for number in opened:
            with self.subTest(number):
                subject.begin()
                subject.run("EIO", "openat", number)
                self.assertEqual(subject.stage.record()["irandom"], scenarios.OLD["irandom"])

    def test_directory_that_cannot_be_listed_is_not_empty(self):
        for make, name in ((Installed, "installed: small"), (Reading, "leftovers: deep, clear")):
            subject = make(chosen(name), "verify")
            listed = [number for call, number in subject.stage.calls(subject.command)
                      if call == "getdents64"]
            self.assertTrue(listed)
            for number in listed:
                with self.subTest(name, number=number):
                    self.assertEqual(subject.run("EIO", "getdents64", number).status, 2)


if __name__ == "__main__":
    enter_namespace()
    unittest.main()
