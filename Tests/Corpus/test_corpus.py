"""What `webresources check` predicts of each package and each metadata file of the corpus is what
the shipped installer leaves."""

import json
import os
import shutil
import signal
import subprocess
import unittest
import zlib

from archives import ARCHIVES
from machine import InstallerTestCase, write_tree
from metadata_files import FILES
from private_root import DIRECTORY, full_version, tree

WEBRESOURCES = os.environ["WEBRESOURCES"]

OLD_RECORD = {"tWebResourceInstallPath": "Resource0", "iUpdateId": 41,
              "tFullVersion": full_version(41), "irandom": 12345, "other": "x"}
EXISTING = {"old.html": b"<p>old"}

END_STATUS = {"exit": 0, "abort": -signal.SIGABRT}


def check(resources, *options):
    """The command's document about a Resources directory."""
    result = subprocess.run([WEBRESOURCES, "check", "--json", *options, resources],
                            stdin=subprocess.DEVNULL, capture_output=True, check=False)
    if result.returncode not in (0, 1) or result.stderr:
        raise AssertionError(f"check: {result.returncode} {result.stderr} {result.stdout[:2000]}")
    return json.loads(result.stdout)


def predicted_tree(document):
    """The predicted tree: (size, checksum) of files, DIRECTORY of directories, by their paths."""
    return {bytes.fromhex(item["pathHex"]) if "pathHex" in item else item["path"].encode():
            DIRECTORY if item["type"] == "directory" else (item["size"], item["crc32"])
            for item in document["tree"]}


def summary(found):
    """A tree as tree() gives it in the form of predicted_tree()."""
    return {path: data if data is DIRECTORY else (len(data), f"{zlib.crc32(data):08x}")
            for path, data in found.items()}


class CorpusTestCase(InstallerTestCase):
    """One machine for all, with a fresh /Library for each: roots cost more than runs."""

    def refresh(self):
        shutil.rmtree(self.machine.path("/Library"), ignore_errors=True)


class Archives(CorpusTestCase):
    def test_corpus_is_as_large_as_it_should_be(self):
        self.assertGreaterEqual(len(ARCHIVES), 150)
        self.assertEqual(len(set(ARCHIVES.values())), len(ARCHIVES))

    def surroundings(self):
        """The paths of everything but what is below the directory that is installed."""
        installed = os.fsencode(self.machine.install_root / "Resource0")
        return sorted(os.path.join(parent, name)
                      for parent, directories, files in os.walk(os.fsencode(self.machine.root))
                      for name in directories + files
                      if not os.path.join(parent, name).startswith(installed + b"/"))

    def test_each_package_leaves_what_is_predicted_and_proved(self):
        self.run_installer()
        surroundings = self.surroundings()
        for name, data in ARCHIVES.items():
            with self.subTest(name):
                self.machine.package.write_bytes(data)
                document = check(self.machine.resources, "--prove")
                proof = document["proof"]
                self.assertTrue(proof["agrees"])
                self.assertEqual(proof["differences"], [])
                if "notCompared" in proof:
                    self.assertTrue({finding["id"] for finding in document["findings"]} & {
                        "case-collision", "normalization-collision", "name-not-utf8"})
                self.refresh()
                self.run_installer()
                installed = tree(self.machine.install_root / "Resource0")
                self.assertEqual(summary(installed), predicted_tree(document))
                self.assertEqual(self.surroundings(), surroundings)
                self.assert_record(update=1)


class MetadataFiles(CorpusTestCase):
    def test_corpus_is_as_large_as_it_should_be(self):
        self.assertGreaterEqual(len(FILES), 60)
        self.assertEqual(len(set(FILES.values())), len(FILES))

    def set_up_existing(self):
        self.refresh()
        write_tree(self.machine.install_root / "Resource0", EXISTING)
        self.machine.write_record(OLD_RECORD)

    def write_metadata(self, data):
        path = self.machine.resources / "metadata.txt"
        path.unlink(missing_ok=True)
        if data is not None:
            path.write_bytes(data)

    def trees(self):
        """The directories below the install root with their predicted_tree() forms."""
        root = self.machine.install_root
        return {name: summary(tree(root / name)) for name in os.listdir(root)}

    def drawn(self, record, fixed):
        """The random identifier to expect: a fixed one, or whichever was drawn."""
        random = record.get("irandom")
        if fixed is None:
            self.assert_drawn(random)
        return random if fixed is None else fixed

    def assert_reached(self, document, old):
        """The machine is as the predicted reach says; `old`: its record before, if any."""
        reach, members = document["outcome"]["reach"], document["metadata"]
        package = predicted_tree(document)
        record = self.machine.record()
        expected = dict(old)
        if members["clear"]:
            expected.pop("other", None)
        if reach == "extracted":
            # The new directory is beside an old one.
            name = "Resource1" if old else "Resource0"
            trees = {name: package, **({"Resource0": self.existing} if old else {})}
            expected["tWebResourceInstallPath"] = name
        else:
            trees = {"Resource0": package}
            update = members["updateid"]
            expected.update(tWebResourceInstallPath="Resource0", iUpdateId=update,
                            tFullVersion=full_version(str(update)[:9]))
        if reach == "complete":
            kept = None if members["regenerate"] else old.get("irandom")
            expected["irandom"] = self.drawn(record, kept)
        self.assertEqual(self.trees(), trees)
        self.assertEqual(record, expected)

    def assert_run_is_predicted(self, document, old):
        before = self.machine.state()
        self.run_installer(status=END_STATUS[document["outcome"]["end"]])
        if document["outcome"]["reach"] == "nothing":
            self.assertEqual(self.machine.state(), before)
        else:
            self.assert_reached(document, old)

    def test_each_file_makes_a_run_end_and_reach_as_predicted(self):
        self.existing = {name.encode(): (len(data), f"{zlib.crc32(data):08x}")
                         for name, data in EXISTING.items()}
        reached = set()
        for name, data in FILES.items():
            with self.subTest(name):
                self.write_metadata(data)
                document = check(self.machine.resources)
                reached.add(document["outcome"]["reach"])
                self.refresh()
                self.assert_run_is_predicted(document, {})
                self.set_up_existing()
                self.assert_run_is_predicted(document, OLD_RECORD)
        self.assertEqual(reached, {"nothing", "extracted", "all-but-random", "complete"})


if __name__ == "__main__":
    unittest.main()
