"""Tests entries that other processes may have made, and the faults that once showed a defect."""

import os
import shutil
import signal
import socket
import stat
import subprocess
import time
import unittest

import scenarios
from faults import enter_namespace, stage_of_this_process
from machine import SANITIZED, as_tree, metadata
from private_root import DIRECTORY, INSTALL_ROOT, add_programs, tree
from scenarios import OLD, SMALL, UPDATE
from stage import PROGRAM


def plant_file(path):
    path.write_bytes(b"planted")


def plant_unreadable(path):
    path.write_bytes(b"planted")
    path.chmod(0)


def plant_directory(path):
    (path / "with").mkdir(parents=True)
    (path / "with/file").write_bytes(b"planted")


def plant_link_to_file(path):
    path.symlink_to("/elsewhere/victim")


def plant_link_to_directory(path):
    path.symlink_to("/elsewhere")


def plant_dangling_link(path):
    path.symlink_to("/elsewhere/missing")


def plant_loop(path):
    path.symlink_to(path.name)


def plant_hard_link(path):
    path.hardlink_to(stage_of_this_process().root / "elsewhere/victim")


def plant_fifo(path):
    os.mkfifo(path)


def plant_socket(path):
    listener = socket.socket(socket.AF_UNIX)
    directory = os.open(path.parent, os.O_RDONLY)  # the path may have any length
    listener.bind(f"/proc/self/fd/{directory}/{path.name}")
    os.close(directory)
    listener.close()


def plant_device(path):
    try:
        os.mknod(path, stat.S_IFCHR | 0o666, os.makedev(1, 3))
    except PermissionError:
        os.mkfifo(path)  # no process may make a device in a user namespace


PLANTS = (plant_file, plant_unreadable, plant_directory, plant_link_to_file,
          plant_link_to_directory, plant_dangling_link, plant_loop, plant_hard_link, plant_fifo,
          plant_socket, plant_device)
BROKEN_LINKS = (plant_dangling_link, plant_loop)


class Neighbourhood(unittest.TestCase):
    maxDiff = 2000

    @classmethod
    def setUpClass(cls):
        cls.stage = stage_of_this_process()
        cls.surroundings = tree(cls.stage.elsewhere)

    def begin(self, name="installed: small", **values):
        scenario, = scenarios.chosen(name)
        self.stage.set_up(scenario)
        self.stage.reset()
        if values:
            (self.stage.resources / "metadata.txt").write_text(metadata(**values))

    def run_installer(self, run=None, status=0):
        """Expects that the run ends without output and changes only its files."""
        result = (run or self.stage.run)()
        self.assertEqual((result.status, result.output), (status, b""))
        self.assert_elsewhere_untouched()

    def assert_elsewhere_untouched(self):
        self.assertEqual(tree(self.stage.elsewhere), self.surroundings)

    def assert_installed(self, content=None):
        expected = {b"Resource0": DIRECTORY}
        expected.update({b"Resource0/" + name: data
                         for name, data in as_tree(SMALL if content is None else content).items()})
        self.assertEqual(tree(self.stage.install_root), expected)

    def assert_record(self, **values):
        self.assertEqual({key: self.stage.record().get(key) for key in values}, values)


