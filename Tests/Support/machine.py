"""A machine to install on: a private root with the installed bundle in it. On a Mac it is the
very machine, which has to be one to be thrown away."""

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

# CoreFoundation asks /proc for the main bundle, the sanitizers for their own.
NEEDS_PROC = SANITIZED or BACKEND == "apple"

ENVIRONMENT = {"PATH": os.environ["PATH"], "ASAN_OPTIONS": "detect_leaks=1",
               **{name: os.environ[name] for name in ("LD_PRELOAD", "PRIVATE_ROOT_SHARE")
                  if name in os.environ}}

resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def metadata(clear=False, updateid=1, regenerate=False):
    """The metadata word with these members. A text is written as it is; None leaves one out."""
    members = {"clear": clear, "updateid": updateid, "regenerate": regenerate}
    words = {True: "true", False: "false"}
    return "{%s}" % ",".join(
        '"%s":%s' % (key, words[value] if isinstance(value, bool) else value)
        for key, value in members.items() if value is not None)


def as_tree(content):
    """What tree() shows for content as given to Machine.pack()."""
    return {name.rstrip("/").encode(): DIRECTORY if data is None else data
            for name, data in content.items()}


def write_tree(directory, content):
    """Writes content as given to Machine.pack() under a directory."""
    for name, data in content.items():
        path = directory / name
        if data is None:
            path.mkdir(parents=True, exist_ok=True)
        else:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)


class Machine:
    """Paths beginning with "/" are the machine's own; path() gives them as seen from outside."""

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
        """Makes the package: names to bytes, a name that ends in "/" to None."""
        with zipfile.ZipFile(self.package, "w", compression) as archive:
            for name, data in content.items():
                archive.writestr(name, data or b"")

    def record(self):
        with open(self.record_file, "rb") as stream:
            return plistlib.load(stream)

    def state(self):
        """All that a run may change."""
        return (tree_or_none(self.path("/Library")),
                self.record_file.read_bytes() if self.record_file.is_file() else None)

    def block_installation(self):
        """Makes a file where the install root should be."""
        write_tree(self.install_root.parent, {self.install_root.name: b"in the way"})

    def write_record(self, values, form=plistlib.FMT_XML):
        self.record_file.parent.mkdir(parents=True, exist_ok=True)
        self.record_file.write_bytes(plistlib.dumps(values, fmt=form))

    def add_programs(self, *programs):
        private_root.add_programs(self.root, *programs)

    def run(self, *command, umask=0o022, proc=NEEDS_PROC):
        """Runs the installer, or a command that runs it, and returns the completed process."""
        command = command or [f"{APPLICATION}/{EXECUTABLE}"]
        return subprocess.run(
            private_root.command_in(self.root, *command, proc=proc, added=True),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env=ENVIRONMENT, umask=umask, check=False)


@functools.lru_cache(maxsize=None)
def template():
    """A machine to copy, with the installer's shared libraries, kept as long as the process."""
    directory = tempfile.TemporaryDirectory()
    atexit.register(directory.cleanup)
    root = pathlib.Path(directory.name)
    shutil.copytree(BUNDLE, root / APPLICATION.lstrip("/"))
    private_root.add_programs(root, BUNDLE / EXECUTABLE)
    return root


FRESH = (None, None)  # the state() of a machine where nothing was ever installed


class ThrowawayMachine(Machine):
    """The machine that the tests run on, as root. What only a private root can have, the test of it
    is skipped for; the record is written and read by the system's own command."""

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
        raise unittest.SkipTest("needs a private root")

    @property
    def record_file(self):
        raise unittest.SkipTest("the record's file needs a private root")

    def path(self, path):
        if not path.startswith((APPLICATION, VENDOR)):
            raise unittest.SkipTest(f"{path} needs a private root")
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
    """Where the record is: with the posix back end by our rule. CoreFoundation has another rule,
    which an installation shows."""
    if BACKEND == "posix":
        return RECORD
    with tempfile.TemporaryDirectory() as directory:
        machine = Machine(pathlib.Path(directory, "machine"))
        machine.run()
        [record] = machine.root.rglob(os.path.basename(RECORD))
        return f"/{record.relative_to(machine.root)}"


# What is large takes the way of what is small: the sanitizers would see nothing new in it.
large = unittest.skipIf(SANITIZED, "large: runs without sanitizers")


def posix_only(why):
    """For a test of a rule that is the posix back end's alone."""
    return unittest.skipUnless(BACKEND == "posix", f"a rule of the posix back end: {why}")


class InstallerTestCase(unittest.TestCase):
    """A test with a fresh machine, whose package holds CONTENT and whose metadata is METADATA."""

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
        """Every run is silent, whatever happens in it."""
        result = (machine or self.machine).run(*command, **options)
        self.assertEqual((result.returncode, result.stdout), (status, b""))

    def run_until_abort(self, *command, **options):
        self.run_installer(*command, status=-signal.SIGABRT, **options)

    def assert_installed(self, content, machine=None):
        """The content is in Resource0 and nothing else is under the install root."""
        expected = {b"Resource0": DIRECTORY}
        expected.update({b"Resource0/" + name: data for name, data in content.items()})
        self.assertEqual(tree((machine or self.machine).install_root), expected)

    def assert_record(self, update, directory="Resource0", random=None, machine=None):
        """The record holds these values and no other key; without `random`, a drawn one."""
        record = (machine or self.machine).record()
        drawn = record.get("irandom")
        self.assertEqual(record, {**record_of(update, directory),
                                  "irandom": drawn if random is None else random})
        if random is None:
            self.assert_drawn(drawn)

    def assert_drawn(self, random):
        self.assertIs(type(random), int)
        self.assertIn(random, RANDOM_IDENTIFIERS)
