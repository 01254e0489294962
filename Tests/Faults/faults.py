"""The fault campaigns of the installer. Each run of the shipped installer is disturbed at one point
and then judged. The next, undisturbed run must end as if there had been no fault.

    faults.py [--sample N] [--jobs N] [CAMPAIGN...]

Prints a line for each campaign. A sample has about N faults, spread over the campaign.
"""

import argparse
import collections
import multiprocessing
import os
import plistlib
import random
import signal
import sys
import time

import scenarios
from contract import FINAL, Contract, below, is_drawn, read_record
from machine import as_tree
from private_root import DIRECTORY, INSTALL_ROOT, RECORD, SOURCE, tree
from stage import Stage

ERRORS = ("EIO", "ENOSPC", "EACCES", "EMFILE", "EINTR", "ENOMEM")
# The system calls of a C library for a status. Newer libraries use fstat for an open file.
STATUS = {"fstat", "newfstatat"}
TRANSFERS = {"read", "write", "pread64", "getrandom"}
# Calls that are not made to fail: the end of the process, a wake-up without a waiter, and abort().
INFALLIBLE = {"exit_group", "futex", "geteuid", "getpid", "gettid", "tgkill", "umask"}
# The number of these calls varies: with the addresses that the kernel draws, and because mkdtemp()
# calls getrandom() at times only.
VARYING = {"brk", "getrandom", "mmap", "munmap", "mremap", "madvise", "mprotect"}
# A failure may end the run: calls that allocate memory, and calls that read the metadata.
ASK_FOR_MEMORY = {"brk", "mmap", "mremap"}
READ_THE_METADATA = {"readlink", "openat", "read"}

ABORT = -signal.SIGABRT


class Judge:
    """Compares disturbed runs of a scenario with an undisturbed run."""

    def __init__(self, stage, scenario):
        self.stage = stage
        self.scenario = scenario
        self.faults = []
        self.windows = collections.Counter()
        stage.set_up(scenario)
        stage.reset()
        self.contract = self.contract_from_here()
        self.old = self.contract.old
        result = stage.run()
        self.check(result.status == 0 and result.output == b"", "undisturbed", result)
        self.tree = tree(stage.install_root)
        self.check(below(self.tree, FINAL) == self.contract.package, "undisturbed", "installs",
                   self.tree)
        self.new = stage.record()
        self.preferences = stage.preferences()
        stage.reset()
        self.surroundings = stage.surroundings()

    def contract_from_here(self):
        """Returns the contract of a run that starts from the present state of the machine."""
        scenario = self.scenario
        return Contract(tree(self.stage.install_root), self.stage.record_bytes(),
                        as_tree(scenario.package or {}), scenarios.UPDATE, scenario.clear,
                        scenario.regenerate)

    def check(self, holds, *what):
        if not holds:
            self.faults.append(" ".join(map(str, (self.scenario.name, *what))))

    def after_fault(self, result, statuses, *fault, contract=None, may_go_on=None):
        """Judges a disturbed run by `contract`. Default: the contract of the scenario's start.
        `may_go_on` has the names of the permitted results of a run that continues after a
        failure."""
        self.check(result.status in statuses, *fault, "ends with", result.status)
        self.check(result.output == b"", *fault, "prints", result.output)
        self.check(self.stage.surroundings() == self.surroundings, *fault,
                   "touches its surroundings")
        found, record = tree(self.stage.install_root), self.stage.record_bytes()
        contract = contract or self.contract
        verdict = contract.judge(found, record)
        if verdict.faults and may_go_on:
            verdict = contract.judge_failed(found, record)
            self.check(verdict.window in may_go_on, *fault, "leads to:", verdict.window)
        self.windows.update([verdict.window] if verdict.window else [])
        for what in verdict.faults:
            self.check(False, *fault, what)

    def may_have_lost_identifier(self):
        """Returns whether the run was stopped between the clearing and the restoration, the only
        state that loses the identifier."""
        record = read_record(self.stage.record_bytes()) or {}
        return self.scenario.clear and "irandom" not in record

    def after_clean_run(self, *fault, may_redraw=False):
        """Checks that an undisturbed run ends as if there had been no fault. Returns whether the
        random identifier has changed."""
        result = self.stage.run()
        self.check(result.status == 0 and result.output == b"", *fault, "then", result)
        self.check(tree(self.stage.install_root) == self.tree, *fault, "leaves another tree")
        self.check(self.stage.preferences() == self.preferences, *fault, "leaves",
                   self.stage.preferences())
        record = read_record(self.stage.record_bytes()) or {}
        keeps = "irandom" in self.old and not self.scenario.regenerate
        redrawn = keeps and record.get("irandom") != self.old["irandom"]
        self.check(is_drawn(record.get("irandom")) and (may_redraw or not redrawn), *fault,
                   "redraws the random identifier")
        self.check({**record, "irandom": 0} == {**self.new, "irandom": 0}, *fault, "leaves", record)
        return redrawn


