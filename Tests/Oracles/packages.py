"""Compares random packages, installed by the shipped installer, with package_oracle.py."""

import shutil

import package_oracle
import random_packages
from contract import FINAL, below
from faults import stage_of_this_process
from machine import metadata
from private_root import DIRECTORY, tree


class Packages:
    def __init__(self):
        self.faults = []
        self.stage = stage_of_this_process()
        (self.stage.resources / "metadata.txt").write_text(metadata())

    def try_case(self, number, random):
        data = random_packages.package(random)
        wanted = package_oracle.extracted(data)
        (self.stage.resources / "OrloWebResources.zip").write_bytes(data)
        shutil.rmtree(self.stage.library, ignore_errors=True)
        self.stage.library.mkdir()
        result = self.stage.run()
        found = tree(self.stage.install_root)
        installed = below(found, FINAL)
        if (result.status, result.output) != (0, b""):
            self.faults.append(f"{number}: ends with {result}")
        elif installed != wanted or any(not path.startswith(FINAL.encode()) for path in found):
            self.faults.append(f"{number}: {differences(wanted, installed or {})}")
        yield "with an empty tree" if not wanted else "with a tree"
        yield from ("files" for what in wanted.values() if what != DIRECTORY)


def differences(wanted, found):
    return [(path[-40:], shown(wanted.get(path)), shown(found.get(path)))
            for path in sorted({*wanted, *found}) if wanted.get(path) != found.get(path)]


def shown(what):
    return f"{len(what)} bytes" if isinstance(what, bytes) else what
