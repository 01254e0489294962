"""The documents: links, samples, the manual page, numbers, and the page that is made from the rules.

A block ```console in one of SAMPLES is a part of a sample: each line after "$ " is a command, and
the lines below it are its output. The commands of a document run in one shell, in a chroot that has
the files of the Debian package. A comment that begins with a line "<!-- setup" has commands that
readers do not see. REWRITE=1 writes the real output into the documents.
"""

import difflib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import private_root

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "script/lib"))
import findings  # pylint: disable=wrong-import-position

BUNDLE = pathlib.Path(os.environ["BUNDLE"])
WEBRESOURCES = pathlib.Path(os.environ["WEBRESOURCES"])
needs_the_command = unittest.skipUnless(WEBRESOURCES.exists(), "the command is not built")
DOCUMENTS = [*SOURCE.glob("*.md"), *SOURCE.glob("[A-Z]*/**/*.md")]


def text(document):
    return re.sub(r"```.*?```", "", document.read_text(encoding="utf-8"), flags=re.DOTALL)


def anchors(document):
    """The anchors of a document's headings, as code hosts make them."""
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)$", text(document), re.MULTILINE)}


class Documents(unittest.TestCase):
    def test_each_link_leads_to_a_file_and_a_heading(self):
        self.assertGreater(len(DOCUMENTS), 10)
        for document in DOCUMENTS:
            for link in re.findall(r"\]\((?!https?:)([^)]+)\)", text(document)):
                path, _, anchor = link.partition("#")
                target = document.parent / path if path else document
                with self.subTest(document=document.name, link=link):
                    self.assertTrue(target.exists())
                    self.assertTrue(not anchor or anchor in anchors(target))


class Guides(unittest.TestCase):
    ROOMS = ("CMake", "Documentation", "Fuzz", "Include", "Platform", "Source", "Tests", "Tools")

    def test_each_file_that_the_guides_for_contributors_name_exists(self):
        paths = [path.relative_to(SOURCE).as_posix() for room in self.ROOMS
                 for path in (SOURCE / room).rglob("*.*")] + ["CMakeLists.txt"]
        named = set(re.findall(r"`([\w/]+\.(?:cpp|h|py|txt|dict|cmake\.in|json|md|1))`",
                               text(SOURCE / "CONTRIBUTING.md")))
        self.assertGreater(len(named), 40)
        for name in named:
            if "NAME" not in name:
                with self.subTest(name):
                    self.assertTrue(any(f"/{path}".endswith(f"/{name}") for path in paths))

    def test_the_guide_for_a_value_names_each_product_file_that_names_one(self):
        guide = text(SOURCE / "CONTRIBUTING.md").partition("## A new value in the record\n")[2]
        named = set(re.findall(r"`((?:\w+/)*\w+\.(?:cpp|h))`", guide.partition("\n4. ")[0]))
        value = re.compile(r"fullVersion|FullVersionField|RegisterCompleteVersion|"
                           r"\bregenerate\b|shouldRegenerateRandom")
        found = set()
        for room in ("Source", "Include", "Common", "Platform", "Tools"):
            for path in (SOURCE / room).rglob("*.*"):
                code = path.read_text(encoding="utf-8") if path.suffix in (".cpp", ".h") else ""
                if value.search(re.sub(r'//.*|"(?:[^"\\]|\\.)*"', "", code)):
                    name = path.relative_to(SOURCE).as_posix()
                    found.add(name.removeprefix("Tools/webresources/"))
        self.assertEqual(named, found)


