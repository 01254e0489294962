"""The workflow: the job for a Mac, the command by which this job runs tests as root, and the blocks
of commands."""

import pathlib
import re
import shutil
import subprocess
import tempfile
import textwrap
import unittest

import test_mac_facts

SOURCE = pathlib.Path(__file__).resolve().parents[2]
WORKFLOW = SOURCE / ".github/workflows/ci.yml"
RELEASE = SOURCE / "build/release"

# As root's own sudo: some variables are removed even with --preserve-env.
SUDO = """#!/bin/sh
[ "$1" = --preserve-env ] || exit 64
shift
unset PYTHONPATH PYTHONHOME PYTHONINSPECT PYTHONUSERBASE PERL5LIB BASH_ENV ENV LD_PRELOAD
exec "$@"
"""


def steps(job):
    """The steps of a job, each as its text without comments."""
    text = re.search(rf"^  {job}:\n((?:    .*\n|\n)+)", WORKFLOW.read_text(), re.MULTILINE)[1]
    text = re.sub(r"^ *#.*\n", "", text, flags=re.MULTILINE)
    return re.split(r"^      - ", text, flags=re.MULTILINE)[1:]


def run_blocks(text):
    """The commands of a step, or of the whole workflow, as one text for each."""
    for match in re.finditer(r"^( *)(?:- )?run: (?:\|\n((?:\1  +.*\n)+)|(.*))", text,
                             re.MULTILINE):
        yield textwrap.dedent(match[2]) if match[2] else match[3] + "\n"


def block(start):
    """The block of the workflow that begins with these words."""
    [found] = {text for text in run_blocks(WORKFLOW.read_text()) if text.startswith(start)}
    return found


