"""Every branch of script/package-macos, with doubles of the commands that it runs on a Mac."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
DOUBLE = SOURCE / "Tests/Doubles/mac-tools/mac_tool.py"
TOOLS = ("clang", "cmake", "codesign", "curl", "libtool", "lipo", "otool", "pkgbuild", "pkgutil",
         "productbuild", "sed", "shasum", "spctl", "tar", "xcrun")

SIGNED = ("--sign", "Developer ID Application: A", "--sign-package", "Developer ID Installer: B")
NOTARIZED = (*SIGNED, "--notarize", "profile")


class PackageMacOS(unittest.TestCase):
    maxDiff = 3000

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name).resolve() / "a checkout"
        (self.directory / "script").mkdir(parents=True)
        shutil.copy(SOURCE / "script/package-macos", self.directory / "script")
        shutil.copytree(SOURCE / "script/lib", self.directory / "script/lib")
        shutil.copytree(SOURCE / "Deploy/macos", self.directory / "Deploy/macos")
        self.tools = self.directory / "tools"
        self.tools.mkdir()
        for name in TOOLS:
            (self.tools / name).symlink_to(DOUBLE)
        self.elsewhere = self.directory / "else where"
        (self.elsewhere / "my site").mkdir(parents=True)

    def run_script(self, *arguments, fault="", status=0, program="../script/package-macos"):
        result = subprocess.run(
            [program, *arguments], cwd=self.elsewhere, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
            timeout=60, env={"PATH": f"{self.tools}:/usr/bin:/bin", "MAC_TOOLS": str(self.tools),
                 "FAULT": fault})
        self.assertEqual(result.returncode, status, result.stdout)
        return result.stdout

    def package(self, *options, **others):
        return self.run_script(*options, "my site", "7", "my product.pkg", **others)

    def calls(self):
        """Returns the names of the commands that ran."""
        calls = self.tools / "calls"
        lines = calls.read_text().splitlines() if calls.exists() else []
        return [line.split()[0] for line in lines]

    @property
    def output(self):
        return self.elsewhere / "my product.pkg"

    def assert_fails(self, fault, message, *options, output=False):
        printed = self.package(*options, fault=fault, status=1)
        self.assertIn(message, printed)
        self.assertEqual(self.output.exists(), output)

    # What is made ------------------------------------------------------------------------------

    def test_paths_are_of_the_directory_it_is_called_in(self):
        self.package()
        self.assertTrue(self.output.is_file())
        self.assertEqual({path.name for path in self.elsewhere.iterdir()},
                         {"my site", "my product.pkg"})

    def test_nothing_is_signed_without_identities(self):
        self.package()
        for name in ("codesign", "pkgutil", "xcrun", "spctl"):
            self.assertNotIn(name, self.calls())

    def test_command_is_in_the_bundle_and_nothing_belongs_to_the_machine(self):
        self.package()
        root = self.directory / "build/macos/root"
        self.assertEqual([path.name for path in root.iterdir()], ["Library"])
        [command] = root.rglob("webresources")
        self.assertTrue(str(command.parent).endswith("WebResourceInstaller.app/Contents/Helpers"))

    def test_licence_of_everything_that_is_compiled_in_is_in_the_package(self):
        self.package()
        [notices] = (self.directory / "build/macos/root").rglob("THIRD-PARTY-NOTICES.md")
        licences = notices.parent / "third-party"
        texts = {str(path.relative_to(licences)): path.read_text()
                 for path in licences.rglob("*") if path.is_file()}
        self.assertEqual(texts, {name: "a licence of " + os.path.dirname(name) for name in (
            "minizip/LICENSE", "minizip/MiniZip64_info.txt", "utf8proc/LICENSE.md",
            "cli11/LICENSE", "nlohmann-json/LICENSE.MIT")})

    def test_package_is_for_every_user_whatever_the_umask(self):
        before = os.umask(0o077)
        self.addCleanup(os.umask, before)
        for path in (self.directory / "Deploy").rglob("*.pc"):
            path.chmod(0o600)
        self.package()  # the double of pkgbuild reads the modes

    def test_programs_and_package_are_signed_and_their_signatures_checked(self):
        self.package(*SIGNED)
        self.assertEqual(self.calls()[-6:], ["codesign", "codesign", "codesign", "pkgbuild",
                                             "productbuild", "pkgutil"])
        self.assertEqual((self.tools / "signed webresources").read_text(),
                         "com.veltrane.orlisk.webresources")
        self.assertEqual((self.tools / "signed WebResourceInstaller.app").read_text(),
                         "com.veltrane.orlisk.WebResourceInstaller")

    def test_notarized_package_is_stapled_and_asked_about(self):
        self.package(*NOTARIZED)
        self.assertEqual(self.calls()[-4:], ["xcrun", "xcrun", "xcrun", "spctl"])

    def preinstall(self, printed, volume="/"):
        """The status of the package's script where `defaults` prints this number, or fails."""
        defaults = self.tools / "defaults"
        defaults.write_text('#!/bin/sh\n[ "$*" = "read /Library/Preferences/com.veltrane.orlisk.'
                            '2017.WebResource.plist.plist iUpdateId" ] || exit 64\n'
                            + (f"echo '{printed}'\n" if printed is not None else "exit 1\n"))
        defaults.chmod(0o755)
        return subprocess.run(
            [self.directory / "build/macos/scripts/preinstall", "a.pkg", "/", volume], check=False,
            env={"PATH": f"{self.tools}:/usr/bin:/bin"}, stderr=subprocess.DEVNULL).returncode

    def test_older_package_is_refused_before_its_files_are_installed(self):
        self.package()  # of update 7
        for installed, status in (("8", 1), ("2147483647", 1), ("7", 0), ("6", 0), ("-1", 0),
                                  ("", 0), ("text", 0), ("8x", 0), (None, 0)):
            with self.subTest(installed):
                self.assertEqual(self.preinstall(installed), status)
        self.assertEqual(self.preinstall("6", "/Volumes/Other"), 1)

    def test_second_package_can_be_made(self):
        self.package()
        self.package()

    # What is refused ---------------------------------------------------------------------------

    def test_archive_that_is_another(self):
        self.assert_fails("archive", "is not the release that Deploy/macos/sources names")

    def test_finding_of_check(self):
        self.assert_fails("check", "a finding")

    def test_program_for_one_architecture(self):
        self.assert_fails("slice", "not for every architecture")

    def test_program_that_loads_what_not_every_mac_has(self):
        self.assert_fails("library", "/opt/homebrew/opt/minizip/lib/libminizip.1.dylib")

    def test_program_for_newer_systems_only(self):
        self.assert_fails("oldest", "is for macOS 11.0 13.0 , not for 11.0")

    def test_signature_that_is_invalid(self):
        self.assert_fails("signature", "the signature is invalid", *SIGNED)

    def test_package_without_its_signature(self):
        self.assert_fails("package-signature", "no signature", *SIGNED, output=True)

    def test_package_that_is_not_accepted(self):
        self.assert_fails("notary", "the reasons why not", *NOTARIZED, output=True)
        self.assertNotIn("spctl", self.calls())

    def test_ticket_that_is_missing(self):
        self.assert_fails("ticket", "no ticket", *NOTARIZED, output=True)

    def test_package_that_gatekeeper_rejects(self):
        self.assert_fails("gatekeeper", "rejected", *NOTARIZED, output=True)

    # The command line --------------------------------------------------------------------------

    def test_dry_run_prints_what_a_run_runs_and_runs_nothing(self):
        lines = self.package("--dry-run", *NOTARIZED).splitlines()
        self.assertEqual(self.calls(), [])
        self.assertFalse((self.directory / "build").exists())
        self.assertEqual([line for line in self.package(*NOTARIZED).splitlines()
                          if line.startswith("+ ")], lines)

    def test_layout_stops_at_the_tree(self):
        self.package("--layout", status=1)  # the double of cmake wants a Mac's libraries
        self.assertEqual(self.calls(), ["cmake"])

    def test_help_is_the_head_of_the_script(self):
        for option in ("--help", "-h"):
            self.assertTrue(self.run_script(option).startswith("Makes a macOS installer package"))

    def test_mistakes_are_named_before_anything_is_done(self):
        for arguments, mistake in (
                ((), "it takes CONTENT, UPDATE-NUMBER and OUTPUT.pkg"),
                (("my site", "7"), "it takes CONTENT"),
                (("my site", "7", "a.pkg", "b"), "it takes CONTENT"),
                (("--speed", "my site", "7", "a.pkg"), "there is no option --speed"),
                (("--sign",), "--sign needs a value"),
                (("--notarize", "p", "my site", "7", "a.pkg"), "--notarize needs --sign"),
                (("--notarize", "p", *SIGNED[:2], "my site", "7", "a.pkg"), "--notarize needs"),
                (("no site", "7", "a.pkg"), "no site is not a directory")):
            with self.subTest(arguments):
                printed = self.run_script(*arguments, status=64)
                self.assertTrue(printed.startswith(f"package-macos: {mistake}"), printed)
        self.assertEqual(self.calls(), [])

    def test_content_may_begin_with_a_dash(self):
        (self.elsewhere / "-site").mkdir()
        self.run_script("--", "-site", "7", "a.pkg")


if __name__ == "__main__":
    unittest.main()
