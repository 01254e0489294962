"""The fault campaigns of the companion command. Each run of `webresources install`, `uninstall`,
`check --prove` and `verify` is disturbed at one of its system calls and then judged. The next,
undisturbed run must end as if there had been no fault.

    commands.py [--sample N] [--jobs N] [CAMPAIGN...]

Prints a line for each campaign. A sample has about N faults, spread over the campaign.
"""

import collections
import fcntl
import json
import os
import shutil
import signal

import scenarios
from contract import UPDATE, read_record
from faults import (ERRORS, INFALLIBLE, VARYING, STATUS, TRANSFERS, Campaign, Judge, main,
                    stage_of_this_process)
from machine import APPLICATION
from private_root import add_programs, inside, tree

WEBRESOURCES = os.path.realpath(os.environ["WEBRESOURCES"])
COMMAND = "/webresources"  # in the root, but not in /tmp, which is emptied
COULD_NOT_TELL = 2
# If one of these calls fails, a command may keep its temporary files.
REMOVES = {*STATUS, "close", "fcntl", "getdents64", "openat", "rmdir", "unlink", "unlinkat"}
# If one of these calls fails, a command may report a finding: a file that cannot be read is
# incorrect.
LOOKS = {*STATUS, "access", "lseek", "openat", "pread64", "read"}


class Command:
    """`webresources` with the arguments `words`, on the machine of a scenario."""

    def __init__(self, scenario, *words):
        self.stage = stage_of_this_process()
        self.judge = Judge(self.stage, scenario)
        self.name = f"{words[0]}, {scenario.name}"
        self.command = (COMMAND, *words, APPLICATION)
        if not inside(self.stage.root, COMMAND).exists():
            add_programs(self.stage.root, WEBRESOURCES)
            shutil.copy(WEBRESOURCES, inside(self.stage.root, COMMAND))
        self.beside = self.stage.install_root.parent

    def check(self, holds, *what):
        self.judge.check(holds, self.command[1], *what)

    def begin(self):
        self.stage.reset()
        for name in self.scratch():
            shutil.rmtree(self.stage.root / "tmp" / name)

    def run(self, *fault):
        """Runs the command, with or without a fault. The installer goes on if the command is
        killed, and holds its lock until the end."""
        result = self.stage.run_with(*(fault or ("none", "", "0")), command=self.command)
        lock = self.beside / ".WebResources.lock"
        if lock.exists():
            with open(lock, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX)
        return result

    def scratch(self):
        return os.listdir(self.stage.root / "tmp")

    def outside(self):
        """Returns everything that only `install` may change, without the scratch directories."""
        return {path: what for path, what in self.stage.surroundings().items()
                if not path.startswith((f"{self.stage.root}/tmp/", f"{self.beside}/.WebResources",
                                        f"{self.beside}/WebResources.receipt"))}

    def check_told(self, result, name, *fault):
        """Checks that the command reports a failure, unless the report itself failed."""
        self.check(result.status != COULD_NOT_TELL or b"webresources" in result.output
                   or name == "write", *fault, name, "tells nothing")


class Install(Command):
    """Installs or repairs, and writes a receipt."""

    def __init__(self, scenario):
        super().__init__(scenario, "install", "--wait", "1")
        self.begin()
        self.surroundings = self.outside()
        result = self.run()
        self.check(result.status == 0 and self.is_complete(), "undisturbed", result)
        self.left = self.files_beside()

    def files_beside(self):
        return sorted(os.listdir(self.beside)) if self.beside.is_dir() else []

    def is_complete(self):
        """Returns whether the tree, the record and the receipt belong to the new update."""
        values = read_record(self.stage.record_bytes()) or {}
        receipt = self.beside / "WebResources.receipt.json"
        return (tree(self.stage.install_root) == self.judge.tree
                and self.judge.contract.is_complete(values) and receipt.exists()
                and json.loads(receipt.read_bytes())["updateId"] == values[UPDATE])

    def after_fault(self, result, killed, *fault):
        """Checks that the installer has run completely or not at all, and that exit status 0 means
        a complete run."""
        verdict = self.judge.contract.judge(tree(self.stage.install_root),
                                            self.stage.record_bytes())
        self.check(not verdict.faults and verdict.window is None, *fault, "leaves", verdict)
        self.check(killed or result.status != 0 or self.is_complete(), *fault, "claims success")
        self.check(self.outside() == self.surroundings, *fault, "touches its surroundings")
        self.check(killed or fault[1] in REMOVES or set(self.files_beside()) <= set(self.left),
                   *fault, "leaves", self.files_beside())

    def run_again(self, *fault):
        result = self.run()
        self.check(result.status == 0 and self.is_complete(), *fault, "then", result)
        self.check(self.files_beside() == self.left and not self.scratch(), *fault, "then leaves",
                   self.files_beside(), self.scratch())


