"""The states that an interrupted run may leave, derived from the order of the run's operations.

A run records its values in steps, and extracts, deletes and renames between the steps. After every
interruption, the record is the record of one step, the directory named by the record is a complete
tree, old or new, and no old entry is deleted before a step permits deletions. Each state in between
has a name. Such a state is called a window.
"""

import collections
import os
import plistlib

from private_root import DIRECTORY, RANDOM_IDENTIFIERS, full_version

PATH, UPDATE, VERSION, RANDOM = ("tWebResourceInstallPath", "iUpdateId", "tFullVersion", "irandom")
FINAL = "Resource0"

# The name of a step, its record (None: no file), the directory it promises, and its permissions.
Step = collections.namedtuple("Step", "name record directory may_delete may_rename")
# The window of a state (None: an old or complete state), and the faults of the state.
Verdict = collections.namedtuple("Verdict", "window faults")


def read_record(data):
    """Returns the values in a record's file. Returns None if there is no file or the file is no
    property list in XML."""
    try:
        values = (plistlib.loads(data, fmt=plistlib.FMT_XML) if isinstance(data, bytes) else None)
    except Exception:  # expat and plistlib raise many classes of exceptions
        return None
    return values if isinstance(values, dict) else None


def below(tree, name):
    """Returns the entries of `tree` below the directory `name`, or None if `name` is no
    directory."""
    prefix = name.encode() + b"/"
    if tree.get(name.encode()) != DIRECTORY:
        return None
    return {path[len(prefix):]: what for path, what in tree.items() if path.startswith(prefix)}


def first_free(tree):
    """Returns the name of the new directory. A dangling link counts as free."""
    number = 0
    while f"Resource{number}".encode() in tree:
        number += 1
    return f"Resource{number}"


