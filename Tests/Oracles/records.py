"""Compares runs of the shipped installer on random records with record_oracle.py."""

import os
import plistlib
import re
import shutil
import zipfile

import random_records
from contract import PATH, RANDOM, UPDATE as UPDATE_KEY, VERSION, is_drawn, read_record, same
from faults import stage_of_this_process
from machine import metadata, write_tree
from random_records import MALFORMED
from record_oracle import after_run

UPDATE = 7
KNOWN = (PATH, RANDOM, UPDATE_KEY, VERSION)
KEY_LINE = re.compile(rb"^\t(<key>.*</key>)$", re.MULTILINE)  # of the root dictionary


class Records:
    def __init__(self):
        self.faults = []
        self.stage = stage_of_this_process()
        with zipfile.ZipFile(self.stage.resources / "OrloWebResources.zip", "w") as archive:
            archive.writestr("index.html", b"<p>new")

    def try_case(self, number, random):
        data, values = random_records.record(random)
        clear, regenerate = random.random() < 0.5, random.random() < 0.3
        # What clearing restores can be seen when nothing is installed over it.
        installed = UPDATE if random.random() < 0.5 else None
        (self.stage.resources / "metadata.txt").write_text(metadata(clear, UPDATE, regenerate))
        shutil.rmtree(self.stage.library, ignore_errors=True)
        self.stage.record_file.parent.mkdir(parents=True)
        self.stage.record_file.write_bytes(data)
        if installed is None:
            write_tree(self.stage.install_root.parent,
                       {self.stage.install_root.name: b"in the way"})
        result = self.stage.run()
        if (result.status, result.output) != (0, b""):
            self.faults.append(f"{number}: ends with {result}")
            return ["runs that ended otherwise"]
        return [self.judge(number, data, values, clear, regenerate, installed)]

    def judge(self, number, data, values, *run):
        """Requires that a correct list is merged and that a malformed list is renamed. A damaged list is
        merged as plistlib reads the list, or renamed."""
        clear = run[0]
        aside, found = self.aside(), self.stage.record_bytes() or b""
        if aside is not None:
            if isinstance(values, (dict, str)) or aside != data:
                self.faults.append(f"{number}: sets aside {values or 'other bytes'}")
            values, data = {}, plistlib.dumps({})
        elif values is MALFORMED:
            self.faults.append(f"{number}: reads {data}")
            return "read"
        if isinstance(values, str):
            if not clear and values.encode() not in found:
                self.faults.append(f"{number}: changes {values}")
            data, found = (bytes_.replace(values.encode(), b"<true/>", 1)
                           for bytes_ in (data, found))
        if read_root(data) is None:
            return self.judge_bytes(number, data, found, clear)
        self.judge_values(number, read_root(data), read_root(found), *run)
        return "set aside" if aside is not None else "merged"

    def judge_values(self, number, values, found, *run):
        wanted, draws = after_run(values, *run)
        drawn = found.pop(RANDOM, None) if found and draws else None
        if draws:
            wanted.pop(RANDOM, None)
        if not same(found, wanted) or (draws and not is_drawn(drawn)):
            self.faults.append(f"{number}: of {values} makes {found} and {drawn}, not {wanted}")

    def judge_bytes(self, number, data, found, clear):
        """Requires that the keys of a list that plistlib does not read stay."""
        keys = set(KEY_LINE.findall(data)) - {f"<key>{key}</key>".encode() for key in KNOWN}
        lost = keys - set(KEY_LINE.findall(found.replace(b"<key/>", b"<key></key>")))
        if lost and not clear:
            self.faults.append(f"{number}: of {data} loses {lost}")
        return "merged unread"

    def aside(self):
        others = [name for name in os.listdir(self.stage.record_file.parent)
                  if name != self.stage.record_file.name]
        if not others:
            return None
        return (self.stage.record_file.parent / others[0]).read_bytes()


def read_root(data):
    """Returns the values of a list, also of a list in XML with damage before or after the root."""
    values = read_record(data)
    root = re.search(rb"<dict.*</dict>|<dict/>", data, re.DOTALL)
    return read_record(b"<plist>%s</plist>" % root[0]) if values is None and root else values
