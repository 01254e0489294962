"""The chroot in which one worker runs the installer again and again.

Only /Library is restored between two runs, because a run changes nothing else.
"""

import collections
import os
import pathlib
import plistlib
import shutil
import stat
import subprocess
import tempfile
import zipfile

from machine import APPLICATION, EXECUTABLE, SANITIZED, template
from private_root import INSTALL_ROOT, RECORD, add_programs, inside

INJECT = os.environ["INJECT"]
FAIL_MALLOC = os.environ["FAIL_MALLOC"]
PROGRAM = f"{APPLICATION}/{EXECUTABLE}"
TIMEOUT = 30
# Leak detection needs ptrace itself. TMPDIR must be a directory of the chroot.
ENVIRONMENT = {"ASAN_OPTIONS": "detect_leaks=0", "TMPDIR": "/tmp"}

Result = collections.namedtuple("Result", "status output struck")


class Stage:
    """A root in memory. Requires: the caller has a private mount namespace."""

    def __init__(self):
        self.top = pathlib.Path(tempfile.mkdtemp())
        self.root = self.top / "root"
        shutil.copytree(template(), self.root)
        self.root.chmod(0o755)
        self.report = self.top / "report"
        self.start = self.top / "start"
        self.library = self.root / "Library"
        self.install_root = self.root / INSTALL_ROOT[1:]
        self.record_file = self.root / RECORD[1:]
        self.resources = self.root / APPLICATION[1:] / "Contents/Resources"
        for name in ("proc", "tmp", "elsewhere"):
            (self.root / name).mkdir(exist_ok=True)
        self.elsewhere = self.root / "elsewhere"
        (self.elsewhere / "victim").write_bytes(b"not to be written to")
        if SANITIZED:
            subprocess.run(["mount", "--rbind", "/proc", self.root / "proc"], check=True)
        else:
            add_programs(self.root, shutil.which("env"), FAIL_MALLOC)

    def set_up(self, scenario):
        """Writes the two files of the bundle and the start state for reset()."""
        (self.resources / "metadata.txt").write_text(scenario.metadata)
        package = self.resources / "OrloWebResources.zip"
        package.unlink(missing_ok=True)
        if scenario.package is not None:
            with zipfile.ZipFile(package, "w", zipfile.ZIP_DEFLATED) as archive:
                for name, data in scenario.package.items():
                    archive.writestr(name, data or b"")
        shutil.rmtree(self.start, ignore_errors=True)
        scenario.write_start(self.start)

    def reset(self):
        shutil.rmtree(self.library, ignore_errors=True)
        copy_tree(self.start, self.library)

    def run(self):
        """Performs an undisturbed run."""
        return self._run(["chroot", self.root, PROGRAM])

    def run_with(self, action, call, number, command=(PROGRAM,)):
        """Performs a disturbed run of the installer, or of another command in the root."""
        result = self._run([INJECT, self.root, self.report, action, call, str(number), *command])
        return result._replace(struck=" * " in self.report.read_text(errors="surrogateescape"))

    def run_preloaded(self, library, *variables, command=(PROGRAM,)):
        """Performs a run of the installer, or of another command in the root, with a preloaded
        library and with environment variables."""
        if not inside(self.root, library).exists():
            add_programs(self.root, library)
        return self._run(["chroot", self.root, shutil.which("env"), f"LD_PRELOAD={library}",
                          *variables, *command])

    def run_failing_allocation(self, number):
        fired = self.root / "fired"
        fired.unlink(missing_ok=True)
        result = self.run_preloaded(FAIL_MALLOC, f"FAIL_ALLOCATION={number}",
                                    "FAIL_ALLOCATION_REPORT=/fired")
        struck = fired.exists()
        fired.unlink(missing_ok=True)
        return result._replace(struck=struck)

    def allocations(self):
        """Returns the number of allocations of an undisturbed run."""
        made, too_many = 0, 1 << 20
        while too_many - made > 1:
            number = (made + too_many) // 2
            self.reset()
            made, too_many = ((number, too_many) if self.run_failing_allocation(number).struck
                              else (made, number))
        return made

    def calls(self, command=(PROGRAM,)):
        """Returns the system calls of an undisturbed run: pairs of a name and its number."""
        return [(name, number) for name, number, _ in self.calls_and_paths(command)]

    def calls_and_paths(self, command=(PROGRAM,)):
        """As calls(), each with the path of an openat()."""
        self.run_with("none", "", "0", command)
        lines = (line.split(" ", 3) for line in
                 self.report.read_text(errors="surrogateescape").splitlines())
        return [(name, int(number), path) for name, number, _, path in lines]

    @staticmethod
    def _run(command):
        try:
            result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, env={**os.environ, **ENVIRONMENT},
                                    timeout=TIMEOUT, check=False)
        except subprocess.TimeoutExpired as expired:
            return Result("hangs", expired.output, True)
        return Result(result.returncode, result.stdout, True)

    def record(self):
        """Returns the record, or None if there is no file. Raises the exception of plistlib if the
        file is damaged."""
        try:
            return plistlib.loads(self.record_file.read_bytes())
        except FileNotFoundError:
            return None

    def record_bytes(self):
        """Returns the bytes of the record's file, or None if there is no regular file."""
        if self.record_file.is_symlink() or not self.record_file.is_file():
            return None
        return self.record_file.read_bytes()

    def is_record_usable(self):
        """Returns whether the record's file is usable or can be made."""
        return self.record_bytes() is not None or not os.path.lexists(self.record_file)

    def preferences(self):
        directory = self.record_file.parent
        return sorted(os.listdir(directory)) if directory.is_dir() else []

    def surroundings(self):
        """Returns everything that no run may change: all files except the install root and the
        record's files."""
        found = {}
        may_be_made = {str(path) for path in
                       (*self.install_root.parents, *self.record_file.parents)}

        def visit(directory):
            for entry in os.scandir(directory):
                if entry.path == str(self.install_root) or entry.path == str(self.root / "proc"):
                    continue
                status = entry.stat(follow_symlinks=False)
                if entry.is_dir(follow_symlinks=False):
                    if entry.path not in may_be_made:
                        found[entry.path] = status.st_mode
                    visit(entry.path)
                elif not entry.path.startswith(str(self.record_file)):
                    found[entry.path] = (status.st_mode, status.st_size, status.st_mtime_ns)
        visit(self.root)
        return found


def copy_tree(source, target):
    """Copies a tree. Copies links, FIFOs and sockets as such."""
    target.mkdir()
    for entry in os.scandir(source):
        copy = target / entry.name
        mode = entry.stat(follow_symlinks=False).st_mode
        if stat.S_ISDIR(mode):
            copy_tree(pathlib.Path(entry.path), copy)
        elif stat.S_ISLNK(mode):
            os.symlink(os.readlink(entry.path), copy)
        elif stat.S_ISREG(mode):
            shutil.copy2(entry.path, copy)
        else:
            os.mknod(copy, mode)