def copy_checkout(directory):
    """Copies the checked-out files, as they are now."""
    names = subprocess.run(["git", "ls-files", "-z"], cwd=SOURCE, check=True, text=True,
                           stdout=subprocess.PIPE).stdout
    for name in filter(None, names.split("\0")):
        (directory / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(SOURCE / name, directory / name)


def make_root(root):
    """Makes a directory for `private-root run --system`, with the programs of this machine."""
    (root / "tmp").mkdir(parents=True)
    for name in ("bin", "sbin", "lib", "lib64"):
        (root / name).symlink_to(f"usr/{name}")


def in_root(root, commands):
    """The command that runs commands of a shell in the chroot, which has the checkout."""
    return [SOURCE / "script/lib/private-root", "run", "--system", root, "/bin/bash", "-ec",
            commands]


class ThrowawayMachine(unittest.TestCase):
    def test_tests_find_their_modules_as_root(self):
        with tempfile.TemporaryDirectory() as directory:
            sudo = pathlib.Path(directory) / "sudo"
            sudo.write_text(SUDO)
            sudo.chmod(0o755)
            result = subprocess.run(
                [SOURCE / "Tests/Support/on-throwaway-machine", "/usr/bin/env"], text=True,
                check=True, stdout=subprocess.PIPE, env={
                    "PATH": f"{directory}:/usr/bin:/bin", "CI": "true", "THROWAWAY_MACHINE": "1",
                    "PYTHONPATH": "/the modules", "BUNDLE": "/b"})
        self.assertIn("PYTHONPATH=/the modules\n", result.stdout)
        self.assertIn("BUNDLE=/b\n", result.stdout)


class Workflow(unittest.TestCase):
    def test_intel_mac_needs_no_homebrew(self):
        for step in steps("macos"):
            if re.search(r"brew |--preset|throwaway-machine ", step):
                self.assertTrue(step.startswith("if: matrix.processor == 'arm'\n"), step)
            else:
                self.assertNotIn("if:", step)

    def test_intel_mac_builds_and_installs_the_package(self):
        commands = [block for step in steps("macos") if not step.startswith("if:")
                    for block in run_blocks("      - " + step)]
        self.assertTrue(any("script/package-macos " in block for block in commands))
        self.assertTrue(any("installer -pkg " in block for block in commands))
        self.assertTrue(any(" verify " in block for block in commands))

    def test_actions_are_pinned_by_digest(self):
        uses = re.findall(r"uses: \S+@(\S+)", WORKFLOW.read_text())
        self.assertTrue(uses)
        self.assertEqual([digest for digest in uses if not re.fullmatch(r"[0-9a-f]{40}", digest)],
                         [])


class RunBlocks(unittest.TestCase):
    """The blocks that take seconds, each by itself in a copy of the checkout. Doubles replace the
    commands that only a Mac has, and `sudo`. Needs the build of the preset release."""

    # The beginnings of the other blocks. The commands of script/ take minutes or hours, and a build
    # and its tests are a part of script/test.
    ELSEWHERE = (".ci/run", "cmake", "ctest", "script/check-code", "script/release\n",
                 "script/test-elsewhere", "script/test-shipping")
    IN_PACKAGE_FROM_SOURCES = ("script/package-macos", "sudo installer", "bundle=")
    HERE = ("apt-get", "git config", "cd build/published", "script/mac-facts", "brew",
            ".ci/throwaway-machine", "script/release --dry-run")

    def setUp(self):
        directory = tempfile.TemporaryDirectory(dir=SOURCE / "build")
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.checkout = self.directory / "checkout"
        copy_checkout(self.checkout)
        self.tools = self.directory / "tools"
        self.tools.mkdir()

    def add_double(self, name, body):
        (self.tools / name).write_text(f"#!/bin/sh\n{body}\n")
        (self.tools / name).chmod(0o755)

    def run_checked(self, *command, **environment):
        result = subprocess.run(
            command, cwd=self.checkout, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, check=False, umask=0o022,
            env={"PATH": f"{self.tools}:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": str(self.directory),
                 **environment})
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout

    def run_block(self, text, **environment):
        return self.run_checked("bash", "-ec", text, **environment)

    def test_each_block_runs_in_one_place(self):
        starts = (*self.HERE, *self.ELSEWHERE, *self.IN_PACKAGE_FROM_SOURCES)
        for text in run_blocks(WORKFLOW.read_text()):
            with self.subTest(text):
                self.assertEqual(len([start for start in starts if text.startswith(start)]), 1)

    def test_packages_exist(self):
        self.add_double("apt-get", '[ "$*" = update ] || exec /usr/bin/apt-get --simulate "$@"')
        workflow = WORKFLOW.read_text()
        packages = re.findall(r"^ *packages: (.*)$", workflow, re.MULTILINE)
        blocks = {text for text in run_blocks(workflow) if text.startswith("apt-get")}
        for text in blocks:
            for names in packages if "${{" in text else [""]:
                with self.subTest(text, names=names):
                    self.run_block(text.replace("${{ matrix.packages }}", names))

    def test_directory_of_another_user_is_safe_for_git(self):
        self.run_block(block("git config"))
        self.assertEqual(self.run_checked("git", "config", "--global", "safe.directory"),
                         f"{self.checkout}\n")

    def test_release_prints_its_commands(self):
        printed = self.run_block(block("script/release --dry-run"))
        self.assertIn("SHA256SUMS", printed.splitlines()[-1])
        self.assertFalse((self.checkout / "build").exists())

    def test_package_of_a_mac_is_added_to_the_checksums(self):
        published = self.checkout / "build/published"
        published.mkdir(parents=True)
        (published / "sample.pkg").write_text("a package")
        (published / "SHA256SUMS").write_text("")
        self.run_block(block("cd build/published"))
        self.assertEqual(
            self.run_checked("sh", "-c", "cd build/published && sha256sum -c SHA256SUMS"),
            "sample.pkg: OK\n")

    def test_facts_are_in_the_file_that_is_uploaded(self):
        for name, body in test_mac_facts.DOUBLES.items():
            self.add_double(name, body)
        self.run_block(block("script/mac-facts"), PROBE=str(self.tools / "probe"),
                       TMPDIR=str(self.directory))
        facts = (self.checkout / "mac-facts.txt").read_text(errors="replace")
        self.assertIn("== The system\n", facts)

    def test_formulae_are_those_of_the_guides(self):
        self.add_double("brew", '[ "$1" = install ] && shift && printf "%s\\n" "$@"')
        guides = "".join((SOURCE / name).read_text() for name in ("README.md", "CONTRIBUTING.md"))
        named = " ".join(re.findall(r"brew install ([\w -]+)", guides)).split()
        of_images = {"cmake"}  # GitHub's images contain it
        self.assertEqual(set(self.run_block(block("brew")).split()), set(named) - of_images)

    def test_installation_and_update_on_a_throwaway_machine(self):
        build = self.checkout / "build/release"
        (build / "Tests/Source").mkdir(parents=True)
        shutil.copy(RELEASE / "cmake_install.cmake", build)
        # The program that reads the record, here with the double of CoreFoundation.
        shutil.copy(RELEASE / "Tests/Doubles/AppleRecordTest",
                    build / "Tests/Source/OSUtilsRecordTest")
        self.add_double("sudo", 'exec "$@"')
        root = self.directory / "root"
        make_root(root)
        printed = self.run_checked(
            *in_root(root, f"cd '{self.checkout}'\n" + block(".ci/throwaway-machine")), CI="true",
            PRIVATE_ROOT_SHARE=str(SOURCE))
        self.assertIn("check_installation Examples/sample-site/clouds 2", printed)
        self.assertTrue((root / "Library/Preferences").is_dir())


class ShellCheck(unittest.TestCase):
    """Needs shellcheck, so it is no part of an ordinary test run."""

    def test_finds_nothing_in_run_blocks(self):
        blocks = list(run_blocks(WORKFLOW.read_text()))
        self.assertGreater(len(blocks), 15)
        for block in blocks:
            script = "#!/bin/bash\nset -eo pipefail\n" + re.sub(r"\$\{\{.*?\}\}", "word", block)
            with self.subTest(block):
                result = subprocess.run(["shellcheck", "-"], input=script, text=True,
                                        stdout=subprocess.PIPE, check=False)
                self.assertEqual(result.stdout, "")


if __name__ == "__main__":
    unittest.main()
