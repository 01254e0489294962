"""The Ansible role, with chroots as hosts, and the Munki example."""

import os
import pathlib
import plistlib
import re
import shutil
import tempfile
import time
import unittest
import zipfile

from private_root import PRIVATE_ROOT, command_in, full_version
from shipping import (BUILD, INSTALL_ROOT, RECORD, SAMPLE_SITE, SOURCE, ShippingTestCase, run)

# The command of the guide.
[COMMAND] = re.findall(r"^ansible-playbook .*$",
                       (SOURCE / "Documentation/deployment.md").read_text(), re.MULTILINE)
[PACKAGE] = (BUILD / "deb").glob("web-resource-installer_*.deb")


class FleetTestCase(ShippingTestCase):
    def setUp(self):
        super().setUp()
        shipped = self.directory / "shipped"
        run("dpkg-deb", "--extract", PACKAGE, shipped)
        self.empty_bundle = shipped / "usr/lib/web-resource-installer/WebResourceInstaller.app"
        self.webresources = shipped / "usr/bin/webresources"

    def new_bundle(self, content, update):
        bundle = self.directory / f"bundle-{update}/WebResourceInstaller.app"
        shutil.copytree(self.empty_bundle, bundle)
        run(self.webresources, "pack", content, "--update-id", update, "--output", bundle)
        return bundle


class Host:
    """A chroot with the programs of this machine."""

    BUNDLE = "opt/web-resources/WebResourceInstaller.app"

    def __init__(self, root):
        self.root = root
        self.site = root / INSTALL_ROOT / "Resource0"
        self.record = root / RECORD

    def make(self, webresources):
        for directory in ("etc", "root", "tmp", "opt/web-resources"):
            (self.root / directory).mkdir(parents=True)
        for directory in ("bin", "sbin", "lib", "lib64"):
            (self.root / directory).symlink_to(f"usr/{directory}")
        (self.root / "etc/passwd").write_text("root:x:0:0:root:/root:/bin/sh\n")
        shutil.copy(webresources, self.root / "opt/webresources")

    def install(self, bundle):
        shutil.copytree(bundle, self.root / self.BUNDLE)
        run(PRIVATE_ROOT, "run", "--system", self.root, "/bin/sh", "-c",
            f"/opt/webresources install /{self.BUNDLE}")

    def everything(self):
        """The files and directories that the role may change, with modes and owners."""
        return {str(path): (path.lstat().st_mode, path.lstat().st_uid,
                            path.read_bytes() if path.is_file() else None)
                for top in ("Library", "opt") for path in (self.root / top).rglob("*")}

    def change_record(self, **values):
        self.record.write_bytes(plistlib.dumps(
            {**plistlib.loads(self.record.read_bytes()), **values}))

    # Defects of a host with update 2 that the role repairs.

    def nothing(self):
        pass

    def file_deleted(self):
        (self.site / "index.html").unlink()

    def file_changed_in_the_same_size(self):
        page = self.site / "index.html"
        page.write_bytes(page.read_bytes().replace(b"later", b"Later"))

    def file_added(self):
        (self.site / "added.html").touch()

    def file_unreadable(self):
        (self.site / "index.html").chmod(0)

    def file_writable_and_setuid(self):
        (self.site / "index.html").chmod(0o4777)

    def directory_closed(self):
        (self.site / "style").chmod(0o700)

    def everything_private(self):
        run("chmod", "-R", "go=", self.site)

    def wrong_owner(self):
        os.chown(self.site / "index.html", 1234, 1234)

    def file_replaced_by_a_link(self):
        (self.site / "index.html").unlink()
        (self.site / "index.html").symlink_to("CREDITS.txt")

    def record_edited(self):
        self.change_record(iUpdateId=1)

    def random_identifier_of_a_wrong_type(self):
        self.change_record(irandom="text")

    def record_deleted(self):
        self.record.unlink()

    def record_damaged(self):
        self.record.write_bytes(b"damaged")

    def directory_renamed(self):
        self.site.rename(self.site.with_name("Site"))

    def half_finished(self):
        self.site.rename(self.site.with_name("Resource1"))
        shutil.rmtree(self.site.with_name("Resource1") / "style")

    def leftover(self):
        shutil.copytree(self.site, self.site.with_name("Resource7"))

    def bundle_damaged(self):
        package = self.root / self.BUNDLE / "Contents/Resources/OrloWebResources.zip"
        package.write_bytes(package.read_bytes()[:-200])

    # Defects that the role does not repair.

    def newer_installed(self):
        self.change_record(iUpdateId=3)

    def root_blocked(self):
        shutil.rmtree(self.site.parent)
        self.site.parent.write_text("in the way")

    def record_unreadable(self):
        self.record.unlink()
        self.record.mkdir()


