"""The documents: links, and the page that is made from the rules."""

import pathlib
import re
import sys
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "script/lib"))
import findings  # pylint: disable=wrong-import-position

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


if __name__ == "__main__":
    unittest.main()
