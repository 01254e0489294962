"""The changes that script/campaign mutate tries, on a few lines."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "script/lib"))

import changes  # noqa: E402


class Changes(unittest.TestCase):
    def results(self, kind, source):
        return [source[:begin] + text + source[end:]
                for each, begin, end, text in changes.changes(source) if each == kind]

    def test_digit_separators_are_in_numbers_and_end_no_character(self):
        self.assertEqual(self.results("constant", "a = 2'000;  // its\nb = '0';"),
                         ["a = (2'000 + 1);  // its\nb = '0';", "a = (2'000 - 1);  // its\nb = '0';",
                          "a = 2'000;  // its\nb = '~';"])

    def test_each_flag_is_dropped_once(self):
        self.assertEqual(self.results("flag", "f(O_A | std::b | kC, x | y);"),
                         ["f(std::b | kC, x | y);", "f(O_A | kC, x | y);",
                          "f(O_A | std::b, x | y);"])

    def test_each_call_statement_is_dropped_and_declarations_are_not(self):
        self.assertEqual(self.results("call", "{\n  File a(1);\n  b.c(2);\n  return d();\n}"),
                         ["{\n  File a(1);\n  ;\n  return d();\n}"])

    def test_neighbouring_calls_change_places(self):
        self.assertEqual(self.results("order", "{\n  a();\n  b(1);\n  if (c) {\n    d();\n  }\n}"),
                         ["{\n  b(1);\n  a();\n  if (c) {\n    d();\n  }\n}"])


if __name__ == "__main__":
    unittest.main()
