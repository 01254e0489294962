"""script/package-macos from the download to the finished payload, with real sources of the
libraries.

SOURCES is a directory of Debian's source archives, which replace the downloads. Doubles replace the
commands that only a Mac has, and the arguments of a Mac's compiler are left out. Job makes the
payload in CHECKOUT, a directory below this checkout, and Limits uses the payload.
"""

import hashlib
import os
import pathlib
import shutil
import subprocess
import sys
import unittest
import zipfile
from unittest import mock

from test_mac_documents import row
from test_workflow import SOURCE, block, copy_checkout, in_root, make_root

SOURCES = pathlib.Path(os.environ["SOURCES"])
CHECKOUT = pathlib.Path(os.environ["CHECKOUT"])
DOUBLE = SOURCE / "Tests/Doubles/mac-tools/mac_tool.py"
LOCATION = "Library/Application Support/WebResourceInstaller"
PAYLOAD = CHECKOUT / "build/macos/root"
BUNDLE = PAYLOAD / LOCATION / "WebResourceInstaller.app"

os.environ.update(BUNDLE=str(BUNDLE), BACKEND="posix", EXECUTABLES="MacOS", SANITIZED="0")
sys.path.insert(0, str(SOURCE / "Tests/Support"))
from machine import CONTENT, InstallerTestCase, as_tree  # pylint: disable=wrong-import-position

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
# The system's installer, with the package's files and scripts in their build directories.
INSTALLER = """#!/bin/sh
[ "$1 $2 $3 $4" = '-pkg build/sample.pkg -target /' ] && [ -f "$2" ] || exit 64
build/macos/scripts/preinstall "$2" / / && cp -Rp build/macos/root/. / &&
  build/macos/scripts/postinstall "$2" / /
"""
TOOLS = {"clang": CLANG, "libtool": LIBTOOL, "installer": INSTALLER,
         "sudo": '#!/bin/sh\nexec "$@"\n', "defaults": "#!/bin/sh\nexit 1\n"}


class Job(unittest.TestCase):
    """The last blocks of the workflow's job for a Mac."""

    def setUp(self):
        shutil.rmtree(CHECKOUT, ignore_errors=True)
        copy_checkout(CHECKOUT)
        self.tools = CHECKOUT / "tools"
        self.tools.mkdir()
        for name in ("lipo", "otool", "pkgbuild", "productbuild"):
            (self.tools / name).symlink_to(DOUBLE)
        for name, text in TOOLS.items():
            (self.tools / name).write_text(text)
            (self.tools / name).chmod(0o755)
        self.name_archives()

    def name_archives(self):
        """Deploy/macos/sources with the addresses and digests of Debian's archives."""
        listing = CHECKOUT / "Deploy/macos/sources"
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
        packed = CHECKOUT / f"{name}.tar.gz"
        with open(packed, "wb") as file:
            if archive.suffix == ".gz":
                file.write(archive.read_bytes())
            else:
                subprocess.run(f"xz -dc '{archive}' | gzip -n", shell=True, check=True, stdout=file)
        address = "file://" + str(packed).replace(" ", "%20")
        return hashlib.sha256(packed.read_bytes()).hexdigest(), address

    def run_checked(self, *command, umask=0o022):
        result = subprocess.run(
            command, cwd=CHECKOUT, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, check=False, umask=umask,
            env={**os.environ, "PATH": f"{self.tools}:/usr/bin:/bin:/usr/sbin:/sbin",
                 "MAC_TOOLS": str(self.tools), "PRIVATE_ROOT_SHARE": str(SOURCE)})
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout

    def test_package_is_made_and_installed_and_correct(self):
        self.run_checked("bash", "-ec", block("script/package-macos"), umask=0o077)
        licences = PAYLOAD / LOCATION / "share/doc/web-resource-installer/third-party"
        self.assertEqual({path.name for path in licences.iterdir()}, set(ARCHIVES))
        for licence in licences.rglob("*"):
            self.assertTrue(licence.is_dir() or len(licence.read_text()) > 500, licence)
        for program in ("Helpers/webresources", "MacOS/WebResourceInstaller"):
            needed = self.run_checked("objdump", "-p", BUNDLE / "Contents" / program)
            self.assertNotRegex(needed, "NEEDED +lib(minizip|utf8proc)")
        root = CHECKOUT / "installed"
        make_root(root)
        for start in ("sudo installer", "bundle="):
            self.run_checked(*in_root(root, f"cd '{CHECKOUT}'\n{block(start)}"))


class Limits(InstallerTestCase):
    """The limits in Documentation/behaviour.md (test_mac_documents.Limits), with the library."""

    def test_sizes_and_offsets_may_be_in_zip64_fields(self):
        archive = zipfile.ZipFile(self.machine.package, "w")
        for name, data in CONTENT.items():
            archive.writestr(name, data or b"")
        with mock.patch("zipfile.ZIP64_LIMIT", 0):
            archive.close()  # writes the central directory
        self.run_installer()
        self.assert_installed(as_tree(CONTENT))

    def test_archive_may_end_with_other_bytes(self):
        limit, _ = row("comment and other bytes at the end of the archive")
        longest = int(limit.removeprefix("together ").removesuffix(" bytes").replace(",", ""))
        archive = self.machine.package.read_bytes()
        for length, content in ((longest, CONTENT), (longest + 1, {})):
            with self.subTest(length):
                self.machine.package.write_bytes(archive + b" " * length)
                self.run_installer()
                self.assert_installed(as_tree(content))



if __name__ == "__main__":
    unittest.main()