class Contract:
    """The rules for a run from one start: the entries under the install root, the record's bytes,
    and the package."""

    def __init__(self, tree, record, package, update, clear, regenerate):
        self.tree = tree
        self.record = record
        self.package = package
        self.fresh = first_free(tree)
        self.old = read_record(record) or {}
        self.new = {PATH: self.fresh, UPDATE: update, VERSION: full_version(update)}
        self.clear = clear
        self.draws = regenerate or RANDOM not in self.old
        self.steps = list(self.make_steps())

    def make_steps(self):
        values = dict(self.old)
        yield Step("before", dict(values) if self.record is not None else None, "old", False, False)
        if self.record is not None and read_record(self.record) is None:
            yield Step("damaged record moved aside", None, "old", False, False)
        if self.clear and values:
            yield Step("cleared, nothing restored", {}, "old", False, False)
            for values in self.restorations():
                yield Step("cleared, partly restored", values, "old", False, False)
        for key, name in ((PATH, "directory recorded, update number not"),
                          (UPDATE, "update number recorded, version not")):
            values = {**values, key: self.new[key]}
            yield Step(name, values, "new", False, False)
        values = {**values, VERSION: self.new[VERSION]}
        yield Step("deleting", values, "new", True, self.fresh != FINAL)
        if self.fresh != FINAL:
            values = {**values, PATH: FINAL}
            yield Step("renamed, identifier not drawn", values, "new", True, True)
        if self.draws:
            yield Step("complete", {**values, RANDOM: any}, "new", True, True)

    def restorations(self):
        """Yields the record after each flush that restores a cleared record."""
        known = {key: self.old[key] for key in (RANDOM, UPDATE, PATH, VERSION) if key in self.old}
        flushes = [(RANDOM, UPDATE), (PATH,), (VERSION,)]
        values = {}
        for keys in flushes:
            values = {**values, **{key: known[key] for key in keys if key in known}}
            yield values

    def judge(self, tree, record):
        """Returns a Verdict on an interrupted run, from `tree` under the install root and the
        record's bytes (None: no file)."""
        steps = [step for step in self.steps if self.is_left_by(step, record)]
        if not steps:
            return Verdict(None, [f"records what no step does: {read_record(record) or record}"])
        verdicts = [self.judge_step(step, tree) for step in steps]
        return min(verdicts, key=lambda verdict: len(verdict.faults))

    def is_left_by(self, step, record):
        if step.record is None or record is None:
            return step.record is None and record is None
        if step.name == "before" and record == self.record:
            return True
        values = read_record(record)
        return values is not None and holds(values, step.record)

    def judge_step(self, step, tree):
        deletes = self.has_deleted(tree)
        faults = []
        if deletes and not step.may_delete:
            faults.append(f"deletes what is old while it is at: {step.name}")
        named = (step.record or {}).get(PATH)
        window = self.window(step, deletes)
        if named is not None and below(tree, named) != self.promised(step, named):
            excuse = self.excuse(step, tree, named)
            window = excuse or window
            faults += [] if excuse else [f"names {named}, which is not whole, at: {step.name}"]
        return Verdict(window, faults)

    def promised(self, step, named):
        return self.package if step.directory == "new" else below(self.tree, named)

    def excuse(self, step, tree, named):
        """Returns the window in which the directory named by the record is incomplete, because the
        order of the steps permits that. Returns None if there is no such window."""
        if step.directory == "old" and named == self.fresh:
            return "recorded name was free, extracting into it"
        if step.may_rename and named == self.fresh and below(tree, named) is None \
                and below(tree, FINAL) == self.package:
            return "renamed, not yet recorded"
        return None

    def is_complete(self, values):
        """Returns whether `values` are the record of an undisturbed run."""
        return holds(values, self.steps[-1].record)

    def judge_failed(self, tree, record):
        """Returns a Verdict on a run that continued after a failure. A failed flush leaves its
        values to the next flush, and the package may be installed in part."""
        values = read_record(record)
        if values is None:
            kept = record == self.record or (record is None and not self.old)
            return Verdict("no record could be written", [] if kept else ["loses the record"])
        faults = [f"records {key}: {values.get(key)}"
                  for key in {*self.old, *values} if not self.may_hold(key, values)]
        if values.get(VERSION) == self.new[VERSION] != self.old.get(VERSION) \
                and values.get(UPDATE) != self.new[UPDATE]:
            faults.append("records a version without its update number")
        named = values.get(PATH)
        is_new = named is not None and self.is_installed(tree, named)
        if self.has_deleted(tree) and not (is_new and named in (self.fresh, FINAL)):
            faults.append("deletes what is old before the new directory is recorded")
        if self.has_update(values) and not is_new:
            faults.append("records the new update number without the new directory")
        if named is not None and not is_new and below(tree, named) != below(self.tree, named):
            faults.append(f"names {named}, which is not whole")
        return Verdict(self.failure(tree, values, named, is_new), faults)

    def judge_values(self, record, window):
        """Returns a Verdict on the values alone, if another process removed the directories."""
        values = read_record(record)
        faults = [f"records {key}: {value}" for key, value in (values or {}).items()
                  if not self.may_hold(key, values)]
        return Verdict(window, faults)

    def judge_trees(self, tree, window):
        """Returns a Verdict on the trees alone, if another process removed the record."""
        old = below(self.tree, self.old.get(PATH, ""))
        whole = any(below(tree, name) in (self.package, old)
                    for name in (FINAL, self.fresh, self.old.get(PATH, FINAL)))
        return Verdict(window, [] if whole else ["leaves no whole directory"])

    def may_hold(self, key, values):
        """Accepts old and new values. An old value may be missing only if the run clears the
        record."""
        if key not in values:
            return self.clear
        if key == PATH:
            return values[key] in (self.old.get(key), self.fresh, FINAL)
        if key == RANDOM and is_drawn(values[key]):
            return True
        return same(values[key], self.old.get(key)) or (key in self.new
                                                        and same(values[key], self.new[key]))

    def has_update(self, values):
        return values.get(UPDATE) == self.new[UPDATE] != self.old.get(UPDATE)

    def is_installed(self, tree, named):
        """Returns whether the directory `named` is the new directory or a part of the new
        directory. The directory may already have its final name."""
        found = below(tree, named)
        if found is None and named == self.fresh:
            found = below(tree, FINAL)
        return found is not None and (is_part(found, self.package)
                                      or self.is_installed_over(found, named))

    def is_installed_over(self, found, named):
        """Returns whether the package was extracted into an old directory. This can happen on
        purpose: a failed test for readable counts as a free name."""
        return found == {**(below(self.tree, named) or {}), **self.package}

    def failure(self, tree, values, named, is_new):
        """Returns the name of the result of the failure."""
        if not is_new:
            return "not installed"
        if below(tree, named) is not None and self.package != below(tree, named):
            return ("a part of the package is missing" if is_part(below(tree, named), self.package)
                    else "installed over an old directory")
        if values.get(VERSION) != self.new[VERSION] or below(tree, named) is None:
            return "a flush failed"
        if named != FINAL:
            return "not renamed"
        return "cleared values not read before" if self.clear else "identifier drawn again"

    def window(self, step, deletes):
        if step.name == "deleting":
            if self.fresh == FINAL:
                return "identifier not drawn" if self.draws else None
            return "old deleted, not yet renamed" if deletes else "all recorded, not yet renamed"
        if step.name.startswith("renamed"):
            return "identifier not drawn" if self.draws else None
        return None if step.name in ("before", "complete") else step.name

    def has_deleted(self, tree):
        """Returns whether an entry that was under the install root is deleted or changed."""
        return any(tree.get(path) != what for path, what in self.tree.items())


def is_part(found, package):
    """Returns whether `found` is `package` with missing files or missing parts of files."""
    return all(path in package and (what == package[path] or is_piece(what, package[path]))
               for path, what in found.items())


def is_piece(found, whole):
    """Returns whether `found` is the file `whole` without one of its parts."""
    if not isinstance(found, bytes) or not isinstance(whole, bytes) or len(found) > len(whole):
        return False
    prefix = os.path.commonprefix((found, whole))
    return whole.endswith(found[len(prefix):])


def holds(values, wanted):
    """Returns whether `values` equals `wanted`, in which `any` stands for a drawn number."""
    return values.keys() == wanted.keys() and all(
        is_drawn(values[key]) if value is any else same(values[key], value)
        for key, value in wanted.items())


def is_drawn(number):
    return type(number) is int and number in RANDOM_IDENTIFIERS


def same(one, other):
    """Returns whether two values are equal and have the same types at every level."""
    if type(one) is not type(other):
        return False
    if isinstance(one, dict):
        return one.keys() == other.keys() and all(same(one[key], other[key]) for key in one)
    if isinstance(one, list):
        return len(one) == len(other) and all(map(same, one, other))
    return one == other or one != one != other != other
