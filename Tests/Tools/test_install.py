"""install, verify and installcheck on a machine: test_install.py [TEST...]

The machine is a chroot with the command and a bundle. Each test changes one thing."""

import collections
import ctypes
import errno
import fcntl
import json
import os
import pathlib
import plistlib
import pty
import select
import shlex
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest
import zipfile

import jsonschema

from private_root import (DIRECTORY, INSTALL_ROOT, RECORD, SOURCE, add_programs, command_in,
                          full_version, heed_signals, inside, program, tree)

BUNDLE = pathlib.Path(os.environ["BUNDLE"])
COMMAND = os.environ["WEBRESOURCES"]
SANITIZED = os.environ["SANITIZED"] == "1"
EXECUTABLE = f"Contents/{os.environ['EXECUTABLES']}/WebResourceInstaller"
TEMPORARY = tempfile.TemporaryDirectory(prefix="install-")
WORK = pathlib.Path(TEMPORARY.name)
BESIDE = os.path.dirname(INSTALL_ROOT)
RECEIPT = f"{BESIDE}/WebResources.receipt.json"
SCHEMA = json.loads((SOURCE / "Documentation/webresources.schema.json").read_text())
RECEIPT_SCHEMA = json.loads((SOURCE / "Documentation/receipt.schema.json").read_text())
PACKAGE = "Contents/Resources/OrloWebResources.zip"
METADATA = "Contents/Resources/metadata.txt"

SITE = {"index.html": b"<p>hello</p>" * 500, "css/": None, "css/a.css": b"a { color: red }",
        "css/deep/": None, "css/deep/random": os.urandom(30000), "empty": b""}

Told = collections.namedtuple("Told", "status ids document")


def setUpModule():
    WORK.chmod(0o755)


def tearDownModule():
    TEMPORARY.cleanup()


