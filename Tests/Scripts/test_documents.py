"""The documents: each link inside the project leads to a file, and to a heading in it."""

import pathlib
import re
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
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


if __name__ == "__main__":
    unittest.main()
