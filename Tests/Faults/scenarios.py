"""The scenarios: a package, its metadata, and the state of the machine before the run."""

import ctypes
import os
import plistlib
import random
import time

from machine import metadata, write_tree
from private_root import INSTALL_ROOT, RANDOM_IDENTIFIERS, RECORD, full_version


def identifier_not_drawn_soon():
    """Returns an identifier that no run draws in the next two hours. A test can then distinguish
    the identifier from a new identifier."""
    library = ctypes.CDLL(None)
    left = set(RANDOM_IDENTIFIERS)
    now = int(time.time())
    for second in range(now, now + 7200):
        library.srand(second)
        left.discard(library.rand() % len(RANDOM_IDENTIFIERS) + 1)
    return min(left)


UPDATE = 2
OLD = {"tWebResourceInstallPath": "Resource0", "iUpdateId": 1,
       "tFullVersion": full_version(1), "irandom": identifier_not_drawn_soon()}
OTHERS = {"another": ["kept", {"deep": b"data"}], "number": 1 << 40}

SMALL = {"index.html": b"<p>new", "css/": None, "css/a.css": b"p{}"}
LARGE = {"noise": random.Random(1).randbytes(100_000), "text": b"line\n" * 30_000, "empty": b""}
DEEP = {}
for depth in range(1, 9):
    DEEP["d/" * depth] = None
    DEEP["d/" * depth + "f"] = b"x" * depth

PACKAGES = {  # with clear and regenerate
    "small": (SMALL, False, False),
    "deep, clear": (DEEP, True, False),
    "large, regenerate": (LARGE, False, True),
    "small, clear, regenerate": (SMALL, True, True),
}


class Start:
    """The content of /Library before the run."""

    def __init__(self, library):
        self.library = library
        self.install_root = library / INSTALL_ROOT[len("/Library/"):]
        self.record_file = library / RECORD[len("/Library/"):]
        library.mkdir()
        write_tree(library, {"Application Support/Other/kept": b"1", "other": b"2"})

    def install(self, directory="Resource0", **content):
        write_tree(self.install_root / directory, {"old": b"old", "sub/old": b"old", **content})

    def write_record(self, values, form=plistlib.FMT_XML):
        self.write_record_bytes(plistlib.dumps(values, fmt=form))

    def write_record_bytes(self, data):
        self.record_file.parent.mkdir()
        self.record_file.write_bytes(data)
        (self.record_file.parent / "neighbour.plist").write_bytes(b"3")


def fresh(start):
    del start


def installed(start):
    start.install()
    start.write_record({**OLD, **OTHERS})


def leftovers(start):
    """The leftovers of killed runs, and every kind of entry under the install root."""
    for directory in ("Resource0", "Resource1", "Resource7", "other"):
        start.install(directory)
    root = start.install_root
    write_tree(root, {"plain": b"", "deep/" + "d/" * 12 + "f": b""})
    (root / "link").symlink_to("/Library/Application Support/Other")
    (root / "dangling").symlink_to("/nowhere")
    (root / "Resource0/up").symlink_to("../../../../../..")
    os.mkfifo(root / "fifo")
    os.mkfifo(root / "Resource1/fifo")
    start.write_record({**OLD, **OTHERS})
    temporary = start.record_file.with_name(start.record_file.name + ".tmp-1")
    temporary.write_bytes(b"cut sho")


def binary(start):
    start.install()
    start.write_record({**OLD, **OTHERS}, plistlib.FMT_BINARY)


def corrupt(start):
    start.install()
    start.write_record_bytes(b"<plist><dict><key>cut sho")


def unfinished(start):
    """A run that was killed before the rename."""
    start.install("Resource1")
    start.write_record({**OLD, "tWebResourceInstallPath": "Resource1"})


class Scenario:
    def __init__(self, name, package, state, clear, regenerate):
        self.name = name
        self.package = package
        self.state = state
        self.clear = clear
        self.regenerate = regenerate
        self.metadata = metadata(clear, UPDATE, regenerate)

    def write_start(self, library):
        self.state(Start(library))


ALL = [Scenario(f"{state.__name__}: {name}", package, state, clear, regenerate)
       for state in (fresh, installed, leftovers, binary, corrupt, unfinished)
       for name, (package, clear, regenerate) in PACKAGES.items()]
ALL.append(Scenario("installed: no package", None, installed, False, False))


def chosen(*names):
    return [scenario for scenario in ALL if scenario.name in names]