class UnderTheInstallRoot(Neighbourhood):
    def test_entry_of_every_kind_with_another_name_is_removed(self):
        for plant in PLANTS:
            with self.subTest(plant.__name__):
                self.begin()
                plant(self.stage.install_root / "planted")
                plant(self.stage.install_root / "Resource0/planted")
                plant(self.stage.install_root / "Resource0/sub/planted")
                self.run_installer()
                self.assert_installed()

    def test_entry_at_the_next_free_name_makes_the_run_use_the_name_after(self):
        for plant in PLANTS:
            if plant in BROKEN_LINKS:
                continue
            with self.subTest(plant.__name__):
                self.begin()
                plant(self.stage.install_root / "Resource1")
                self.run_installer()
                self.assert_installed()
                self.assert_record(iUpdateId=UPDATE, tWebResourceInstallPath="Resource0")

    def test_broken_link_under_the_next_free_name_stops_the_installation(self):
        for plant in BROKEN_LINKS:
            with self.subTest(plant.__name__):
                self.begin()
                plant(self.stage.install_root / "Resource1")
                before = self.stage.record()
                self.run_installer()
                self.assertTrue((self.stage.install_root / "Resource0/old").exists())
                self.assertEqual(self.stage.record(), before)

    def test_entry_in_place_of_an_ancestor_stops_the_installation(self):
        for plant in (plant_file, plant_link_to_file, plant_dangling_link, plant_fifo,
                      plant_socket, plant_device):
            for ancestor in (self.stage.install_root, self.stage.install_root.parent):
                with self.subTest(plant.__name__, ancestor=ancestor.name):
                    self.begin()
                    shutil.rmtree(ancestor)
                    plant(ancestor)
                    self.run_installer()
                    self.assert_record(**OLD)

    def test_link_in_the_place_of_an_ancestor_is_followed(self):
        self.begin()
        shutil.rmtree(self.stage.install_root)
        (self.stage.root / "moved").mkdir(exist_ok=True)
        self.stage.install_root.symlink_to("/moved")
        self.run_installer()
        self.assertEqual(os.listdir(self.stage.root / "moved"), ["Resource0"])

    @unittest.skipIf(SANITIZED, "the sanitizers come first")
    def test_subdirectories_survive_if_listings_have_no_entry_types(self):
        self.begin()
        plant_file(self.stage.install_root / "file")
        plant_link_to_directory(self.stage.install_root / "link")
        (self.stage.install_root / "empty").mkdir()
        old = tree(self.stage.install_root / "Resource0")
        self.run_installer(lambda: self.stage.run_preloaded(os.environ["UNKNOWN_TYPES"]))
        self.assertEqual(sorted(os.listdir(self.stage.install_root)), ["Resource0", "Resource1"])
        self.assertEqual(tree(self.stage.install_root / "Resource0"), old)
        self.assertEqual(tree(self.stage.install_root / "Resource1"), as_tree(SMALL))
        self.assert_record(iUpdateId=UPDATE, tWebResourceInstallPath="Resource1")
        self.run_installer()
        self.assert_installed()

    def test_unreadable_and_unwritable_entries_do_not_stop_an_ordinary_user(self):
        if os.environ["FAULTS_NAMESPACE"] == "user":
            self.skipTest("needs root: there is only one user in a user namespace")
        self.begin()
        locked = self.stage.install_root / "locked"
        plant_directory(locked)
        plant_unreadable(self.stage.install_root / "secret")
        for path in (self.stage.library, *self.stage.library.rglob("*")):
            os.chown(path, 65534, 65534, follow_symlinks=False)
        os.chown(locked, 0, 0)
        locked.chmod(0o700)
        self.run_installer(run=self.as_ordinary_user)
        self.assertEqual(sorted(os.listdir(self.stage.install_root)), ["Resource0", "locked"])
        self.assert_record(iUpdateId=UPDATE, tWebResourceInstallPath="Resource0")

    def as_ordinary_user(self):
        setpriv = shutil.which("setpriv")
        add_programs(self.stage.root, setpriv)
        return self.stage._run(["chroot", self.stage.root, setpriv, "--reuid=65534",
                                "--regid=65534", "--clear-groups", PROGRAM])

    def test_immutable_entries_stay_and_the_record_is_correct(self):
        self.begin()
        immutable = self.stage.install_root / "Resource0/old"
        if subprocess.run(["chattr", "+i", immutable], stderr=subprocess.DEVNULL,
                          check=False).returncode != 0:
            self.skipTest("the file system or the user has no immutable files")
        try:
            self.run_installer()
        finally:
            subprocess.run(["chattr", "-i", immutable], check=True)
        self.assertEqual(tree(self.stage.install_root), {
            b"Resource0": DIRECTORY, b"Resource0/old": b"old", b"Resource1": DIRECTORY,
            **{b"Resource1/" + name: data for name, data in as_tree(SMALL).items()}})
        self.assert_record(iUpdateId=UPDATE, tWebResourceInstallPath="Resource1")