class Findings(unittest.TestCase):
    RULES = findings.RULES.read_text(encoding="utf-8")

    def test_page_is_made_from_the_rules(self):
        self.assertEqual((SOURCE / "Documentation/findings.md").read_text(encoding="utf-8"),
                         findings.page(), "run: script/lib/findings.py >Documentation/findings.md")

    def test_every_rule_has_its_own_identifier_and_a_sentence_of_meaning(self):
        rules = list(findings.rules())
        self.assertEqual(len(rules), self.RULES.count("inline constexpr Rule "))
        self.assertEqual(len({rule[1] for rule in rules}), len(rules))
        for _, identifier, severity, meaning, remedy in rules:
            with self.subTest(identifier):
                self.assertIn(severity, ("error", "warning"))
                self.assertRegex(meaning, r"^[A-Z`][^.]*\.")
                self.assertRegex(remedy, r"^[a-z].*[^.]$")

    def test_samples_of_output_have_the_remedy_of_their_rule(self):
        remedies = {rule[1]: rule[4] for rule in findings.rules()}
        samples = [sample for document in DOCUMENTS for sample in re.findall(
            r"^(?:error|warning) \[([\w-]+)\] .*\n    fix: (.*)$", document.read_text(), re.M)]
        self.assertGreater(len(samples), 5)
        for identifier, remedy in samples:
            with self.subTest(identifier):
                self.assertEqual(remedy, remedies[identifier])


def read(path):
    return (SOURCE / path).read_text(encoding="utf-8")


