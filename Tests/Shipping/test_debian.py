"""The Debian package and the example of a product's package, with dpkg and lintian."""

import json
import os
import plistlib
import re
import shutil
import subprocess
import unittest

from shipping import (BUILD, INSTALL_ROOT, RECORD, SAMPLE_SITE, SOURCE, ShippingTestCase, run)

[PACKAGE] = (BUILD / "deb").glob("web-resource-installer_*.deb")
PRODUCT = SOURCE / "Examples/product-deb/build"
BUNDLE = "/usr/lib/web-resource-installer/WebResourceInstaller.app"
CMAKE_PACKAGE = ("WebResourceInstallerConfig.cmake", "WebResourceInstallerConfigVersion.cmake",
                 "digest-content.sh")
STATUS = "var/lib/dpkg/status"


def field(package, name):
    return run("dpkg-deb", "--field", package, name).strip()


def lintian(package):
    """The output of lintian, which complains when root runs lintian without an option."""
    options = ["--allow-root"] if os.getuid() == 0 else []
    return run("lintian", "--pedantic", "--display-info", "--fail-on",
               "error,warning,info,pedantic", *options, package)


class Package(ShippingTestCase):
    def test_lintian_finds_nothing(self):
        self.assertEqual(lintian(PACKAGE), "")

    def test_contains_the_bundle_the_command_its_manual_and_its_completions(self):
        files = set(re.findall(r"^-\S+ root/root +\d+ \S+ \S+ \.(/.*)$",
                               run("dpkg-deb", "--contents", PACKAGE), re.MULTILINE))
        documents = "/usr/share/doc/web-resource-installer"
        self.assertEqual(files, {
            f"{BUNDLE}/Contents/Info.plist", f"{BUNDLE}/Contents/MacOS/WebResourceInstaller",
            "/usr/bin/webresources", "/usr/share/man/man1/webresources.1.gz",
            "/usr/share/bash-completion/completions/webresources",
            "/usr/share/zsh/vendor-completions/_webresources",
            "/usr/share/fish/vendor_completions.d/webresources.fish",
            "/usr/share/lintian/overrides/web-resource-installer",
            *(f"/usr/share/cmake/WebResourceInstaller/{name}" for name in CMAKE_PACKAGE),
            f"{documents}/changelog.gz", f"{documents}/copyright",
            f"{documents}/THIRD-PARTY-NOTICES.md", f"{documents}/bill-of-materials.cdx.json",
            f"{documents}/third-party/cli11.txt", f"{documents}/third-party/nlohmann-json3.txt",
            f"{documents}/third-party/linux.txt", f"{documents}/third-party/pugixml.txt",
            f"{documents}/third-party/{compiler_package()}.txt"})

    def test_version_is_that_of_the_project(self):
        version = re.search(r"^project\(WebResourceInstaller VERSION (\S+) ",
                            (SOURCE / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
        run("dpkg-deb", "--extract", PACKAGE, self.directory)
        command, shared = self.directory / "usr/bin/webresources", self.directory / "usr/share"
        bill = shared / "doc/web-resource-installer/bill-of-materials.cdx.json"
        cmake = shared / "cmake/WebResourceInstaller/WebResourceInstallerConfigVersion.cmake"
        status = run(command, "status", "--json", "--root", self.directory, status=1)
        self.assertEqual(field(PACKAGE, "Version"), version)
        self.assertEqual(run(command, "--version").strip(), version)
        self.assertEqual(json.loads(status)["version"], version)
        self.assertEqual(json.loads(bill.read_text())["metadata"]["component"]["version"], version)
        self.assertIn(f'set(PACKAGE_VERSION "{version}")', cmake.read_text())

    def test_cmake_finds_the_bundle_and_the_command(self):
        run("dpkg-deb", "--extract", PACKAGE, self.directory)
        run("cmake", "-S", SOURCE / "Examples/cmake-product", "-B", self.directory / "build",
            f"-DCMAKE_PREFIX_PATH={self.directory}/usr")
        run("cmake", "--build", self.directory / "build")
        run(self.directory / "usr/bin/webresources", "check",
            self.directory / "build/CloudGuide.app")


def compiler_package():
    """The source package of the C++ runtime. The name ends in the version of the compiler."""
    runtime = run("g++", "-print-file-name=libstdc++.a").strip()
    package = run("dpkg", "--search", os.path.realpath(runtime)).split(":")[0]
    return run("dpkg-query", "--show", "--showformat=${source:Package}", package)


class BillOfMaterials(ShippingTestCase):
    def setUp(self):
        super().setUp()
        run("dpkg-deb", "--extract", PACKAGE, self.directory)
        documents = self.directory / "usr/share/doc/web-resource-installer"
        bill = json.loads((documents / "bill-of-materials.cdx.json").read_text())
        self.assertEqual((bill["bomFormat"], bill["specVersion"]), ("CycloneDX", "1.5"))
        self.linkages = {each["name"]: {linkage["value"] for linkage in each["properties"]}
                         for each in bill["components"]}
        self.notices = (documents / "THIRD-PARTY-NOTICES.md").read_text()

    def test_lists_each_library_that_a_program_loads(self):
        for program in ("usr/bin/webresources",
                        f"{BUNDLE[1:]}/Contents/MacOS/WebResourceInstaller"):
            listed = run("ldd", self.directory / program)
            for library in re.findall(r"lib(z|minizip|utf8proc|nettle|c)[-.\d]*\.so", listed):
                source = {"z": "zlib", "c": "glibc"}.get(library, library)
                self.assertIn("shared library", self.linkages[source])

    def test_lists_what_is_compiled_or_linked_in(self):
        self.assertEqual(self.linkages["cli11"], {"headers"})
        self.assertEqual(self.linkages["nlohmann-json3"], {"headers"})
        self.assertIn("static library", self.linkages["pugixml"])
        self.assertIn("static library", self.linkages[compiler_package()])

    def test_notices_name_each_component(self):
        for name in self.linkages:
            self.assertIn(f"`{re.sub('^(gcc)-[0-9]+$', 'gcc', name)}`", self.notices)


class Product(ShippingTestCase):
    """Installed, upgraded and removed in a chroot, in which the maintainer scripts run."""

    def setUp(self):
        super().setUp()
        unpacked = self.directory / "unpacked"
        run("dpkg-deb", "--extract", PACKAGE, unpacked)
        self.unpacked = unpacked
        self.machine = self.new_root("sh", "rm", "rmdir", "dpkg", unpacked / "usr/bin/webresources",
                                     f"{unpacked}{BUNDLE}/Contents/MacOS/WebResourceInstaller")
        self.add_status()

    def add_status(self):
        """Registers the packages of the libraries that are copied from this machine."""
        status = self.machine / STATUS
        for directory in ("info", "updates"):
            (status.parent / directory).mkdir(parents=True)
        depended = re.split(r", *", re.sub(r" *\([^)]*\)", "", field(PACKAGE, "Depends")))
        architecture = field(PACKAGE, "Architecture")  # other architectures may be installed, too
        status.write_text(run("dpkg-query", "--status", *(f"{name}:{architecture}"
                                                          for name in depended)) + "\n")
        for name in depended:
            (status.parent / "info" / f"{name}:{architecture}.list").touch()
            (status.parent / "info" / f"{name}.list").touch()

    def product(self, content, update, name="product", **options):
        package = self.directory / f"{name}-{update}.deb"
        run(PRODUCT, "--bundle", f"{self.unpacked}{BUNDLE}",
            "--webresources", self.unpacked / "usr/bin/webresources", content, update, package,
            **options)
        return package

    def dpkg(self, *arguments, status=0):
        # An ordinary user is root in a new namespace.
        namespace = [] if os.getuid() == 0 else ["unshare", "--map-root-user"]
        return run(*namespace, "dpkg", f"--root={self.machine}", "--force-not-root",
                   f"--log={self.directory}/log", *arguments, status=status)

    def state(self, name):
        return subprocess.run(["dpkg-query", f"--admindir={self.machine}/var/lib/dpkg", "-Wf",
                               "${db:Status-Abbrev}${Version}", name], check=False, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout

    def site(self):
        site = self.directory / "site"
        shutil.copytree(SAMPLE_SITE, site)
        return site

    def test_installed_upgraded_and_removed(self):
        site = self.site()
        self.dpkg("--install", PACKAGE)
        self.dpkg("--install", self.product(site, 1))
        self.assertEqual(self.state("cloud-guide"), "ii 1.1")
        self.assert_installed(self.machine, site, 1)
        random = self.record(self.machine)["irandom"]

        (site / "index.html").write_text("<p>changed")
        (site / "new").mkdir()
        (site / "new/page.html").write_text("<p>new")
        (site / "data/clouds.json").unlink()
        self.dpkg("--install", self.product(site, 2))
        self.assertEqual(self.state("cloud-guide"), "ii 1.2")
        self.assert_installed(self.machine, site, 2)
        self.assertEqual(self.record(self.machine)["irandom"], random)

        for action in ("--remove", "--purge"):
            self.dpkg(action, "cloud-guide")
            left = (self.machine / "Library").rglob("*")
            self.assertEqual({path.name for path in left} - {"Preferences", "Application Support"},
                             set(), action)
        self.dpkg("--purge", "web-resource-installer")
        self.assertEqual(self.state("cloud-guide"), "")
        self.assertFalse((self.machine / "usr/bin/webresources").exists())
        self.assertFalse((self.machine / "usr/lib/web-resource-installer").exists())

    def test_purge_leaves_what_is_of_others(self):
        self.dpkg("--install", PACKAGE)
        self.dpkg("--install", self.product(SAMPLE_SITE, 1))
        others = [self.machine / "Library" / name for name in (
            "Preferences/com.example.plist", "Application Support/Veltrane/Other/file")]
        for path in others:
            path.parent.mkdir(exist_ok=True)
            path.touch()
        for name in (RECORD + ".tmp-1", f"{os.path.dirname(INSTALL_ROOT)}/.WebResources.killed-1"):
            (self.machine / name).touch()
        self.dpkg("--purge", "cloud-guide")
        self.assertEqual({path for path in (self.machine / "Library").rglob("*") if path.is_file()},
                         set(others))
        self.assertFalse((self.machine / INSTALL_ROOT).parents[1].exists())

    def test_damaged_installation_is_repaired_by_configuring_again(self):
        self.dpkg("--install", PACKAGE)
        package = self.product(SAMPLE_SITE, 1)
        self.dpkg("--install", package)
        page = self.machine / INSTALL_ROOT / "Resource0/index.html"
        page.write_text("damaged")
        page.chmod(0o600)
        self.dpkg("--install", package)
        self.assert_installed(self.machine, SAMPLE_SITE, 1)

    def test_older_package_brings_its_content_back(self):
        site = self.site()
        (site / "index.html").write_text("<p>later")
        self.dpkg("--install", PACKAGE)
        self.dpkg("--install", self.product(site, 10))
        self.dpkg("--install", self.product(SAMPLE_SITE, 9))
        self.assertEqual(self.state("cloud-guide"), "ii 1.9")
        self.assert_installed(self.machine, SAMPLE_SITE, 9)

    def test_older_package_is_refused_where_it_does_not_replace_a_newer_one(self):
        self.dpkg("--install", PACKAGE)
        self.dpkg("--install", self.product(SAMPLE_SITE, 1))
        record = self.machine / RECORD
        record.write_bytes(plistlib.dumps({**self.record(self.machine), "iUpdateId": 9}))
        self.assertIn("newer-installed",
                      self.dpkg("--install", self.product(SAMPLE_SITE, 2), status=1))

    def test_lintian_finds_nothing(self):
        self.assertEqual(lintian(self.product(SAMPLE_SITE, 1)), "")

    def test_two_builds_are_the_same_bytes(self):
        """Later, elsewhere, in another order, with another umask, and with a given time."""
        copy = self.directory / "copy"
        copy.mkdir(mode=0o700)
        for path in sorted(SAMPLE_SITE.iterdir(), reverse=True):
            run("cp", "-R", path, copy)
        for environment in ({}, {"SOURCE_DATE_EPOCH": "1700000000"}):
            environment = {**os.environ, **environment}
            builds = [self.product(SAMPLE_SITE, 1, "here", env=environment, umask=0o022),
                      self.product(copy, 1, "there", env={**environment, "TZ": "Asia/Tokyo"},
                                   umask=0o077)]
            self.assertEqual(*(package.read_bytes() for package in builds))

    def test_needs_the_installer_package(self):
        output = self.dpkg("--install", self.product(SAMPLE_SITE, 1), status=1)
        self.assertIn("depends on web-resource-installer", output)

    def test_installation_that_is_not_right_fails_the_configuration(self):
        self.dpkg("--install", PACKAGE)
        in_the_way = self.machine / INSTALL_ROOT
        in_the_way.parent.mkdir(parents=True)
        in_the_way.write_text("in the way")
        output = self.dpkg("--install", self.product(SAMPLE_SITE, 1), status=1)
        self.assertIn("root-blocked", output)
        self.assertEqual(self.state("cloud-guide"), "iF 1.1")
        in_the_way.unlink()
        self.dpkg("--configure", "cloud-guide")
        self.assertEqual(self.state("cloud-guide"), "ii 1.1")
        self.assert_installed(self.machine, SAMPLE_SITE, 1)


if __name__ == "__main__":
    unittest.main()
