#!/usr/bin/env python3
"""Prints Documentation/findings.md. The source of the page is Tools/webresources/report/Rules.h.

usage: script/lib/findings.py >Documentation/findings.md
"""

import pathlib
import re

RULES = pathlib.Path(__file__).resolve().parents[2] / "Tools/webresources/report/Rules.h"

HEAD = """# Findings

Every finding of `webresources` has one of these identifiers. `script/lib/findings.py` writes this
page from the rules of the program.

- **error**: the installation is incorrect, or a run does not install the content unchanged on every
  system. `pack` refuses content with errors, and `install` refuses a bundle with errors.
- **warning**: the result can differ from the intention, or other tools can reject the package.
  `pack` refuses warnings, too, unless `--allow-warnings` is given. `install` accepts warnings.

The column "Remedy" is the text after `fix:` in the output, and the member `fix` in JSON. Identifiers
and severities stay stable: [compatibility.md](compatibility.md).
"""

COMMENT = re.compile(r"^// (.*?)\.(?: .*)?$|^/// (.*)$")  # a section, or a part of a meaning
RULE = re.compile(r'inline constexpr Rule \w+\{\s*"([a-z0-9-]+)",\s*Severity::(\w+),\s*(.*?)\};',
                  re.DOTALL)
CONSTANT = re.compile(r'inline constexpr char (\w+)\[\] = "(.*)";')


def rules(text=None):
    """Yields (section, identifier, severity, meaning, remedy) in the order of the rules."""
    text = text or RULES.read_text(encoding="utf-8")
    constants = dict(CONSTANT.findall(text))
    section, meaning, definition = "", [], ""
    for line in text.split("\n"):
        comment = COMMENT.match(line)
        if comment and comment[1]:
            section = comment[1]
        elif comment:
            meaning.append(comment[2])
        elif definition or line.startswith("inline constexpr Rule"):
            definition += line + "\n"
            if line.endswith("};"):
                identifier, severity, remedy = RULE.match(definition).groups()
                remedy = constants.get(remedy) or "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', remedy))
                yield (section, identifier, severity.lower(), " ".join(meaning),
                       remedy.replace('\\"', '"'))
                meaning, definition = [], ""


def page(text=None):
    lines, section = [HEAD], None
    for heading, identifier, severity, meaning, remedy in rules(text):
        if heading != section:
            blank = [""] if section else []
            lines += [*blank, f"## {heading}", "", "| Identifier | Severity | Meaning | Remedy |",
                      "|---|---|---|---|"]
            section = heading
        lines.append(f"| `{identifier}` | {severity} | {meaning} | {remedy} |")
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    print(page(), end="")
