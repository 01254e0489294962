"""The fault campaigns: every run of the installer as it ships is disturbed at one point, judged,
and followed by an undisturbed run that must set everything right.

    faults.py [--sample N] [--jobs N] [CAMPAIGN...]

prints a line a campaign; a sample takes about N faults, spread over the campaign.
"""

import argparse
import collections
import multiprocessing
import os
import plistlib
import random
import signal
import subprocess
import sys
import time

import scenarios
from private_root import INSTALL_ROOT, RECORD, tree
from stage import Stage

ERRORS = ("EIO", "ENOSPC", "EACCES", "EMFILE", "EINTR", "ENOMEM")
TRANSFERS = {"read", "write", "pread64", "getrandom"}
# Not made to fail: the end of the process, the waking of nobody, and the suicide of abort().
INFALLIBLE = {"exit_group", "futex", "gettid", "getpid", "tgkill"}
# In number they follow the addresses that the kernel draws.
OF_THE_HEAP = {"brk", "mmap", "munmap", "mremap", "madvise", "mprotect"}

ABORT = -signal.SIGABRT


class Judge:
    """Knows how an undisturbed run of a scenario ends and compares others with it."""

    def __init__(self, stage, scenario):
        self.stage = stage
        self.scenario = scenario
        stage.set_up(scenario)
        stage.reset()
        self.old = self.readable_record() or {}
        result = stage.run()
        self.faults = []
        self.check(result.status == 0 and result.output == b"", "undisturbed", result)
        self.tree = tree(stage.install_root)
        self.new = stage.record()
        self.preferences = stage.preferences()
        stage.reset()
        self.surroundings = stage.surroundings()

    def check(self, holds, *what):
        if not holds:
            self.faults.append(" ".join(map(str, (self.scenario.name, *what))))

    def readable_record(self):
        try:
            return self.stage.record()
        except (plistlib.InvalidFileException, ValueError, OSError):
            return None
        except Exception:  # expat has its own
            return None

    def after_fault(self, result, statuses, *fault):
        """Judges what a disturbed run left."""
        self.check(result.status in statuses, *fault, "ends with", result.status)
        self.check(result.output == b"", *fault, "prints", result.output)
        self.check(self.stage.surroundings() == self.surroundings, *fault, "touches its surroundings")
        record = self.readable_record()
        if record is None:
            absent = not self.stage.record_file.exists()
            as_found = not absent and (self.stage.record_file.read_bytes() ==
                                       (self.stage.start / self.stage.record_file.relative_to(
                                           self.stage.library)).read_bytes())
            self.check(as_found or (absent and not self.old), *fault, "loses the record")
            return
        for key in {*self.old, *self.new, *record}:
            self.check(self.may_hold(key, record.get(key)), *fault, "records", key, record.get(key))

    def is_wiped(self):
        """Stopped between the wipe and the restoration: the one state that loses the identifier."""
        return self.scenario.clear and not self.readable_record()

    def may_hold(self, key, value):
        """Old and new values; a wiped or not yet written one; and a directory on its way."""
        if value is None:
            return key not in self.old or self.scenario.clear
        if key == "tWebResourceInstallPath":
            return value.startswith("Resource")
        if key == "irandom":
            return is_drawn(value)
        return value in (self.old.get(key), self.new.get(key))

    def after_clean_run(self, *fault, may_redraw=False):
        """An undisturbed run must end as if there had been no fault. Returns whether the random
        identifier is another one."""
        result = self.stage.run()
        self.check(result.status == 0 and result.output == b"", *fault, "then", result)
        self.check(tree(self.stage.install_root) == self.tree, *fault, "leaves another tree")
        self.check(self.stage.preferences() == self.preferences, *fault, "leaves",
                   self.stage.preferences())
        record = self.readable_record() or {}
        keeps = "irandom" in self.old and not self.scenario.regenerate
        redrawn = keeps and record.get("irandom") != self.old["irandom"]
        self.check(is_drawn(record.get("irandom")) and (may_redraw or not redrawn), *fault,
                   "redraws the random identifier")
        self.check({**record, "irandom": 0} == {**self.new, "irandom": 0}, *fault, "leaves", record)
        return redrawn


def is_drawn(number):
    return type(number) is int and 1 <= number <= 10000


class Campaign:
    """A scenario's share of one. Counts what was done."""

    scenarios = scenarios.ALL

    def __init__(self, scenario, share):
        self.stage = stage_of_this_process()
        self.judge = Judge(self.stage, scenario)
        self.share = share
        self.counts = collections.Counter(scenarios=1)

    def sampled(self, faults):
        """All of them, or this scenario's share of a sample, evenly spread."""
        if self.share is None or self.share >= len(faults):
            return faults
        step = len(faults) / self.share
        return [faults[int(step * i + step / 2)] for i in range(self.share)]

    def result(self):
        return self.counts, self.judge.faults


