"""Runs a command as a process and measures its use of the operating system."""

import dataclasses
import importlib
import os
import pickle
import re
import shutil
import statistics
import subprocess
import tempfile
import time

importlib.import_module("resource")  # os.wait4() needs the module, and a chroot lacks the module

MACHINE_FILES = "/Library"  # made by a run of the installer in its chroot


@dataclasses.dataclass
class Command:
    """A command that makes `product`. With `root`, the command runs in that chroot."""

    name: str
    arguments: list
    product: str
    root: str = "/"
    before: object = None  # prepares the environment of the command

    def prepare(self, on_disk=False):
        if self.before:
            self.before()
        elif on_disk:
            put_aside(self.product)
        else:
            shutil.rmtree(self.product, ignore_errors=True)


def put_aside(path):
    """Moves `path` aside without deletion. For minutes after a deletion, ext4 examines the inode of
    each deleted file before it finds an inode for a new file nearby. A run after the deletion of
    its last product took five times as long."""
    if os.path.lexists(path):
        os.rename(path, tempfile.mkdtemp(prefix="aside-", dir=os.path.dirname(path)))


def in_root(root, function):
    """Returns the result of `function` in a process whose root directory is `root`."""
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            os.chroot(root)
            with os.fdopen(writer, "wb") as stream:
                pickle.dump(function(), stream)
            status = 0
        finally:
            os._exit(status)
    os.close(writer)
    with os.fdopen(reader, "rb") as stream:
        data = stream.read()
    if os.waitpid(child, 0)[1] != 0:
        raise RuntimeError("a measured process did not finish")
    return pickle.loads(data)


def seconds(command, on_disk=False):
    """Returns the elapsed time and the processor time, in seconds, of one run of `command`."""

    def run():
        start = time.monotonic()
        child = os.posix_spawn(command.arguments[0], command.arguments, {"PATH": os.defpath})
        _, status, usage = os.wait4(child, 0)
        return status, time.monotonic() - start, usage.ru_utime + usage.ru_stime

    command.prepare(on_disk)
    if on_disk:
        os.sync()
    status, elapsed, processor = in_root(command.root, run)
    if status != 0:
        raise RuntimeError(f"{command.name} failed: {command.arguments}")
    return elapsed, processor


class Series:
    """Runs of several commands in rounds. Each round starts with another command than the round
    before, so that no command always follows the same command.

    On a tmpfs, the measured time is processor time, which other processes disturb less. With
    `on_disk`, the measured time is elapsed time with waits. All data is then synced before each run,
    so that no command writes the data of an earlier command.
    """

    def __init__(self, commands, rounds, repetitions=1, on_disk=False):
        self.elapsed = {command.name: [] for command in commands}
        self.processor = {command.name: [] for command in commands}
        self.judged = self.elapsed if on_disk else self.processor
        for number in range(rounds):
            first = number % len(commands)
            for command in commands[first:] + commands[:first]:
                taken = [seconds(command, on_disk) for _ in range(repetitions)]
                self.elapsed[command.name].append(statistics.fmean(run[0] for run in taken))
                self.processor[command.name].append(statistics.fmean(run[1] for run in taken))
        if not on_disk:
            for command in commands:
                shutil.rmtree(command.product, ignore_errors=True)

    def median(self, name):
        return statistics.median(self.judged[name])

    def median_processor(self, name):
        return statistics.median(self.processor[name])

    def ratio(self, name, other):
        """Returns the median of the ratios of runs in the same round."""
        return statistics.median(a / b for a, b in zip(self.judged[name], self.judged[other]))


def chrooted(command):
    return [shutil.which("chroot", path="/usr/sbin:/sbin"), command.root, *command.arguments]


def peak_kib(command):
    """Returns the largest resident memory of one run."""
    command.prepare()
    with tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["/usr/bin/time", "-f", "%M", "-o", report.name, *chrooted(command)],
                       check=True, stdout=subprocess.DEVNULL)
        return int(report.read())


def system_calls(command, kind="all"):
    """Returns the number and the time in seconds of each kind of system call of one run."""
    command.prepare()
    with tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["strace", "-f", "-e", "trace=" + kind, "-c", "-w", "-U",
                        "name,calls,total-time", "-o", report.name, *chrooted(command)],
                       check=True)
        rows = re.findall(r"^(\w+) +(\d+) +([\d.]+)$", report.read(), re.MULTILINE)
    return {name: (int(calls), float(taken)) for name, calls, taken in rows if name != "total"}


def system_calls_at(command, path):
    """Counts the reads and the replacements of the file at `path` in one run, and the waits for the
    disk: for files and directories (fsync) and for a whole file system (syncfs)."""
    command.prepare()
    with tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["strace", "-f", "-e", "trace=openat,rename,renameat,renameat2,fsync,syncfs",
                        "-o", report.name, *chrooted(command)], check=True)
        lines = report.read().splitlines()
    name = path.rsplit("/", 1)[1]
    return {"reads": sum("openat(" in line and f'{name}"' in line and "O_RDONLY" in line
                         for line in lines),
            "writes": sum("rename" in line and f'{name}"' in line for line in lines),
            "fsync": sum("fsync(" in line for line in lines),
            "syncfs": sum("syncfs(" in line for line in lines)}


def allocations(arguments):
    """Counts the memory blocks that a command allocates, with valgrind."""
    result = subprocess.run(["valgrind", "--run-libc-freeres=no", *arguments], check=True, text=True,
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return int(re.search(r"total heap usage: ([\d,]+) allocs", result.stderr).group(1)
               .replace(",", ""))


def instructions(command):
    """Counts the instructions of one run, with callgrind in the chroot."""
    command.prepare()
    valgrind = ["/usr/bin/valgrind.bin", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    script = 'mount --rbind /proc "$0/proc" && mount --rbind /dev "$0/dev" && exec chroot "$0" "$@"'
    result = subprocess.run(["unshare", "--mount", "sh", "-c", script, command.root, *valgrind,
                             *command.arguments], env={**os.environ, "TMPDIR": "/tmp"},
                            check=True, text=True, stderr=subprocess.PIPE)
    return int(re.search(r"Collected : (\d+)", result.stderr).group(1))
