"""script/package-macos, as far as it goes without a Mac."""

import os
import plistlib
import re
import shlex
import unittest
import xml.etree.ElementTree

from private_root import command_in
from shipping import SAMPLE_SITE, SOURCE, ShippingTestCase, run, tree

SCRIPT = SOURCE / "script/package-macos"
DEPLOY = SOURCE / "Deploy/macos"
APPLICATION = "Library/Application Support/WebResourceInstaller/WebResourceInstaller.app"


def commands(*options):
    """What a dry run prints, each command as its words."""
    printed = run(SCRIPT, "--dry-run", *options, SAMPLE_SITE, "7", "/nowhere/product.pkg")
    lines = printed.splitlines()
    assert all(line.startswith("+ ") for line in lines), printed
    return [shlex.split(line[2:]) for line in lines]


class DryRun(ShippingTestCase):
    def test_prints_every_command_and_runs_none(self):
        # None of a Mac's commands is here, and nothing can be written there: they would fail.
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
        self.assertIs(component["BundleIsRelocatable"], False)  # or it follows a moved copy
        identifier = re.search(r"^identifier=(.*)$", SCRIPT.read_text(), re.MULTILINE)[1]
        self.assertEqual(info["CFBundleIdentifier"], identifier)
        distribution = xml.etree.ElementTree.parse(DEPLOY / "distribution.xml")
        self.assertEqual({element.get("id") for element in distribution.iter("pkg-ref")},
                         {identifier})

    def test_postinstall_runs_the_step_and_verifies_it(self):
        machine = self.new_root("sh", self.root / APPLICATION / "Contents/Helpers/webresources")
        run("cp", "-R", f"{self.root}/.", machine)
        run("cp", DEPLOY / "scripts/postinstall", machine / "postinstall")
        inside = command_in(machine, "/bin/sh", "/postinstall", "product.pkg", "/")
        run(*inside, "/Volumes/Other", status=1)
        self.assertFalse((machine / "Library/Preferences").exists())
        run(*inside, "/")
        self.assert_installed(machine, SAMPLE_SITE, 7)


class Scripts(unittest.TestCase):
    def test_shellcheck_finds_nothing(self):
        self.assertEqual(run("shellcheck", SCRIPT, DEPLOY / "scripts/postinstall"), "")


if __name__ == "__main__":
    unittest.main()