class Killed(Campaign):
    """Killed at every system call, then run again."""

    def run(self):
        for name, number in self.sampled(self.stage.calls()):
            self.stage.reset()
            self.kill_at(name, number)
            self.run_again(name, number)

    def kill_at(self, name, number):
        result = self.stage.run_with("kill", name, number)
        self.counts["kills" if result.struck else "not reached"] += 1
        self.judge.check(result.struck or name in OF_THE_HEAP, "kill", name, number, "not reached")
        self.judge.after_fault(result, {-signal.SIGKILL} if result.struck else {0}, "kill", name,
                               number)

    def run_again(self, *fault):
        redrawn = self.judge.after_clean_run("kill", *fault, may_redraw=self.judge.is_wiped())
        self.counts["identifiers lost between wipe and restoration"] += redrawn


class KilledTwice(Killed):
    """Killed at a random system call, and again in the run that was to set it right."""

    pairs = 1000

    def run(self):
        choice = random.Random(self.judge.scenario.name)
        calls = self.stage.calls()
        share = self.pairs // len(self.scenarios) if self.share is None else self.share
        for _ in range(share):
            self.stage.reset()
            self.kill_at(*choice.choice(calls))
            again = choice.choice(calls)
            result = self.stage.run_with("kill", *again)
            self.judge.after_fault(result, {-signal.SIGKILL} if result.struck else {0}, "again",
                                   *again)
            self.counts["second kills" if result.struck else "re-runs that ended before"] += 1
            self.run_again(*again, "again")


class FailingCalls(Campaign):
    """Every system call fails, with every error, once and from then on."""

    scenarios = scenarios.chosen("fresh: small", "installed: deep, clear",
                                 "corrupt: large, regenerate")

    def run(self):
        faults = [(error, name, f"{number}{lasting}")
                  for name, number in self.stage.calls() if name not in INFALLIBLE
                  for error in (*ERRORS, *(["short"] if name in TRANSFERS else []))
                  for lasting in ("", "+")]
        for error, name, number in self.sampled(faults):
            self.stage.reset()
            result = self.stage.run_with(error, name, number)
            self.counts["faults" if result.struck else "not reached"] += 1
            self.judge.check(result.struck or name in OF_THE_HEAP, error, name, number,
                             "not reached")
            self.counts["abnormal ends"] += result.status == ABORT
            self.judge.after_fault(result, {0, ABORT}, error, name, number)
            self.counts["identifiers redrawn"] += self.judge.after_clean_run(
                error, name, number, may_redraw=True)


class FailingAllocations(Campaign):
    """Every allocation fails, once and from then on."""

    scenarios = FailingCalls.scenarios

    def run(self):
        total = self.count()
        self.counts["allocations"] = total
        for number in self.sampled([f"{number}{lasting}" for number in range(1, total + 1)
                                    for lasting in ("", "+")]):
            self.stage.reset()
            result = self.stage.run_failing_allocation(number)
            self.counts["faults"] += 1
            self.judge.check(result.struck, "allocation", number, "not reached")
            self.counts["abnormal ends"] += result.status == ABORT
            self.judge.after_fault(result, {0, ABORT}, "allocation", number)
            self.counts["identifiers lost between wipe and restoration"] += (
                self.judge.after_clean_run("allocation", number, may_redraw=self.judge.is_wiped()))

    def count(self):
        """How many allocations an undisturbed run makes."""
        low, high = 0, 1 << 20
        while low < high:
            middle = (low + high + 1) // 2
            self.stage.reset()
            if self.stage.run_failing_allocation(middle).struck:
                low = middle
            else:
                high = middle - 1
        return low