class AnsibleTestCase(FleetTestCase):
    def setUp(self):
        super().setUp()
        self.content = self.directory / "later"
        shutil.copytree(SAMPLE_SITE, self.content)
        (self.content / "index.html").write_text("<p>later")
        (self.content / "data/clouds.json").unlink()
        self.new = self.new_bundle(self.content, 2)

    def host(self, name):
        return Host(self.directory / "hosts" / name)

    def new_host(self, name, bundle=None):
        """A fresh host, or a host on which the bundle is installed."""
        host = self.host(name)
        host.make(self.webresources)
        if bundle:
            host.install(bundle)
        return host

    def play(self, bundle, *hosts, options=(), status=0):
        """Plays the role on the hosts. Returns the result of each host (ok, changed or failed), and
        the output."""
        place = pathlib.Path(tempfile.mkdtemp(dir=self.directory))
        (place / "Deploy").symlink_to(SOURCE / "Deploy")
        (place / "Product.app").symlink_to(bundle)
        (place / "hosts").write_text("".join(
            f"{name} ansible_host={self.host(name).root}\n" for name in hosts))
        output = run(
            "bash", "-c", COMMAND + ' "$@"', "bash",
            "-e", "web_resources_command=/opt/webresources",
            "-e", f"web_resources_controller_command={self.webresources}",
            "-e", "ansible_become=false", *options, status=status, cwd=place, env={
                "PATH": os.environ["PATH"], "HOME": str(self.directory), "LC_ALL": "C.UTF-8",
                "ANSIBLE_CONNECTION_PLUGINS": str(SOURCE / "Tests/Shipping/ansible"),
                "ANSIBLE_TRANSPORT": "private_host",
                "ANSIBLE_REMOTE_TEMP": "/tmp/.ansible", "ANSIBLE_NOCOLOR": "1",
                "ANSIBLE_PYTHON_INTERPRETER": "/usr/bin/python3",
                "ANSIBLE_PIPELINING": "true"})
        recap = re.findall(r"^(\w+) +: ok=\d+ +changed=(\d+) +unreachable=0 +failed=(\d)", output,
                           re.MULTILINE)
        self.assertEqual({name for name, *_ in recap}, set(hosts), output)
        return {name: "failed" if failed != "0" else "changed" if changed != "0" else "ok"
                for name, changed, failed in recap}, output

    def everything(self, hosts):
        return {name: self.host(name).everything() for name in hosts}


