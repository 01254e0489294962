"""The power-failure campaign. Records the effects of a command on the disk, makes the states that a
power failure at any point can leave, and judges each state.

    power_cuts.py [--sample N] [--jobs N] [COMMAND...]

COMMAND is installer, pack or install. Prints a line for each command and model, and a line for each
window: a state, neither old nor new, that the order of the operations permits. The command runs
again from every state, or from about N states, and must end as if there had been no power failure.
"""

import collections
import os
import shutil
import tempfile

from disk import Disk, PowerCuts
from faults import report, run_chosen
from installing import Installation, InstallCommand
from packing import Packing
from private_root import tree
from recording import Recorder, traced

MODELS = ("journal", "unordered")
SUBSETS = 48  # the number of subsets of lost effects for each cut
SUBSETS_OF_A_SAMPLE = 6


class Cuts:
    """The cuts of one recording under one model. A cut is a power failure."""

    def __init__(self, subject, model, share):
        self.subject = subject
        self.model = model
        self.share = share
        self.subsets = SUBSETS if share is None else SUBSETS_OF_A_SAMPLE
        self.counts = collections.Counter(recordings=1)
        self.windows = collections.Counter()
        self.wrong = collections.defaultdict(list)

    def check(self, holds, *what):
        if not holds:
            self.subject.faults.append(" ".join(map(str, (self.subject.name, self.model, *what))))

    def record(self):
        """Makes a recording. Checks that replaying the recording gives the tree on the disk."""
        self.subject.begin()
        disk = Disk(self.subject.top, self.subject.seen_at)
        log = os.path.join(tempfile.gettempdir(), f"calls-{os.getpid()}")
        result, calls = traced(self.subject.command, log)
        self.check(result.returncode == 0, "ends with", result)
        cuts = PowerCuts(disk, Recorder(disk).record(calls), self.subject.name)
        os.unlink(log)
        real = tree(self.subject.top)
        self.check(cuts.final().found == real, "the recording does not make the tree")
        self.counts["effects"] = len(cuts.effects)
        return cuts

    def run(self):
        cuts = self.record()
        end = self.subject.result(cuts.final().found)
        distinct = {}
        for cut, state in (cuts.journal() if self.model == "journal"
                           else cuts.unordered(self.subsets)):
            self.counts["states"] += 1
            if self.model == "journal" and cut == len(cuts.effects):
                if self.subject.result(state.found) != end:
                    self.wrong["the result is not on the disk at the end"].append(cut)
            distinct.setdefault(state.key(), (cut, state))
        self.counts["distinct"] = len(distinct)
        for cut, state in distinct.values():
            window, faults = self.subject.judged(state)
            self.windows.update([window] if window else [])
            for fault in faults:
                self.wrong[fault].append(cut)
        for fault, at in self.wrong.items():
            self.check(False, f"{fault} ({len(at)} states, the first before effect {min(at)})")
        for cut, state in self.sampled(list(distinct.values()), cuts.choice):
            self.run_from(state, cut)

    def sampled(self, states, choice):
        if self.share is None or self.share >= len(states):
            return states
        return choice.sample(states, self.share)

    def run_from(self, state, cut):
        shutil.rmtree(self.subject.top)
        state.write(self.subject.top)
        self.subject.run_again(self.model, "cut before effect", cut)
        self.counts["runs"] += 1


COMMANDS = {"installer": Installation, "pack": Packing, "install": InstallCommand}


def run_share(task):
    command, model, index, share = task
    subject = COMMANDS[command](COMMANDS[command].subjects[index])
    cuts = Cuts(subject, model, share)
    cuts.run()
    return cuts.counts, cuts.windows, subject.faults


def run_campaign(command, pool, sample):
    return all([run_model(command, model, pool, sample) for model in MODELS])


def run_model(command, model, pool, sample):
    """Runs all subjects. A sample has each subject under one of the models."""
    subjects = range(len(COMMANDS[command].subjects))
    share = None if sample is None else max(1, sample // len(subjects))
    if share is not None:
        subjects = subjects[MODELS.index(model)::len(MODELS)]
    counts, windows, faults = collections.Counter(), collections.Counter(), []
    for part in pool.imap_unordered(run_share, [(command, model, index, share)
                                                for index in subjects]):
        counts += part[0]
        windows += part[1]
        faults += part[2]
    figures = ", ".join(f"{number} {what}" for what, number in counts.items())
    print(f"{command}, {model}: {figures}; {len(faults)} exceptions", flush=True)
    report(windows, faults)
    return not faults


if __name__ == "__main__":
    run_chosen(COMMANDS, __doc__, run_campaign)