class Neighbours(Campaign):
    """Before every system call, another process changes the tree, the record or the package."""

    scenarios = scenarios.chosen("installed: small", "leftovers: large, regenerate")

    AT_ROOT = f"cd '{INSTALL_ROOT[1:]}' && "
    AT_RECORD = f"cd '{os.path.dirname(RECORD)[1:]}' && "
    NAME = os.path.basename(RECORD)
    ADDED_KEY = "key added under the lock"
    KEY = "<key>theirs</key><string>kept</string>"
    PLANTS = {
        "FIFO at an output path": AT_ROOT + "mkfifo Resource[1-9]/index.html",
        "link at an output path": AT_ROOT + "ln -s /elsewhere/victim Resource[1-9]/index.html",
        "new file's link at an output path": AT_ROOT + "ln -s /elsewhere/new Resource[1-9]/css/a.css",
        "hard link at an output path":
            AT_ROOT + "ln ../../../../../../elsewhere/victim Resource[1-9]/index.html",
        "directory at an output path": AT_ROOT + "mkdir Resource[1-9]/index.html",
        "link in the fresh directory's place":
            AT_ROOT + "for i in 1 2 8; do [ -e Resource$i ] || ln -s /elsewhere Resource$i; done",
        "fresh directory removed": AT_ROOT + "rm -rf Resource[1-9]",
        "all directories removed": "rm -rf Library/*",
        "old directory replaced by a link":
            AT_ROOT + "rm -rf Resource0 && ln -s /elsewhere Resource0",
        "record replaced by a FIFO": AT_RECORD + f"rm {NAME}; mkfifo {NAME}",
        "record replaced by a link": AT_RECORD + f"ln -sf /elsewhere/victim {NAME}",
        "record damaged": AT_RECORD + f"echo '<plist><dict><k' > {NAME}",
        ADDED_KEY: AT_RECORD + f"flock -n . sed -i 's|^</dict>|{KEY}&|' {NAME}"
                               " && [ -e " + NAME + " ] && touch ../../added",
        "package cut": "find Applications -name '*.zip' -exec truncate -s 100 {} +",
    }

    def run(self):
        self.elsewhere = tree(self.stage.elsewhere)
        faults = [(plant, *call) for plant in self.PLANTS for call in self.stage.calls()]
        for plant, name, number in self.sampled(faults):
            self.stage.set_up(self.judge.scenario)
            self.stage.reset()
            result = self.stage.run_with(f"sh:exec 2>/dev/null; {self.PLANTS[plant]}", name, number)
            self.counts["changes"] += 1
            self.judge.check(result.struck or name in OF_THE_HEAP, plant, name, number,
                             "not reached")
            self.judge.check((result.status, result.output) == (0, b""), plant, name, number,
                             "ends with", result)
            if (self.stage.root / "added").exists():
                (self.stage.root / "added").unlink()
                self.counts["keys added"] += 1
                self.judge.check(self.judge.readable_record().get("theirs") == "kept", plant, name,
                                 number, "loses the key")
            self.judge.check(tree(self.stage.elsewhere) == self.elsewhere, plant, name, number,
                             "touches what is elsewhere")



CAMPAIGNS = {
    "killed": Killed,
    "killed-twice": KilledTwice,
    "calls": FailingCalls,
    "allocations": FailingAllocations,
    "neighbours": Neighbours,
}


def stage_of_this_process(stages=[]):
    if not stages:
        stages.append(Stage())
    return stages[0]


def run_share(task):
    campaign, index, share = task
    part = CAMPAIGNS[campaign](CAMPAIGNS[campaign].scenarios[index], share)
    part.run()
    return part.result()


def run_campaign(name, pool, sample):
    began = time.monotonic()
    count = len(CAMPAIGNS[name].scenarios)
    share = None if sample is None else max(1, sample // count)
    counts, faults = collections.Counter(), []
    for part_counts, part_faults in pool.imap_unordered(
            run_share, [(name, index, share) for index in range(count)]):
        counts += part_counts
        faults += part_faults
    figures = ", ".join(f"{number} {what}" for what, number in counts.items())
    print(f"{name}: {figures}; {len(faults)} exceptions; {time.monotonic() - began:.0f} s",
          flush=True)
    for fault in faults:
        print(f"  {fault}", flush=True)
    return not faults


def enter_namespace():
    """Mounts are this process's own, and chroot is allowed to it, as root or an ordinary user.
    What it writes is in memory, and gone with it."""
    if "FAULTS_NAMESPACE" not in os.environ:
        os.environ["FAULTS_NAMESPACE"] = "root" if os.getuid() == 0 else "user"
        user = ["--map-root-user"] if os.getuid() != 0 else []
        os.execvp("unshare", ["unshare", "--mount", *user, sys.executable, "-B", *sys.argv])
    subprocess.run(["mount", "-t", "tmpfs", "faults", os.environ["SCRATCH"]], check=True)


def main():
    enter_namespace()
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--sample", type=int)
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    parser.add_argument("campaigns", nargs="*", default=list(CAMPAIGNS))
    arguments = parser.parse_args()
    with multiprocessing.Pool(arguments.jobs) as pool:
        passed = [run_campaign(name, pool, arguments.sample) for name in arguments.campaigns]
    sys.exit(0 if all(passed) else 1)


if __name__ == "__main__":
    main()