class Campaign:
    """One scenario's share of a campaign. Counts the operations."""

    scenarios = scenarios.ALL

    def __init__(self, scenario, share):
        self.stage = stage_of_this_process()
        self.judge = Judge(self.stage, scenario)
        self.share = share
        self.counts = collections.Counter(scenarios=1)

    def sampled(self, faults):
        """Returns all faults, or this scenario's share of an evenly spread sample."""
        if self.share is None or self.share >= len(faults):
            return faults
        step = len(faults) / self.share
        return [faults[int(step * i + step / 2)] for i in range(self.share)]

    def result(self):
        return self.counts, self.judge.windows, self.judge.faults


class Killed(Campaign):
    """The run is killed at every system call and repeated."""

    def run(self):
        for name, number in self.sampled(self.stage.calls()):
            self.stage.reset()
            self.kill_at(name, number)
            self.run_again(name, number)

    def kill_at(self, name, number):
        result = self.stage.run_with("kill", name, number)
        self.counts["kills" if result.struck else "not reached"] += 1
        self.judge.check(result.struck or name in VARYING, "kill", name, number, "not reached")
        self.judge.after_fault(result, {-signal.SIGKILL} if result.struck else {0}, "kill", name,
                               number)

    def run_again(self, *fault, may_redraw=False):
        redrawn = self.judge.after_clean_run(
            "kill", *fault, may_redraw=may_redraw or self.judge.may_have_lost_identifier())
        self.counts["identifiers lost between clearing and restoration"] += redrawn


class KilledTwice(Killed):
    """The run is killed at a random system call, and the repeated run is killed as well."""

    pairs = 1000

    def run(self):
        choice = random.Random(self.judge.scenario.name)
        calls = self.stage.calls()
        share = self.pairs // len(self.scenarios) if self.share is None else self.share
        for _ in range(share):
            self.stage.reset()
            self.kill_at(*choice.choice(calls))
            lost = self.judge.may_have_lost_identifier()
            again = choice.choice(calls)
            contract = self.judge.contract_from_here()
            result = self.stage.run_with("kill", *again)
            self.judge.after_fault(result, {-signal.SIGKILL} if result.struck else {0}, "again",
                                   *again, contract=contract)
            self.counts["second kills" if result.struck else "re-runs that ended before"] += 1
            self.run_again(*again, "again", may_redraw=lost)


class FailingCalls(Campaign):
    """Each system call fails with each error, once or from then on."""

    scenarios = scenarios.chosen("fresh: small", "installed: deep, clear",
                                 "corrupt: large, regenerate")
    LOAD = {*STATUS, "openat", "pread64", "read"}
    FLUSH = {*LOAD, "chmod", "fchmod", "fsync", "getrandom", "mkdir", "renameat",
             "renameat2", "write"}
    LEADS_TO = {  # the permitted results, each with the calls whose failure permits the result
        "not installed": {"access", "mkdir"},
        "installed over an old directory": {"access"},
        "a part of the package is missing":
            {*LOAD, "access", "lseek", "mkdir", "readlink", "write"},
        "a flush failed": FLUSH,
        "no record could be written": FLUSH,
        "not renamed":
            {*STATUS, "fcntl", "getdents64", "openat", "rename", "rmdir", "unlink"},
        "cleared values not read before": LOAD,
        "identifier drawn again": LOAD,
    }

    def run(self):
        calls = self.stage.calls_and_paths()
        of_metadata = self.calls_of_metadata(calls)
        faults = [(error, name, number, lasting)
                  for name, number, _ in calls if name not in INFALLIBLE
                  for error in (*ERRORS, *(["short"] if name in TRANSFERS else []))
                  for lasting in ("", "+")
                  # the C++ library repeats an interrupted read without end
                  if (error, name, lasting) != ("EINTR", "read", "+")
                  or (name, number) not in of_metadata]
        for error, name, number, lasting in self.sampled(faults):
            may_abort = name in ASK_FOR_MEMORY or (name, number) in of_metadata
            self.disturb(error, name, f"{number}{lasting}", {0, ABORT} if may_abort else {0})

    def disturb(self, error, name, number, statuses):
        self.stage.reset()
        result = self.stage.run_with(error, name, number)
        self.counts["faults" if result.struck else "not reached"] += 1
        self.judge.check(result.struck or name in VARYING, error, name, number, "not reached")
        self.counts["abnormal ends"] += result.status == ABORT
        self.judge.after_fault(result, statuses, error, name, number, may_go_on={
            failure for failure, names in self.LEADS_TO.items() if name in names})
        self.counts["identifiers redrawn"] += self.judge.after_clean_run(
            error, name, number, may_redraw=True)

    @staticmethod
    def calls_of_metadata(calls):
        """Returns the calls that find and read the metadata."""
        opened = next(at for at, (_, _, path) in enumerate(calls) if path.endswith("metadata.txt"))
        closed = next(at for at in range(opened, len(calls)) if calls[at][0] == "close")
        return {(name, number) for name, number, _ in calls[:closed] if name in READ_THE_METADATA}