@needs_the_command
class Manual(unittest.TestCase):
    """The manual page has the options, the defaults and the exit statuses of --help."""

    TEXT = re.sub(r"\\f[BIR]|\\&", "", read("Tools/webresources/webresources.1")).replace("\\-", "-")
    OUTPUT = {"--json", "--quiet", "--all", "--help"}  # they have their own section

    @staticmethod
    def help_of(*command):
        return subprocess.run([WEBRESOURCES, *command, "--help"], check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def commands(self):
        found = re.findall(r"^  ([a-z]+)  ", self.help_of(), re.MULTILINE)
        self.assertGreater(len(found), 10)
        return [(name, self.help_of(name)) for name in found if name != "help"]

    def section(self, heading):
        [found] = re.findall(rf"^\.S[HS] {heading}\n(.*?)(?=^\.S[HS] )", self.TEXT,
                             re.MULTILINE | re.DOTALL)
        return found

    @staticmethod
    def options(text):
        """Each option of a help text or of a section, with its explanation."""
        return dict(re.findall(r"^(?:\.TP\n|  +)(?:-\w, *)?(--[a-z-]+)(.*?)(?=^\.|^ +-|\n\n|\Z)",
                               text, re.MULTILINE | re.DOTALL))

    def test_each_section_explains_the_options_of_its_command(self):
        for command, text in self.commands():
            with self.subTest(command):
                self.assertEqual(set(self.options(self.section(command))),
                                 set(self.options(text)) - self.OUTPUT)
        self.assertEqual(set(self.options(self.section("OUTPUT OPTIONS"))), self.OUTPUT)

    def test_synopsis_has_the_options_of_each_command(self):
        synopsis = self.section("SYNOPSIS")
        for command, text in self.commands():
            with self.subTest(command):
                [found] = re.findall(rf"^webresources {command}\b(.*?)^\.br", synopsis,
                                     re.MULTILINE | re.DOTALL)
                self.assertEqual(set(re.findall(r"--[a-z-]+", found)),
                                 set(self.options(text)) - {"--help"})

    def test_defaults_are_those_of_the_help(self):
        defaults = [(command, name, default) for command, text in self.commands()
                    for name, explanation in self.options(text).items()
                    for default in re.findall(r"\(default: (\w+)\)", explanation)]
        self.assertGreater(len(defaults), 5)
        for command, name, default in defaults:
            explanation = self.options(self.section(command))[name]
            if "See check." in explanation:
                explanation = self.options(self.section("check"))[name]
            with self.subTest(command=command, option=name):
                self.assertIn(f"(default: {default})", explanation.replace("\n", " "))

    def test_exit_statuses_are_those_of_the_help(self):
        page = read("Documentation/webresources.md")
        for command, text in self.commands():
            with self.subTest(command):
                # Newer versions of CLI11 join and wrap the lines.
                line = " ".join(text[text.index("Exit status:"):].split())
                self.assertIn(line + ".\n", self.section(command))
                [row] = re.findall(rf"^\| `{command}` \| (.*) \|$", page, re.MULTILINE)
                statuses = [f"{number} {cell.strip()}" for number, cell
                            in enumerate(row.split("|")) if cell.strip()]
                self.assertEqual(f"Exit status: {', '.join(statuses)}, 64 wrong usage", line)

    def test_files_are_those_of_an_installation(self):
        files = self.section("FILES")
        for path in (private_root.INSTALL_ROOT, private_root.RECORD):
            self.assertIn(path, files)

    def test_junk_is_that_of_pack(self):
        keep = self.options(self.section("pack"))["--keep"]
        junk = re.findall(r'^ +\{"([^"]*)", (kWhole|"[^"]*"), k',
                          read("Tools/webresources/packing/SourceTree.cpp"), re.MULTILINE)
        self.assertGreater(len(junk), 10)
        for begin, end in junk:
            name = begin if end == "kWhole" else begin + "*" + end.strip('"')
            self.assertIn(name.lower(), keep.lower())


class Numbers(unittest.TestCase):
    """A number in a document is that of the code."""

    NUMBERS = [  # the code, the expression that finds the number, the document, its sentence
        ("Tools/webresources/prediction/PackageFindings.h", r"maxDirectories = (\d+);",
         "Documentation/findings.md", "more than {:,} directories"),
        ("Tools/webresources/prediction/PackageFindings.h", r"maxDirectories = (\d+);",
         "Documentation/webresources.md", "more than {:,} directories"),
        ("Tools/webresources/prediction/PackageFindings.cpp", r"kLargestRatio = (\d+);",
         "Documentation/webresources.md", "at most {:,} times"),
        ("Tools/webresources/prediction/PackageFindings.cpp", r"kRatioLimit = (\d+);",
         "Documentation/findings.md", "{} times as large"),
        ("Tools/webresources/bundle/Metadata.cpp", r"kContainersRead = (\d+);",
         "Documentation/webresources.md", "more than {:,} arrays and objects"),
        ("Tools/webresources/bundle/Metadata.cpp", r"kContainersRead = (\d+);",
         "Tools/webresources/webresources.1", "more than {:,} arrays and objects"),
        ("Tools/webresources/bundle/Metadata.cpp", r"kMetadataLimit = off_t\{(\d+)\} << 20U",
         "Documentation/webresources.md", "metadata of more than {} MiB"),
        ("Tools/webresources/machine/Receipt.cpp", r"kReceiptLimit = std::uint64_t\{(\d+)\} << 20U",
         "Documentation/webresources.md", "more than {} MiB"),
        ("Tools/webresources/report/Report.cpp", r"kScreen = (\d+);",
         "Documentation/webresources.md", "at most {} lines"),
        ("Tools/webresources/main.cpp", r"kLeast = rlim_t\{(\d+)\} << 20U",
         "Documentation/webresources.md", "stack limit below {} MiB"),
        ("Include/OSUtils.h", r"kLargestRandom = (\d+);",
         "Documentation/findings.md", "from 1 to {}"),
        ("Include/OSUtils.h", r"kLargestRandom = (\d+);",
         "Documentation/behaviour.md", "from 1 to {}"),
        ("Include/PackageReader.h", r"kNameSize = (\d+);",
         "Documentation/findings.md", "has {} bytes or more"),
        ("Include/PackageReader.h", r"kNameSize = (\d+);",
         "Documentation/behaviour.md", "name is empty, has {} bytes or more"),
        ("Include/PackageReader.h", r"k(?:Portion|Buffer|Chunk)Size = (\d+);",
         "Documentation/behaviour.md", "in chunks of {:,} bytes"),
        ("Include/DirectoryChain.h", r"kPathSize = (\d+);",
         "Documentation/behaviour.md", "has {:,} bytes or more"),
        ("Source/OSUtilsMac.cpp", r"kCarriedTextSize = (\d+);",
         "Documentation/behaviour.md", "a string of {} bytes or more"),
        ("Source/OSUtilsMac.cpp", r"kNumberLength = (\d+);",
         "Documentation/behaviour.md", "{} characters: -99999999 to 999999999"),
        ("Platform/posix/PropertyList.h", r"kMostLevels = (\d+);",
         "Documentation/internals.md", "more than {} levels"),
        ("CMakeLists.txt", r"cmake_minimum_required\(VERSION ([\d.]+)",
         "README.md", "CMake {} or newer"),
        ("CMakeLists.txt", r"INSTALLER_VERSION (\d+\.\d+\.\d+)",
         "Documentation/compatibility.md", "{}"),
        ("CMakeLists.txt", r"project\(WebResourceInstaller VERSION (\d+)\.",
         "Documentation/compatibility.md", "find_package(WebResourceInstaller {})"),
    ]

    def test_each_number_is_that_of_the_code(self):
        for code, expression, document, sentence in self.NUMBERS:
            with self.subTest(document=document, sentence=sentence):
                number = re.search(expression, read(code))[1]
                expected = sentence.format(int(number) if number.isdigit() else number)
                self.assertIn(expected, " ".join(read(document).split()))


@needs_the_command
@unittest.skipUnless(os.environ["BACKEND"] == "posix", "the record is a file of this back end")
class Samples(unittest.TestCase):
    SAMPLES = ["Documentation/webresources.md", "Documentation/json.md",
                "Documentation/troubleshooting.md"]
    PROGRAMS = ["bash", "chmod", "cp", "false", "flock", "ln", "ls", "mkdir", "rm"]
    BLOCK = re.compile(r"(?:(?<=^```console\n)|(?<=^<!-- setup\n)).*?(?=^```$|^-->$)",
                       re.MULTILINE | re.DOTALL)
    VARYING = re.compile(r"[0-9a-f]{64}|\d{4}-\d\d-\d\dT[\d:]+Z|(?<=packed into )\d+|(?<=bytes: )\d+"
                         r'|\d+(?= free)|(?<="packedBytes": )\d+|(?<="bytesNeeded": )\d+'
                         r'|(?<="bytesFree": )\d+|(?<="random": )\d+')

    def make_root(self):
        temporary = tempfile.TemporaryDirectory(prefix="documents-")
        self.addCleanup(temporary.cleanup)
        self.root = pathlib.Path(temporary.name)
        self.root.chmod(0o755)
        installer, = BUNDLE.glob("Contents/*/WebResourceInstaller")
        private_root.add_programs(self.root, WEBRESOURCES, installer,
                                  *map(private_root.program, self.PROGRAMS))
        for directory in ("usr/bin", "usr/lib/web-resource-installer", "srv"):
            (self.root / directory).mkdir(parents=True, exist_ok=True)
        shutil.copy(WEBRESOURCES, self.root / "usr/bin")
        shutil.copytree(BUNDLE, self.root / "usr/lib/web-resource-installer" / BUNDLE.name)
        sudo = self.root / "usr/bin/sudo"
        sudo.write_text('#!/usr/bin/bash\nexec "$@"\n')
        sudo.chmod(0o755)

    def run_session(self, commands):
        """Returns the output of each command, in a new chroot."""
        self.make_root()
        script = "exec 2>&1; cd /srv; umask 022; PATH=/usr/bin\n" + "".join(
            f"{command}\nstatus=$?; printf '\\036'; (exit $status)\n" for command in commands)
        result = subprocess.run(
            private_root.command_in(self.root, private_root.program("bash"), "-c", script,
                                    added=True),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=False, timeout=120)
        *outputs, rest = result.stdout.split("\036")
        self.assertEqual((rest, len(outputs)), ("", len(commands)))
        return outputs

    def test_samples_are_the_output_of_their_commands(self):
        if subprocess.run([private_root.PRIVATE_ROOT, "check"], check=False).returncode != 0:
            self.skipTest("no chroot can be made here")
        for document in self.SAMPLES:
            with self.subTest(document):
                page = read(document)
                blocks = self.BLOCK.findall(page)
                self.assertGreater(len(blocks), 5)
                commands = re.findall(r"^\$ (.*)$", "".join(blocks), re.MULTILINE)
                outputs = iter(self.run_session(commands))

                def with_output(block):
                    return "".join(f"$ {command}\n{next(outputs)}" for command
                                   in re.findall(r"^\$ (.*)$", block[0], re.MULTILINE))

                real = self.BLOCK.sub(with_output, page)
                if os.environ.get("REWRITE"):
                    (SOURCE / document).write_text(real, encoding="utf-8")
                expected, actual = (self.VARYING.sub("*", text).split("\n")
                                    for text in (page, real))
                self.assertEqual(list(difflib.unified_diff(expected, actual, n=0)), [],
                                 "REWRITE=1 writes the real output into the document")


if __name__ == "__main__":
    unittest.main()
