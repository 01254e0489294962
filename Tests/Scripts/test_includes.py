"""The rooms of Tools/webresources: each #include points to the same room or to one further down."""

import pathlib
import re
import unittest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "Tools/webresources"
# The order that Documentation/architecture.md draws, from the bottom to the top.
ROOMS = ["support", "report", "packing", "bundle", "prediction", "machine", "commands"]


class Includes(unittest.TestCase):
    def test_each_include_names_its_room_and_points_downwards(self):
        sources = [path for path in TOOLS.glob("*/*") if path.suffix in (".h", ".cpp")]
        self.assertGreater(len(sources), 40)
        for source in sources:
            name, room = source.relative_to(TOOLS).as_posix(), source.parent.name
            for included in re.findall(r'^#include "(.*)"', source.read_text(), re.M):
                with self.subTest(source=name, included=included):
                    self.assertFalse((TOOLS / room / included).exists(), "it names no room")
                    if "/" in included:
                        below, file = included.split("/")
                        self.assertLessEqual(ROOMS.index(below), ROOMS.index(room))
                        if room == below == "commands":  # all are declared in one header
                            self.assertEqual(file, "Commands.h")


if __name__ == "__main__":
    unittest.main()