class FailingAllocations(Campaign):
    """Each allocation fails, once or from then on. The run is aborted, unless minizip or the C
    library made the allocation: then a package, an entry or a directory listing is missing."""

    scenarios = FailingCalls.scenarios
    LEADS_TO = {"a part of the package is missing", "not renamed"}

    def run(self):
        total = self.stage.allocations()
        self.counts["allocations"] = total
        for number in self.sampled([f"{number}{lasting}" for number in range(1, total + 1)
                                    for lasting in ("", "+")]):
            self.stage.reset()
            result = self.stage.run_failing_allocation(number)
            self.counts["faults"] += 1
            self.judge.check(result.struck, "allocation", number, "not reached")
            self.counts["abnormal ends"] += result.status == ABORT
            self.judge.after_fault(result, {0, ABORT}, "allocation", number,
                                   may_go_on=None if result.status == ABORT else self.LEADS_TO)
            self.counts["identifiers lost between clearing and restoration"] += (
                self.judge.after_clean_run("allocation", number,
                                           may_redraw=self.judge.may_have_lost_identifier()))


class Interference(Campaign):
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
        "new file's link at an output path":
            AT_ROOT + "ln -s /elsewhere/new Resource[1-9]/css/a.css",
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

    STOPS = {"link in the fresh directory's place": "not installed"}
    TAKES_TREES = {"fresh directory removed", "all directories removed",
                   "old directory replaced by a link", "package cut"}
    TAKES_RECORD = {"record replaced by a FIFO", "record replaced by a link", "record damaged"}

    def run(self):
        self.elsewhere = tree(self.stage.elsewhere)
        faults = [(plant, *call) for plant in self.PLANTS for call in self.stage.calls()]
        for plant, name, number in self.sampled(faults):
            self.stage.set_up(self.judge.scenario)
            self.stage.reset()
            result = self.stage.run_with(f"sh:exec 2>/dev/null; {self.PLANTS[plant]}", name, number)
            self.counts["changes"] += 1
            self.judge.check(result.struck or name in VARYING, plant, name, number,
                             "not reached")
            self.judge_run(result, plant, name, number)
            self.run_again(plant, name, number)

    def judge_run(self, result, plant, *call):
        check = self.judge.check
        check((result.status, result.output) == (0, b""), plant, *call, "ends with", result)
        if (self.stage.root / "added").exists():
            (self.stage.root / "added").unlink()
            self.counts["keys added"] += 1
            check((read_record(self.stage.record_bytes()) or {}).get("theirs") == "kept", plant,
                  *call, "loses the key")
        check(tree(self.stage.elsewhere) == self.elsewhere, plant, *call,
              "touches what is elsewhere")
        self.judge_state(plant, *call)

    def judge_state(self, plant, *call):
        """Checks the contract, except for the entries that the other process removed or blocked."""
        contract, found = self.judge.contract, tree(self.stage.install_root)
        record = self.without_their_key(self.stage.record_bytes())
        verdict = contract.judge(found, record)
        if verdict.faults and plant in self.STOPS:
            verdict = contract.judge_failed(found, record)
            self.judge.check(verdict.window == self.STOPS[plant], plant, *call, "leads to:",
                             verdict.window)
        elif verdict.faults and plant in self.TAKES_TREES:
            verdict = contract.judge_values(record, f"by another process: {plant}")
        elif verdict.faults and plant in self.TAKES_RECORD:
            verdict = contract.judge_trees(found, f"by another process: {plant}")
        self.judge.windows.update([verdict.window] if verdict.window else [])
        self.judge.check(not verdict.faults, plant, *call, *verdict.faults)

    @staticmethod
    def without_their_key(record):
        values = read_record(record) or {}
        if values.pop("theirs", None) is None:
            return record
        return plistlib.dumps(values)

    def run_again(self, *fault):
        """Checks that an undisturbed run with the original package installs as much as the state
        permits."""
        self.stage.set_up(self.judge.scenario)
        found = tree(self.stage.install_root)
        usable = self.stage.is_record_usable()
        contract = self.judge.contract_from_here()
        result = self.stage.run()
        check = self.judge.check
        check((result.status, result.output) == (0, b""), *fault, "then", result)
        check(tree(self.stage.elsewhere) == self.elsewhere, *fault,
              "then touches what is elsewhere")
        if not usable:
            self.counts["runs that cannot record"] += 1
            found.update({f"{contract.fresh}/".encode() + path: what
                          for path, what in contract.package.items()})
            found[contract.fresh.encode()] = DIRECTORY
            check(tree(self.stage.install_root) == found, *fault, "then installs something else")
            check(not self.stage.is_record_usable(), *fault, "then makes a record")
            return
        check(tree(self.stage.install_root) == self.judge.tree, *fault, "then leaves another tree")
        values = read_record(self.stage.record_bytes()) or {}
        check(contract.is_complete(values), *fault, "then leaves", values)