class Ansible(AnsibleTestCase):
    REPAIRED = ("file_deleted", "file_changed_in_the_same_size", "file_added", "file_unreadable",
                "file_writable_and_setuid", "directory_closed", "everything_private",
                *(["wrong_owner"] if os.geteuid() == 0 else []), "file_replaced_by_a_link",
                "record_edited", "random_identifier_of_a_wrong_type", "record_deleted",
                "record_damaged", "directory_renamed", "half_finished", "leftover",
                "bundle_damaged")
    NOT_REPAIRED = ("newer_installed", "root_blocked", "record_unreadable")

    def test_what_happens_to_machines_is_told_and_repaired(self):
        self.new_host("fresh")
        self.new_host("outdated", self.new_bundle(SAMPLE_SITE, 1))
        current = self.new_host("nothing", self.new)
        for name in (*self.REPAIRED, *self.NOT_REPAIRED):
            run("cp", "-a", current.root, self.host(name).root)
            getattr(self.host(name), name)()
        inode = current.site.stat().st_ino
        expected = {"fresh": "changed", "outdated": "changed", "nothing": "ok",
                    **dict.fromkeys(self.REPAIRED, "changed"),
                    **dict.fromkeys(self.NOT_REPAIRED, "failed")}

        with self.subTest("check mode says the same and changes nothing"):
            some = ("fresh", "outdated", "nothing", "file_deleted", "bundle_damaged",
                    *self.NOT_REPAIRED)
            before = self.everything(some)
            self.assertEqual(self.play(self.new, *some, options=["--check"], status=2)[0],
                             {name: expected[name] for name in some})
            self.assertEqual(self.everything(some), before)

        before = self.everything(self.NOT_REPAIRED)
        became, output = self.play(self.new, *expected, status=2)
        self.assertEqual(became, expected, output)
        self.assertIn("update 3 is installed, and the bundle has update 2", output)
        self.assertIn("root-blocked", output)
        self.assertEqual(self.everything(self.NOT_REPAIRED), before)
        self.assertEqual(current.site.stat().st_ino, inode)  # not installed again
        right = ("fresh", "outdated", "nothing", *self.REPAIRED)
        for name in right:
            self.assert_installed(self.host(name).root, self.content, 2)

        before = self.everything(right)
        self.assertEqual(self.play(self.new, *right)[0], dict.fromkeys(right, "ok"))
        self.assertEqual(self.everything(right), before)

        self.assertEqual(self.play(self.new, "newer_installed", options=[
            "-e", "web_resources_allow_downgrade=true"])[0], {"newer_installed": "changed"})
        self.assert_installed(self.host("newer_installed").root, self.content, 2)

    def test_negative_update_is_installed_over_no_update_and_older_ones_only(self):
        self.new_host("fresh")  # `none | int` is 0, which is newer than -5
        self.new_host("outdated", self.new_bundle(SAMPLE_SITE, -6))
        self.new_host("newer", self.new_bundle(SAMPLE_SITE, -3))
        before = self.everything(["newer"])
        became, output = self.play(self.new_bundle(self.content, -5), "fresh", "outdated", "newer",
                                   status=2)
        self.assertEqual(became, {"fresh": "changed", "outdated": "changed", "newer": "failed"})
        self.assertIn("update -3 is installed, and the bundle has update -5", output)
        self.assertEqual(self.everything(["newer"]), before)

    def test_absent_removes_everything_once(self):
        self.new_host("installed", self.new)
        self.new_host("fresh")
        hosts = ("installed", "fresh")
        absent = ["-e", "web_resources_state=absent"]
        before = self.everything(hosts)
        self.assertEqual(self.play(self.new, *hosts, options=["--check", *absent])[0],
                         {"installed": "changed", "fresh": "ok"})
        self.assertEqual(self.everything(hosts), before)
        self.play(self.new, *hosts, options=absent)
        for name in hosts:
            left = (self.host(name).root / "Library").rglob("*")
            self.assertEqual({path.name for path in left} - {"Preferences", "Application Support"},
                             set())
            self.assertFalse((self.host(name).root / Host.BUNDLE).exists())
        self.assertEqual(self.play(self.new, *hosts, options=absent)[0], dict.fromkeys(hosts, "ok"))

    def test_controller_without_the_command_is_told(self):
        self.new_host("fresh")
        became, output = self.play(self.new, "fresh", status=2, options=[
            "-e", "web_resources_controller_command=/nowhere/webresources"])
        self.assertEqual(became, {"fresh": "failed"})
        self.assertRegex(re.sub(r"\s+", " ", output),
                         "controller cannot run /nowhere/webresources .* Install the package")

    def test_damaged_bundle_is_refused_before_any_host_is_touched(self):
        self.new_host("current", self.new)
        self.new_host("fresh")
        hosts = ("current", "fresh")
        before = self.everything(hosts)
        package = self.new / "Contents/Resources/OrloWebResources.zip"
        whole = package.read_bytes()
        with zipfile.ZipFile(package) as archive:
            files = [name for name in archive.namelist() if not name.endswith("/")]

        def without_directory_entries():
            with zipfile.ZipFile(package, "w") as archive:
                for name in files:
                    archive.writestr(name, b"")

        for damage, told in (
                (lambda: package.write_bytes(whole[:-200]), "package-unreadable"),
                (lambda: package.write_bytes(whole[:60] + bytes([whole[60] ^ 1]) + whole[61:]),
                 "wrong-crc"),
                (without_directory_entries, "missing-directory-entry"),
                (package.unlink, "package-missing"),
                (lambda: shutil.rmtree(self.new), "Product.app")):
            damage()
            became, output = self.play(self.new, *hosts, status=2)
            self.assertEqual(became, dict.fromkeys(hosts, "failed"))
            self.assertIn(told, output)
            self.assertEqual(self.everything(hosts), before)


class ManyHosts(AnsibleTestCase):
    """One run of the role on 100 fresh hosts, 20 at a time."""

    def test_time_of_a_pass_is_told(self):
        names = [f"host{number}" for number in range(100)]
        for name in names:
            self.new_host(name)
        began = time.monotonic()
        became, _ = self.play(self.new, *names, options=["--forks", "20"])
        print(f"   100 hosts, 20 at a time: {time.monotonic() - began:.0f} s")
        self.assertEqual(became, dict.fromkeys(names, "changed"))
        for name in names:
            self.assert_installed(self.host(name).root, self.content, 2)


