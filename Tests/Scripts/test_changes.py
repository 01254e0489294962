"""The changes that script/campaign mutate tries, on a few lines, and the sandbox of the changed
programs."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "script/lib"))

import changes  # noqa: E402
import mutate  # noqa: E402


class Changes(unittest.TestCase):
    def results(self, kind, source):
        return [source[:begin] + text + source[end:]
                for each, begin, end, text in changes.changes(source) if each == kind]

    def test_digit_separators_are_in_numbers_and_end_no_character(self):
        self.assertEqual(self.results("constant", "a = 2'000;  // its\nb = '0';"),
                         ["a = (2'000 + 1);  // its\nb = '0';", "a = (2'000 - 1);  // its\nb = '0';",
                          "a = 2'000;  // its\nb = '~';"])

    def test_each_flag_is_dropped_once(self):
        self.assertEqual(self.results("flag", "f(O_A | std::b | kC, x | y);"),
                         ["f(std::b | kC, x | y);", "f(O_A | kC, x | y);",
                          "f(O_A | std::b, x | y);"])

    def test_each_call_statement_is_dropped_and_declarations_are_not(self):
        self.assertEqual(self.results("call", "{\n  File a(1);\n  b.c(2);\n  return d();\n}"),
                         ["{\n  File a(1);\n  ;\n  return d();\n}"])

    def test_neighbouring_calls_change_places(self):
        self.assertEqual(self.results("order", "{\n  a();\n  b(1);\n  if (c) {\n    d();\n  }\n}"),
                         ["{\n  b(1);\n  a();\n  if (c) {\n    d();\n  }\n}"])


@unittest.skipIf(os.geteuid() != 0, "only root can mount the copy of the file system")
class Sandbox(unittest.TestCase):
    """Nothing is tried on the machine's own places: a sandbox that fails must not harm them."""

    def inside(self, script, *arguments):
        with tempfile.TemporaryDirectory() as work:
            result = subprocess.run(
                [*mutate.NAMESPACE, "sh", "-c", mutate.SANDBOX, "sh", work, "sh", "-c", script,
                 *arguments], check=False, capture_output=True, text=True)
        if "mount:" in result.stderr:
            self.skipTest(result.stderr)  # as in a container: the campaign cannot run there either
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout.split()

    def test_temporary_directory_and_devices_are_not_the_machines(self):
        for path in ("/", "/tmp", "/dev", "/dev/shm", "/dev/null", "/dev/pts", "/proc"):
            self.assertNotEqual(self.inside('stat -c %d "$0"', path), [str(os.stat(path).st_dev)],
                                path)

    def test_changed_program_changes_only_the_copy(self):
        with tempfile.TemporaryDirectory(dir=pathlib.Path(__file__).parent) as directory:
            file = pathlib.Path(directory, "file")
            file.write_text("text")
            modes = self.inside('chmod 777 "$0" && rm "$0/file" && stat -c %a "$0"', directory)
            self.assertEqual(modes, ["777"])
            self.assertEqual((os.stat(directory).st_mode & 0o777, file.read_text()),
                             (0o700, "text"))

    def test_mounts_stay_in_the_sandbox(self):
        before = pathlib.Path("/proc/self/mounts").read_text()
        self.inside("true")
        self.assertEqual(pathlib.Path("/proc/self/mounts").read_text(), before)


if __name__ == "__main__":
    unittest.main()
