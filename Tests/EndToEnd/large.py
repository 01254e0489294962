"""Tests the installer with packages of many gigabytes, hundreds of thousands of files, and metadata
nested up to the limit of the stack. Prints a line with the time and the memory of each case.

A package uses disk space only for its bytes that are not zero. The extracted files need 6 GiB.
"""

import contextlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import zipfile
import zlib

import machine as machines
from machine import APPLICATION, EXECUTABLE, metadata, write_tree

MIB = 1 << 20
GIB = 1 << 30
BLOCK = bytes(MIB)
IN_64_BITS = 0xFFFFFFFF  # the value that refers to a Zip64 field

# Python's zipfile uses Zip64 from 2 GiB on. Other programs use Zip64 only if a number needs 64
# bits.
zipfile.ZIP64_LIMIT = IN_64_BITS - 1


class SparseFile:
    """A file for zipfile with holes for blocks of zeros."""

    def __init__(self, path):
        self.file = open(path, "wb", buffering=0)

    def write(self, data):
        if data == BLOCK:
            self.file.seek(len(data), os.SEEK_CUR)
        else:
            self.file.write(data)
        return len(data)

    def __getattr__(self, name):
        return getattr(self.file, name)


class Machine(machines.Machine):
    @contextlib.contextmanager
    def packing(self, method=zipfile.ZIP_STORED):
        with contextlib.closing(SparseFile(self.package)) as file:
            with zipfile.ZipFile(file, "w", method, compresslevel=1) as archive:
                yield archive

    def installation(self, stack=None):
        """Returns the exit status of a run in this chroot, its processor time in seconds, and its
        largest resident memory in KiB."""
        with tempfile.NamedTemporaryFile("r") as report:
            limits = ["prlimit", f"--stack={stack}"] if stack else []
            status = os.spawnvp(os.P_WAIT, "/usr/bin/time", [
                "time", "--quiet", "-f", "%U %S %M", "-o", report.name, *limits,
                shutil.which("chroot", path="/usr/sbin:/sbin"), str(self.root),
                f"{APPLICATION}/{EXECUTABLE}"])
            user, system, peak = report.read().split()[-3:]
            return status, float(user) + float(system), int(peak)

    def extracted(self, name):
        """Returns the size and the checksum of an extracted file, or None if there is no file."""
        path = self.install_root / "Resource0" / name
        if not path.exists():
            return None
        size = checksum = 0
        with open(path, "rb", buffering=0) as stream:
            while data := stream.read(MIB):
                size += len(data)
                checksum = zlib.crc32(data, checksum)
        return size, checksum