class Munki(FleetTestCase):
    PLACE = "Library/Application Support/WebResourceInstaller/WebResourceInstaller.app"
    SCRIPT = SOURCE / "Deploy/munki/installcheck_script"
    NEEDED, UP_TO_DATE = 0, 1

    def setUp(self):
        super().setUp()
        self.machine = self.new_root("sh", "sed", self.webresources)
        self.command = self.machine / self.PLACE / "Contents/Helpers/webresources"
        shutil.copy(self.SCRIPT, self.machine / "installcheck_script")

    def install(self, content, update):
        """Copies the bundle and the command, and installs, as the macOS package does."""
        bundle = self.machine / self.PLACE
        shutil.rmtree(bundle, ignore_errors=True)
        shutil.copytree(self.new_bundle(content, update), bundle)
        self.command.parent.mkdir()
        shutil.copy(self.webresources, self.command)
        run(*command_in(self.machine, f"/{self.PLACE}/Contents/Helpers/webresources", "install",
                        f"/{self.PLACE}"))

    def change_record(self, **values):
        record = self.machine / RECORD
        record.write_bytes(plistlib.dumps({**plistlib.loads(record.read_bytes()), **values}))

    def assert_installcheck(self, status):
        run(*command_in(self.machine, "/bin/sh", "/installcheck_script"), status=status)

    def test_needed_on_a_fresh_machine(self):
        self.assert_installcheck(self.NEEDED)

    def test_needed_where_an_earlier_update_is_installed(self):
        self.install(SAMPLE_SITE, 6)
        self.assert_installcheck(self.NEEDED)

    def test_not_needed_where_the_update_is_installed(self):
        self.install(SAMPLE_SITE, 7)
        self.assert_installcheck(self.UP_TO_DATE)

    def test_not_needed_where_a_newer_update_is_installed(self):
        """The command would refuse an older package each time."""
        self.install(SAMPLE_SITE, 8)
        self.assert_installcheck(self.UP_TO_DATE)
        self.install(SAMPLE_SITE, 10)
        self.assert_installcheck(self.UP_TO_DATE)

    def test_not_needed_where_a_newer_update_is_recorded(self):
        self.install(SAMPLE_SITE, 7)
        self.change_record(iUpdateId=8, tFullVersion=full_version(8))
        self.assert_installcheck(self.UP_TO_DATE)

    def test_needed_where_the_bundle_is_damaged(self):
        """The command refuses a damaged bundle. The package replaces the bundle."""
        self.install(SAMPLE_SITE, 7)
        resources = self.machine / self.PLACE / "Contents/Resources"
        for name in ("OrloWebResources.zip", "metadata.txt"):
            whole = (resources / name).read_bytes()
            (resources / name).write_bytes(whole[:-5])
            self.assert_installcheck(self.NEEDED)
            (resources / name).unlink()
            self.assert_installcheck(self.NEEDED)
            (resources / name).write_bytes(whole)
        self.assert_installcheck(self.UP_TO_DATE)

    def test_needed_where_the_random_identifier_is_of_a_wrong_type(self):
        self.install(SAMPLE_SITE, 7)
        self.change_record(irandom="text")
        self.assert_installcheck(self.NEEDED)

    def test_not_needed_and_logged_where_the_receipt_cannot_be_read(self):
        """No package could change that: the check would ask for one at each run."""
        self.install(SAMPLE_SITE, 7)
        logger = self.machine / "bin/logger"
        logger.write_text("#!/bin/sh\necho \"$*\" >/logged\n")
        logger.chmod(0o755)
        receipt = self.machine / os.path.dirname(INSTALL_ROOT) / "WebResources.receipt.json"
        receipt.unlink()
        receipt.mkdir()
        self.assert_installcheck(self.UP_TO_DATE)
        logged = (self.machine / "logged").read_text()
        self.assertIn("not installed: ", logged)
        self.assertIn("it is not a regular file", logged)

    def test_needed_where_a_file_is_damaged(self):
        self.install(SAMPLE_SITE, 7)
        (self.machine / INSTALL_ROOT / "Resource0/style/site.css").write_text("body {}")
        self.assert_installcheck(self.NEEDED)

    def test_needed_where_the_command_is_missing(self):
        self.install(SAMPLE_SITE, 7)
        self.command.unlink()
        self.assert_installcheck(self.NEEDED)

    def test_example_contains_the_script_and_agrees_with_the_package(self):
        example = plistlib.loads(
            (SOURCE / "Deploy/munki/CloudGuideWebResources-7.plist").read_bytes())
        self.assertEqual(example["installcheck_script"], self.SCRIPT.read_text())
        self.assertEqual(example["uninstall_script"],
                         self.SCRIPT.with_name("uninstall_script").read_text())
        self.assertEqual(example["version"], "7")
        [receipt] = example["receipts"]
        self.assertIn(f"identifier={receipt['packageid']}\n",
                      (SOURCE / "script/package-macos").read_text())
        for key in ("name", "catalogs", "installer_item_location", "minimum_os_version",
                    "unattended_install"):
            self.assertIn(key, example)

    def test_script_is_one_that_shellcheck_finds_nothing_in(self):
        for script in (self.SCRIPT, self.SCRIPT.with_name("uninstall_script")):
            self.assertEqual(run("shellcheck", script), "")


if __name__ == "__main__":
    unittest.main()
