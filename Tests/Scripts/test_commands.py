"""The commands of script/: what they answer, what they refuse, and what an interruption leaves.

The tools that they would build and test with are fakes in a directory at the front of PATH.
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from private_root import SOURCE, heed_signals

COMMANDS = sorted(path for path in (SOURCE / "script").iterdir() if path.is_file())
DEADLINE = 30  # seconds, for what takes a moment

# Says that every package is installed.
ALL_INSTALLED = """for name; do case $name in -*) ;; *) echo "$name installed" ;; esac; done"""
# Leaves a file and a process, and does not end by itself.
ENDLESS = """echo "$0 $*" >"$TMPDIR/made"; : >"$STARTED"; sleep 100 & sleep 100"""


class CommandTestCase(unittest.TestCase):
    """A test with a temporary directory for the command, and a directory of fake tools."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.directory.chmod(0o755)
        self.temporary = self.directory / "tmp"
        self.temporary.mkdir()
        self.fakes = self.directory / "bin"
        self.fakes.mkdir()
        self.site = self.directory / "site"
        self.site.mkdir()
        (self.site / "index.html").write_text("<p>")

    def fake(self, name, script):
        (self.fakes / name).write_text(f"#!/bin/sh\n{script}\n")
        (self.fakes / name).chmod(0o755)

    def environment(self):
        return {**os.environ, "PATH": f"{self.fakes}:{os.environ['PATH']}",
                "TMPDIR": str(self.temporary)}

    def run_command(self, name, *arguments, prefix=()):
        result = subprocess.run(
            [*prefix, SOURCE / "script" / name, *arguments], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=DEADLINE,
            env=self.environment(), cwd=self.directory, check=False)
        self.assertEqual(os.listdir(self.temporary), [], arguments)
        return result


class Usage(CommandTestCase):
    def test_there_are_at_most_ten_commands(self):
        self.assertLessEqual(len(COMMANDS), 10)

    def test_every_command_answers_help(self):
        for command in (*COMMANDS, SOURCE / "script/lib/private-root"):
            with self.subTest(command.name):
                result = self.run_command(command.relative_to(SOURCE / "script"), "--help")
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertRegex(result.stdout, rf"(?m)^  {command.name}\b")
                self.assertNotIn("set -euo", result.stdout)

    def test_command_called_by_a_relative_path_finds_its_usage(self):
        for command in (*COMMANDS, SOURCE / "script/lib/private-root"):
            with self.subTest(command.name):
                result = subprocess.run(
                    [os.path.relpath(command, self.directory), "--help"], text=True,
                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                    env=self.environment(), cwd=self.directory, timeout=DEADLINE, check=False)
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertRegex(result.stdout, rf"(?m)^  {command.name}\b")

    def test_every_command_refuses_an_unknown_argument_with_its_usage(self):
        for command in COMMANDS:
            with self.subTest(command.name):
                result = self.run_command(command.name, "--unknown")
                self.assertEqual((result.returncode, result.stdout), (64, ""))
                self.assertRegex(result.stderr, rf"^{command.name}: .*--unknown.*\n")
                self.assertRegex(result.stderr, rf"(?m)^  {command.name}\b")

    def test_parts_of_a_command_refuse_what_they_do_not_know(self):
        for command, *arguments in (
                ("test", "release", "nosuch"), ("test-shipping", "nosuch"), ("campaign",),
                ("campaign", "fuzz"), ("campaign", "fuzz", "soon"), ("campaign", "large", "x"),
                ("campaign", "fuzz", "1", "nosuch"), ("check-code",), ("check-code", "analyze", "x"),
                ("check-code", "format", "--chek"), ("check-code", "coverage", "x"),
                ("bench", "--quick", "x"), ("test-elsewhere",),
                ("test-elsewhere", "releases", "11"), ("test-elsewhere", "processors", "vax"),
                ("test-elsewhere", "mac", "x")):
            with self.subTest((command, *arguments)):
                result = self.run_command(command, *arguments)
                self.assertEqual((result.returncode, result.stdout), (64, ""), result.stderr)

    def test_contributing_lists_every_command(self):
        text = (SOURCE / "CONTRIBUTING.md").read_text() + (SOURCE / "README.md").read_text()
        for command in COMMANDS:
            self.assertRegex(text, rf"script/{command.name}\b")