class Planted(Neighbourhood):
    """Entries that are made during the run, just before one of its system calls."""

    def plant_before(self, call, number, script, name="fresh: small"):
        self.begin(name)
        root = INSTALL_ROOT[1:]
        self.run_installer(lambda: self.stage.run_with(
            f"sh:cd '{root}' && {script}", call, number))

    def test_nothing_is_written_through_an_entry_at_an_output_path(self):
        plants = {
            "FIFO": "mkfifo $OUT",
            "link": "ln -s /elsewhere/victim $OUT",
            "link to a new file": "ln -s /elsewhere/new $OUT",
            "hard link": "ln ../../../../../../elsewhere/victim $OUT",
            "file": "echo planted > $OUT",
        }
        for what, script in plants.items():
            with self.subTest(what):
                self.begin("fresh: small")
                number = self.opening_of_the_first_file()
                self.plant_before("openat", number,
                                  script.replace("$OUT", "Resource0/index.html"))
                self.assert_installed()

    def test_nothing_is_written_through_an_entry_planted_repeatedly(self):
        """An entry that is removed is made again before each call, for every way to open the
        file."""
        plants = {"link": "ln -s /elsewhere/victim", "link to a new file": "ln -s /elsewhere/new",
                  "hard link": "ln ../../../../../../elsewhere/victim", "FIFO": "mkfifo"}
        self.begin("fresh: small")
        first = self.opening_of_the_first_file()
        calls = {name for name, _ in self.stage.calls()}
        for what, script in plants.items():
            for call in sorted(calls & {"openat", "newfstatat", "unlink"}):
                with self.subTest(what, call=call):
                    self.begin("fresh: small")
                    number = first if call == "openat" else 1
                    self.run_installer(lambda: self.stage.run_with(
                        f"sh:cd '{INSTALL_ROOT[1:]}' 2>/dev/null && "
                        f"{script.replace('ln -s', 'ln -sf')} Resource0/index.html 2>/dev/null",
                        call, f"{number}+"))
                    self.assertEqual(
                        (self.stage.install_root / "Resource0/css/a.css").read_bytes(),
                        SMALL["css/a.css"])

    def test_directory_at_an_output_path_stays_and_the_rest_is_extracted(self):
        self.begin("fresh: small")
        self.plant_before("openat", self.opening_of_the_first_file(),
                          "mkdir Resource0/index.html")
        self.assert_installed({**SMALL, "index.html": None})

    def test_nothing_is_written_through_a_link_in_the_fresh_directorys_place(self):
        self.begin("fresh: small")
        calls = [pair for pair in self.stage.calls() if pair[0] in ("access", "mkdir", "openat")]
        for call, number in calls:
            with self.subTest(call, number=number):
                self.begin("fresh: small")
                self.stage.install_root.mkdir(parents=True)
                self.plant_before_made(call, number)

    def plant_before_made(self, call, number):
        script = f"sh:cd '{INSTALL_ROOT[1:]}' && [ -e Resource0 ] || ln -s /elsewhere Resource0"
        self.run_installer(lambda: self.stage.run_with(script, call, number))

    def opening_of_the_first_file(self):
        """Returns the number of the call that opens the first output file."""
        calls = [number for name, number in self.stage.calls() if name == "openat"]
        for number in calls:
            self.stage.reset()
            self.stage.run_with("kill", "openat", number + 1)
            if (self.stage.install_root / "Resource0/index.html").exists():
                return number
        self.fail("no call opens the file")


