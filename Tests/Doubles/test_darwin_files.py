"""All C++ tests and the installer's end-to-end tests with the file system of a Mac
(darwin_files.cpp). All pass; only tests whose paths the double refuses are skipped."""

import errno
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

DOUBLES = pathlib.Path(__file__).resolve().parent
END_TO_END = DOUBLES.parent / "EndToEnd"
PLACE = tempfile.TemporaryDirectory()
DARWIN_FILES = os.path.join(PLACE.name, "darwin_files.so")

SKIPPED = {
    "SourceTest": {
        "DeleteAllButOne.PathsOver1023BytesAreTruncated",
        "DeleteAllButOne.RootWithoutRoomForANameKeepsAll",
        "DeleteDirectory.TruncatedPathNamesAnotherEntry",
        "DeleteDirectory.DeeperTreeStaysBelowPathsOf1023Bytes",
        "DeleteDirectory.DirectoryWithoutRoomForANameIsNotEnteredAgain",
        "DeleteDirectory.FileWithALongerPathStays",
        "DeleteDirectory.LinkNamedByATruncatedPathIsNotFollowed",
        "DeleteDirectory.NameTruncatedToTwoDotsIsSkipped",
        "DeleteDirectory.NameTruncatedToOneDotIsSkipped",
        "EnsureDirectory.ExistingLongPathIsNotTruncated",
        "Metadata.ResourcesPathThatIsTooLongRaises",
        "ResourcePaths.ResourcesPathFarTooLongYieldsAnEmptyString",
        "ResourcePaths.ResourcesPathOf1023BytesIsWhole",
        "ResourcePaths.ResourcesPathOf1024BytesYieldsAnEmptyString",
    },
    "ToolsTest": {
        "PackTest.CollidingNamesAreRefused",
        "PackTest.NameThatIsNotUtf8IsRefused",
    },
    "test_run.py": {
        "test_tree_with_paths_too_long_to_remove_keeps_its_name_and_the_new_one_its_number"},
}


def setUpModule():
    """Copies the double to a place that every user can read. A build can be in a closed directory,
    and ld.so prints an error about a library that is not readable."""
    os.chmod(PLACE.name, 0o755)
    shutil.copy(os.environ["DARWIN_FILES"], DARWIN_FILES)
    os.chmod(DARWIN_FILES, 0o755)


def tearDownModule():
    PLACE.cleanup()


def on_darwin_files(*command, mode="", **options):
    """Runs a command there, and returns the completed process."""
    return subprocess.run(command, text=True, env={
                              **os.environ, "LD_PRELOAD": DARWIN_FILES, "DARWIN_FILES_MODE": mode},
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False, **options)


class FileSystem(unittest.TestCase):
    """The double itself."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def result_of(self, statement, **options):
        """Returns the output of a statement of Python there, or the number of its error."""
        program = ("import os, pathlib, shutil\n"
                   f"try:\n  {statement}\nexcept OSError as error:\n  print(error.errno)")
        result = on_darwin_files(sys.executable, "-c", program, cwd=self.directory, **options)
        return result.stdout.strip()

    def test_ordinary_user_is_on_it_wherever_the_build_is(self):
        for place in (pathlib.Path(DARWIN_FILES), *pathlib.Path(DARWIN_FILES).parents):
            self.assertTrue(place.stat().st_mode & 0o001, place)

    def test_path_of_1024_bytes_is_too_long(self):
        for call in ("open({})", "os.stat({})", "os.unlink({})", "os.rename({}, 'y')"):
            self.assertEqual(self.result_of(call.format("'./' * 511 + 'x'")), str(errno.ENOENT))
            self.assertEqual(self.result_of(call.format("'./' * 511 + 'xy'")),
                             str(errno.ENAMETOOLONG))
        self.assertEqual(self.result_of("os.mkdir('./' * 511 + 'x')"), "")

    def test_name_that_is_not_utf8_is_refused(self):
        for name in (b"caf\xe9", b"\xff", b"a\xc3", b"\xe2\x82"):
            self.assertEqual(self.result_of(f"os.mkdir({name})"), str(errno.EILSEQ))
        self.assertEqual(self.result_of("os.mkdir('\\u00e9\\u65e5\\U0001f600')"), "")

    def test_case_is_ignored_and_preserved(self):
        self.assertEqual(self.result_of("os.makedirs('Aa/Bb'); print(os.path.isdir('aA/BB'))"),
                         "True")
        self.assertEqual(self.result_of("os.mkdir('AA')"), str(errno.EEXIST))
        self.assertEqual(self.result_of("pathlib.Path('aa/bb/File').touch()"), "")
        self.assertEqual(os.listdir(self.directory / "Aa/Bb"), ["File"])
        self.assertEqual(self.result_of("os.rename('aa/bb/FILE', 'aa/bb/fILE')"), "")
        self.assertEqual(os.listdir(self.directory / "Aa/Bb"), ["fILE"])
        self.assertEqual(self.result_of("shutil.rmtree('AA')"), "")
        self.assertEqual(os.listdir(self.directory), [])

    def test_skipping_volume_leaves_entries_that_a_listing_removes(self):
        removal = "[os.unlink(entry) for entry in os.scandir('d')]; print(len(os.listdir('d')))"
        for mode, skips in (("", False), ("skipping", True)):
            (self.directory / "d").mkdir(exist_ok=True)
            for i in range(100):
                (self.directory / "d" / str(i)).touch()
            self.assertEqual(self.result_of(removal, mode=mode) != "0", skips)


class Tests(unittest.TestCase):
    """The tests, of which test_NAME runs the programs or one file."""

    maxDiff = 3000

    def assert_passes_but(self, name, result, skipped):
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertEqual(set(skipped), SKIPPED.get(name, set()))

    def test_gtest_programs(self):
        for program in os.environ["TEST_PROGRAMS"].split(","):
            with self.subTest(program):
                result = on_darwin_files(program)
                skipped = re.findall(r"^\[  SKIPPED \] (\S+) \(", result.stdout, re.MULTILINE)
                self.assert_passes_but(os.path.basename(program), result, skipped)

    def end_to_end(self, name, directory=END_TO_END, **options):
        result = on_darwin_files(sys.executable, "-B", "-W", "ignore::UserWarning:zipfile", "-m",
                                 "unittest", "-v", name, cwd=directory, **options)
        skipped = re.findall(r"^(\w+) \(.*\) \.\.\. skipped", result.stdout, re.MULTILINE)
        self.assert_passes_but(name, result, skipped)

    def test_run(self):
        self.end_to_end("test_run.py")

    def test_volume_that_skips(self):
        self.end_to_end("test_mac_installation.Skipping", DOUBLES, mode="skipping")

    def test_installation(self):
        self.end_to_end("test_mac_installation.Verify", DOUBLES)

    def test_metadata(self):
        self.end_to_end("test_metadata.py")

    def test_entries(self):
        self.end_to_end("test_entries.py")

    def test_packages(self):
        self.end_to_end("test_packages.py")

    def test_record(self):
        self.end_to_end("test_record.py")

    def test_surroundings(self):
        self.end_to_end("test_surroundings.py")


if __name__ == "__main__":
    unittest.main()
