"""script/mac-facts to its end, with doubles of a Mac's commands that print their names."""

import os
import pathlib
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SCRIPT = SOURCE / "script/mac-facts"

DOUBLES = {
    "uname": '[ $# -eq 0 ] && echo Darwin || { [ "$1" = -m ] && echo arm64 || echo "Darwin 24"; }',
    "sw_vers": '[ $# -eq 0 ] && echo "macOS 15" || echo 15.0',
    "sudo": '[ "$1" = rm ] || [ "$1" = find ] || exec "$@"',
    "clang++": 'for last; do :; done; cp "$PROBE" "$last"; test -f script/lib/mac-facts.cpp',
    "probe": """case $1 in
  synchronize) echo "synchronize with nothing to write: true" ;;
  *) echo "the probe: $*" ;;
esac""",
    "csrutil": "exit 3",
    "sleep": ":",
    **{name: 'echo "the double of ${0##*/}"' for name in (
        "clang", "codesign", "defaults", "diskutil", "hdiutil", "lipo", "otool", "plutil", "spctl", "xcrun")},
}


class MacFacts(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.temporary = self.directory / "temporary"
        self.temporary.mkdir()
        self.tools = self.directory / "tools"
        self.tools.mkdir()
        for name, body in DOUBLES.items():
            (self.tools / name).write_text(f"#!/bin/sh\n{body}\n")
            (self.tools / name).chmod(0o755)

    def run_script(self, *arguments, path="", status=0):
        result = subprocess.run(
            [SCRIPT, *arguments], cwd=self.directory, stdin=subprocess.DEVNULL, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, timeout=60,
            env={"PATH": path + "/usr/bin:/bin", "PROBE": str(self.tools / "probe"),
                 "HOME": str(self.directory), "TMPDIR": str(self.temporary)})
        self.assertEqual(result.returncode, status, result.stdout)
        return result.stdout

    def test_facts_are_recorded_in_one_file_and_nothing_else_is_left(self):
        self.run_script("facts.txt", path=f"{self.tools}:")
        facts = (self.directory / "facts.txt").read_text(errors="replace")
        sections = [line[3:] for line in facts.splitlines() if line.startswith("== ")]
        self.assertEqual(sections, [
            "The system", "Questions, each with the answer that the code assumes",
            "Rights on the way to the content and the record", "An empty domain", "A number set without rights", "A number set by root",
            "How defaults reads paths", "A key that is removed", "Bundles", "Names and paths",
            "The commands that make a package"])
        answers = [line.split(":")[0] for line in facts.splitlines()
                   if line.startswith(("as assumed: ", "DIFFERS: "))]
        self.assertEqual(answers, [*["DIFFERS"] * 4, "as assumed", "DIFFERS", "DIFFERS",
                                   "as assumed", "DIFFERS"])
        self.assertIn("a flush without changes: synchronize with nothing to write: true", facts)
        for fact in ("$ csrutil status\n(status 3)", "the probe: hold 1", "the probe: hold 2",
                     "the probe: remove", "the double of defaults", "the double of otool"):
            self.assertIn(fact, facts)
        self.assertEqual(os.listdir(self.temporary), [])
        self.assertEqual({path.name for path in self.directory.iterdir()},
                         {"facts.txt", "temporary", "tools"})

    def test_elsewhere_than_on_a_mac_it_says_so(self):
        self.assertEqual(self.run_script(status=69), "mac-facts: this is not a Mac\n")

    def test_help_and_mistakes(self):
        self.assertTrue(self.run_script("--help").startswith("The first thing to run"))
        self.assertIn("it takes one OUTPUT", self.run_script("a", "b", status=64))


if __name__ == "__main__":
    unittest.main()