def write_bundle(bundle, content=None, update=7, clear=False, regenerate=False):
    """Writes a bundle with the shipped executable."""
    if not bundle.exists():
        shutil.copytree(BUNDLE, bundle)
    with zipfile.ZipFile(bundle / PACKAGE, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in (SITE if content is None else content).items():
            archive.writestr(name, data or b"")
    words = {True: "true", False: "false"}
    (bundle / METADATA).write_text('{"clear":%s,"updateid":%d,"regenerate":%s}\n' % (
        words[clear], update, words[regenerate]))


INHERITED = "system.posix_acl_default"


def is_root():
    """Returns whether this process is root of the whole machine."""
    return pathlib.Path("/proc/self/uid_map").read_text().split() == ["0", "0", "4294967295"]


def let_user_write_in_new_entries(test, directory):
    """Sets a default access control list: user 1234 may write to new entries of the directory."""
    entries = [(1, 7, 0xffffffff), (2, 7, 1234), (4, 5, 0xffffffff), (16, 7, 0xffffffff),
               (32, 5, 0xffffffff)]
    try:
        os.setxattr(directory, INHERITED, struct.pack("<I", 2) + b"".join(
            struct.pack("<HHI", *entry) for entry in entries))
    except OSError as error:
        # In a user namespace, user 1234 does not exist.
        if error.errno != errno.ENOTSUP and (error.errno != errno.EINVAL or is_root()):
            raise
        test.skipTest("an access control list for user 1234 is not possible here")


class Machine:
    def __init__(self):
        self.root = pathlib.Path(tempfile.mkdtemp(dir=WORK))
        self.root.chmod(0o755)
        add_programs(self.root, COMMAND, BUNDLE / EXECUTABLE)
        for directory in ("dev", "tmp"):
            (self.root / directory).mkdir(exist_ok=True)
        self.bundle = self.root / "X.app"
        write_bundle(self.bundle)

    def path(self, path):
        return inside(self.root, path)

    @property
    def installed(self):
        return self.path(INSTALL_ROOT) / "Resource0"

    def command(self, *arguments):
        return self.command_of(COMMAND, *arguments)

    def command_of(self, *command):
        """Returns the command that runs a program whose libraries are in the chroot."""
        return command_in(self.root, *command, proc=SANITIZED, added=True)

    def start(self, *arguments, **options):
        return subprocess.Popen(self.command(*arguments), stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, **options)

    def tell(self, name, *arguments, **options):
        """Returns the result of a command: the status, the identifiers of the findings, and the
        document."""
        result = subprocess.run(self.command(name, *arguments, "--json"), capture_output=True,
                                text=True, timeout=120, check=False, **options)
        document = json.loads(result.stdout)
        jsonschema.Draft7Validator(SCHEMA).validate(document)
        return Told(result.returncode, [finding["id"] for finding in document["findings"]],
                    document)

    def install(self, *arguments, bundle="/X.app", **options):
        return self.tell("install", bundle, *arguments, **options)

    def verify(self, *arguments, bundle="/X.app"):
        return self.tell("verify", *([bundle] if bundle else []), *arguments)

    def installcheck(self, *arguments):
        return self.tell("installcheck", "/X.app", *arguments)

    def run_step(self, **options):
        """Runs the installer directly, without the command."""
        subprocess.run(self.command_of(f"/X.app/{EXECUTABLE}"), check=True, **options)

    def record(self):
        return plistlib.loads(self.path(RECORD).read_bytes())

    def change_record(self, **values):
        record = {**self.record(), **values}
        self.path(RECORD).write_bytes(plistlib.dumps(
            {key: value for key, value in record.items() if value is not None}))

    def receipt(self):
        return json.loads(self.path(RECEIPT).read_text())

    def everything(self):
        """Returns everything that an installation writes, without the parts that depend on the
        time."""
        found = tree(self.path("/Library"))
        receipt = found.get(os.fsencode(RECEIPT.replace("/Library/", "", 1)))
        if receipt is not None:
            found[b"receipt"] = {**json.loads(receipt), "time": None}
            del found[os.fsencode(RECEIPT.replace("/Library/", "", 1))]
        record = os.fsencode(RECORD.replace("/Library/", "", 1))
        if record in found:  # the keys may have any order
            found[record] = plistlib.loads(found[record])
        return found


def as_tree(content):
    return {name.rstrip("/").encode(): DIRECTORY if data is None else data
            for name, data in content.items()}


class Case(unittest.TestCase):
    def setUp(self):
        self.machine = Machine()

    def assert_installed(self, content=None, update=7):
        machine = self.machine
        self.assertEqual(tree(machine.path(INSTALL_ROOT) / "Resource0"),
                         as_tree(SITE if content is None else content))
        self.assertEqual(os.listdir(machine.path(INSTALL_ROOT)), ["Resource0"])
        record = machine.record()
        self.assertIn(record.pop("irandom"), range(1, 10001))
        self.assertEqual(record, {"tWebResourceInstallPath": "Resource0", "iUpdateId": update,
                                  "tFullVersion": full_version(update)})
        self.assertEqual(machine.receipt()["updateId"], update)
        self.assertEqual((machine.verify().status, machine.verify(bundle=None).status,
                          machine.installcheck().status), (0, 0, 1))


class Install(Case):
    def test_fresh_machine(self):
        self.assertEqual(self.machine.installcheck().status, 0)
        told = self.machine.install()
        self.assertEqual((told.status, told.document["outcome"]), (0, "installed"))
        self.assertEqual(told.document["record"]["updateId"], 7)
        self.assert_installed()

    def test_bundle_may_have_a_relative_path(self):
        """The installer has another working directory than the command."""
        add_programs(self.machine.root, program("sh"))
        for place, path in (("/", "X.app"), ("/X.app", "."), ("/X.app/Contents", "../")):
            result = subprocess.run(
                self.machine.command_of(program("sh"), "-c",
                                        f"cd {place} && {COMMAND} install --force {path}"),
                stdout=subprocess.DEVNULL, check=False)
            self.assertEqual(result.returncode, 0, path)
            self.assert_installed()

    def test_set_group_id_bit_and_inherited_list_above_let_an_installation_succeed(self):
        """New entries inherit the bit and the list, and the list lets another user write."""
        above = self.machine.path("/Library/Application Support")
        above.mkdir(parents=True)
        above.chmod(0o2755)
        let_user_write_in_new_entries(self, above)
        self.assertEqual(self.machine.install().status, 0)
        self.assert_installed()
        root = self.machine.path(INSTALL_ROOT)
        let_user_write_in_new_entries(self, root)
        (self.machine.installed / "index.html").unlink()
        self.assertEqual(self.machine.install().status, 0)
        self.assert_installed()
        self.assertNotIn(INHERITED, os.listxattr(root))
        self.assertIn(INHERITED, os.listxattr(above))

    def test_open_directory_of_the_host_is_reported_with_the_command_and_not_changed(self):
        above = self.machine.path("/Library/Application Support")
        above.mkdir(parents=True)
        above.chmod(0o777)
        for outcome in ("installed", "up-to-date"):
            told = self.machine.install()
            self.assertEqual((told.status, told.ids, told.document["outcome"]),
                             (1, ["directory-access"], outcome))
            self.assertIn("chmod go-w '/Library/Application Support'",
                          told.document["findings"][0]["reason"])
        self.assertEqual(above.stat().st_mode & 0o777, 0o777)
        for told, status in ((self.machine.verify(), 1), (self.machine.verify(bundle=None), 1),
                             (self.machine.tell("status"), 1), (self.machine.installcheck(), 1)):
            self.assertEqual((told.status, told.ids), (status, ["directory-access"]))
        self.assertEqual(self.machine.install("--ignore-modes").status, 0)
        above.chmod(0o755)
        self.assert_installed()

    def test_resources_directory_is_wrong_usage(self):
        """The program beside a Resources directory, which belongs to no bundle, once ran as
        root."""
        shutil.copytree(self.machine.bundle / "Contents/Resources", self.machine.path("/dir/res"))
        self.machine.path("/link").symlink_to("/X.app/Contents/Resources")
        for path in ("/dir/res", "/link", "/X.app/Contents", "/X.app/Contents/Resources"):
            for name in ("install", "plan"):
                result = subprocess.run(self.machine.command(name, path), capture_output=True,
                                        text=True, check=False)
                self.assertEqual((result.returncode, result.stdout), (64, ""), path)
                self.assertIn("it is not a bundle", result.stderr)
        self.assertFalse(self.machine.path("/Library").exists())

    def test_program_that_is_a_link_installs_the_package_that_was_checked(self):
        other = self.machine.root / "Y.app"
        write_bundle(other, {"other": b"other"})
        program_file = self.machine.bundle / EXECUTABLE
        program_file.unlink()
        program_file.symlink_to(f"/Y.app/{EXECUTABLE}")
        self.assertEqual(self.machine.install().status, 0)
        self.assert_installed()

    def test_bundle_whose_contents_are_a_link_is_checked_and_installed(self):
        """`check` and `install` use the same package and the same program."""
        real = self.machine.bundle / "Real"
        (self.machine.bundle / "Contents").rename(real)
        (self.machine.bundle / "Contents").symlink_to("Real")
        told = self.machine.tell("check", "/X.app")
        self.assertEqual((told.status, told.ids), (0, []))
        self.assertEqual(self.machine.install().status, 0)
        self.assertEqual(self.machine.receipt()["packageSha256"], told.document["sha256"])
        self.assert_installed()
        inside(real, EXECUTABLE.removeprefix("Contents")).chmod(0o644)
        for name in ("check", "install"):
            told = self.machine.tell(name, "/X.app", *["--force"] * (name == "install"))
            self.assertEqual((told.status, told.ids), (1, ["program-unusable"]), name)

    def test_package_larger_than_the_limit_is_not_copied(self):
        told = self.machine.install("--max-size", "100")
        self.assertEqual(told.status, 1)
        self.assertEqual(told.ids[0], "content-too-large")
        self.machine.install()
        with open(self.machine.bundle / PACKAGE, "ab") as package:
            package.truncate(100000000)
        told = self.machine.install("--force", "--max-size", "90000000")
        self.assertEqual((told.status, told.document["error"]["operation"]), (2, "copy"))
        self.assertEqual(self.leftovers(), [])

    def leftovers(self):
        return [name for name in os.listdir(self.machine.path(BESIDE))
                if name.startswith(".WebResources.") and name != ".WebResources.lock"]

    def test_leftovers_of_killed_processes_are_removed_even_if_nothing_is_installed(self):
        self.machine.install()
        beside = self.machine.path(BESIDE)
        (beside / ".WebResources.run-abcdef/Contents/Resources").mkdir(parents=True)
        (beside / ".WebResources.receipt.json.old-1").write_text("old")
        (beside / ".WebResources.receipt.json.tmp-1").write_text("tmp")
        self.assertEqual(self.machine.install().document["outcome"], "up-to-date")
        self.assertEqual(self.leftovers(), [])

    def test_up_to_date_machine_gets_no_copy(self):
        """The directory that would get the copy keeps the old modification time."""
        self.machine.install()
        before = self.machine.path(BESIDE).stat().st_mtime_ns
        self.assertEqual(self.machine.install().document["outcome"], "up-to-date")
        self.assertEqual(self.machine.path(BESIDE).stat().st_mtime_ns, before)

    def test_dry_run_is_the_plan(self):
        told = self.machine.install("--dry-run")
        self.assertEqual((told.status, told.document["command"], told.document["outcome"]),
                         (0, "plan", "install"))
        self.assertFalse(self.machine.path("/Library").exists())

    def test_up_to_date_machine_is_not_changed(self):
        self.machine.install()
        before = self.machine.installed.stat().st_ino
        receipt = self.machine.path(RECEIPT).stat().st_ino
        told = self.machine.install()
        self.assertEqual(self.machine.path(RECEIPT).stat().st_ino, receipt)
        self.assertEqual((told.status, told.document["outcome"]), (0, "up-to-date"))
        self.assertEqual(self.machine.installed.stat().st_ino, before)

    def test_force_runs_the_installer_anyway(self):
        self.machine.install()
        before = self.machine.installed.stat().st_ctime_ns
        self.assertEqual(self.machine.install("--force").document["outcome"], "installed")
        self.assertNotEqual(self.machine.installed.stat().st_ctime_ns, before)
        self.assert_installed()

    def test_update_replaces_the_installed_files(self):
        self.machine.install()
        content = {"other": b"other"}
        write_bundle(self.machine.bundle, content, update=8)
        self.assertEqual(self.machine.install().document["outcome"], "installed")
        self.assert_installed(content, 8)

    def test_newer_update_is_kept_unless_a_downgrade_is_allowed(self):
        write_bundle(self.machine.bundle, update=8)
        self.machine.install()
        write_bundle(self.machine.bundle, {"old": b"old"}, update=7)
        before = self.machine.everything()
        told = self.machine.install()
        self.assertEqual((told.status, told.ids, told.document["outcome"]),
                         (1, ["newer-installed"], "refused"))
        self.assertEqual(self.machine.install("--force").status, 1)
        self.assertEqual(self.machine.installcheck().status, 1)
        self.assertEqual(self.machine.everything(), before)
        self.assertEqual(self.machine.install("--allow-downgrade").status, 0)
        self.assert_installed({"old": b"old"}, 7)

    def test_older_update_is_installed_where_no_number_is_recorded(self):
        """The way to a downgrade by macOS packages, which pass no option."""
        write_bundle(self.machine.bundle, update=8)
        self.machine.install()
        self.machine.change_record(iUpdateId=None)
        write_bundle(self.machine.bundle, {"old": b"old"}, update=7)
        self.assertEqual(self.machine.install().status, 0)
        self.assert_installed({"old": b"old"}, 7)

    def test_damaged_bundle_touches_nothing(self):
        """A truncated package, a changed byte, and missing directory entries once emptied a working
        site."""
        package = self.machine.bundle / PACKAGE
        whole = package.read_bytes()
        flipped = bytearray(whole)
        flipped[60] ^= 1
        without_directories = {name: data for name, data in SITE.items() if data is not None}
        self.machine.install()
        for damage in (lambda: package.write_bytes(whole[:-200]),
                       lambda: package.write_bytes(flipped),
                       lambda: write_bundle(self.machine.bundle, without_directories),
                       package.unlink,
                       lambda: (self.machine.bundle / METADATA).write_text("{}")):
            write_bundle(self.machine.bundle)
            damage()
            for arguments in ([], ["--force"]):
                before = self.machine.everything()
                told = self.machine.install(*arguments)
                self.assertEqual((told.status, told.document["outcome"]), (1, "refused"))
                self.assertNotEqual(told.ids, [])
                self.assertEqual(self.machine.everything(), before)
            self.assertNotEqual(self.machine.verify().status, 0)
            self.assertEqual(self.machine.installcheck().status, 2)

    def test_damaged_bundle_touches_nothing_on_a_fresh_machine(self):
        (self.machine.bundle / PACKAGE).unlink()
        self.assertEqual(self.machine.install().ids, ["package-missing"])
        self.assertFalse(self.machine.path("/Library").exists())

    def test_refusal_makes_no_directory(self):
        """A newer update is recorded, and no other file exists."""
        record = self.machine.path(RECORD)
        record.parent.mkdir(parents=True)
        record.write_bytes(plistlib.dumps({"iUpdateId": 8}))
        self.assertEqual(self.machine.install().ids, ["newer-installed"])
        self.assertEqual(os.listdir(self.machine.path("/Library")), ["Preferences"])

    def test_machine_that_cannot_be_examined_gets_no_directory(self):
        record = self.machine.path(RECORD)
        record.mkdir(parents=True)
        self.assertEqual(self.machine.install().status, 2)
        self.assertEqual(os.listdir(self.machine.path("/Library")), ["Preferences"])

    def test_installer_always_has_the_same_environment(self):
        """For every umask, other users can read everything and write nothing, the directories above
        and the receipt included."""
        for umask in (0o077, 0):
            shutil.rmtree(self.machine.path("/Library"), ignore_errors=True)
            self.assertEqual(self.machine.install(umask=umask, env={
                "PATH": os.environ["PATH"], "TMPDIR": "/nowhere"}).status, 0)
            self.assert_installed()
            above = self.machine.path("/Library/Application Support")
            for path in [above, *above.rglob("*")]:
                expected = 0o755 if path.is_dir() else 0o600 if path.suffix == ".lock" else 0o644
                self.assertEqual(path.stat().st_mode & 0o777, expected, path)

    def write_step(self, script):
        """Writes a shell script in place of the executable."""
        add_programs(self.machine.root, program("sh"), program("sleep"))
        step = self.machine.bundle / EXECUTABLE
        step.write_text(f"#!{program('sh')}\n{script}\n")
        step.chmod(0o755)

    def test_installer_that_fails_is_reported(self):
        self.write_step("exit 3")
        told = self.machine.install()
        self.assertEqual(told.ids, ["step-failed", "not-installed"])
        self.assertEqual((told.status, told.document["outcome"]), (1, "failed"))
        self.assertEqual(self.machine.receipt()["state"], "begun")

    def test_unfinished_installation_is_a_finding_until_the_next_installation(self):
        """Once, the receipt was removed first, and a truncated file then counted as correct."""
        self.machine.install()
        step = self.machine.bundle / EXECUTABLE
        shipped = step.read_bytes()
        self.write_step("exit 3")
        self.assertEqual(self.machine.install("--force").ids, ["step-failed"])
        self.assertEqual(self.leftovers(), [])
        self.assertEqual(self.machine.receipt()["state"], "begun")
        jsonschema.Draft7Validator(RECEIPT_SCHEMA).validate(self.machine.receipt())
        for told in (self.machine.verify(), self.machine.verify(bundle=None),
                     self.machine.tell("status")):
            self.assertEqual((told.status, told.ids), (1, ["install-unfinished"]))
        self.assertEqual(told.document["receipt"]["state"], "begun")
        self.assertEqual(self.machine.installcheck().status, 0)
        step.write_bytes(shipped)
        self.assertEqual(self.machine.install().status, 0)
        self.assert_installed()

    def test_environment_of_the_installer(self):
        self.write_step("""{ umask; pwd; } >/told
            export -p >/environment
            for i in 3 4 5 6 7 8 9; do (: >&$i) 2>/dev/null && echo $i >>/descriptors; done
            kill -TERM $$
            """)
        reading, writing = os.pipe()
        told = self.machine.install(
            umask=0o077, cwd="/tmp", env={**os.environ, "FORBIDDEN": "value"},
            pass_fds=[reading, writing],
            preexec_fn=lambda: signal.signal(signal.SIGTERM, signal.SIG_IGN))
        os.close(reading)
        os.close(writing)
        self.assertEqual(self.machine.path("/told").read_text(), "0022\n/\n")
        self.assertNotIn("FORBIDDEN", self.machine.path("/environment").read_text())
        self.assertEqual(len(self.machine.path("/descriptors").read_text().split()), 1)  # the lock
        self.assertIn("signal 15", told.document["findings"][0]["reason"])

    def test_installer_inherits_only_the_lock_of_many_open_descriptors(self):
        add_programs(self.machine.root, program("bash"))
        self.write_step(f"""exec {program("bash")} -c '
            for ((i = 3; i < 400; ++i)); do {{ : >&$i; }} 2>/dev/null && echo $i; done
            true' >/descriptors""")
        with open(os.devnull, "rb") as null:
            opened = [fcntl.fcntl(null, fcntl.F_DUPFD, 10) for _ in range(200)]
        self.machine.install(pass_fds=opened)
        for descriptor in opened:
            os.close(descriptor)
        self.assertEqual(len(self.machine.path("/descriptors").read_text().split()), 1)

    @unittest.skipIf(SANITIZED, "the sanitizers need descriptors of their own")
    def test_too_few_descriptors_keep_the_old_installation(self):
        """With 6 descriptors, the state "begun" once stayed although the installer did not run."""
        self.machine.install()
        add_programs(self.machine.root, program("sh"))
        write_bundle(self.machine.bundle, {"new": b"new"}, update=8)
        for limit in range(4, 41):
            result = subprocess.run(self.machine.command_of(
                program("sh"), "-c", f'ulimit -n {limit} && exec "$@"', "sh", COMMAND, "install",
                "/X.app", "--json"), capture_output=True, text=True, check=False)
            if result.returncode == 0:
                break
            error = json.loads(result.stdout)["error"]
            self.assertEqual((result.returncode, error["reason"]), (2, "Too many open files"))
            self.assertRegex(error["object"] + error["remedy"], "^/.*ulimit -n")
            self.assertEqual(self.machine.verify(bundle=None).status, 0, limit)
            self.assertEqual(self.machine.receipt()["updateId"], 7)
        self.assertGreater(limit, 4)
        self.assert_installed({"new": b"new"}, update=8)
        self.assertEqual(self.leftovers(), [])

    def test_installer_that_cannot_be_run_gives_status_2(self):
        self.machine.install()
        receipt = self.machine.path(RECEIPT).read_bytes()
        step = self.machine.bundle / EXECUTABLE
        write_bundle(self.machine.bundle, update=8)
        step.write_text("#!/interpreter\n")
        self.machine.path("/interpreter").touch(0o644)
        told = self.machine.install()
        self.assertEqual(told.status, 2)
        self.assertIn("Permission denied", told.document["error"]["reason"])
        self.assertEqual(self.machine.path(RECEIPT).read_bytes(), receipt)
        self.assertEqual(self.machine.verify(bundle=None).status, 0)
        self.assertEqual(self.leftovers(), [])

    def assert_refused_for_its_processor(self):
        for name in ("plan", "install"):
            told = self.machine.tell(name, "/X.app")
            self.assertEqual((told.status, told.ids), (1, ["program-unusable"]), name)
            self.assertIn("for another processor", told.document["findings"][0]["reason"])

    def test_program_for_another_processor_is_refused_before_anything_is_made(self):
        step = self.machine.bundle / EXECUTABLE
        shipped = step.read_bytes()
        no_processor = 0x1234
        for program in (shipped[:18] + struct.pack("<H", no_processor) + shipped[20:],
                        b"\xcf\xfa\xed\xfe" + bytes(1000), b"#!/no/interpreter\n"):
            step.write_bytes(program)
            self.assert_refused_for_its_processor()
            self.assertFalse(self.machine.path("/Library").exists())
            self.assertEqual(self.machine.tell("check", "/X.app").status, 0)
            self.assertEqual(self.machine.tell("plan", "/X.app", "--root", "/tmp").status, 0)
        step.write_bytes(shipped)
        self.machine.install()
        write_bundle(self.machine.bundle, update=8)
        step.write_bytes(b"\x7fELF")
        before = self.machine.path(BESIDE).stat().st_mtime_ns
        self.assert_refused_for_its_processor()
        self.assertEqual(self.machine.path(BESIDE).stat().st_mtime_ns, before)  # without a copy

    def test_trial_start_does_not_run_the_installer(self):
        self.write_step("echo >/ran; exit 3")
        self.assertEqual(self.machine.tell("plan", "/X.app").status, 0)
        self.assertFalse(self.machine.path("/ran").exists())
        self.assertEqual(self.machine.install().status, 1)
        self.assertTrue(self.machine.path("/ran").exists())

    def test_program_that_is_missing_or_not_executable_is_an_error_of_the_bundle(self):
        step = self.machine.bundle / EXECUTABLE
        lock = self.machine.path(f"{BESIDE}/.WebResources.lock")

        def assert_told(reason):
            for name in ("check", "plan", "install", "verify"):
                told = self.machine.tell(name, "/X.app")
                findings = {finding["id"]: finding for finding in told.document["findings"]}
                self.assertEqual(told.status, 1, name)
                self.assertIn(reason, findings["program-unusable"]["reason"])
            lock.parent.mkdir(parents=True)
            lock.touch()
            told = self.machine.install()  # the private copy of the installer would be executable
            self.assertIn(reason, told.document["findings"][0]["reason"])
            shutil.rmtree(self.machine.path("/Library"))

        step.chmod(0o644)
        assert_told("it is not executable")
        step.unlink()
        assert_told("No such file")
        step.mkdir()
        assert_told("it is not a regular file")
        self.assertEqual(self.machine.tell("check", "/X.app/Contents/Resources").status, 0)
        self.assertFalse(self.machine.path("/Library").exists())

    def test_aborted_run_is_reported_when_the_caller_ignores_its_children(self):
        self.write_step("kill -ABRT $$")
        told = self.machine.install(
            preexec_fn=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        self.assertEqual((told.status, told.ids[0]), (1, "step-failed"))

    def test_volume_without_programs_is_reported(self):
        mount = self.machine.path("/Library")
        mount.mkdir()
        result = subprocess.run(
            ["unshare", *([] if os.geteuid() == 0 else ["--map-root-user"]), "--mount", "sh", "-c",
             'mount -t tmpfs -o noexec tmpfs "$0" && shift 0 && exec "$@"', str(mount),
             *self.machine.command("install", "/X.app", "--json")],
            capture_output=True, text=True, check=False)
        [finding] = json.loads(result.stdout)["findings"]
        self.assertIn("noexec", finding["reason"])
        self.assertEqual(result.returncode, 1)

    def on_a_volume(self, options, *arguments, at="/Library", prepare="true", **streams):
        """Returns the result of a command with an empty volume mounted at `at`, also the directory
        for scratch files if this is "/scratch". `options` are mount options, or the size in bytes.
        A shell runs `prepare` in the volume before the command."""
        mount = self.machine.path(at)
        mount.mkdir(exist_ok=True)
        if isinstance(options, int):
            options = f"size={options}"
        result = subprocess.run(
            ["unshare", *([] if os.geteuid() == 0 else ["--map-root-user"]), "--mount", "sh", "-c",
             f'mount -t tmpfs -o {options} tmpfs "$0" && (cd "$0" && {prepare}) && exec "$@"',
             str(mount), *self.machine.command(*arguments, "--json")],
            **(streams or {"capture_output": True}), text=True, check=False,
            env={**os.environ, "TMPDIR": "/scratch"})
        document = json.loads(result.stdout)
        return Told(result.returncode, [finding["id"] for finding in document["findings"]],
                    document)

    def test_full_volume_is_refused(self):
        write_bundle(self.machine.bundle, {"large": b"x" * 3000000})
        told = self.on_a_volume(2 << 20, "install", "/X.app")
        self.assertEqual((told.status, told.ids), (1, ["no-space"]))

    def test_volume_with_exactly_enough_space_is_enough(self):
        needed = self.machine.tell("plan", "/X.app").document["bytesNeeded"]
        page = os.sysconf("SC_PAGESIZE")
        self.assertEqual(needed % page, 0)
        told = self.on_a_volume(needed, "plan", "/X.app")
        self.assertEqual((told.document["bytesFree"], told.document["outcome"]),
                         (needed, "install"))
        self.assertEqual(self.on_a_volume(needed - page, "plan", "/X.app").ids, ["no-space"])

    LOCK = (f'umask 022; mkdir -p ".{BESIDE.removeprefix("/Library")}" && umask 077 && '
            f'touch ".{BESIDE.removeprefix("/Library")}/.WebResources.lock"')

    def test_volume_without_room_for_the_copy_is_refused_before_the_copy(self):
        """The lock is there already. A copy would fail: status 2."""
        page = os.sysconf("SC_PAGESIZE")
        write_bundle(self.machine.bundle, {"large": os.urandom(1 << 20)})
        needed = self.machine.tell("plan", "/X.app").document["bytesNeeded"]
        self.assertGreater(needed, 2 << 20)  # the content and the copy
        for size in (1 << 19, needed - page):
            told = self.on_a_volume(size, "install", "/X.app", prepare=self.LOCK)
            self.assertEqual((told.status, told.ids), (1, ["no-space"]))
        told = self.on_a_volume(needed + (1 << 20), "install", "/X.app", prepare=self.LOCK)
        self.assertEqual((told.status, told.ids), (0, []))

    def test_plan_counts_every_file_of_the_copy(self):
        for name in (EXECUTABLE, "Contents/Info.plist"):
            before = self.machine.tell("plan", "/X.app").document["bytesNeeded"]
            with open(self.machine.bundle / name, "ab") as file:
                file.write(b" " * (1 << 20))
            after = self.machine.tell("plan", "/X.app").document["bytesNeeded"]
            self.assertGreaterEqual(after - before, (1 << 20) - 4096, name)

    def test_volume_with_too_few_inodes_is_refused(self):
        write_bundle(self.machine.bundle, {str(number): b"" for number in range(30)})
        for name, prepare in (("plan", "true"), ("install", "true"), ("install", self.LOCK)):
            told = self.on_a_volume("nr_inodes=40", name, "/X.app", prepare=prepare)
            self.assertEqual((told.status, told.ids), (1, ["no-space"]))
            self.assertIn("inodes", told.document["findings"][0]["reason"])
        self.assertEqual(self.on_a_volume("nr_inodes=80", "install", "/X.app").status, 0)

    def test_trial_extraction_with_exactly_enough_room(self):
        page = os.sysconf("SC_PAGESIZE")
        write_bundle(self.machine.bundle, {"large": b"x" * 2 * page})
        for options, status in ((2 * page, 0), (page, 2), ("nr_inodes=4", 0), ("nr_inodes=1", 2)):
            told = self.on_a_volume(options, "check", "--prove", "/X.app", at="/scratch")
            self.assertEqual(told.status, status, options)

    def test_trial_extraction_without_inodes_for_the_content_is_told(self):
        write_bundle(self.machine.bundle, {str(number): b"" for number in range(30)})
        told = self.on_a_volume("nr_inodes=20", "check", "--prove", "/X.app", at="/scratch")
        self.assertEqual((told.status, told.document["error"]["operation"]), (2, "extract to"))
        self.assertIn("files and directories", told.document["error"]["reason"])

    def test_volume_that_takes_no_file_is_told(self):
        site = self.machine.path("/site")
        site.mkdir()
        (site / "index.html").write_text("x")
        pack = ("pack", "/site", "--update-id", "7", "--create", "--output", "/Library")
        for options, command, reason in (("nr_inodes=1", pack, "No space left on device"),
                                         ("ro", pack, "Read-only file system"),
                                         ("ro", ("install", "/X.app"), "Read-only file system")):
            told = self.on_a_volume(options, *command)
            self.assertEqual((told.status, told.document["error"]["reason"]), (2, reason), command)

    def test_progress_of_the_installer_is_shown_on_a_terminal(self):
        """The bar follows the free space of the volume."""
        write_bundle(self.machine.bundle, {"large": b"x" * 400000})
        self.write_step("""text=0123456789
            for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15; do text=$text$text; done
            read -r line </go; echo $text >/Library/new; read -r line </go""")
        os.mkfifo(self.machine.path("/go"))
        master, terminal = pty.openpty()
        self.addCleanup(os.close, master)
        self.addCleanup(os.close, terminal)
        process = threading.Thread(target=lambda: self.on_a_volume(
            "size=90%", "install", "/X.app", stdout=subprocess.PIPE, stderr=terminal))
        process.start()
        shown = b""
        self.machine.path("/go").write_text("\n")  # waits for the reader
        while b"] installing" not in shown and select.select([master], [], [], 60)[0]:
            shown += os.read(master, 10000)
        self.assertIn(b"] installing", shown)
        self.machine.path("/go").write_text("\n")
        process.join()


class Receipt(Case):
    def test_it_is_a_document_of_its_schema(self):
        write_bundle(self.machine.bundle, {**SITE, "\u202e\x7f\x85": b"x"})
        self.machine.install()
        jsonschema.Draft7Validator(RECEIPT_SCHEMA).validate(self.machine.receipt())
        text = self.machine.path(RECEIPT).read_text()
        self.assertFalse(set(text) & set("\u202e\x7f\x85"))
        paths = {item["path"] for item in self.machine.receipt()["tree"]}
        self.assertIn("\u202e\x7f\x85", paths)
        self.assertEqual(self.machine.verify(bundle=None).status, 0)

    def test_verify_without_a_bundle_compares_content_with_it(self):
        self.machine.install()
        self.assertEqual(self.machine.verify(bundle=None).document["comparedWith"], "receipt")
        page = self.machine.installed / "index.html"
        page.write_bytes(page.read_bytes().replace(b"hello", b"Hello"))
        self.assertEqual(self.machine.verify(bundle=None).ids, ["file-differs"])
        page.unlink()
        self.assertEqual(self.machine.verify(bundle=None).ids, ["file-missing"])
        page.symlink_to("empty")
        self.assertEqual(self.machine.verify(bundle=None).ids, ["file-type"])

    def test_verify_without_a_bundle_and_a_receipt_reports_the_compared_parts(self):
        self.machine.run_step()
        told = self.machine.verify(bundle=None)
        self.assertEqual((told.status, told.document["comparedWith"]), (0, "record"))
        output = subprocess.run(self.machine.command("verify"), capture_output=True, text=True,
                                check=True).stdout
        self.assertIn("only the record was compared", output)

    def test_receipt_of_a_version_before_1_0_stays_valid(self):
        self.machine.install()
        path = self.machine.path(RECEIPT)
        older = {**self.machine.receipt(), "version": "17.11.30138"}
        del older["format"], older["state"]
        path.write_text(json.dumps(older))
        before = path.stat().st_ino
        self.assertEqual(self.machine.verify().ids, [])
        told = self.machine.verify(bundle=None)
        self.assertEqual((told.ids, told.document["comparedWith"]), ([], "receipt"))
        self.assertEqual(self.machine.install().document["outcome"], "up-to-date")
        self.assertEqual(path.stat().st_ino, before)

    def test_receipt_of_another_update_is_a_finding(self):
        self.machine.install()
        write_bundle(self.machine.bundle, {"later": b"later"}, update=8)
        self.machine.run_step()
        self.assertEqual(self.machine.verify(bundle=None).ids, ["receipt-differs"])
        self.assertEqual(self.machine.verify().ids, ["receipt-differs"])
        self.assertEqual(self.machine.install().document["outcome"], "up-to-date")
        self.assert_installed({"later": b"later"}, 8)

    def test_receipt_of_another_package_is_a_finding(self):
        self.machine.install()
        write_bundle(self.machine.bundle, {"other": b"other"})
        self.machine.run_step()
        self.assertEqual(self.machine.verify().ids, ["receipt-differs"])
        self.machine.install()
        self.assert_installed({"other": b"other"})

    def test_receipt_that_differs_from_a_correct_installation_is_replaced(self):
        """Once, one wrong digest made `verify` and `installcheck` fail for ever."""
        self.machine.install()
        for change in ({"sha256": "0" * 64}, {"size": 1 << 60}, {"mode": "0700"}, {"path": "x"}):
            receipt = self.machine.receipt()
            next(item for item in receipt["tree"] if item["type"] == "file").update(change)
            for options in ((), ("--force",)):
                self.machine.path(RECEIPT).write_text(json.dumps(receipt))
                self.assertEqual(self.machine.verify(bundle=None).status, 1, change)
                self.assertEqual(self.machine.install(*options).status, 0, change)
                self.assert_installed()

    def test_damaged_receipt_is_a_finding(self):
        self.machine.install()
        for text in ("", "{}", "[]", '{"tree":[{}]}',
                     self.machine.path(RECEIPT).read_text().replace("com.", "org.")):
            self.machine.path(RECEIPT).write_text(text)
            self.assertEqual(self.machine.verify(bundle=None).ids, ["receipt-damaged"], text)
            self.assertEqual(self.machine.verify().ids, ["receipt-damaged"], text)
        self.machine.install()
        self.assert_installed()

    def test_receipt_that_cannot_be_read_ends_the_installation_before_the_installer_runs(self):
        self.machine.install()
        record = self.machine.record()
        self.machine.path(RECEIPT).unlink()
        self.machine.path(RECEIPT).mkdir()
        write_bundle(self.machine.bundle, update=8)
        told = self.machine.install()
        self.assertEqual((told.status, told.document["error"]["operation"]), (2, "read"))
        self.assertEqual(self.machine.record(), record)


class Advice(Case):
    """Messages name the cause, the place and the remedy. The remedy works when the test follows the
    advice."""

    def output(self, *arguments, status=None):
        result = subprocess.run(self.machine.command(*arguments), capture_output=True, text=True,
                                timeout=120, check=False)
        self.assertIn(status, (None, result.returncode))
        return result.stdout + result.stderr

    def follow(self, advice):
        self.assertRegex(advice, "^webresources install ")  # the tests are root in the chroot
        words = shlex.split(advice)
        self.assertEqual(subprocess.run(self.machine.command(*words[1:]), check=False,
                                        stdout=subprocess.DEVNULL).returncode, 0, advice)

    def test_of_verify_installs_the_bundle(self):
        advice = self.machine.verify().document["advice"]
        self.assertEqual(advice, "webresources install /X.app")
        self.assertIn(f"\nto repair: {advice}\n", self.output("verify", "/X.app"))
        self.assertEqual(self.machine.installcheck().document["advice"], advice)
        self.follow(advice)
        self.assert_installed()
        self.assertIsNone(self.machine.verify().document["advice"])

    def test_of_verify_with_an_older_bundle_is_a_downgrade(self):
        write_bundle(self.machine.bundle, update=8)
        self.machine.install()
        write_bundle(self.machine.bundle, {"old": b"old"}, update=7)
        self.assertIsNone(self.machine.installcheck().document["advice"])
        self.follow(self.machine.verify().document["advice"])
        self.assert_installed({"old": b"old"}, 7)

    def test_of_a_bundle_with_a_space_and_a_quote_is_one_word(self):
        shutil.copytree(self.machine.bundle, self.machine.path("/a b'c.app"))
        self.follow(self.machine.verify(bundle="/a b'c.app").document["advice"])
        self.assert_installed()

    def test_removes_a_lock_file_that_install_refuses(self):
        self.machine.install()
        lock = f"{BESIDE}/.WebResources.lock"
        refused = [lambda path: path.chmod(0o602)]
        if is_root():
            refused.append(lambda path: os.chown(path, 1234, 1234))
        for make_refused in refused:
            (self.machine.installed / "index.html").write_bytes(b"damaged")
            make_refused(self.machine.path(lock))
            removal, _, rest = self.machine.verify().document["advice"].partition(" && ")
            self.assertEqual(removal, f"rm '{lock}'")
            told = self.machine.install()
            self.assertEqual((told.status, told.document["error"]["remedy"]),
                             (2, f"remove it with {removal}"))
            self.machine.path(lock).unlink()
            self.follow(rest)
            self.assert_installed()

    def test_of_another_root_is_a_chroot(self):
        (self.machine.path("/other")).mkdir()
        shutil.copytree(self.machine.bundle, self.machine.path("/other/Y.app"))
        for bundle, advice in (
                ("/other/Y.app", "chroot /other webresources install /Y.app"),
                ("/X.app", "cp -R /X.app/. /other/X.app && "
                           "chroot /other webresources install /X.app")):
            told = self.machine.verify("--root", "/other", bundle=bundle)
            self.assertEqual(told.document["advice"], advice)
        self.assertEqual(self.machine.tell("status", "--root", "/other").document["advice"],
                         "chroot /other webresources install BUNDLE")

    def test_record_that_is_a_directory_or_a_fifo_is_reported(self):
        record = self.machine.path(RECORD)
        record.parent.mkdir(parents=True)
        for make, remove in ((os.mkdir, os.rmdir), (os.mkfifo, os.unlink)):
            make(record)
            for name in ("status", "uninstall"):
                self.assertEqual(self.output(name, status=2), (
                    f"webresources {name}: cannot read the record {RECORD}: it is not a regular "
                    "file; remove it, then run webresources install\n"))
            remove(record)

    def test_of_a_damaged_bundle_is_none(self):
        (self.machine.bundle / PACKAGE).unlink()
        self.assertIsNone(self.machine.verify().document["advice"])

    def test_installer_without_permission_to_run_is_reported(self):
        (self.machine.bundle / EXECUTABLE).chmod(0o644)
        self.assertIn(f"[program-unusable] /X.app/{EXECUTABLE}: it is not executable\n"
                      "    fix: give the installer the mode 0755, or make the bundle again for this "
                      "system\n",
                      self.output("install", "/X.app"))

    def test_damaged_receipt_is_reported_without_the_words_of_a_library(self):
        self.machine.install()
        receipt = self.machine.path(RECEIPT)
        for text, reason in (('{"tool"', "it is not JSON: byte 8 is wrong"),
                             ("{}", "a member is missing or of another type"),
                             (receipt.read_text().replace("com.", "org."),
                              "it is of another product")):
            receipt.write_text(text)
            [finding] = self.machine.verify().document["findings"]
            self.assertEqual((finding["subject"], finding["reason"]), (RECEIPT, reason))
        receipt.unlink()
        receipt.mkdir()
        self.assertIn("it is not a regular file; remove it, then run webresources install",
                      self.output("status"))

    def test_refusal_names_the_update_that_stays(self):
        write_bundle(self.machine.bundle, update=8)
        self.machine.install()
        write_bundle(self.machine.bundle, update=7)
        self.assertIn("\nrefused: update 8 stays installed\n", self.output("install", "/X.app"))

    def test_missing_metadata_is_reported(self):
        (self.machine.bundle / METADATA).unlink()
        self.assertRegex(self.output("verify", "/X.app"),
                         f"^webresources verify: cannot use /X.app/{METADATA}: "
                         r"\[metadata-missing\] it is missing: .*; .*\n$")


class Fleet(Case):
    """Each way in which machines break is reported correctly and, if possible, repaired by one
    `install`."""

    def setUp(self):
        super().setUp()
        self.machine.install()
        self.page = self.machine.installed / "index.html"
        self.root = self.machine.path(INSTALL_ROOT)

    def change_owner(self):
        for path in [self.machine.installed, *self.machine.installed.rglob("*")]:
            os.chown(path, 1234, 1234)

    def half_finished(self):
        """Makes the state of a run that was killed after the new directory was recorded."""
        (self.root / "Resource1").mkdir()
        (self.root / "Resource1/index.html").write_bytes(b"<p>")
        self.machine.change_record(tWebResourceInstallPath="Resource1")

    def rename_directory(self):
        self.machine.installed.rename(self.root / "Resource3")

    def replace_by_link(self):
        target = self.machine.path("/elsewhere")
        self.page.rename(target)
        self.page.symlink_to("/elsewhere")

    # The findings of verify with the bundle, and with only the receipt and the record.
    BREAKAGES = {
        "delete": (lambda t: t.page.unlink(), ["file-missing"], ["file-missing"]),
        "change": (lambda t: t.page.write_bytes(t.page.read_bytes().replace(b"hello", b"Hello")),
                   ["file-differs"], ["file-differs"]),
        "add": (lambda t: (t.page.parent / "added").touch(), ["file-extra"], ["file-extra"]),
        "chmod 000": (lambda t: t.page.chmod(0), ["mode-differs"], ["mode-differs"]),
        "chmod 4777": (lambda t: t.page.chmod(0o4777), ["mode-differs"], ["mode-differs"]),
        "chmod 777 directory": (lambda t: (t.page.parent / "css").chmod(0o777), ["mode-differs"],
                                ["mode-differs"]),
        "chmod 700 above": (lambda t: t.root.parent.parent.chmod(0o700), ["mode-differs"],
                            ["mode-differs"]),
        "chmod 775 root": (lambda t: t.root.chmod(0o775), ["mode-differs"], ["mode-differs"]),
        "chmod 600 record": (lambda t: t.machine.path(RECORD).chmod(0o600), ["mode-differs"],
                             ["mode-differs"]),
        "chmod 666 receipt": (lambda t: t.machine.path(RECEIPT).chmod(0o666), ["mode-differs"],
                              ["mode-differs"]),
        "link": (replace_by_link, ["file-type"], ["file-type"]),
        "record edited": (lambda t: t.machine.change_record(iUpdateId=3, tFullVersion="3"),
                          ["record-differs", "record-differs", "receipt-differs"],
                          ["record-version", "receipt-differs"]),
        "record deleted": (lambda t: t.machine.path(RECORD).unlink(),
                           ["record-missing"] * 4 + ["receipt-differs"],
                           ["record-missing"] * 4 + ["receipt-differs"]),
        "record damaged": (lambda t: t.machine.path(RECORD).write_bytes(b"damaged"),
                           ["record-missing"] * 4 + ["receipt-differs"],
                           ["record-missing"] * 4 + ["receipt-differs"]),
        "directory renamed": (rename_directory, ["not-installed", "leftover"],
                              ["not-installed", "leftover"]),
        "half finished": (half_finished, None, None),
        "leftover": (lambda t: (t.root / "Resource9").mkdir(), ["leftover"], ["leftover"]),
        "irandom of a wrong type": (lambda t: t.machine.change_record(irandom="42"),
                                    ["record-type"], ["record-type"]),
        "irandom out of range": (lambda t: t.machine.change_record(irandom=0), ["record-random"],
                                 ["record-random"]),
        "irandom too large": (lambda t: t.machine.change_record(irandom=1 << 40),
                              ["record-type"], ["record-type"]),
        "irandom deleted": (lambda t: t.machine.change_record(irandom=None), ["record-missing"],
                            ["record-missing"]),
        "update number of a wrong type": (lambda t: t.machine.change_record(iUpdateId="7"),
                                          ["record-type", "receipt-differs"],
                                          ["record-type", "receipt-differs"]),
        "everything deleted": (lambda t: shutil.rmtree(t.root), ["not-installed"],
                               ["not-installed"]),
    }
    if os.geteuid() == 0:
        BREAKAGES["chown"] = (change_owner, ["owner-differs"] * 7, ["owner-differs"] * 7)
        BREAKAGES["chown record and root"] = (
            lambda t: [os.chown(path, 1234, 1234) for path in (t.root, t.machine.path(RECORD))],
            ["owner-differs"] * 2, ["owner-differs"] * 2)

    def test_each_defect_is_reported_and_repaired(self):
        for name, (breaks, with_bundle, alone) in self.BREAKAGES.items():
            with self.subTest(name):
                breaks(self)
                told = self.machine.verify()
                self.assertEqual(told.status, 1)
                if with_bundle is not None:
                    self.assertEqual(told.ids, with_bundle)
                told = self.machine.verify(bundle=None)
                self.assertEqual(told.status, 1)
                if alone is not None:
                    self.assertEqual(told.ids, alone)
                self.assertEqual(self.machine.tell("status").status, 1)
                self.assertEqual(self.machine.installcheck().status, 0)
                told = self.machine.install()
                self.assertEqual((told.status, told.document["outcome"]), (0, "installed"))
                self.assert_installed()

    def test_record_that_cannot_be_read_gives_status_2(self):
        record = self.machine.path(RECORD)
        record.unlink()
        record.mkdir()
        self.assertEqual((self.machine.verify().status, self.machine.install().status), (2, 2))

    def test_entry_that_blocks_the_installer_is_refused_and_reported(self):
        """A dangling link at the path of the new directory, or a file at the path of the root. The
        installer would install nothing."""
        shutil.rmtree(self.machine.installed)
        self.machine.installed.symlink_to("nowhere")
        before = self.machine.everything()
        self.assertEqual(self.machine.install().ids, ["root-blocked"])
        self.assertEqual(self.machine.everything(), before)
        shutil.rmtree(self.root)
        self.root.write_text("in the way")
        self.assertEqual(self.machine.verify().ids[0], "root-blocked")
        self.assertEqual(self.machine.install().ids, ["root-blocked"])

    def test_modes_can_be_ignored(self):
        self.page.chmod(0o600)
        for told in (self.machine.verify("--ignore-modes"),
                     self.machine.verify("--ignore-modes", bundle=None)):
            self.assertEqual((told.status, told.ids), (0, []))
        self.assertEqual(self.machine.installcheck("--ignore-modes").status, 1)
        self.assertEqual(self.machine.install("--ignore-modes").document["outcome"], "up-to-date")
        self.assertEqual(self.page.stat().st_mode & 0o777, 0o600)

    def test_same_number_of_another_package_is_installed(self):
        write_bundle(self.machine.bundle, {"other": b"other"})
        self.assertEqual(self.machine.installcheck().status, 0)
        self.machine.install()
        self.assert_installed({"other": b"other"})


class Together(Case):
    """Concurrent installations, and installations that are killed."""

    def install_at_once(self, count, *arguments):
        started = [self.machine.start("install", "/X.app", *arguments) for _ in range(count)]
        return [(process.communicate()[0], process.returncode)[1] for process in started]

    def test_four_concurrent_installations_leave_one_complete_installation(self):
        for _ in range(5):
            self.assertEqual(self.install_at_once(4, "--force"), [0] * 4)
            self.assert_installed()

    def test_four_concurrent_first_installations_leave_one_complete_installation(self):
        """No process has made the lock yet, which keeps other processes from reading a changing
        state."""
        for _ in range(5):
            shutil.rmtree(self.machine.path("/Library"), ignore_errors=True)
            self.assertEqual(self.install_at_once(4, "--force"), [0] * 4)
            self.assert_installed()

    def slow_step(self):
        """Makes the installer wait for a file before its work, as long as its root exists. If the
        test ends early, no process stays."""
        add_programs(self.machine.root, program("sh"), program("sleep"))
        step = self.machine.bundle / EXECUTABLE
        shutil.move(step, step.with_name("Step"))
        step.write_text(f"#!{program('sh')}\necho >/begun\n"
                        f"while [ -e /begun ] && [ ! -e /go ]; do {program('sleep')} 0.02; done\n"
                        f"exec /X.app/{EXECUTABLE.replace('WebResourceInstaller', 'Step')}\n")
        step.chmod(0o755)

    def wait_for(self, path):
        for _ in range(1000):
            if self.machine.path(path).exists():
                return
            time.sleep(0.01)
        self.fail(path)

    def start_waiting(self, *arguments):
        """Starts a command, and returns the process when a terminal has shown that it waits."""
        master, terminal = pty.openpty()
        self.addCleanup(os.close, master)
        process = subprocess.Popen(self.machine.command(*arguments), stdout=subprocess.PIPE,
                                   stderr=terminal, text=True, preexec_fn=heed_signals)
        self.addCleanup(process.kill)
        os.close(terminal)
        said = b""
        while b"waiting: another installation is running\r\n" not in said:
            said += os.read(master, 10000)  # fails if the process has ended
        return process

    def test_package_that_changes_during_the_wait_is_checked_again(self):
        """Once, the package was checked before the wait, and a truncated package then replaced a
        site. Here the package is complete until the wait has begun: a command that checks only
        before the wait finds no defect."""
        self.machine.install()
        self.slow_step()
        first = self.machine.start("install", "/X.app", "--force")
        self.wait_for("/begun")
        second = self.start_waiting("install", "/X.app", "--force", "--json")
        package = self.machine.bundle / PACKAGE
        whole = package.read_bytes()
        package.write_bytes(whole[:-100])
        self.machine.path("/go").touch()
        first.communicate()
        told = json.loads(second.communicate()[0])
        self.assertEqual((second.returncode, told["outcome"]), (1, "refused"))
        package.write_bytes(whole)
        # The first installation's script ran the installer in /X.app, beside the truncated package.
        self.assertEqual(self.machine.verify(bundle=None).status, 1)

    def test_copy_is_private_and_complete_and_keeps_holes(self):
        with zipfile.ZipFile(self.machine.bundle / PACKAGE, "w") as archive:
            archive.writestr("zeros", bytes(8 << 20))
        self.slow_step()
        process = self.machine.start("install", "/X.app")
        self.wait_for("/begun")
        [copy] = self.machine.path(BESIDE).glob(".WebResources.run-*")
        mode, found, blocks = copy.stat().st_mode, tree(copy), (copy / PACKAGE).stat().st_blocks
        self.machine.path("/go").touch()
        process.communicate()
        self.assertEqual((process.returncode, mode & 0o7777, copy.exists()), (0, 0o700, False))
        files = map(os.fsencode, (EXECUTABLE, "Contents/Info.plist", PACKAGE, METADATA))
        bundle = tree(self.machine.bundle)
        self.assertEqual({name: data for name, data in found.items() if data != DIRECTORY},
                         {name: bundle[name] for name in files})
        self.assertLess(blocks * 512, 1 << 20)

    def test_package_of_the_argument_is_only_copied(self):
        """Everything else reads the copy: the package of the argument is opened and closed once."""
        self.machine.install()
        write_bundle(self.machine.bundle, update=8)
        in_open, in_close, event_size = 0x20, 0x10, 16
        library = ctypes.CDLL(None)
        events = library.inotify_init()
        library.inotify_add_watch(events, os.fsencode(self.machine.bundle / PACKAGE),
                                  in_open | in_close)
        self.assertEqual(self.machine.install().status, 0)
        self.assertEqual(len(os.read(events, 4096)), 2 * event_size)
        os.close(events)

    def test_interrupted_installation_waits_for_the_installer_and_leaves_no_copy(self):
        self.slow_step()
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process = self.machine.start("install", "/X.app", "--force", "--json",
                                         preexec_fn=heed_signals)
            self.wait_for("/begun")
            process.send_signal(number)
            told = json.loads(process.communicate(timeout=60)[0])
            self.machine.path("/begun").unlink()
            self.assertEqual((process.returncode, told["error"]["reason"]), (2, "interrupted"))
            self.assertEqual(self.machine.receipt()["state"], "begun")
            self.assertEqual([name for name in os.listdir(self.machine.path(BESIDE))
                              if name.startswith(".WebResources.run-")], [])

    def test_waiting_is_bounded(self):
        self.slow_step()
        first = self.machine.start("install", "/X.app")
        self.wait_for("/begun")
        told = self.machine.install("--wait", "0")
        self.assertEqual(told.status, 2)
        self.assertIn("another installation is running", told.document["error"]["reason"])
        self.machine.path("/go").touch()
        first.communicate()
        self.assertEqual(first.returncode, 0)

    def test_installer_of_a_killed_install_keeps_the_lock(self):
        self.slow_step()
        first = self.machine.start("install", "/X.app")
        self.wait_for("/begun")
        first.kill()  # the installer has replaced the process that starts it
        first.communicate()
        self.assertEqual(self.machine.install("--wait", "0").status, 2)
        self.machine.path("/go").touch()
        self.assertEqual(self.machine.install("--wait", "60").status, 0)
        self.assert_installed()

    def test_installer_keeps_the_lock_when_the_standard_streams_are_closed(self):
        def install():
            return subprocess.Popen(self.machine.command_of(
                program("sh"), "-c", f"exec {COMMAND} install /X.app --wait 60 <&- >&- 2>&-"))
        self.slow_step()
        first = install()
        self.wait_for("/begun")
        first.kill()
        first.wait()
        self.assertEqual(self.machine.install("--wait", "0").status, 2)
        self.machine.path("/go").touch()
        self.assertEqual(install().wait(), 2)  # the command cannot report the result
        self.assert_installed()

    def test_waiting_is_reported_on_a_terminal(self):
        self.slow_step()
        first = self.machine.start("install", "/X.app")
        self.wait_for("/begun")
        second = self.start_waiting("install", "/X.app", "--wait", "1")
        begin = time.monotonic()
        second.communicate()
        self.assertEqual(second.returncode, 2)
        self.assertLess(abs(time.monotonic() - begin - 5), 4.5)  # about a second, on a busy machine
        self.machine.path("/go").touch()
        first.communicate()

    def test_signal_ends_the_waiting_within_a_second_and_changes_nothing(self):
        self.machine.install()
        before = self.machine.everything()
        with open(self.machine.path(f"{BESIDE}/.WebResources.lock"), "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                waiting = self.start_waiting("install", "/X.app", "--force", "--json")
                begin = time.monotonic()
                waiting.send_signal(number)
                told = json.loads(waiting.communicate(timeout=10)[0])
                self.assertLess(time.monotonic() - begin, 1)
                self.assertEqual((waiting.returncode, told["error"]["reason"]), (2, "interrupted"))
                self.assertEqual(self.machine.everything(), before)

    def test_lock_that_cannot_be_opened_is_reported(self):
        self.machine.path(f"{BESIDE}/.WebResources.lock").mkdir(parents=True)
        told = self.machine.install()
        self.assertEqual((told.status, told.document["error"]["operation"]), (2, "lock"))
        self.assertFalse(self.machine.path(RECORD).exists())

    def test_lock_is_for_the_installing_user_alone(self):
        self.machine.install()
        lock = self.machine.path(f"{BESIDE}/.WebResources.lock")
        self.assertEqual(lock.stat().st_mode & 0o777, 0o600)

    def test_installation_after_a_kill_at_any_point_ends_as_if_undisturbed(self):
        write_bundle(self.machine.bundle, {f"file{i}": os.urandom(200) for i in range(200)})
        reference = Machine()
        shutil.copy(self.machine.bundle / PACKAGE, reference.bundle / PACKAGE)
        reference.install()
        random = random_of(reference)
        begin = time.monotonic()
        self.machine.install("--force")
        whole = time.monotonic() - begin
        for i in range(20):
            process = self.machine.start("install", "/X.app", "--force", start_new_session=True)
            time.sleep(whole * i / 20)
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            self.assertEqual(self.machine.install().status, 0)
            self.machine.change_record(irandom=random)
            self.assertEqual(self.machine.everything(), reference.everything())


def random_of(machine):
    return machine.record()["irandom"]


VENDOR = "/Library/Application Support/Veltrane"


class Uninstall(Case):
    def uninstall(self, *arguments, status=0):
        told = self.machine.tell("uninstall", *arguments)
        self.assertEqual(told.status, status, told)
        return told.document

    def assert_gone(self):
        self.assertFalse(self.machine.path(VENDOR).exists())
        self.assertFalse(self.machine.path(RECORD).exists())

    def test_everything_is_removed_and_a_second_uninstall_makes_nothing(self):
        self.machine.install()
        leftover = self.machine.path(f"{BESIDE}/.WebResources.bundle/deep")
        leftover.mkdir(parents=True)
        document = self.uninstall()
        self.assertEqual((document["outcome"], document["record"]["updateId"]), ("uninstalled", 7))
        self.assertEqual([item["path"] for item in document["removed"]],
                         [RECEIPT, INSTALL_ROOT, os.path.dirname(leftover.as_posix())
                          .replace(str(self.machine.root), "")])
        self.assert_gone()
        document = self.uninstall()
        self.assertEqual((document["outcome"], document["removed"]), ("not-installed", []))
        self.assert_gone()
        self.assertEqual(self.machine.install().status, 0)
        self.assert_installed()

    def test_fresh_machine_gets_no_lock_and_no_directory(self):
        self.assertEqual(self.uninstall()["outcome"], "not-installed")
        self.assertFalse(self.machine.path("/Library").exists())

    def test_dry_run_reports_and_changes_nothing(self):
        self.machine.install()
        before = self.machine.everything()
        document = self.uninstall("--dry-run")
        self.assertEqual((document["outcome"], document["dryRun"]), ("uninstall", True))
        self.assertEqual([item["path"] for item in document["removed"]], [RECEIPT, INSTALL_ROOT])
        self.assertEqual(self.machine.everything(), before)

    def test_keys_and_files_of_other_programs_stay(self):
        self.machine.install()
        self.machine.change_record(another="kept")
        corrupt = self.machine.path(RECORD + ".corrupt")
        corrupt.write_text("kept")
        other = self.machine.path(f"{VENDOR}/Orlisk/other")
        other.write_text("kept")
        self.uninstall()
        self.assertEqual(self.machine.record(), {"another": "kept"})
        self.assertEqual((corrupt.read_text(), other.read_text()), ("kept", "kept"))
        self.assertEqual(os.listdir(self.machine.path(VENDOR)), ["Orlisk"])
        self.assertEqual(os.listdir(self.machine.path(f"{VENDOR}/Orlisk")), ["other"])

    def test_record_that_is_no_property_list_stays(self):
        self.machine.install()
        self.machine.path(RECORD).write_text("something else")
        self.uninstall()
        self.assertEqual(self.machine.path(RECORD).read_text(), "something else")
        self.assertFalse(self.machine.path(VENDOR).exists())

    def test_record_alone_goes(self):
        self.machine.install()
        shutil.rmtree(self.machine.path(VENDOR))
        self.assertEqual(self.uninstall()["outcome"], "uninstalled")
        self.assert_gone()

    def test_links_are_removed_and_not_followed(self):
        self.machine.install()
        kept = self.machine.path("/kept")
        kept.mkdir()
        (kept / "file").touch()
        (self.machine.installed / "link").symlink_to("/kept")
        self.machine.path(f"{BESIDE}/.WebResources.link").symlink_to("/kept")
        self.uninstall()
        self.assertEqual(os.listdir(kept), ["file"])
        self.assert_gone()

    def test_files_of_another_root_go(self):
        self.machine.install()
        add_programs(self.machine.root, program("sh"))
        self.machine.path("/other").mkdir()
        shutil.move(self.machine.path("/Library"), self.machine.path("/other/Library"))
        document = self.uninstall("--root", "/other")
        self.assertEqual(document["removed"][0]["path"], "/other" + RECEIPT)
        self.assertFalse(self.machine.path("/other" + VENDOR).exists())
        self.assertFalse(self.machine.path("/other" + RECORD).exists())

    def test_uninstall_waits_for_a_held_lock(self):
        self.machine.install()
        lock = self.machine.path(f"{BESIDE}/.WebResources.lock")
        with open(lock, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            before = self.machine.everything()
            self.assertEqual(self.uninstall("--wait", "0", status=2)["error"]["operation"], "lock")
            self.assertEqual(self.machine.everything(), before)
            waiting = self.machine.start("uninstall")
            time.sleep(0.2)
        self.assertEqual(waiting.communicate()[1], "")
        self.assertEqual(waiting.returncode, 0)
        self.assert_gone()

    def test_last_of_concurrent_installations_and_removals_decides(self):
        for _ in range(5):
            processes = [self.machine.start(*words) for words in
                         (("install", "/X.app", "--force"), ("uninstall",)) * 3]
            told = [(process.communicate(), process.returncode) for process in processes]
            self.assertEqual([status for _, status in told], [0] * 6, told)
            if self.machine.path(VENDOR).exists():
                self.assert_installed()
            else:
                self.assert_gone()
        self.uninstall()
        self.assert_gone()

    def test_one_line_goes_to_the_systems_log(self):
        self.machine.install()
        path = self.machine.path("/dev/log")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
            os.chdir(path.parent)  # the complete path may be too long for a socket
            log.bind("log")
            os.chdir("/")
            log.settimeout(10)
            self.uninstall("--dry-run")
            for outcome in ("update 7 -> none: uninstalled",
                            "update none -> none: nothing was installed"):
                self.uninstall()
                self.assertRegex(log.recv(1000).decode(),
                                 rf"^<13>.* webresources\[\d+\]: uninstall: {outcome}$")
            for outcome in ("update none -> 7: installed", "update 7 -> 7: up-to-date"):
                self.machine.install()
                self.assertRegex(log.recv(1000).decode(), rf"^<13>.*: install: {outcome}$")
            write_bundle(self.machine.bundle, update=6)
            self.machine.install()
            self.assertRegex(log.recv(1000).decode(), r"^<11>.*: install: update 7 -> 7: refused: "
                             r"\[newer-installed\] .*: update 7 is installed")
            write_bundle(self.machine.bundle)
            with open(self.machine.path(f"{BESIDE}/.WebResources.lock"), "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX)
                self.uninstall("--wait", "0", status=2)
                self.machine.install("--force", "--wait", "0")
            self.assertRegex(log.recv(1000).decode(), r"^<11>.*: uninstall: update 7 -> 7: failed: "
                             "cannot lock .*: another installation is running$")
            self.assertRegex(log.recv(1000).decode(), "^<11>.*: install: update unknown -> unknown: "
                             "failed: cannot lock .*: another installation is running$")
            for words, status in ((("install", "/none"), 2), (("install", "/tmp"), 64),
                                  (("uninstall", "--root", "/none"), 2)):
                result = subprocess.run(self.machine.command(*words), capture_output=True,
                                        check=False)
                self.assertEqual(result.returncode, status)
                self.assertRegex(log.recv(1000).decode(), rf"^<11>.*: {words[0]}: "
                                 "update (7 -> 7|unknown -> unknown): failed: cannot (read /none|use /tmp)")


class AnotherRoot(Case):
    """--root: a host whose links lead out of its root would be mistaken for another one."""

    def setUp(self):
        super().setUp()
        self.machine.install()
        self.other = self.machine.path("/other")
        shutil.copytree(self.machine.path("/Library"), self.other / "Library")

    def statuses(self):
        statuses = [self.machine.tell(*words, "--root", "/other").status for words in (
            ("verify", "/X.app"), ("verify",), ("plan", "/X.app"), ("status",),
            ("uninstall", "--dry-run"), ("installcheck", "/X.app"))]
        return statuses[:-1], statuses[-1]

    def test_link_that_leads_out_is_reported(self):
        places = ("Library", "Library/Application Support", VENDOR[1:], INSTALL_ROOT[1:],
                  "Library/Preferences", RECORD[1:], RECEIPT[1:])
        self.assertEqual(self.statuses(), ([0] * 5, 1))
        for place in places:
            kept = self.machine.path("/kept")
            (self.other / place).rename(kept)
            (self.other / place).symlink_to("/" + place)
            self.assertEqual(self.statuses(), ([2] * 5, 3), place)
            told = self.machine.tell("uninstall", "--root", "/other").document["error"]
            self.assertEqual(told["reason"], f"a link leads out of the root, to /{place}")
            (self.other / place).unlink()
            kept.rename(self.other / place)
        self.assertEqual(self.machine.verify().status, 0)

    def test_link_that_stays_inside_is_followed(self):
        (self.other / "Library").rename(self.other / "Real")
        for target in ("Real", "/other/Real"):
            (self.other / "Library").symlink_to(target)
            self.assertEqual(self.statuses(), ([0] * 5, 1), target)
            (self.other / "Library").unlink()


class Diff(Case):
    def test_changes_between_two_bundles(self):
        other = self.machine.root / "Y.app"
        content = {**SITE, "new": b"new", "index.html": b"other"}
        del content["empty"]
        write_bundle(other, content, update=8)
        told = self.machine.tell("diff", "/X.app", "/Y.app")
        self.assertEqual(told.status, 1)
        self.assertEqual(told.document["files"],
                         {"added": 1, "changed": 1, "removed": 1, "unchanged": 2})
        self.assertEqual(told.document["changes"], [
            {"change": "removed", "path": "empty", "sizeBefore": 0},
            {"change": "changed", "path": "index.html", "sizeBefore": 6000, "sizeAfter": 5},
            {"change": "added", "path": "new", "sizeAfter": 3}])
        self.assertEqual(self.machine.tell("diff", "/X.app", "/X.app").status, 0)
        (other / PACKAGE).write_bytes(b"damaged")
        for bundles in (("/X.app", "/Y.app"), ("/Y.app", "/X.app")):
            self.assertEqual(self.machine.tell("diff", *bundles).ids, ["package-unreadable"])

    def test_directory_that_is_a_link_is_no_changed_file(self):
        self.machine.install()
        shutil.rmtree(self.machine.installed / "css/deep")
        (self.machine.installed / "css/deep").symlink_to("..")
        self.assertEqual(self.machine.tell("plan", "/X.app").document["files"],
                         {"added": 1, "changed": 0, "removed": 0, "unchanged": 3})


class Status(Case):
    def test_six_lines(self):
        self.machine.install()
        told = self.machine.tell("status")
        self.assertEqual((told.status, told.document["files"], told.document["bytes"]),
                         (0, 4, sum(len(data) for data in SITE.values() if data)))
        self.assertEqual(told.document["since"], self.machine.receipt()["time"])
        output = subprocess.run(self.machine.command("status"), capture_output=True, text=True,
                                check=True).stdout
        self.assertEqual(len(output.splitlines()), 6)
        self.assertRegex(output, r"update: +7, version 17.*\n.*/Resource0\n.* 4 files.*\n"
                                 r".*\nreceipt: +installed, .*\nsound: +yes")

    def test_since_is_the_time_of_the_receipt(self):
        self.machine.install()
        os.utime(self.machine.installed, (0, 0))
        self.assertEqual(self.machine.tell("status").document["since"],
                         self.machine.receipt()["time"])

    def test_nothing_installed_is_not_sound(self):
        told = self.machine.tell("status")
        self.assertEqual((told.status, told.ids), (1, ["not-installed"]))


if __name__ == "__main__":
    unittest.main()