def write_zeros(archive, name, size):
    """Writes an entry of zeros that ends with its name."""
    entry = zipfile.ZipInfo(name)
    entry.compress_type = archive.compression
    with archive.open(entry, "w", force_zip64=size >= IN_64_BITS) as stream:
        for _ in range(size // MIB - 1):
            stream.write(BLOCK)
        stream.write(bytes(MIB - len(name)) + name.encode())


def whole(machine, *names):
    """Returns whether exactly the entries `names` are extracted completely."""
    with zipfile.ZipFile(machine.package) as archive:
        return list(names) == [
            entry.filename for entry in archive.infolist() if not entry.is_dir() and
            machine.extracted(entry.filename) == (entry.file_size, entry.CRC)]


def entry_of_1_gib(machine):
    """an entry of 1 GiB: complete"""
    with machine.packing(zipfile.ZIP_DEFLATED) as archive:
        write_zeros(archive, "large", GIB)
    yield machine.installation()
    yield whole(machine, "large")


def entry_of_5_gib(machine):
    """an entry of 5 GiB: truncated to 4 GiB less one byte"""
    with machine.packing(zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("first", b"1")
        write_zeros(archive, "large", 5 * GIB)
        archive.writestr("last", b"3")
    yield machine.installation()
    yield whole(machine, "first", "last") and machine.extracted("large")[0] == IN_64_BITS


def archive_of_5_gib(machine):
    """an archive of 5 GiB: complete entries, and entries that start beyond 4 GiB skipped"""
    with machine.packing() as archive:
        for number in range(5):
            write_zeros(archive, str(number), GIB)
        archive.writestr("last", b"3")
    yield machine.installation()
    yield (whole(machine, "0", "1", "2", "3") and machine.extracted("4") is None
           and machine.extracted("last") is None)


def entries(count):
    def case(machine):
        directories = count // 1000
        with machine.packing() as archive:
            for directory in range(directories):
                archive.writestr(f"d{directory}/", b"")
                for file in range(999):
                    archive.writestr(f"d{directory}/f{file}", b"%d" % file)
        yield machine.installation()
        yield machines.tree(machine.install_root / "Resource0") == {
            **{b"d%d" % directory: machines.DIRECTORY for directory in range(directories)},
            **{b"d%d/f%d" % (directory, file): b"%d" % file
               for directory in range(directories) for file in range(999)}}

    case.__doc__ = f"{count:,} entries: all"
    return case


def pack(machine, site):
    """Returns the exit status of `webresources pack`."""
    return subprocess.run([os.environ["WEBRESOURCES"], "pack", site, "--update-id", "1", "--output",
                           machine.package.parent], stdout=subprocess.DEVNULL,
                          check=False).returncode


def packed_entries(machine):
    """200,000 entries, packed by `pack`: all"""
    with tempfile.TemporaryDirectory() as site:
        write_tree(pathlib.Path(site), {f"d{directory}/f{file}": b"%d" % file
                                        for directory in range(200) for file in range(999)})
        is_packed = pack(machine, site) == 0
        yield machine.installation()
        yield (is_packed and
               machines.tree(machine.install_root / "Resource0") == machines.tree(site))


def packed_file_of_4_gib(machine):
    """a file of 4 GiB less one byte, packed by `pack`: complete; a file of 4 GiB: refused"""
    with tempfile.TemporaryDirectory() as site:
        large = pathlib.Path(site, "large")
        large.touch()
        os.truncate(large, 4 * GIB)
        is_refused = pack(machine, site) == 1
        os.truncate(large, 4 * GIB - 1)
        is_packed = pack(machine, site) == 0
        yield machine.installation()
        yield is_refused and is_packed and whole(machine, "large")


def leftovers(machine):
    """10,000 leftovers: removed"""
    for number in range(10_000):
        write_tree(machine.install_root, {f"Resource{number}/sub/f": b"1"})
    machine.pack(machines.CONTENT)
    yield machine.installation()
    yield machines.tree(machine.install_root / "Resource0") == machines.as_tree(machines.CONTENT)


def nesting(opening, innermost, closing, unit):
    def case(machine):
        machine.pack(machines.CONTENT)

        def installs(depth):
            shutil.rmtree(machine.path("/Library"), ignore_errors=True)
            nested = opening * depth + innermost + closing * depth
            machine.write_metadata(metadata()[:-1] + f',"nested":{nested}' + "}")
            run = machine.installation(stack=8 * MIB)
            if (run[0] == 0) != machine.install_root.exists():
                raise RuntimeError(f"{depth} levels end the run with {run[0]} half-way")
            return run

        installed, ended = 10, 1000  # hundreds, because the start of the stack is random
        while ended - installed > 1:
            depth = (installed + ended) // 2
            installed, ended = ((depth, ended) if installs(depth * 100)[0] == 0 else
                                (installed, depth))
        depth = (installed - 1) * 100
        case.__doc__ = f"{depth:,} {unit} in one another: as many as 8 MiB of stack hold"
        yield installs(depth)
        yield depth > 20_000

    return case


CASES = [
    entry_of_1_gib, entry_of_5_gib, archive_of_5_gib, entries(1000), entries(100_000),
    packed_entries, packed_file_of_4_gib, leftovers,
    nesting("[", "", "]", "arrays"), nesting('{"a":', "0", "}", "objects"),
]


def main():
    passed = True
    for case in CASES:
        with tempfile.TemporaryDirectory() as directory:
            machine = Machine(pathlib.Path(directory, "machine"))
            steps = case(machine)
            status, seconds, peak = next(steps)
            is_right = (next(steps) and status == 0 and machine.record()["iUpdateId"] == 1
                        and os.listdir(machine.install_root) == ["Resource0"])
            print(f"{case.__doc__}: {seconds:.2f} s, {peak:,} KiB at the peak"
                  f"{'' if is_right else ': WRONG'}", flush=True)
            passed = passed and is_right
    sys.exit(0 if passed else 1)


if __name__ == "__main__":
    main()
