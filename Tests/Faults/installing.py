"""The installer, and `webresources install`, as subjects of power failures."""

import json
import os
import subprocess

import scenarios
from contract import PATH, UPDATE, below, read_record
from faults import Judge, stage_of_this_process
from machine import APPLICATION
from private_root import INSTALL_ROOT, RECORD, add_programs, inside
from stage import PROGRAM

WEBRESOURCES = os.environ["WEBRESOURCES"]


class Installation:
    """The installer, in one scenario."""

    subjects = scenarios.ALL
    ROOT = os.fsencode(os.path.relpath(INSTALL_ROOT, "/Library"))
    RECORD = os.fsencode(os.path.relpath(RECORD, "/Library"))

    def __init__(self, scenario):
        self.name = scenario.name
        self.stage = stage_of_this_process()
        self.judge = Judge(self.stage, scenario)
        self.top, self.seen_at = self.stage.library, "/Library"
        self.command = ["chroot", self.stage.root, PROGRAM]
        self.faults = self.judge.faults

    def begin(self):
        self.stage.reset()

    def root(self, found):
        """Returns the entries under the install root."""
        return {path[len(self.ROOT) + 1:]: what for path, what in found.items()
                if path.startswith(self.ROOT + b"/")}

    def result(self, found):
        """Returns the parts that must be on the disk after the run: the record, and the tree named
        by the record."""
        record = found.get(self.RECORD)
        return record, below(self.root(found), (read_record(record) or {}).get(PATH, ""))

    def judged(self, state):
        """Returns the window of a state, if any, and the faults of the state."""
        verdict = self.judge.contract.judge(self.root(state.found), state.found.get(self.RECORD))
        faults = list(verdict.faults)
        if state.modes.get(self.RECORD, 0o644) != 0o644:
            faults.append("not everybody can read the record")
        return verdict.window, faults

    def run_again(self, *cut):
        self.judge.after_clean_run(*cut, may_redraw=self.judge.may_have_lost_identifier())


class InstallCommand(Installation):
    """`webresources install`, which runs the installer and writes a receipt."""

    subjects = scenarios.chosen("fresh: small", "installed: small", "installed: deep, clear",
                                "unfinished: large, regenerate")
    RECEIPT = os.path.join(os.path.dirname(Installation.ROOT), b"WebResources.receipt.json")
    OLD = b'{"updateId": 1}'

    def __init__(self, scenario):
        super().__init__(scenario)
        program = os.path.realpath(WEBRESOURCES)
        if not inside(self.stage.root, program).exists():
            add_programs(self.stage.root, program)
        self.command = ["chroot", self.stage.root, program, "install", APPLICATION]

    def begin(self):
        super().begin()
        if self.judge.old:
            (self.stage.install_root.parent / os.fsdecode(os.path.basename(self.RECEIPT))
             ).write_bytes(self.OLD)

    def result(self, found):
        return super().result(found), found.get(self.RECEIPT)

    def judged(self, state):
        """Judges the receipt: the old receipt, the new receipt, or none. A receipt of another
        update than the recorded update is a window, and `verify` reports it."""
        window, faults = super().judged(state)
        receipt = state.found.get(self.RECEIPT)
        recorded = (read_record(state.found.get(self.RECORD)) or {}).get(UPDATE)
        if receipt in (None, self.OLD):
            is_other = receipt == self.OLD and recorded != 1
        else:
            update = self.update_of(receipt)
            is_other = update != recorded
            faults += [] if update == scenarios.UPDATE else ["a receipt that is not whole"]
        return "receipt of another update" if is_other else window, faults

    @staticmethod
    def update_of(receipt):
        try:
            return json.loads(receipt)["updateId"]
        except (ValueError, KeyError):
            return None

    def run_again(self, *cut):
        """Checks that the command succeeds and leaves a correct installation."""
        may_redraw = self.judge.may_have_lost_identifier()
        result = subprocess.run(self.command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                check=False)
        receipt = inside(self.stage.library, os.fsdecode(self.RECEIPT))
        self.judge.check(result.returncode == 0 and receipt.exists(), *cut, "then", result)
        self.judge.check(self.update_of(receipt.read_bytes()) == scenarios.UPDATE, *cut,
                         "leaves another receipt")
        self.judge.after_clean_run(*cut, may_redraw=may_redraw)
