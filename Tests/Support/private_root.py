"""What the installer writes and where, and private roots: directories that a program sees as "/".
Shared by all Python tests."""

import errno
import os
import pathlib
import shutil
import signal
import subprocess

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PRIVATE_ROOT = str(SOURCE / "script/lib/private-root")

INSTALL_ROOT = "/Library/Application Support/Veltrane/Orlisk/2017/WebResources"
RECORD = "/Library/Preferences/com.veltrane.orlisk.2017.WebResource.plist.plist"
RELEASE = "17.011.30138"  # which the full version begins with
RANDOM_IDENTIFIERS = range(1, 10001)

SEVEN_ZIP = shutil.which("7zz") or "7z"  # its name depends on the release

DIRECTORY = "a directory"  # what tree() shows for one
SPECIAL = "special"  # and for a FIFO, a socket or a device


def full_version(update):
    return f"{RELEASE}.{update}"


def record_of(update, directory="Resource0"):
    """The record after an installation, without the random identifier."""
    return {"tWebResourceInstallPath": directory, "iUpdateId": update,
            "tFullVersion": full_version(update)}


def heed_signals():
    """Restores the default actions of the signals that tests send. For `preexec_fn`: nohup and a
    shell's background jobs ignore signals, and a child process inherits that."""
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)


def file_system_takes(path):
    """Whether the file system takes such a path, which need not exist: bytes or text. Some refuse
    one of 1,024 bytes, or one that is not UTF-8."""
    try:
        os.lstat(path)
    except OSError as error:
        return error.errno not in (errno.EILSEQ, errno.ENAMETOOLONG)
    return True


TAKES_LONG_PATHS = file_system_takes("/d" * 512)


def tree(directory):
    """Everything below a directory, by relative path: bytes, DIRECTORY, ("link", target) or
    SPECIAL."""
    top = os.fsencode(directory)
    found = {}
    for parent, directories, files in os.walk(top):
        for name in directories + files:
            path = os.path.join(parent, name)
            found[os.path.relpath(path, top)] = what_is(path)
    return found


def tree_or_none(directory):
    return tree(directory) if os.path.exists(directory) else None


def what_is(path):
    if os.path.islink(path):
        return ("link", os.readlink(path))
    if os.path.isdir(path):
        return DIRECTORY
    if not os.path.isfile(path):
        return SPECIAL
    with open(path, "rb") as stream:
        return stream.read()


def inside(root, path):
    """The path of a private root's file, as seen from outside."""
    return pathlib.Path(root, path.lstrip("/"))


def add_programs(root, *programs):
    """Copies programs into a private root, at the same paths, with their shared libraries."""
    subprocess.run([PRIVATE_ROOT, "add", root, *programs], check=True)


def command_in(root, *command, proc=False, added=False):
    """The command that runs `command` in a private root, with /proc if asked for. `added`: all that
    it needs has been added before, which saves most of the time."""
    options = ["--added"] * added + ["--proc"] * proc
    return [PRIVATE_ROOT, "run", *options, str(root), *map(str, command)]


def program(name):
    """The real path of a program, which add_programs() copies it to."""
    return os.path.realpath(shutil.which(name))
