"""The Ansible role against private roots for hosts, and the Munki example."""

import os
import plistlib
import re
import shutil
import unittest

from private_root import command_in
from shipping import (BUILD, INSTALL_ROOT, SAMPLE_SITE, SOURCE, ShippingTestCase, run, tree)

[PACKAGE] = (BUILD / "deb").glob("web-resource-installer_*.deb")
EXECUTABLE = "Contents/MacOS/WebResourceInstaller"


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


class Ansible(FleetTestCase):
    """Four hosts: a fresh one, an outdated one, a damaged one and one that is up to date."""

    HOSTS = ("fresh", "outdated", "damaged", "current")

    def setUp(self):
        super().setUp()
        self.content = self.directory / "later"
        shutil.copytree(SAMPLE_SITE, self.content)
        (self.content / "index.html").write_text("<p>later")
        (self.content / "data/clouds.json").unlink()
        for host in self.HOSTS:
            self.new_host(host)
        self.play(self.new_bundle(SAMPLE_SITE, 1), "outdated")
        self.new = self.new_bundle(self.content, 2)
        self.play(self.new, "damaged", "current")
        page = self.directory / "damaged" / INSTALL_ROOT / "Resource0/index.html"
        page.write_bytes(page.read_bytes().replace(b"later", b"Later"))

    def new_host(self, name):
        """Its programs are this machine's."""
        host = self.directory / name
        for directory in ("etc", "root", "tmp", "opt"):
            (host / directory).mkdir(parents=True)
        for directory in ("bin", "sbin", "lib", "lib64"):
            (host / directory).symlink_to(f"usr/{directory}")
        (host / "etc/passwd").write_text("root:x:0:0:root:/root:/bin/sh\n")
        shutil.copy(self.webresources, host / "opt/webresources")

    def play(self, bundle, *hosts, options=(), status=0):
        """Plays the role on the hosts, and returns what became of each: ok, changed or failed."""
        inventory = self.directory / "inventory"
        inventory.write_text("".join(
            f"{name} ansible_host={self.directory / name}\n" for name in hosts))
        output = run(
            "ansible-playbook", "-i", inventory, SOURCE / "Deploy/ansible/site.yml",
            "-e", f"web_resources_bundle={bundle}",
            "-e", "web_resources_command=/opt/webresources", "-e", "ansible_become=false",
            *options, status=status, cwd=self.directory, env={
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
                for name, changed, failed in recap}

    def installations(self):
        return {host: tree(self.directory / host / "Library") for host in self.HOSTS}

    def assert_all_current(self):
        for host in self.HOSTS:
            self.assert_installed(self.directory / host, self.content, 2)

    def test_passes_in_order(self):
        """One after another on the same hosts, for a pass takes its time."""
        expected = {"fresh": "changed", "outdated": "changed", "damaged": "changed",
                    "current": "ok"}
        everywhere_ok = dict.fromkeys(self.HOSTS, "ok")
        current = self.directory / "current" / INSTALL_ROOT / "Resource0"
        before, directory = self.installations(), current.stat().st_ino

        with self.subTest("check mode says the same and changes nothing"):
            self.assertEqual(self.play(self.new, *self.HOSTS, options=["--check"]), expected)
            self.assertEqual(self.installations(), before)
            self.assertFalse((self.directory / "fresh/opt/web-resources").exists())

        with self.subTest("a host where the step could not do its work fails"):
            in_the_way = self.directory / "fresh" / INSTALL_ROOT
            in_the_way.parent.mkdir(parents=True)
            in_the_way.write_text("in the way")
            self.assertEqual(self.play(self.new, "fresh", status=2), {"fresh": "failed"})
            self.assertEqual(self.play(self.new, "fresh", status=2), {"fresh": "failed"})
            in_the_way.unlink()

        with self.subTest("the first pass changes those that need it"):
            self.assertEqual(self.play(self.new, *self.HOSTS), expected)
            for host in self.HOSTS:
                self.assert_installed(self.directory / host, self.content, 2)
            self.assertEqual(current.stat().st_ino, directory)  # not installed once more

        with self.subTest("the second pass changes nothing"):
            before = self.installations()
            self.assertEqual(self.play(self.new, *self.HOSTS), everywhere_ok)
            self.assertEqual(self.installations(), before)


class Munki(FleetTestCase):
    PLACE = "Library/Application Support/WebResourceInstaller/WebResourceInstaller.app"
    SCRIPT = SOURCE / "Deploy/munki/installcheck_script"
    NEEDED, UP_TO_DATE = 0, 1

    def setUp(self):
        super().setUp()
        self.machine = self.new_root("sh", "grep", self.webresources)
        self.command = self.machine / self.PLACE / "Contents/Helpers/webresources"
        shutil.copy(self.SCRIPT, self.machine / "installcheck_script")

    def install(self, content, update):
        """What the package does: brings the bundle, and runs the step."""
        bundle = self.machine / self.PLACE
        shutil.rmtree(bundle, ignore_errors=True)
        shutil.copytree(self.new_bundle(content, update), bundle)
        self.command.parent.mkdir()
        shutil.copy(self.webresources, self.command)
        run(*command_in(self.machine, f"/{self.PLACE}/{EXECUTABLE}"))

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
        self.assertEqual(example["version"], "7")
        [receipt] = example["receipts"]
        self.assertIn(f"identifier={receipt['packageid']}\n",
                      (SOURCE / "script/package-macos").read_text())
        for key in ("name", "catalogs", "installer_item_location", "minimum_os_version",
                    "unattended_install"):
            self.assertIn(key, example)

    def test_script_is_one_that_shellcheck_finds_nothing_in(self):
        self.assertEqual(run("shellcheck", self.SCRIPT), "")


if __name__ == "__main__":
    unittest.main()
