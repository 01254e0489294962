"""Rounds of four concurrent installations of two bundles on a busy machine, some of them killed.

    together.py [ROUNDS]

After each round the host is whole, or the receipt says that an installation was not completed; one
more installation then repairs everything. No process that was not killed ends with another status
than 0. Prints a line with the figures; the exit status is 1 after an exception.
"""

import collections
import fcntl
import json
import os
import pathlib
import plistlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from faults import enter_namespace
from machine import APPLICATION, EXECUTABLE, as_tree, metadata, template
from private_root import (DIRECTORY, INSTALL_ROOT, RECORD, add_programs, command_in, full_version,
                          inside, tree_or_none)

WEBRESOURCES = os.path.realpath(os.environ["WEBRESOURCES"])
LOAD = 10
BUNDLES = {7: "/Seven.app", 8: "/Eight.app"}
BESIDE = os.path.dirname(INSTALL_ROOT)


def content(update):
    """200 files, of which each bundle has half alone."""
    return {"d/": None, **{f"d/{update * (number % 2)}-{number}": b"%d" % update * 5000
                           for number in range(200)}}


class Host:
    """A chroot with the command and both bundles."""

    def __init__(self, root):
        self.root = root
        shutil.copytree(template(), root)
        root.chmod(0o755)  # other users have to read it
        application = inside(root, APPLICATION)
        for update, bundle in BUNDLES.items():
            copy = inside(root, bundle)
            shutil.copytree(application, copy)
            resources = copy / "Contents/Resources"
            (resources / "metadata.txt").write_text(metadata(updateid=update))
            site = root / "site"
            for name, data in content(update).items():
                path = site / name
                path.mkdir(parents=True) if data is None else path.write_bytes(data)
            subprocess.run([WEBRESOURCES, "pack", "--quiet", site, "--update-id", str(update),
                            "--output", copy], check=True)
            shutil.rmtree(site)
        add_programs(root, WEBRESOURCES, inside(root, BUNDLES[7]) / EXECUTABLE)

    def start(self, *words):
        return subprocess.Popen(
            command_in(self.root, WEBRESOURCES, *words, added=True), start_new_session=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def wait_for_installers(self):
        """An installer goes on when its `install` is killed, and has the lock to its end."""
        lock = inside(self.root, f"{BESIDE}/.WebResources.lock")
        if lock.exists():
            with open(lock, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX)

    def receipt(self):
        path = inside(self.root, f"{BESIDE}/WebResources.receipt.json")
        return json.loads(path.read_bytes()) if path.exists() else {"state": "none"}

    def record(self):
        path = inside(self.root, RECORD)
        return plistlib.loads(path.read_bytes()) if path.exists() else {}

    def is_whole(self, update):
        """Whether tree, record and receipt are those of this update."""
        record, receipt = self.record(), self.receipt()
        return (tree_or_none(inside(self.root, INSTALL_ROOT))
                == {b"Resource0": DIRECTORY, **{b"Resource0/" + name: data for name, data in
                                                as_tree(content(update)).items()}}
                and (record["iUpdateId"], record["tFullVersion"]) == (update, full_version(update))
                and record["irandom"] in range(1, 10001)
                and (receipt["updateId"], receipt["state"]) == (update, "installed"))

    def leftovers(self):
        return [name for name in os.listdir(inside(self.root, BESIDE))
                if name.startswith(".WebResources.") and name != ".WebResources.lock"]


class Rounds:
    def __init__(self, host, seed):
        self.host = host
        self.chance = random.Random(seed)
        self.counts = collections.Counter()
        self.faults = []

    def check(self, holds, *what):
        if not holds:
            self.faults.append(" ".join(map(str, (f"round {self.counts['rounds']}:", *what))))

    def run(self):
        """A round, of which every tenth begins on a fresh host."""
        self.counts["rounds"] += 1
        if self.counts["rounds"] % 10 == 1:
            shutil.rmtree(inside(self.host.root, "/Library"), ignore_errors=True)
        processes = [self.host.start("install", "--allow-downgrade", BUNDLES[update], *force)
                     for update in BUNDLES for force in ((), ("--force",))]
        killed = self.kill_some(processes)
        for process in processes:
            output = process.communicate()[0]
            allowed = {0, -signal.SIGKILL} if process in killed else {0}
            self.check(process.returncode in allowed, "ends with", process.returncode, output)
            self.counts["killed"] += process.returncode == -signal.SIGKILL
        self.host.wait_for_installers()
        self.judge()

    def kill_some(self, processes):
        """Kills up to three of them at random times, one half with their installers."""
        killed = self.chance.sample(processes, self.chance.randrange(4))
        for process in killed:
            time.sleep(self.chance.random() * 0.4)
            if process.poll() is None:
                (os.killpg if self.chance.random() < 0.5 else os.kill)(process.pid, signal.SIGKILL)
        return killed

    def judge(self):
        state = self.host.receipt()["state"]
        verified = self.status("verify")
        self.counts[f"receipt {state}"] += 1
        if state == "installed":
            self.check(self.host.is_whole(self.host.receipt()["updateId"]), "is not whole")
            self.check(verified == 0, "verify ends with", verified)
        else:
            self.check(verified == 1, "verify ends with", verified, "and the receipt is", state)
        update = self.chance.choice(list(BUNDLES))
        status = self.status("install", "--allow-downgrade", BUNDLES[update])
        self.check(status == 0 and self.host.is_whole(update), "is not repaired", status)
        self.check(not self.host.leftovers(), "leaves", self.host.leftovers())

    def status(self, *words):
        process = self.host.start(*words)
        process.communicate()
        return process.returncode


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 200
    began = time.monotonic()
    # The machine's own load counts: nobody waits longer than the campaign needs.
    missing = max(0, LOAD - round(os.getloadavg()[0])) if rounds > 10 else 0
    load = [subprocess.Popen(["/bin/sh", "-c", "while kill -0 $0; do :; done", str(os.getpid())])
            for _ in range(missing)]
    try:
        with tempfile.TemporaryDirectory() as directory:
            campaign = Rounds(Host(pathlib.Path(directory, "host")), seed=rounds)
            for _ in range(rounds):
                campaign.run()
    finally:
        for process in load:
            process.kill()
            process.wait()
    figures = ", ".join(f"{number} {what}" for what, number in sorted(campaign.counts.items()))
    print(f"together: {figures}; load {os.getloadavg()[0]:.0f}; {len(campaign.faults)} exceptions; "
          f"{time.monotonic() - began:.0f} s")
    for fault in campaign.faults[:200]:
        print("  " + fault)
    sys.exit(1 if campaign.faults else 0)


if __name__ == "__main__":
    enter_namespace()
    main()
