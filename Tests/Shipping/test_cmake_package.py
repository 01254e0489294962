"""The CMake package: find_package(WebResourceInstaller) and web_resource_bundle()."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import unittest
import zipfile

from private_root import SOURCE

BUNDLE = pathlib.Path(os.environ["BUNDLE"])
PREFIX = BUNDLE.parent
EXECUTABLE = f"Contents/{os.environ['EXECUTABLES']}/WebResourceInstaller"

PRODUCT = """
cmake_minimum_required(VERSION 3.21)
project(Product LANGUAGES NONE)
find_package(WebResourceInstaller REQUIRED)
web_resource_bundle(site DIRECTORY content {})
"""


def run(*command):
    result = subprocess.run(list(map(str, command)), stdin=subprocess.DEVNULL, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return result.returncode, result.stdout


def replace_unnoticed(path, data):
    before = path.stat()
    path.write_bytes(data)
    os.utime(path, ns=(before.st_atime_ns, before.st_mtime_ns))


class CMakePackageTestCase(unittest.TestCase):
    generator = "Ninja"

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.content = self.directory / "content"
        (self.content / "style").mkdir(parents=True)
        (self.content / "index.html").write_text("<p>index")
        (self.content / "style/site.css").write_text("p {}")
        self.build_directory = self.directory / "build"
        self.bundle = self.build_directory / "site.app"

    def configure(self, source, *options, prefix=PREFIX):
        return run("cmake", "-S", source, "-B", self.build_directory, "-G", self.generator,
                   f"-DCMAKE_PREFIX_PATH={prefix}", *options)

    def write_product(self, arguments="UPDATE_ID 7"):
        (self.directory / "CMakeLists.txt").write_text(PRODUCT.format(arguments))

    def configure_product(self, arguments="UPDATE_ID 7"):
        self.write_product(arguments)
        return self.configure(self.directory)

    def copy_of_the_prefix(self):
        prefix = self.directory / "prefix"
        shutil.copytree(PREFIX, prefix, symlinks=True)
        return prefix

    def build(self, status=0):
        found, output = run("cmake", "--build", self.build_directory)
        self.assertEqual(found == 0, status == 0, output)
        return output

    @property
    def package(self):
        return self.bundle / "Contents/Resources/OrloWebResources.zip"

    def packed(self):
        with zipfile.ZipFile(self.package) as archive:
            return {name: archive.read(name) for name in archive.namelist()}

    def update(self):
        metadata = self.bundle / "Contents/Resources/metadata.txt"
        return json.loads(metadata.read_text())["updateid"]

    def assert_made_again(self, what, expected=True):
        """Fails unless the next build packs again and the build after it has nothing to do."""
        before = self.package.stat().st_mtime_ns
        self.build()
        after = self.package.stat().st_mtime_ns
        self.assertEqual(after != before, expected, what)
        self.build()
        self.assertEqual(self.package.stat().st_mtime_ns, after, what)


class Example(CMakePackageTestCase):
    def test_builds_and_installs_a_bundle_that_is_right(self):
        examples = self.directory / "Examples"
        shutil.copytree(SOURCE / "Examples", examples)
        (examples / "sample-site/notes.md").write_text("not for the product")
        self.assertEqual(self.configure(examples / "cmake-product")[0], 0)
        self.build()
        self.bundle = self.directory / "installed/lib/cloud-guide/CloudGuide.app"
        run("cmake", "--install", self.build_directory, "--prefix", self.directory / "installed")
        self.assertEqual(self.update(), 7)
        site = SOURCE / "Examples/sample-site"
        self.assertEqual({name: data for name, data in self.packed().items() if name[-1] != "/"},
                         {str(path.relative_to(site)): path.read_bytes()
                          for path in site.rglob("*") if path.is_file()})
        self.assertEqual((self.bundle / EXECUTABLE).read_bytes(),
                         (BUNDLE / EXECUTABLE).read_bytes())
        self.assertTrue(os.access(self.bundle / EXECUTABLE, os.X_OK))
        status, output = run(os.environ["WEBRESOURCES"], "check", self.bundle)
        self.assertEqual(status, 0, output)


class Ninja(CMakePackageTestCase):
    def change(self, what, change):
        time.sleep(0.02)  # more than the smallest step of the file system's clock
        change()
        self.assert_made_again(what)

    def test_made_again_when_the_content_changes(self):
        self.configure_product()
        self.build()
        self.assert_made_again("nothing changed", expected=False)
        page, new = self.content / "index.html", self.content / "style/new.css"
        self.change("file changed", lambda: page.write_text("<p>other"))
        self.assertEqual(self.packed()["index.html"], b"<p>other")
        self.change("same size and time", lambda: replace_unnoticed(page, b"<p>OTHER"))
        self.assertEqual(self.packed()["index.html"], b"<p>OTHER")
        self.change("file added", lambda: new.write_text("h1 {}"))
        self.assertEqual(self.packed()["style/new.css"], b"h1 {}")
        self.change("file renamed", lambda: new.rename(new.with_name("newer.css")))
        self.assertIn("style/newer.css", self.packed())
        self.change("file removed", new.with_name("newer.css").unlink)
        self.change("directory added", (self.content / "empty").mkdir)
        self.change("file added to it", (self.content / "empty/file").touch)
        self.change("directory removed", lambda: shutil.rmtree(self.content / "empty"))
        self.assertEqual(sorted(self.packed()), ["index.html", "style/", "style/site.css"])

    def test_made_again_when_an_argument_changes(self):
        self.configure_product("UPDATE_ID 7")
        self.build()
        self.change("update number", lambda: self.write_product("UPDATE_ID 8"))
        self.assertEqual(self.update(), 8)
        self.change("excluded", lambda: self.write_product("UPDATE_ID 8 EXCLUDE *.css"))
        self.assertNotIn("style/site.css", self.packed())

    def test_names_that_build_systems_write_differently(self):
        names = ["a b", "a#b", "a$b", "$(HOME)", "${HOME}", "a;b", "a[b", "a'b", 'a"b', "a:b", "é",
                 "%", "*"]
        for name in names:
            (self.content / name).write_text(name)
        self.configure_product()
        self.build()
        self.assert_made_again("nothing changed", expected=False)
        self.change("changed", lambda: [(self.content / name).write_text("changed")
                                        for name in names])
        self.assertEqual([self.packed()[name] for name in names], [b"changed"] * len(names))

    def test_content_that_the_build_makes(self):
        self.configure_product("UPDATE_ID 7 DEPENDS ${CMAKE_SOURCE_DIR}/content/made.html)\n"
                               "add_custom_command(OUTPUT ${CMAKE_SOURCE_DIR}/content/made.html\n"
                               "  DEPENDS ${CMAKE_SOURCE_DIR}/draft.html\n"
                               "  COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/draft.html"
                               " ${CMAKE_SOURCE_DIR}/content/made.html")
        draft = self.directory / "draft.html"
        draft.write_text("draft")
        self.build()
        self.change("draft", lambda: draft.write_text("later draft"))
        self.assertEqual(self.packed()["made.html"], b"later draft")


    def test_made_again_when_the_installer_or_the_command_changes(self):
        prefix = self.copy_of_the_prefix()
        self.write_product()
        self.configure(self.directory, prefix=prefix)
        self.build()
        for name in ("bin/webresources", f"{BUNDLE.name}/{EXECUTABLE}",
                     f"{BUNDLE.name}/Contents/Info.plist"):
            path = prefix / name
            self.change(name, lambda path=path: path.write_bytes(path.read_bytes() + b" "))

    def test_nothing_of_the_old_bundle_stays(self):
        prefix = self.copy_of_the_prefix()
        extra = prefix / BUNDLE.name / "Contents/extra.txt"
        extra.touch()
        self.write_product()
        self.configure(self.directory, prefix=prefix)
        self.build()
        self.assertTrue((self.bundle / "Contents/extra.txt").exists())
        extra.unlink()
        self.change("content", lambda: (self.content / "index.html").write_text("<p>other"))
        self.assertFalse((self.bundle / "Contents/extra.txt").exists())

    def test_clean_removes_everything_that_was_made(self):
        self.configure_product()
        before = self.files()
        self.build()
        self.assertNotEqual(self.files(), before)
        run("cmake", "--build", self.build_directory, "--target", "clean")
        self.assertEqual(self.files() - before, set())
        self.build()
        self.assertEqual(self.update(), 7)

    def files(self):
        return {path for path in self.build_directory.rglob("*")
                if not path.name.startswith(".ninja") and "CMakeFiles" not in path.parts}


class Makefiles(Ninja):
    generator = "Unix Makefiles"


class Arguments(CMakePackageTestCase):
    def names_packed_with(self, arguments):
        self.configure_product(f"UPDATE_ID 7 {arguments}")
        self.build()
        return sorted(self.packed())

    def test_every_excluded_pattern_counts(self):
        for name in ("a b", "a", "b", "c"):
            (self.content / name).touch()
        everything = ["a", "a b", "b", "c", "index.html", "style/", "style/site.css"]
        for arguments, excluded in (('"a b"', {"a b"}), ('a c', {"a", "c"}), ('"a;c"', {"a", "c"}),
                                    ('"a b;c" b', {"a b", "b", "c"})):
            with self.subTest(arguments):
                self.assertEqual(self.names_packed_with(f"EXCLUDE {arguments}"),
                                 [name for name in everything if name not in excluded])

    def test_options_are_those_of_pack(self):
        (self.content / "link.html").symlink_to("index.html")
        (self.content / "notes~").touch()
        names = self.names_packed_with("FOLLOW KEEP *~ CLEAR REGENERATE")
        self.assertEqual(names, ["index.html", "link.html", "notes~", "style/", "style/site.css"])
        metadata = json.loads((self.bundle / "Contents/Resources/metadata.txt").read_text())
        self.assertEqual(metadata, {"clear": True, "updateid": 7, "regenerate": True})

    def test_relative_output_is_in_the_current_binary_directory(self):
        (self.directory / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.21)\nproject(Top LANGUAGES NONE)\n"
            "add_subdirectory(product)\n")
        product = self.directory / "product"
        product.mkdir()
        self.content.rename(product / "content")
        (product / "CMakeLists.txt").write_text(
            PRODUCT.format("UPDATE_ID 7 OUTPUT deep/Named.app"))
        self.assertEqual(self.configure(self.directory)[0], 0)
        self.build()
        self.bundle = self.build_directory / "product/deep/Named.app"
        self.assertEqual(self.update(), 7)

    def test_warning_stops_a_strict_build_only(self):
        shutil.rmtree(self.content)
        self.content.mkdir()
        self.configure_product("UPDATE_ID 7")
        self.build()
        self.assertEqual(self.packed(), {})
        self.configure_product("UPDATE_ID 7 STRICT")
        output = self.build(status=1)
        self.assertIn("package-empty", output)
        self.assertIn("nothing was written", output)


class Tools(CMakePackageTestCase):
    """The command, and a package without one."""

    def setUp(self):
        super().setUp()
        self.write_product()
        self.prefix = self.copy_of_the_prefix()
        self.command = self.prefix / "bin/webresources"
        self.source = self.directory / "CMakeLists.txt"

    def test_build_for_another_processor_uses_the_command_of_this_machine(self):
        program = bytearray(self.command.read_bytes())
        program[18:20] = b"\xf0\xf0"  # the processor in an ELF header: none that exists
        self.command.write_bytes(program)
        toolchain = self.directory / "toolchain.cmake"
        guide = (SOURCE / "Documentation/embedding.md").read_text()
        [example] = re.findall(r"^```cmake\n(set\(CMAKE_SYSTEM_NAME .*?)^```$", guide,
                               re.MULTILINE | re.DOTALL)
        for path, here in (("/opt/aarch64", self.prefix),
                           ("/usr/bin/webresources", os.environ["WEBRESOURCES"])):
            self.assertIn(path, example)
            example = example.replace(path, str(here))
        toolchain.write_text(example)
        status, output = run("cmake", "-S", self.directory, "-B", self.build_directory, "-G",
                             self.generator, f"-DCMAKE_TOOLCHAIN_FILE={toolchain}")
        self.assertEqual(status, 0, output)
        self.build()
        self.assertEqual(self.update(), 7)
        self.assertEqual((self.bundle / EXECUTABLE).read_bytes(),
                         (self.prefix / BUNDLE.name / EXECUTABLE).read_bytes())

    def test_package_without_the_command_says_why_the_component_is_not_found(self):
        self.command.unlink()
        self.source.write_text(PRODUCT.split("web_resource_bundle")[0])
        self.assertEqual(self.configure(self.directory, prefix=self.prefix)[0], 0)
        self.source.write_text(self.source.read_text().replace(
            "REQUIRED", "REQUIRED COMPONENTS tools"))
        status, output = self.configure(self.directory, prefix=self.prefix)
        self.assertNotEqual(status, 0)
        self.assertRegex(re.sub(r"\s+", " ", output), "component tools: .*BUILD_TOOLS=ON")


class Failures(CMakePackageTestCase):
    def test_content_that_is_refused_fails_the_build_until_it_is_right(self):
        self.configure_product("UPDATE_ID 7 REQUIRE needed.html")
        for _ in range(2):
            self.assertIn("needed.html", self.build(status=1))
            self.assertFalse(self.package.exists())
        (self.content / "needed.html").touch()
        self.build()
        self.assertIn("needed.html", self.packed())
        (self.content / "needed.html").unlink()
        self.build(status=1)
        self.assertIn("needed.html", self.packed())  # the old bundle stays

    def test_wrong_arguments_fail_the_configuration(self):
        for arguments, told in (("", "UPDATE_ID"), ("UPDATE_ID", "UPDATE_ID"),
                                ("UPDATE_ID 7 UNKNOWN", "UNKNOWN"),
                                ("UPDATE_ID 7 OUTPUT ..", r"\.app")):
            status, output = self.configure_product(arguments)
            self.assertNotEqual(status, 0)
            self.assertRegex(re.sub(r"\s+", " ", output), rf"web_resource_bundle.*{told}")

    def test_later_major_version_is_not_found(self):
        self.write_product()
        source = self.directory / "CMakeLists.txt"
        source.write_text(source.read_text().replace("REQUIRED", "2 REQUIRED"))
        self.assertNotEqual(self.configure(self.directory)[0], 0)


if __name__ == "__main__":
    unittest.main()
