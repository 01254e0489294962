"""The installer's files and their paths, and chroots. All Python tests share this module."""

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
RELEASE = "17.011.30138"  # the beginning of the full version
RANDOM_IDENTIFIERS = range(1, 10001)

SEVEN_ZIP = shutil.which("7zz") or "7z"  # the name depends on the release of the distribution

DIRECTORY = "a directory"  # the value in tree() for a directory
SPECIAL = "special"  # the value in tree() for a FIFO, a socket or a device


def full_version(update):
    return f"{RELEASE}.{update}"


def record_of(update, directory="Resource0"):
    """Returns the record after an installation, without the random identifier."""
    return {"tWebResourceInstallPath": directory, "iUpdateId": update,
            "tFullVersion": full_version(update)}


def heed_signals():
    """Restores the default actions of the signals that tests send. For `preexec_fn`: nohup and
    background jobs of a shell ignore signals, and a child process inherits ignored signals."""
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)


def file_system_takes(path):
    """Returns whether the file system accepts `path`, bytes or a string, which need not exist. Some
    file systems refuse a path of 1,024 bytes, or a path that is not UTF-8."""
    try:
        os.lstat(path)
    except OSError as error:
        return error.errno not in (errno.EILSEQ, errno.ENAMETOOLONG)
    return True


TAKES_LONG_PATHS = file_system_takes("/d" * 512)


def tree(directory):
    """Returns the entries below a directory as a map of relative paths. The value is the content as
    bytes, DIRECTORY, ("link", target) or SPECIAL."""
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
    """Returns the path of a chroot's file as seen from outside."""
    return pathlib.Path(root, path.lstrip("/"))


def add_programs(root, *programs):
    """Copies programs and their shared libraries into a chroot, with the same paths."""
    subprocess.run([PRIVATE_ROOT, "add", root, *programs], check=True)


def command_in(root, *command, proc=False, added=False):
    """Returns the command that runs `command` in a chroot, with /proc if `proc`. With `added`, all
    needed files must be in the chroot already, which saves most of the time."""
    options = ["--added"] * added + ["--proc"] * proc
    return [PRIVATE_ROOT, "run", *options, str(root), *map(str, command)]


def program(name):
    """Returns the real path of a program. add_programs() copies the program to the same path."""
    return os.path.realpath(shutil.which(name))
