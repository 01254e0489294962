"""The protections of the shipped programs, read from the files. A flag that the build loses fails a
test."""

import functools
import os
import pathlib
import re
import subprocess
import unittest

INSTALLED = pathlib.Path(os.environ["BUNDLE"]).parent
OURS = re.compile(r"(main|(InstallerUtils|MetadataHelper|OSUtils|UTF8String)::.*)$")

# The instructions that mark the target of an indirect jump, for each processor.
LANDING_PADS = {"Advanced Micro Devices X86-64": {"endbr64"}, "Intel 80386": {"endbr32"},
                "AArch64": {"bti", "paciasp"}}


def is_program(path):
    with open(path, "rb") as file:
        return file.read(4) == b"\x7fELF"


PROGRAMS = sorted(path for path in INSTALLED.rglob("*") if path.is_file() and is_program(path))


@functools.lru_cache(maxsize=None)
def output(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE,
                          env={**os.environ, "LC_ALL": "C"}).stdout


def header(path):
    return dict(re.findall(r"^ *([^:\n]+): +(.*)$", output("readelf", "-hW", path), re.MULTILINE))


def segments(path):
    """Returns each segment's type and permissions."""
    return re.findall(r"^ +([A-Z_]+) +0x.* ([R ][W ][E ]) 0x", output("readelf", "-lW", path),
                      re.MULTILINE)


def dynamic_entries(path):
    """Returns each entry's tag and value."""
    return re.findall(r"^ *0x[0-9a-f]+ \((\w+)\) +(.*)$", output("readelf", "-dW", path),
                      re.MULTILINE)


def symbols(path):
    return set(re.findall(r" ([\w.]+)(?:@\S+(?: \(\d+\))?)?$", output("readelf", "-sW", path),
                          re.MULTILINE))


def functions(path):
    """Returns each function's demangled name and instructions."""
    listing = output("objdump", "-d", "-C", "--no-show-raw-insn", path)
    for block in listing.split("\n\n"):
        heading, *lines = block.lstrip("\n").split("\n")
        name = re.match(r"[0-9a-f]+ <(.*)>:$", heading)
        if name:
            yield name[1], [line.split("\t")[1].strip() for line in lines if "\t" in line]


def of_each_program(test):
    """Runs a test once for each shipped program."""
    @functools.wraps(test)
    def run(self):
        self.assertIn("WebResourceInstaller", [path.name for path in PROGRAMS])
        for path in PROGRAMS:
            with self.subTest(program=path.name):
                test(self, path)
    return run


class Hardening(unittest.TestCase):
    @of_each_program
    def test_program_is_loaded_at_a_random_address(self, path):
        self.assertTrue(header(path)["Type"].startswith("DYN"))
        self.assertRegex(dict(dynamic_entries(path))["FLAGS_1"], r"\bPIE\b")

    @of_each_program
    def test_nothing_is_both_writable_and_executable(self, path):
        self.assertNotIn("RWE", [rights for _, rights in segments(path)])
        self.assertIn(("GNU_STACK", "RW "), segments(path))
        self.assertNotIn("TEXTREL", dict(dynamic_entries(path)))

    @of_each_program
    def test_relocations_are_read_only_when_the_program_starts(self, path):
        self.assertIn("GNU_RELRO", dict(segments(path)))
        self.assertRegex(dict(dynamic_entries(path))["FLAGS_1"], r"\bNOW\b")

    @of_each_program
    def test_libraries_come_from_the_system_only(self, path):
        # The directory of CoreFoundation is also allowed, if the build asks for that directory.
        entries = [entry for entry in dynamic_entries(path) if entry[0] in ("RPATH", "RUNPATH")]
        allowed = os.environ.get("RUNPATH")
        self.assertIn(entries, ([], [("RUNPATH", f"Library runpath: [{allowed}]")]))

    @of_each_program
    def test_overwritten_stack_is_detected(self, path):
        self.assertTrue("__stack_chk_fail" in symbols(path))

    @of_each_program
    def test_calls_of_the_c_library_have_their_bounds_checked(self, path):
        if "clang" in output("readelf", "-p", ".comment", path):
            self.skipTest("the C library offers its checks to clang for C, not for C++")
        self.assertTrue(any(re.fullmatch(r"__\w+_chk", name) for name in symbols(path)))

    @of_each_program
    def test_use_of_the_standard_library_is_checked(self, path):
        self.assertTrue(any("__glibcxx_assert_fail" in name for name in symbols(path)))

    @of_each_program
    def test_every_function_marks_where_indirect_jumps_arrive(self, path):
        pads = LANDING_PADS.get(header(path)["Machine"])
        if pads is None:
            self.skipTest("this processor has no such instruction")
        ours = [(name, code) for name, code in functions(path)
                if OURS.match(name) and "[clone" not in name]
        self.assertGreater(len(ours), 10)
        self.assertEqual([name for name, code in ours if code[0].split()[0] not in pads], [])

    @of_each_program
    def test_large_frame_touches_every_page_of_the_stack(self, path):
        if header(path)["Machine"] != "Advanced Micro Devices X86-64":
            self.skipTest("elsewhere, only larger frames than ours are touched page by page")
        code = "\n".join("\n".join(each) for _, each in functions(path))
        self.assertTrue(re.search(r"sub +\$0x1000,%rsp\n(or|mov)[bq] +\$0x0,\(%rsp\)", code))


if __name__ == "__main__":
    unittest.main()
