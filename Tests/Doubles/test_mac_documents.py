"""The statements of Documentation/behaviour.md about a Mac, compared with the code and with the
pinned libraries."""

import pathlib
import re
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BEHAVIOUR = (SOURCE / "Documentation/behaviour.md").read_text()
CALL = r"\b(f?sync(?:fs|_volume_np)?|F_FULLFSYNC|SYNC_VOLUME_\w+)\b"


def row(first):
    """The other cells of the table row with this first cell."""
    [cells] = re.findall(rf"^\| {re.escape(first)} \| (.*) \|$", BEHAVIOUR, re.MULTILINE)
    return cells.split(" | ")


def names(cell):
    """The calls and flags that a cell names."""
    return {name for code in re.findall(r"`(.*?)`", cell) for name in re.findall(CALL, code)}


def calls(path, function):
    """The calls and flags of a function."""
    text = re.sub("//.*", "", (SOURCE / "Platform" / path).read_text())
    body = re.search(rf"Durability::{function}\(.*?^}}", text, re.MULTILINE | re.DOTALL)[0]
    return set(re.findall(CALL, body))


class Durability(unittest.TestCase):
    def test_each_back_end_makes_the_calls_of_the_table(self):
        for column, system in enumerate(("posix", "apple")):
            for data, function in (("the content", "SyncFileSystem"),
                                   ("files that `webresources` writes", "SyncFile")):
                with self.subTest(system, function=function):
                    self.assertEqual(names(row(data)[column]),
                                     calls(f"{system}/Durability.cpp", function))

    def test_record_is_synced_on_linux_only(self):
        linux, mac = row("the record")
        self.assertEqual(names(linux), calls("posix/Durability.cpp", "SyncFile"))
        self.assertIn("SyncFile(", (SOURCE / "Platform/posix/PropertyListFile.cpp").read_text())
        self.assertIn("not synced: `cfprefsd` writes the file, perhaps after the run", mac)
        domain = (SOURCE / "Platform/apple/PreferencesDomain.cpp").read_text()
        self.assertNotRegex(domain, CALL + "|SyncFile|SyncFileSystem")


class Limits(unittest.TestCase):
    """package_from_sources.Limits compares the numbers with the library."""

    def test_library_is_the_pinned_one(self):
        [pinned] = re.findall(r"^minizip (\S+) ", (SOURCE / "Deploy/macos/sources").read_text(),
                              re.MULTILINE)
        self.assertIn(f"The macOS package contains minizip {pinned}, and Debian 12", BEHAVIOUR)
        for subject in ("size of an entry", "offset of an entry in the archive"):
            self.assertTrue(row(subject)[0].endswith(f", none with minizip {pinned}"))
        self.assertIn(f"\nVersion: {pinned}\n", (SOURCE / "Deploy/macos/minizip.pc").read_text())


if __name__ == "__main__":
    unittest.main()
