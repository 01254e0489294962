"""script/package-macos, up to the commands that need a Mac."""

import json
import os
import plistlib
import re
import shlex
import shutil
import unittest
import xml.etree.ElementTree

from private_root import command_in
from shipping import SAMPLE_SITE, SOURCE, ShippingTestCase, run, tree

SCRIPT = SOURCE / "script/package-macos"
DEPLOY = SOURCE / "Deploy/macos"
APPLICATION = "Library/Application Support/WebResourceInstaller/WebResourceInstaller.app"


def commands(*options):
    """The commands that a dry run prints, each as a list of words."""
    printed = run(SCRIPT, "--dry-run", *options, SAMPLE_SITE, "7", "/nowhere/product.pkg")
    lines = printed.splitlines()
    assert all(line.startswith("+ ") for line in lines), printed
    return [shlex.split(line[2:]) for line in lines]


class DryRun(ShippingTestCase):
    def test_prints_every_command_and_runs_none(self):
        # A command that ran would fail: this machine has no commands of a Mac, and no /nowhere.
        names = [command[0] for command in commands("--sign", "A", "--sign-package", "B")]
        names = [os.path.basename(name) for name in names]
        for name in ("curl", "clang", "libtool", "cmake", "webresources", "codesign", "lipo",
                     "pkgbuild", "productbuild"):
            self.assertIn(name, names)
        self.assertEqual(names[-3:], ["pkgbuild", "productbuild", "pkgutil"])

    def test_bundle_is_universal_and_runs_from_11_0_on(self):
        [configure] = [command for command in commands() if command[:2] == ["cmake", "-S"]]
        self.assertIn("-DCMAKE_OSX_ARCHITECTURES=arm64;x86_64", configure)
        self.assertIn("-DCMAKE_OSX_DEPLOYMENT_TARGET=11.0", configure)
        for compile in (command for command in commands() if command[0] == "clang"):
            self.assertIn("-mmacosx-version-min=11.0", compile)
            self.assertEqual(compile.count("-arch"), 2)

    def test_signs_only_when_an_identity_is_given(self):
        self.assertNotIn("--sign", sum(commands(), []))
        with_identities = commands("--sign", "Application: A", "--sign-package", "Installer: B")
        signed = [command for command in with_identities if "--sign" in command]
        self.assertEqual([command[command.index("--sign") + 1] for command in signed],
                         ["Application: A", "Application: A", "Installer: B"])

    def test_what_is_signed_is_not_changed_afterwards(self):
        names = [os.path.basename(command[0]) for command in commands("--sign", "A")]
        self.assertLess(len(names) - 1 - names[::-1].index("webresources"),
                        names.index("codesign"))


class Layout(ShippingTestCase):
    @classmethod
    def setUpClass(cls):
        run(SCRIPT, "--layout", SAMPLE_SITE, "7", "unused.pkg")
        cls.root = SOURCE / "build/macos/root"

    def test_tree_to_be_packaged(self):
        self.assertEqual(set(tree(self.root)), {
            f"{APPLICATION}/Contents/{name}" for name in (
                "Helpers/webresources", "Info.plist", "MacOS/WebResourceInstaller",
                "Resources/metadata.txt", "Resources/OrloWebResources.zip")} | {
            f"{os.path.dirname(APPLICATION)}/share/{name}" for name in (
                "man/man1/webresources.1", "bash-completion/completions/webresources",
                "zsh/site-functions/_webresources", "fish/vendor_completions.d/webresources.fish",
                "cmake/WebResourceInstaller/WebResourceInstallerConfig.cmake",
                "cmake/WebResourceInstaller/WebResourceInstallerConfigVersion.cmake",
                "cmake/WebResourceInstaller/digest-content.sh",
                "doc/web-resource-installer/THIRD-PARTY-NOTICES.md")})

    def test_property_lists(self):
        info = plistlib.loads((self.root / APPLICATION / "Contents/Info.plist").read_bytes())
        self.assertEqual(info["CFBundleExecutable"], "WebResourceInstaller")
        self.assertEqual(info["LSMinimumSystemVersion"], "11.0")
        [component] = plistlib.loads((DEPLOY / "components.plist").read_bytes())
        self.assertEqual(component["RootRelativeBundlePath"], APPLICATION)
        self.assertIs(component["BundleIsRelocatable"], False)  # or the installation follows a moved copy
        identifier = re.search(r"^identifier=(.*)$", SCRIPT.read_text(), re.MULTILINE)[1]
        self.assertEqual(info["CFBundleIdentifier"], identifier)
        distribution = xml.etree.ElementTree.parse(DEPLOY / "distribution.xml")
        self.assertEqual({element.get("id") for element in distribution.iter("pkg-ref")},
                         {identifier})

    def machine_with_the_package(self):
        """A chroot with the files of the package, and the command that calls its script there."""
        machine = self.new_root("sh", self.root / APPLICATION / "Contents/Helpers/webresources")
        run("cp", "-R", f"{self.root}/.", machine)
        run("cp", DEPLOY / "scripts/postinstall", machine / "postinstall")
        return machine, command_in(machine, "/bin/sh", "/postinstall", "product.pkg", "/")

    def test_postinstall_installs_on_the_running_system_only(self):
        machine, postinstall = self.machine_with_the_package()
        run(*postinstall, "/Volumes/Other", status=1)
        self.assertFalse((machine / "Library/Preferences").exists())
        run(*postinstall, "/")
        self.assert_installed(machine, SAMPLE_SITE, 7)
        [receipt] = (machine / "Library").rglob("WebResources.receipt.json")
        self.assertEqual(json.loads(receipt.read_bytes())["updateId"], 7)
        run(*postinstall, "/")  # the same package is installed again
        self.assert_installed(machine, SAMPLE_SITE, 7)

    def test_postinstall_fails_and_changes_nothing_with_a_damaged_bundle(self):
        machine, postinstall = self.machine_with_the_package()
        run(*postinstall, "/")
        package = machine / APPLICATION / "Contents/Resources/OrloWebResources.zip"
        package.write_bytes(package.read_bytes()[:-100])
        self.assertIn("OrloWebResources.zip", run(*postinstall, "/", status=1))
        self.assert_installed(machine, SAMPLE_SITE, 7)

    def test_postinstall_fails_and_changes_nothing_where_a_newer_update_is_installed(self):
        machine, postinstall = self.machine_with_the_package()
        newer = self.directory / "newer"
        newer.mkdir()
        (newer / "index.html").write_text("newer")
        command = self.root / APPLICATION / "Contents/Helpers/webresources"
        shutil.copytree(machine / APPLICATION, machine / "Newer.app")
        run(command, "pack", newer, "--update-id", "8", "--output", machine / "Newer.app")
        run(*command_in(machine, f"/{APPLICATION}/Contents/Helpers/webresources", "install",
                        "/Newer.app"))
        self.assertIn("update 8", run(*postinstall, "/", status=1))
        self.assert_installed(machine, newer, 8)


class Scripts(unittest.TestCase):
    def test_shellcheck_finds_nothing(self):
        scripts = (SCRIPT, DEPLOY / "scripts/preinstall", DEPLOY / "scripts/postinstall")
        self.assertEqual(run("shellcheck", "-x", *scripts, cwd=SOURCE), "")


if __name__ == "__main__":
    unittest.main()
