"""Tests `webresources` with failing system calls that could cause a wrong result."""

import fcntl
import os
import unittest

import scenarios
from commands import Command, Install, Installed, Reading
from faults import enter_namespace
from private_root import RECORD


def chosen(name):
    [scenario] = scenarios.chosen(name)
    return scenario


def opens_of_record(subject):
    """Returns the number of each openat() that opens the record."""
    subject.begin()
    return [number for name, number, path in subject.stage.calls_and_paths(subject.command)
            if name == "openat" and path == RECORD]


class Commands(unittest.TestCase):
    def test_identifier_survives_a_record_that_cannot_be_read_once(self):
        subject = Install(chosen("installed: small"))
        opened = opens_of_record(subject)
        # The reads before the lock, under the lock, by the installer, and by the verification.
        self.assertEqual(len(opened), 4)
        for number in opened:
            with self.subTest(number):
                subject.begin()
                subject.run("EIO", "openat", number)
                self.assertEqual(subject.stage.record()["irandom"], scenarios.OLD["irandom"])

    def test_plan_and_verify_open_the_record_once_and_report_a_failure(self):
        for name in ("plan", "verify"):
            subject = Reading(chosen("installed: small"), name)
            [number] = opens_of_record(subject)
            for error, reason in (("EACCES", "Permission denied; try again"),
                                  ("ENFILE", "Too many open files in system; raise the limit with "
                                   "ulimit -n, or end other programs")):
                self.assertEqual(subject.run(error, "openat", number)[:2], (2, (
                    f"webresources {name}: cannot read the record {RECORD}: {reason}\n").encode()))

    def test_install_waits_600_seconds_by_default(self):
        subject = Command(chosen("installed: small"), "install")
        subject.begin()
        lock = subject.beside / ".WebResources.lock"
        lock.touch(0o600)
        with open(lock, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            result = subject.stage.run_preloaded(os.environ["INSTANT_SLEEPS"],
                                                 command=subject.command)
        self.assertEqual(result.status, 2)
        self.assertRegex(result.output, b"another installation is running\nslept 600 s\n$")

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