class Uninstall(Command):
    """Removes only the installation."""

    def __init__(self, scenario):
        super().__init__(scenario, "uninstall", "--wait", "1")
        self.command = self.command[:-1]  # `uninstall` has no bundle argument
        self.begin()
        self.surroundings = self.outside()
        self.others = self.keys_of_others()
        result = self.run()
        self.check(result.status == 0 and self.is_gone(), "undisturbed", result)

    def keys_of_others(self):
        values = read_record(self.stage.record_bytes()) or {}
        return {key: value for key, value in values.items() if key not in scenarios.OLD}

    def is_gone(self):
        values = read_record(self.stage.record_bytes())
        return (values == (self.others or None)
                and not inside(self.stage.root, "/Library/Application Support/Veltrane").exists())

    def after_fault(self, result, killed, *fault):
        self.check(killed or result.status != 0 or self.is_gone(), *fault, "claims success")
        self.check(self.outside() == self.surroundings, *fault, "touches its surroundings")
        self.check(self.keys_of_others() == self.others, *fault, "touches keys of others")

    def run_again(self, *fault):
        result = self.run()
        self.check(result.status == 0 and self.is_gone(), *fault, "then", result)


class Reading(Command):
    """Changes nothing outside a scratch directory."""

    def __init__(self, scenario, *words):
        super().__init__(scenario, *words)
        self.begin()
        self.machine = self.seen()
        self.undisturbed = self.run()
        self.check(self.undisturbed.status in (0, 1), "undisturbed", self.undisturbed)

    def seen(self):
        return self.outside(), tree(self.stage.install_root), self.stage.record_bytes()

    def after_fault(self, result, killed, *fault):
        """Checks the report: the report without a fault, or "cannot be determined", or a finding
        that the fault caused. The command must never report success for an incorrect machine."""
        same = (result.status, result.output) == (self.undisturbed.status, self.undisturbed.output)
        self.check(killed or same or fault[1] == "write" or result.status == COULD_NOT_TELL
                   or (result.status == 1 and fault[1] in LOOKS), *fault, "tells something else",
                   result)
        self.check(self.seen() == self.machine, *fault, "changes the machine")
        self.check(killed or fault[1] in REMOVES or not self.scratch(), *fault, "leaves",
                   self.scratch())

    def run_again(self, *fault):
        left = self.scratch()
        result = self.run()
        self.check(result == self.undisturbed, *fault, "then", result)
        self.check(self.seen() == self.machine and self.scratch() == left, *fault, "then changes")


class Installed(Reading):
    """After a correct installation."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.check(self.undisturbed.status == 0, "undisturbed", self.undisturbed)

    def begin(self):
        super().begin()
        self.stage.run()


SUBJECTS = [
    *((Install, scenario, ()) for scenario in scenarios.chosen(
        "fresh: small", "installed: deep, clear", "unfinished: large, regenerate")),
    *((Uninstall, scenario, ())
      for scenario in scenarios.chosen("installed: small", "unfinished: large, regenerate")),
    *((Reading, scenario, ("check", "--prove"))
      for scenario in scenarios.chosen("fresh: small", "fresh: large, regenerate")),
    *((Reading, scenario, ("verify",)) for scenario in scenarios.chosen("leftovers: deep, clear")),
    *((Installed, scenario, ("verify",)) for scenario in scenarios.chosen("installed: small")),
]


class OnCommands(Campaign):
    """A command's share of a campaign."""

    scenarios = SUBJECTS

    def __init__(self, subject, share):
        make, scenario, words = subject
        self.subject = make(scenario, *words)
        self.stage, self.judge = self.subject.stage, self.subject.judge
        self.share = share
        self.counts = collections.Counter(commands=1)

    def calls(self):
        self.subject.begin()
        return self.stage.calls(self.subject.command)

    def run(self):
        for fault in self.sampled(self.faults()):
            self.subject.begin()
            result = self.subject.run(*fault)
            action, name, _ = fault
            self.counts["faults" if result.struck else "not reached"] += 1
            self.subject.check(result.struck or name in VARYING, *fault, "not reached")
            killed = action == "kill" and result.struck
            self.subject.check(result.status in ({-signal.SIGKILL} if killed else {0, 1, 2}),
                               *fault, "ends with", result)
            self.subject.check_told(result, name, *fault)
            self.subject.after_fault(result, killed, *fault)
            self.subject.run_again(*fault)


class CommandKilled(OnCommands):
    """Killed at every system call."""

    def faults(self):
        return [("kill", name, number) for name, number in self.calls()]


class FailingCallsOfCommands(OnCommands):
    """Each system call fails with each error, once or from then on. No transfer is interrupted from
    then on, because the C++ library repeats an interrupted transfer without end."""

    def faults(self):
        return [(error, name, f"{number}{lasting}") for name, number in self.calls()
                if name not in INFALLIBLE
                for error in (*ERRORS, *(["short"] if name in TRANSFERS else []))
                for lasting in ("", "+")
                if (error, name in {*TRANSFERS, "writev"}, lasting) != ("EINTR", True, "+")]


CAMPAIGNS = {"killed": CommandKilled, "calls": FailingCallsOfCommands}


if __name__ == "__main__":
    main(CAMPAIGNS, __doc__)
