"""Compares the plan with the result of install, on random machines with random bundles.

test_plan.py [TEST...]; the environment variable PLANS is the number, and SEED is the first seed."""

import json
import os
import plistlib
import random
import shutil
import unittest

from machine import write_tree
from private_root import INSTALL_ROOT, RECORD, full_version, tree
from test_install import METADATA, PACKAGE, TEMPORARY, Machine, write_bundle

PLANS = int(os.environ.get("PLANS", "25"))
SEED = int(os.environ.get("SEED", "101"))  # 25 plans from the default seed have all three outcomes
NAMES = ["a", "b", "c", "d/a", "d/b", "d/e/a", "d", "d-e"]


def tearDownModule():
    TEMPORARY.cleanup()


def random_content(chance):
    """Returns files, each after the entries of its directories."""
    content = {}
    for name in chance.sample(NAMES, chance.randrange(len(NAMES))):
        parents = [name[:i + 1] for i, letter in enumerate(name) if letter == "/"]
        if name + "/" not in content and not any(parent[:-1] in content for parent in parents):
            content.update({parent: None for parent in parents if parent not in content})
            content[name] = chance.choice([b"", b"one", b"two", b"x" * 5000])
    return content


def random_value(chance, usual):
    """Returns a value of the record, which may have another type, or None."""
    return chance.choice([usual, usual, usual, None, "text", 5, True])


class Plans(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machine = Machine()

    def random_machine(self, chance):
        machine = self.machine
        shutil.rmtree(machine.path("/Library"), ignore_errors=True)
        if chance.random() < 0.15:
            return
        write_bundle(machine.bundle, random_content(chance), update=chance.randrange(5, 9))
        if chance.random() < 0.6:
            machine.install()
        if chance.random() < 0.3:
            return
        root = machine.path(INSTALL_ROOT)
        for name in chance.sample(["Resource0", "Resource1", "Resource2", "other"],
                                  chance.randrange(3)):
            shutil.rmtree(root / name, ignore_errors=True)
            write_tree(root / name, random_content(chance) or {"file": b""})
        if root.exists() and chance.random() < 0.2:
            (root / "link").symlink_to(chance.choice(["Resource0", "nowhere"]))
        if chance.random() < 0.5:
            update = chance.randrange(5, 9)
            values = {"tWebResourceInstallPath": random_value(
                          chance, chance.choice(["Resource0", "Resource1", "gone", "../Resource0"])),
                      "iUpdateId": random_value(chance, update),
                      "tFullVersion": random_value(chance, full_version(update)),
                      "irandom": random_value(chance, chance.randrange(-5, 10010)),
                      "other": "value"}
            path = machine.path(RECORD)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(plistlib.dumps({k: v for k, v in values.items() if v is not None}))

    def random_bundle(self, chance):
        bundle = self.machine.bundle
        if chance.random() < 0.6:  # otherwise, the content that may be installed already
            write_bundle(bundle, random_content(chance), update=chance.randrange(5, 9),
                         clear=chance.random() < 0.5, regenerate=chance.random() < 0.3)
        elif not (bundle / METADATA).exists():
            write_bundle(bundle)
        if chance.random() < 0.1:
            package = (bundle / PACKAGE).read_bytes()
            (bundle / PACKAGE).write_bytes(package[:chance.randrange(len(package))])

    def record(self):
        path = self.machine.path(RECORD)
        return plistlib.loads(path.read_bytes()) if path.exists() else {}

    def installed_directory(self):
        root, recorded = self.machine.path(INSTALL_ROOT), self.record().get("tWebResourceInstallPath")
        for name in (recorded, "Resource0"):
            if isinstance(name, str) and "/" not in name and (root / name).is_dir() \
                    and not (root / name).is_symlink():
                return name
        return None

    def everything(self):
        found = tree(self.machine.path("/Library")) if self.machine.path("/Library").exists() else {}
        return {path: data for path, data in found.items()
                if not path.endswith((b".receipt.json", b".WebResources.lock"))}

    def changes(self, before, after):
        """Returns the change of each path, without sizes."""
        return {path: "removed" if path not in after else "added" if path not in before
                else "changed" for path in {*before, *after} if before.get(path) != after.get(path)}

    def expected_record(self, before, plan):
        """Returns the planned record in its stored form."""
        after = plan["recordAfter"]
        return {"tWebResourceInstallPath": after["installPath"], "iUpdateId": after["updateId"],
                "tFullVersion": after["fullVersion"]}

    def compare(self, chance):
        machine = self.machine
        arguments = [option for option in ("--force", "--allow-downgrade") if chance.random() < 0.3]
        before, before_record = self.everything(), self.record()
        root, name = machine.path(INSTALL_ROOT), self.installed_directory()
        tree_before = tree(root / name) if name else {}
        names = sorted(os.listdir(root)) if root.exists() else []
        plan = machine.tell("plan", "/X.app", *arguments).document
        self.assertEqual(self.everything(), before)
        told = machine.install(*arguments)
        if plan["outcome"] != "install":
            self.assertEqual(told.document["outcome"],
                             {"refuse": "refused", "up-to-date": "up-to-date"}[plan["outcome"]])
            self.assertEqual(self.everything(), before)
            return plan["outcome"]
        self.assertEqual((told.status, told.document["outcome"]), (0, "installed"), told)
        self.assertEqual(os.listdir(root), ["Resource0"])
        self.assertEqual({each["path"].encode(): each["change"] for each in plan["changes"]},
                         self.changes(tree_before, tree(root / "Resource0")))
        self.assertEqual([each["name"] for each in plan["leftovers"]],
                         [each for each in names if each != name])
        number = 0
        while f"Resource{number}" in names:
            number += 1
        self.assertEqual(plan["freshDirectory"], f"Resource{number}")
        record = self.record()
        self.assertIn(record["irandom"], range(1, 10001))
        if plan["recordAfter"]["random"] != "drawn":
            self.assertEqual(plan["recordAfter"]["random"], record["irandom"])
            self.assertEqual(before_record["irandom"], record["irandom"])
        del record["irandom"]
        record.pop("other", None)
        self.assertEqual(record, self.expected_record(before_record, plan))
        return "install"

    def test_install_performs_the_plan(self):
        outcomes = {"install": 0, "refuse": 0, "up-to-date": 0}
        for seed in range(SEED, SEED + PLANS):
            with self.subTest(seed=seed):
                chance = random.Random(seed)
                self.random_machine(chance)
                self.random_bundle(chance)
                outcomes[self.compare(chance)] += 1
        self.assertGreater(min(outcomes.values()), 0, outcomes)
        if "PLANS" in os.environ:
            print(json.dumps(outcomes))


if __name__ == "__main__":
    unittest.main()
