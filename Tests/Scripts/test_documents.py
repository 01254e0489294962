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


if __name__ == "__main__":
    unittest.main()
