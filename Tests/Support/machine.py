"""A machine for installations: a chroot with an installed bundle. On a Mac, the machine is the
host, which must be a throwaway machine."""

import atexit
import functools
import os
import pathlib
import plistlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
import zipfile

import private_root
from private_root import (DIRECTORY, INSTALL_ROOT, RANDOM_IDENTIFIERS, RECORD, record_of, tree,
                          tree_or_none)

BUNDLE = pathlib.Path(os.environ["BUNDLE"])
SANITIZED = os.environ["SANITIZED"] == "1"
BACKEND = os.environ["BACKEND"]

APPLICATION = "/Applications/WebResourceInstaller.app"
EXECUTABLES = os.environ["EXECUTABLES"]
EXECUTABLE = f"Contents/{EXECUTABLES}/WebResourceInstaller"
VENDOR = "/Library/Application Support/Veltrane"

METADATA = '{"clear":false,"updateid":1,"regenerate":false}'
CONTENT = {"index.html": b"<p>new", "css/": None, "css/a.css": b"p{}"}

# CoreFoundation finds the main bundle, and a sanitizer finds its executable, through /proc.
NEEDS_PROC = SANITIZED or BACKEND == "apple"

ENVIRONMENT = {"PATH": os.environ["PATH"], "ASAN_OPTIONS": "detect_leaks=1",
               **{name: os.environ[name] for name in (
                   "DARWIN_FILES_MODE", "LD_PRELOAD", "PRIVATE_ROOT_SHARE") if name in os.environ}}

resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def metadata(clear=False, updateid=1, regenerate=False):
    """Returns the metadata word with these members. A string is written unchanged. None omits a
    member."""
    members = {"clear": clear, "updateid": updateid, "regenerate": regenerate}
    words = {True: "true", False: "false"}
    return "{%s}" % ",".join(
        '"%s":%s' % (key, words[value] if isinstance(value, bool) else value)
        for key, value in members.items() if value is not None)


def as_tree(content):
    """Returns the result of tree() for `content`, as given to Machine.pack()."""
    return {name.rstrip("/").encode(): DIRECTORY if data is None else data
            for name, data in content.items()}


def write_tree(directory, content):
    """Writes `content`, as given to Machine.pack(), below `directory`."""
    for name, data in content.items():
        path = directory / name
        if data is None:
            path.mkdir(parents=True, exist_ok=True)
        else:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)


class Machine:
    """A machine. Paths that start with "/" are paths inside. path() returns the path outside."""

    def __init__(self, root):
        self.root = root
        shutil.copytree(template(), root, copy_function=os.link)
        self.resources = self.path(APPLICATION) / "Contents/Resources"
        self.install_root = self.path(INSTALL_ROOT)
        self.write_metadata(METADATA)

    def path(self, path):
        return private_root.inside(self.root, path)

    @property
    def record_file(self):
        return self.path(record_path())

    @property
    def package(self):
        return self.resources / "OrloWebResources.zip"

    def write_metadata(self, text):
        data = text if isinstance(text, bytes) else text.encode()
        (self.resources / "metadata.txt").write_bytes(data)

    def pack(self, content, compression=zipfile.ZIP_DEFLATED):
        """Makes the package from a map of names to bytes. A name that ends in "/" has the value
        None."""
        with zipfile.ZipFile(self.package, "w", compression) as archive:
            for name, data in content.items():
                archive.writestr(name, data or b"")

    def record(self):
        with open(self.record_file, "rb") as stream:
            return plistlib.load(stream)

    def state(self):
        """Returns everything that a run may change."""
        return (tree_or_none(self.path("/Library")),
                self.record_file.read_bytes() if self.record_file.is_file() else None)

    def block_installation(self):
        """Makes a file at the path of the install root."""
        write_tree(self.install_root.parent, {self.install_root.name: b"in the way"})

    def write_record(self, values, form=plistlib.FMT_XML):
        self.record_file.parent.mkdir(parents=True, exist_ok=True)
        self.record_file.write_bytes(plistlib.dumps(values, fmt=form))

    def add_programs(self, *programs):
        private_root.add_programs(self.root, *programs)

    def run(self, *command, umask=0o022, proc=NEEDS_PROC):
        """Runs the installer, or a command that runs the installer, and returns the completed
        process."""
        command = command or [f"{APPLICATION}/{EXECUTABLE}"]
        return subprocess.run(
            private_root.command_in(self.root, *command, proc=proc, added=True),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env=ENVIRONMENT, umask=umask, check=False)


