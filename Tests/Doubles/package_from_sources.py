"""script/package-macos from the download to the finished payload, with real sources of the libraries.

SOURCES is a directory of Debian's source archives, which replace the downloads. The commands that
only a Mac has are doubles, and the arguments of a Mac's compiler are left out.
"""

import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SOURCES = pathlib.Path(os.environ["SOURCES"])
DOUBLE = SOURCE / "Tests/Doubles/mac-tools/mac_tool.py"
LOCATION = "Library/Application Support/WebResourceInstaller"

# Each library's archive, as Debian calls it.
ARCHIVES = {"minizip": "zlib_*.orig.tar.*", "utf8proc": "utf8proc_*.orig.tar.*",
            "cli11": "cli11_*.orig.tar.*", "nlohmann-json": "nlohmann-json3_*.orig.tar.*"}

CLANG = """#!/bin/bash
arguments=()
while [ $# -gt 0 ]; do
  case $1 in
    -arch) shift ;;
    -mmacosx-version-min=*) ;;
    *) arguments+=("$1") ;;
  esac
  shift
done
exec cc -fPIC "${arguments[@]}"
"""
LIBTOOL = """#!/bin/sh
[ "$1 $2" = '-static -o' ] || exit 64
shift 2
exec ar rcs "$@"
"""


class PackageFromSources(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.checkout = pathlib.Path(directory.name).resolve() / "a checkout"
        files = subprocess.run(["git", "ls-files", "-z"], cwd=SOURCE, check=True, text=True,
                               stdout=subprocess.PIPE).stdout.split("\0")
        for name in filter(None, files):
            (self.checkout / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(SOURCE / name, self.checkout / name)
        self.tools = self.checkout / "tools"
        self.tools.mkdir()
        for name in ("codesign", "lipo", "otool", "pkgbuild", "productbuild"):
            (self.tools / name).symlink_to(DOUBLE)
        for name, text in (("clang", CLANG), ("libtool", LIBTOOL)):
            (self.tools / name).write_text(text)
            (self.tools / name).chmod(0o755)
        self.name_archives()

    def name_archives(self):
        """Deploy/macos/sources with the addresses and digests of Debian's archives."""
        listing = self.checkout / "Deploy/macos/sources"
        lines = []
        for line in listing.read_text().splitlines():
            if not line.startswith("#"):
                name, version, _, _, *licences = line.split()
                digest, address = self.repack(name)
                line = " ".join([name, version, digest, address, *licences])
            lines.append(line + "\n")
        listing.write_text("".join(lines))

    def repack(self, name):
        """The digest and the address of Debian's archive, compressed as the releases are."""
        [*_, archive] = sorted(SOURCES.glob(ARCHIVES[name]))
        packed = self.checkout / f"{name}.tar.gz"
        with open(packed, "wb") as file:
            if archive.suffix == ".gz":
                file.write(archive.read_bytes())
            else:
                subprocess.run(f"xz -dc '{archive}' | gzip -n", shell=True, check=True, stdout=file)
        address = "file://" + str(packed).replace(" ", "%20")
        return hashlib.sha256(packed.read_bytes()).hexdigest(), address

    def run_checked(self, *command, status=0):
        result = subprocess.run(
            command, cwd=self.checkout, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, check=False,
            env={**os.environ, "PATH": f"{self.tools}:/usr/bin:/bin:/usr/sbin:/sbin",
                 "MAC_TOOLS": str(self.tools)})
        self.assertEqual(result.returncode, status, result.stdout)
        return result.stdout

    def test_payload_is_whole_and_works(self):
        os.umask(0o077)
        self.run_checked("script/package-macos", "--sign", "A", "Examples/sample-site", "7", "a.pkg")
        root = self.checkout / "build/macos/root"
        licences = root / LOCATION / "share/doc/web-resource-installer/third-party"
        self.assertEqual({path.name for path in licences.iterdir()}, set(ARCHIVES))
        for licence in licences.rglob("*"):
            self.assertTrue(licence.is_dir() or len(licence.read_text()) > 500, licence)
        bundle = root / LOCATION / "WebResourceInstaller.app"
        command = bundle / "Contents/Helpers/webresources"
        for program in (command, bundle / "Contents/MacOS/WebResourceInstaller"):
            needed = self.run_checked("objdump", "-p", program)
            self.assertNotRegex(needed, "NEEDED +lib(minizip|utf8proc)")
        self.run_checked(command, "check", "--prove", bundle)


if __name__ == "__main__":
    unittest.main()