CAMPAIGNS = {
    "killed": Killed,
    "killed-twice": KilledTwice,
    "calls": FailingCalls,
    "allocations": FailingAllocations,
    "interference": Interference,
}


def stage_of_this_process(stages=[]):
    if not stages:
        stages.append(Stage())
    return stages[0]


def run_share(task):
    campaign, index, share = task
    part = campaign(campaign.scenarios[index], share)
    part.run()
    return part.result()


def run_campaign(name, campaign, pool, sample):
    began = time.monotonic()
    count = len(campaign.scenarios)
    share = None if sample is None else max(1, sample // count)
    counts, windows, faults = collections.Counter(), collections.Counter(), []
    for part_counts, part_windows, part_faults in pool.imap_unordered(
            run_share, [(campaign, index, share) for index in range(count)]):
        counts += part_counts
        windows += part_windows
        faults += part_faults
    figures = ", ".join(f"{number} {what}" for what, number in counts.items())
    print(f"{name}: {figures}; {len(faults)} exceptions; {time.monotonic() - began:.0f} s",
          flush=True)
    report(windows, faults)
    return not faults


def report(windows, faults):
    """Returns lines with the windows, the number of states in each window, and the faults."""
    for window, number in windows.most_common():
        print(f"  window: {window}: {number}", flush=True)
    for fault in faults[:200]:
        print(f"  {fault}", flush=True)


def enter_namespace():
    """Enters a private mount namespace, as root or as an ordinary user, in which chroot is
    permitted. Writes stay in memory and disappear with the process."""
    if "FAULTS_NAMESPACE" not in os.environ:
        os.environ["FAULTS_NAMESPACE"] = "root" if os.getuid() == 0 else "user"
        user = ["--map-root-user"] if os.getuid() != 0 else []
        os.execvp("unshare", ["unshare", "--mount", *user, SOURCE / "Tests/Support/in-memory",
                              sys.executable, "-B", *sys.argv])


def run_chosen(choices, description, run):
    """Calls run(choice, pool, sample) for each choice on the command line. Default: all choices.
    Ends the process."""
    enter_namespace()
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--sample", type=int)
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    parser.add_argument("choices", nargs="*", default=list(choices))
    arguments = parser.parse_args()
    with multiprocessing.Pool(arguments.jobs) as pool:
        passed = [run(choice, pool, arguments.sample) for choice in arguments.choices]
    sys.exit(0 if all(passed) else 1)


def main(campaigns, description):
    run_chosen(campaigns, description, lambda name, pool, sample:
               run_campaign(name, campaigns[name], pool, sample))


if __name__ == "__main__":
    main(CAMPAIGNS, __doc__)