class Preferences(Neighbourhood):
    def test_entry_in_place_of_the_file_is_not_followed_and_ends_no_run(self):
        for plant in PLANTS:
            if plant in (plant_file, plant_unreadable, plant_hard_link):
                continue
            with self.subTest(plant.__name__):
                self.begin()
                self.stage.record_file.unlink()
                plant(self.stage.record_file)
                self.run_installer()
                self.assertEqual(sorted(os.listdir(self.stage.install_root)),
                                 ["Resource0", "Resource1"])

    def test_hard_link_in_the_place_of_the_file_is_replaced(self):
        self.begin()
        self.stage.record_file.unlink()
        plant_hard_link(self.stage.record_file)
        self.run_installer()
        self.assert_record(iUpdateId=UPDATE)

    def test_entry_with_a_temporary_name_is_removed(self):
        for plant in (plant_link_to_file, plant_fifo, plant_hard_link, plant_socket):
            with self.subTest(plant.__name__):
                self.begin()
                plant(self.stage.record_file.with_name(self.stage.record_file.name + ".tmp-7"))
                self.run_installer()
                self.assertEqual(self.stage.preferences(),
                                 ["com.veltrane.orlisk.2017.WebResource.plist.plist",
                                  "neighbour.plist"])

    def test_process_that_keeps_the_lock_cannot_stop_the_run(self):
        self.begin()
        holder = subprocess.Popen(["flock", self.stage.record_file.parent, "sleep", "100"])
        try:
            time.sleep(0.1)
            self.run_installer()
        finally:
            subprocess.run(["pkill", "-P", str(holder.pid)], check=False)
            holder.wait()
        self.assert_installed()
        self.assert_record(iUpdateId=UPDATE, irandom=OLD["irandom"])


class OnceFound(Neighbourhood):
    """Faults that showed a defect."""

    def test_read_of_the_metadata_that_is_interrupted_once_is_repeated(self):
        self.begin()
        self.run_installer(lambda: self.stage.run_with("EINTR", "read", "1"))
        self.assert_installed()

    def test_random_name_that_is_always_interrupted_fails_the_flush(self):
        self.begin()
        self.run_installer(lambda: self.stage.run_with("EINTR", "getrandom", "1+"))
        self.assert_record(**OLD)

    @unittest.skipIf(SANITIZED, "the sanitizers bring their own allocation functions")
    def test_exhausted_memory_neither_loses_the_record_nor_prints(self):
        self.begin()
        for number in range(1, self.stage.allocations() + 1, 7):
            with self.subTest(number):
                self.begin()
                self.run_failing_allocation(number)
                self.assert_record(**scenarios.OTHERS, irandom=OLD["irandom"])
                self.assertEqual(len(self.stage.preferences()), 2)

    @unittest.skipIf(SANITIZED, "the sanitizers bring their own allocation functions")
    def test_allocation_that_fails_in_the_zip_library_aborts_or_leaves_a_part_of_the_package(self):
        self.begin()
        root = self.stage.install_root
        for number in range(1, self.stage.allocations() + 1, 3):
            self.stage.reset()
            aborts = self.run_failing_allocation(number)
            whole = as_tree(SMALL)
            if aborts:
                self.assertTrue((root / "Resource0/old").exists()
                                or any(tree(root / name) == whole for name in os.listdir(root)))
            else:
                # See Documentation/behaviour.md: a missing package, a skipped or truncated entry.
                installed = tree(root / self.stage.record()["tWebResourceInstallPath"])
                for name, data in installed.items():
                    self.assertTrue(whole[name].startswith(data), (number, name))

    def run_failing_allocation(self, number):
        """Returns whether the run is aborted. Otherwise expects the exit status 0. Expects no
        output."""
        result = self.stage.run_failing_allocation(number)
        self.assertIn(result.status, (0, -signal.SIGABRT))
        self.assertEqual(result.output, b"")
        self.assert_elsewhere_untouched()
        return result.status != 0


if __name__ == "__main__":
    enter_namespace()
    unittest.main()
