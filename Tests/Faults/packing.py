"""`webresources pack` as a subject of power failures. The command replaces a pair of files."""

import os
import pathlib
import random
import subprocess
import tempfile

from machine import write_tree
from private_root import tree

WEBRESOURCES = os.environ["WEBRESOURCES"]
PACKAGE, METADATA = "OrloWebResources.zip", "metadata.txt"
SITE = {"index.html": b"<p>new", "css/": None, "css/a.css": b"p{}",
        "noise": random.Random(1).randbytes(70_000), "text": b"line\n" * 3_000}


def pair(found):
    """Returns the package and the metadata in a tree."""
    return found.get(PACKAGE.encode()), found.get(METADATA.encode())


class Packing:
    """One `pack` into a directory with an old pair, or into an empty directory."""

    subjects = ("over an old pair", "into an empty directory")
    result = staticmethod(pair)

    def __init__(self, name):
        self.name = name
        self.faults = []
        top = pathlib.Path(tempfile.mkdtemp())
        write_tree(top / "site", SITE)
        write_tree(top / "earlier", {"index.html": b"<p>old"})
        self.top = self.seen_at = top / "Resources"
        self.command = self.pack(top / "site", 2)
        self.begin()
        self.old = pair(tree(self.top))
        subprocess.run(self.command, check=True, stdout=subprocess.DEVNULL)
        self.new = pair(tree(self.top))

    def pack(self, directory, update):
        return [WEBRESOURCES, "pack", directory, "--update-id", str(update), "--output", self.top]

    def begin(self):
        subprocess.run(["rm", "-rf", self.top], check=True)
        self.top.mkdir()
        if self.name == "over an old pair":
            subprocess.run(self.pack(self.top.parent / "earlier", 1), check=True,
                           stdout=subprocess.DEVNULL)

    def judged(self, state):
        found = pair(state.found)
        if found in (self.old, self.new):
            return None, []
        if found == (self.new[0], self.old[1]):
            return "new package, old metadata", []
        if found == (self.old[0], self.new[1]):
            return "old package, new metadata", []
        return None, ["a file that is neither the old nor the new one"]

    def run_again(self, *cut):
        result = subprocess.run(self.command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                check=False)
        found = tree(self.top)  # no temporary file stays
        if result.returncode != 0 or pair(found) != self.new or len(found) != len(self.new):
            self.faults.append(" ".join(map(str, (self.name, *cut, "then", result))))