class DemoArgument(CommandTestCase):
    """Nothing is built: the argument is looked at first."""

    def setUp(self):
        super().setUp()
        self.fake("cmake", "echo built >&2; exit 1")

    def assert_refused(self, why, *arguments, status=66, prefix=()):
        result = self.run_command("demo", *arguments, prefix=prefix)
        self.assertEqual((result.returncode, result.stdout), (status, ""), result.stderr)
        first, *rest = result.stderr.splitlines()
        self.assertRegex(first, f"^demo: .*{why}")
        if status == 66:
            self.assertEqual(rest, [])

    def test_options_and_a_second_argument(self):
        self.assert_refused("--nosuch", "--nosuch", status=64)
        self.assert_refused("--", "--", status=64)
        self.assert_refused("second", str(self.site), "second", status=64)
        self.assert_refused("empty", "", status=64)

    def test_what_is_not_a_directory_of_files(self):
        (self.directory / "dangling").symlink_to("nowhere")
        (self.directory / "loop").symlink_to("loop")
        (self.directory / "empty").mkdir()
        self.assert_refused("site/index.html: not a directory", "site/index.html")
        self.assert_refused("nowhere: not found", "nowhere")
        self.assert_refused("dangling: not found", "dangling")
        self.assert_refused("loop: not found", "loop")
        self.assert_refused("empty: no files", "empty")

    def test_links_to_nothing_and_in_a_circle(self):
        link = self.site / "link"
        for target in ("nowhere", "link"):
            link.symlink_to(target)
            self.assert_refused("a dangling or cyclic link: link|link.*symbolic links", "site")
            link.unlink()
        link.symlink_to(".")
        self.assert_refused("(?=.*link).*loop", "site")

    def test_name_with_a_newline(self):
        (self.site / "a\nb").write_text("")
        self.assert_refused(r"a name with a newline: a\?b", "site")
        shutil.copytree(self.directory / "site", self.directory / "a\nsite")
        self.assert_refused(r"a\?site: a name with a newline$", "a\nsite")

    def test_special_file(self):
        os.mkfifo(self.site / "fifo")
        self.assert_refused("neither a file nor a directory: fifo", "site")

    def test_unreadable_file_and_directory(self):
        # Root reads everything, but not in a user namespace that maps nobody.
        prefix = ["unshare", "--user"] if os.geteuid() == 0 else []
        self.temporary.chmod(0o777)
        for path in (self.site / "index.html", self.site / "deep"):
            if not path.exists():
                path.mkdir()
            path.chmod(0)
            self.assert_refused(f"cannot be read: {path.name}", "site", prefix=prefix)
            path.chmod(0o755)
        self.site.chmod(0)
        self.assert_refused("site: cannot be read$", "site", prefix=prefix)
        self.site.chmod(0o755)

    def test_directory_that_can_be_installed_is_built_for(self):
        self.fake("dpkg-query", ALL_INSTALLED)
        result = self.run_command("demo", "site")
        self.assertIn("built", result.stderr)
        self.assertEqual(result.returncode, 1)


class OrdinaryUser(CommandTestCase):
    """A user without rights; root becomes one in a user namespace that maps nobody."""

    PREFIX = ["unshare", "--user"] if os.geteuid() == 0 else []

    def setUp(self):
        super().setUp()
        self.fake("sudo", "exit 1")
        self.fake("dpkg-query", "exit 0")

    def test_advice_for_missing_packages_begins_with_the_lists(self):
        self.fake_user_namespaces(status=0)
        result = self.run_command("demo", prefix=self.PREFIX)
        self.assertEqual(result.returncode, 69)
        self.assertRegex(result.stderr, "(?m)^  apt-get update && apt-get install .*libpugixml-dev")

    def fake_user_namespaces(self, status):
        """Whether the command gets them is for this test to say; not for PREFIX."""
        unshare = shutil.which("unshare")
        self.fake("unshare", f'case $1 in --user) exec {unshare} "$@" ;; esac; exit {status}')

    def test_refused_user_namespaces_are_told_in_one_line(self):
        self.fake_user_namespaces(status=1)
        for command in ("demo", "test"):
            result = self.run_command(command, prefix=self.PREFIX)
            self.assertEqual((result.returncode, result.stdout), (69, ""))
            self.assertRegex(result.stderr, "^This machine gives .* no user namespaces.*\n$")


class Interruption(CommandTestCase):
    """Whenever a command is ended, no process and no temporary file of it is left."""

    def setUp(self):
        super().setUp()
        self.fake("dpkg-query", ALL_INSTALLED)
        for name in ("cmake", "ctest"):
            self.fake(name, "exit 0")
        self.started = self.directory / "started"

    def environment(self):
        return {**super().environment(), "STARTED": str(self.started)}

    def processes(self):
        """Those whose temporary directory is this test's."""
        mark = os.fsencode(self.temporary)
        found = []
        for path in pathlib.Path("/proc").glob("[0-9]*/environ"):
            try:
                if mark in path.read_bytes() and path.parent.name != str(os.getpid()):
                    found.append((path.parent / "cmdline").read_bytes())
            except OSError:
                continue  # it has ended
        return found

    def wait_for(self, condition, what):
        end = time.monotonic() + DEADLINE
        while not condition():
            self.assertLess(time.monotonic(), end, what())
            time.sleep(0.05)

    def assert_leaves_nothing(self, number, name, *arguments):
        command = subprocess.Popen(
            [SOURCE / "script" / name, *arguments], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=self.environment(),
            cwd=self.directory, preexec_fn=heed_signals)
        self.wait_for(self.started.exists, self.processes)
        self.started.unlink()
        command.send_signal(number)
        self.assertEqual(command.wait(DEADLINE), 128 + number)
        self.wait_for(lambda: not self.processes(), self.processes)
        self.assertEqual(os.listdir(self.temporary), [])

    def test_signals_end_all_processes_of_a_build(self):
        self.fake("cmake", ENDLESS)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                self.assert_leaves_nothing(number, "test", "release")

    def test_every_step_of_a_test_can_be_interrupted(self):
        for name, script in (("cmake", f'case $1 in --build) {ENDLESS} ;; esac'),
                             ("ctest", ENDLESS)):
            with self.subTest(name):
                self.fake("cmake", "exit 0")
                self.fake(name, script)
                self.assert_leaves_nothing(signal.SIGTERM, "test", "release")

    def test_demo_can_be_interrupted(self):
        self.fake("cmake", ENDLESS)
        self.assert_leaves_nothing(signal.SIGINT, "demo", "site")

    def test_process_that_ignores_the_request_is_ended_all_the_same(self):
        self.fake("cmake", f"trap '' TERM; {ENDLESS}")
        self.assert_leaves_nothing(signal.SIGTERM, "test", "release")


