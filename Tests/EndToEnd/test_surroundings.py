"""The location of the bundle, and the ways and the user of its start."""

import os
import pathlib
import unittest

from machine import (APPLICATION, CONTENT, EXECUTABLE, FRESH, InstallerTestCase, as_tree, metadata,
                     posix_only, record_path, write_tree)
from private_root import program, tree


class Start(InstallerTestCase):
    """The two files are found beside the executable for every way of starting the executable."""

    def setUp(self):
        super().setUp()
        self.shell = program("sh")

    def move_bundle(self, path):
        self.machine.path(path).parent.mkdir(parents=True, exist_ok=True)
        self.machine.path(APPLICATION).rename(self.machine.path(path))

    def assert_installs(self, *command, **options):
        self.run_installer(*command, **options)
        self.assert_installed(as_tree(CONTENT))
        self.assert_record(update=1)

    def assert_installs_from_shell(self, script):
        self.machine.add_programs(self.shell)
        self.assert_installs(self.shell, "-c", script)

    def test_path_with_spaces_and_letters_of_any_script(self):
        self.move_bundle("/Volumes/Mein Gerät 2/日本 *.app")
        self.assert_installs(f"/Volumes/Mein Gerät 2/日本 *.app/{EXECUTABLE}")

    def test_relative_path(self):
        self.assert_installs_from_shell(f"cd {APPLICATION}/.. && WebResourceInstaller.app/"
                                        + EXECUTABLE)

    def test_another_working_directory_is_left_alone(self):
        write_tree(self.machine.path("/elsewhere"),
                   {"metadata.txt": b"[]", "OrloWebResources.zip": b"", "Resources": None})
        before = tree(self.machine.path("/elsewhere"))
        self.assert_installs_from_shell(f"cd /elsewhere && {APPLICATION}/{EXECUTABLE}")
        self.assertEqual(tree(self.machine.path("/elsewhere")), before)

    def test_link_in_place_of_the_resources_directory(self):
        self.machine.resources.rename(self.machine.path("/real"))
        self.machine.resources.symlink_to("/real")
        self.assert_installs()

    def test_environment_is_ignored(self):
        self.machine.path("/kept").mkdir()
        env = program("env")
        self.machine.add_programs(env)
        self.assert_installs(
            env, "HOME=/kept", "TMPDIR=/nowhere", "XDG_CONFIG_HOME=/kept", "LANG=xx_YY.big5",
            "LC_ALL=tr_TR.UTF-8", "CFFIXED_USER_HOME=/kept", "UNZIP=-x *", "TZ=:/nowhere",
            "POSIXLY_CORRECT=1", f"{APPLICATION}/{EXECUTABLE}")
        self.assertEqual(os.listdir(self.machine.path("/kept")), [])

    def test_empty_environment_suffices(self):
        env = program("env")
        self.machine.add_programs(env)
        self.assert_installs(env, "-i", f"{APPLICATION}/{EXECUTABLE}")

    def test_arguments_are_ignored(self):
        self.assert_installs(f"{APPLICATION}/{EXECUTABLE}", "--help", "-v", "", "/nowhere",
                             "x" * 10_000)

    def test_closed_standard_streams_do_no_harm(self):
        self.assert_installs_from_shell(f"{APPLICATION}/{EXECUTABLE} <&- >&- 2>&-")

    def test_nothing_else_on_the_machine_is_touched(self):
        write_tree(self.machine.path("/Library"), {
            "Application Support/Veltrane/Orlisk/2016/WebResources/Resource0/old": b"1",
            "Application Support/Veltrane/Orlisk/2017/Other/x": b"2",
            "Preferences/com.veltrane.orlisk.2016.WebResource.plist.plist": b"3"})
        before = tree(self.machine.path("/Library"))
        applications = tree(self.machine.path("/Applications"))
        top = set(os.listdir(self.machine.root))
        self.assert_installs()
        after = tree(self.machine.path("/Library"))
        self.assertEqual({name: after[name] for name in before}, before)
        self.assertEqual(tree(self.machine.path("/Applications")), applications)
        self.assertLessEqual(set(os.listdir(self.machine.root)),
                             top | {"tmp", "proc", record_path().split("/")[1]})


@posix_only("the command that sets the limit")
@unittest.skipIf("PRIVATE_ROOT_SHARE" in os.environ,
                 "a coverage build writes its counts to files, which the limit cuts, too")
class FileSizeLimit(InstallerTestCase):
    """A limit is one more failed write, which is ignored and does not end the run."""

    def run_limited(self, size):
        self.machine.add_programs(program("prlimit"))
        self.run_installer(program("prlimit"), f"--fsize={size}", f"{APPLICATION}/{EXECUTABLE}")

    def test_larger_file_is_truncated_and_the_rest_is_extracted(self):
        noise = os.urandom(300_000)
        self.machine.pack({"big": noise, "small": b"2"})
        self.run_limited(100_000)
        self.assert_installed({b"big": noise[:100_000], b"small": b"2"})
        self.assert_record(update=1)

    def test_record_that_cannot_be_written_stays_as_it_was(self):
        self.run_installer()
        before = self.machine.record_file.read_bytes()
        self.run_limited(100)
        self.assertEqual(self.machine.record_file.read_bytes(), before)
        self.assertEqual(os.listdir(self.machine.record_file.parent),
                         [self.machine.record_file.name])
        self.assertEqual(set(os.listdir(self.machine.install_root)), {"Resource0", "Resource1"})


class WithoutPrivileges(InstallerTestCase):
    """Without permission to write, the run succeeds and changes nothing."""

    def run_without_privileges(self):
        """Runs as another user if root runs the tests. An ordinary user owns every file of the
        machine: then the missing capabilities and the missing write permission of the owner
        matter."""
        setpriv = program("setpriv")
        self.machine.add_programs(setpriv)
        user = ["--reuid=65534", "--regid=65534", "--clear-groups"] if os.getuid() == 0 else []
        directories = [pathlib.Path(parent) for parent, _, _ in os.walk(self.machine.root)]
        for directory in directories:
            directory.chmod(0o555)
        try:
            self.run_installer(setpriv, *user, "--no-new-privs", "--inh-caps=-all",
                               "--bounding-set=-all", f"{APPLICATION}/{EXECUTABLE}")
        finally:
            for directory in directories:
                directory.chmod(0o755)

    def setUp(self):
        super().setUp()
        for name in ("tmp", "proc"):
            self.machine.path(name).mkdir(exist_ok=True)

    def test_fresh_machine_stays_fresh(self):
        self.run_without_privileges()
        self.assertEqual(self.machine.state(), FRESH)

    def test_installed_machine_stays_as_it_is(self):
        self.run_installer()
        before = self.machine.state()
        self.machine.pack({"new": b""})
        self.machine.write_metadata(metadata(clear=True, updateid=2, regenerate=True))
        self.run_without_privileges()
        self.assertEqual(self.machine.state(), before)


if __name__ == "__main__":
    unittest.main()
