"""Running a command as a whole process and asking the operating system what it took."""

import dataclasses
import os
import pickle
import re
import resource  # noqa: F401, os.wait4() looks for it, in a private root in vain
import shutil
import statistics
import subprocess
import tempfile
import time

MACHINE_FILES = "/Library"  # what a run of the installer makes in its private root


@dataclasses.dataclass
class Command:
    """A command that makes `product`; with `root`, in that private root."""

    name: str
    arguments: list
    product: str
    root: str = "/"
    before: object = None  # makes what the command finds

    def prepare(self):
        if self.before:
            self.before()
        else:
            shutil.rmtree(self.product, ignore_errors=True)


def in_root(root, function):
    """What `function` returns in a process whose root directory is `root`."""
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


def seconds(command):
    """The seconds of one run of `command`: from its start to its end, and of the processor."""

    def run():
        start = time.monotonic()
        child = os.posix_spawn(command.arguments[0], command.arguments, {"PATH": os.defpath})
        _, status, usage = os.wait4(child, 0)
        return status, time.monotonic() - start, usage.ru_utime + usage.ru_stime

    command.prepare()
    status, elapsed, processor = in_root(command.root, run)
    if status != 0:
        raise RuntimeError(f"{command.name} failed: {command.arguments}")
    return elapsed, processor


class Series:
    """Runs of several commands in turn: A B C A B C …

    On a tmpfs the time is the processor's, which other processes disturb less; elsewhere it is what
    passes, waits included.
    """

    def __init__(self, commands, rounds, repetitions=1, waits=False):
        clock = 0 if waits else 1
        self.times = {command.name: [] for command in commands}
        for _ in range(rounds):
            for command in commands:
                taken = [seconds(command)[clock] for _ in range(repetitions)]
                self.times[command.name].append(statistics.fmean(taken))
        for command in commands:
            shutil.rmtree(command.product, ignore_errors=True)

    def median(self, name):
        return statistics.median(self.times[name])

    def ratio(self, name, other):
        """The median of the ratios of the runs that followed each other."""
        return statistics.median(a / b for a, b in zip(self.times[name], self.times[other]))


def chrooted(command):
    return [shutil.which("chroot", path="/usr/sbin:/sbin"), command.root, *command.arguments]


def peak_kib(command):
    """The largest resident memory of one run."""
    command.prepare()
    with tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["/usr/bin/time", "-f", "%M", "-o", report.name, *chrooted(command)],
                       check=True)
        return int(report.read())


def system_calls(command, kind="all"):
    """The number and, in seconds, the time of each kind of system call of one run."""
    command.prepare()
    with tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["strace", "-f", "-e", "trace=" + kind, "-c", "-w", "-U",
                        "name,calls,total-time", "-o", report.name, *chrooted(command)],
                       check=True)
        rows = re.findall(r"^(\w+) +(\d+) +([\d.]+)$", report.read(), re.MULTILINE)
    return {name: (int(calls), float(taken)) for name, calls, taken in rows if name != "total"}


def instructions(command):
    """The instructions executed by one run, counted by callgrind inside the private root."""
    command.prepare()
    valgrind = ["/usr/bin/valgrind.bin", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    script = 'mount --rbind /proc "$0/proc" && mount --rbind /dev "$0/dev" && exec chroot "$0" "$@"'
    result = subprocess.run(["unshare", "--mount", "sh", "-c", script, command.root, *valgrind,
                             *command.arguments], check=True, text=True, stderr=subprocess.PIPE)
    return int(re.search(r"Collected : (\d+)", result.stderr).group(1))