class Progress(CommandTestCase):
    """A build shows how far it is."""

    def setUp(self):
        super().setUp()
        self.fake("dpkg-query", ALL_INSTALLED)
        self.fake("cmake", 'case $1 in --build) echo "[7/345] Building"; sleep 3 ;; esac')
        self.fake("ctest", 'echo "1/2 Test #1: a ... Passed 1 sec"; echo "2/2 Test #2: b ...***Failed";'
                           'echo "the summary"; exit 8')

    def test_counter_on_a_terminal(self):
        shown = subprocess.run(
            ["script", "-qec", f"{SOURCE}/script/test release", "/dev/null"], text=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, env=self.environment(),
            timeout=DEADLINE, check=False).stdout
        self.assertIn("\x1b[K   release: build: 7 of 345", shown)

    def test_failures_and_the_summary_of_the_tests_are_shown(self):
        result = self.run_command("test", "release")
        self.assertEqual(result.returncode, 8)
        self.assertIn("Test #2: b ...***Failed\nthe summary\n", result.stdout)
        self.assertNotIn("Passed", result.stdout)


class Release(CommandTestCase):
    """What is not a clean checkout of the version's tag is refused before anything is made."""

    def git(self, status="", tag="v1.0.0"):
        self.fake("git", f"case $1 in status) printf '{status}' ;; tag) echo {tag} ;; *) echo 1 ;; esac")

    def test_checkout_with_changes_or_without_the_tag_is_refused(self):
        for state, told in (({"status": " M file"}, "has changes"),
                            ({"tag": "v0.9.0"}, "no tag v1.0.0")):
            self.git(**state)
            result = self.run_command("release")
            self.assertEqual((result.returncode, result.stdout), (65, ""))
            self.assertIn(told, result.stderr)

    def test_dry_run_prints_what_it_would_make_and_makes_nothing(self):
        self.git(status=" M file")
        for name in ("cmake", "apt-get", "dpkg", "rm", "sha256sum"):
            self.fake(name, f"[ {name} = rm ] && exec /bin/rm \"$@\"; echo called >&2; exit 1")
        result = self.run_command("release", "--dry-run")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        for expected in ("web-resource-installer-1.0.0.tar.gz", "-aamd64 ", "-aarm64 ",
                         "web-resource-installer_1.0.0_arm64.deb", "_amd64.cdx.json", "SHA256SUMS",
                         "diff -r"):
            self.assertIn(expected, result.stdout)


class Record(CommandTestCase):
    """RECORD=1 writes the lines of a command into the file of figures."""

    BEFORE = """# Figures
| Command | Result | Date | Commit |
|---|---|---|---|
| `campaign large` | kept | 2026-01-01 | |
| `test release` | replaced | 2026-01-01 | |
"""

    def test_rows_of_the_command_are_replaced_and_others_stay(self):
        shutil.copytree(SOURCE / "script", self.directory / "script")
        support = self.directory / "Tests/Support"
        support.mkdir(parents=True)
        shutil.copy(SOURCE / "Tests/Support/in-memory", support)
        figures = self.directory / "Documentation/testing-figures.md"
        figures.parent.mkdir()
        self.fake("dpkg-query", ALL_INSTALLED)
        self.fake("git", "echo abc1234+")
        self.fake("ctest", "echo 'a | b'; echo '  window: 3'; echo '[1/2] Building'; echo OK")
        for status, expected in ((1, ""), (0, """\
| `test release` | a \\| b | DATE | abc1234+ |
| `test release` | All tests passed: release | DATE | abc1234+ |
""")):
            figures.write_text(self.BEFORE)
            self.fake("cmake", f"exit {status}")
            result = subprocess.run(
                [self.directory / "script/test", "release"], stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                env={**self.environment(), "RECORD": "1"}, timeout=DEADLINE)
            self.assertEqual(result.returncode, status, result.stdout)
            lines = self.BEFORE.splitlines(keepends=True)
            self.assertEqual(re.sub(r"\d{4}-\d\d-\d\d \| abc", "DATE | abc", figures.read_text()),
                             "".join(lines[:-1]) + expected if expected else self.BEFORE)


if __name__ == "__main__":
    unittest.main()