@functools.lru_cache(maxsize=None)
def template():
    """Returns a machine to copy, with the installer's shared libraries. The machine lives as long
    as the process."""
    directory = tempfile.TemporaryDirectory()
    atexit.register(directory.cleanup)
    root = pathlib.Path(directory.name)
    shutil.copytree(BUNDLE, root / APPLICATION.lstrip("/"))
    private_root.add_programs(root, BUNDLE / EXECUTABLE)
    return root


FRESH = (None, None)  # the state() of a machine without an installation


class ThrowawayMachine(Machine):
    """The host of the tests, used as root. A test that needs a chroot is skipped. The system's own
    command writes and reads the record."""

    def __init__(self):
        self.remove()
        shutil.copytree(BUNDLE, APPLICATION)
        self.resources = pathlib.Path(APPLICATION) / "Contents/Resources"
        self.install_root = pathlib.Path(INSTALL_ROOT)
        self.write_metadata(METADATA)

    def remove(self):
        for path in (APPLICATION, VENDOR):
            shutil.rmtree(path, ignore_errors=True)
        subprocess.run(["defaults", "delete", RECORD], stderr=subprocess.DEVNULL, check=False)

    @property
    def root(self):
        raise unittest.SkipTest("needs a chroot")

    @property
    def record_file(self):
        raise unittest.SkipTest("the record's file needs a chroot")

    def path(self, path):
        if not path.startswith((APPLICATION, VENDOR)):
            raise unittest.SkipTest(f"{path} needs a chroot")
        return pathlib.Path(path)

    def record(self):
        exported = subprocess.run(["defaults", "export", RECORD, "-"], check=True,
                                  stdout=subprocess.PIPE)
        return plistlib.loads(exported.stdout)

    def state(self):
        return tree_or_none(VENDOR), self.record() or None

    def write_record(self, values, form=plistlib.FMT_XML):
        subprocess.run(["defaults", "import", RECORD, "-"], check=True,
                       input=plistlib.dumps(values, fmt=form))

    def add_programs(self, *programs):
        pass

    def run(self, *command, umask=0o022, proc=False):
        return subprocess.run(
            command or [f"{APPLICATION}/{EXECUTABLE}"], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, umask=umask, check=False)


@functools.lru_cache(maxsize=None)
def record_path():
    """Returns the path of the record. The posix back end chooses the path by its rule. For
    CoreFoundation, an installation shows the path."""
    if BACKEND == "posix":
        return RECORD
    with tempfile.TemporaryDirectory() as directory:
        machine = Machine(pathlib.Path(directory, "machine"))
        machine.run()
        [record] = machine.root.rglob(os.path.basename(RECORD))
        return f"/{record.relative_to(machine.root)}"


# Large cases run without sanitizers, because small cases execute the same code.
large = unittest.skipIf(SANITIZED, "large: runs without sanitizers")


def posix_only(why):
    """Skips a test of a rule that only the posix back end has."""
    return unittest.skipUnless(BACKEND == "posix", f"a rule of the posix back end: {why}")


class InstallerTestCase(unittest.TestCase):
    """A test with a new machine. Its package has the content CONTENT, and its metadata is
    METADATA."""

    maxDiff = 2000

    def setUp(self):
        self.machine = self.new_machine()

    def new_machine(self):
        machine = ThrowawayMachine() if sys.platform == "darwin" else self.new_private_root()
        machine.pack(CONTENT)
        return machine

    def new_private_root(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        return Machine(pathlib.Path(directory.name, "machine"))

    def run_installer(self, *command, status=0, machine=None, **options):
        """Runs the installer. Expects `status` and no output."""
        result = (machine or self.machine).run(*command, **options)
        self.assertEqual((result.returncode, result.stdout), (status, b""))

    def run_until_abort(self, *command, **options):
        self.run_installer(*command, status=-signal.SIGABRT, **options)

    def assert_installed(self, content, machine=None):
        """Expects that the install root has only Resource0 with `content`."""
        expected = {b"Resource0": DIRECTORY}
        expected.update({b"Resource0/" + name: data for name, data in content.items()})
        self.assertEqual(tree((machine or self.machine).install_root), expected)

    def assert_record(self, update, directory="Resource0", random=None, machine=None):
        """Expects that the record has these values and no other key. None for `random` expects a
        drawn identifier."""
        record = (machine or self.machine).record()
        drawn = record.get("irandom")
        self.assertEqual(record, {**record_of(update, directory),
                                  "irandom": drawn if random is None else random})
        if random is None:
            self.assert_drawn(drawn)

    def assert_drawn(self, random):
        self.assertIs(type(random), int)
        self.assertIn(random, RANDOM_IDENTIFIERS)
