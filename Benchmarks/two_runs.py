#!/usr/bin/env python3
"""Measures how often two concurrent runs of the installer corrupt the installation:
two_runs.py BUNDLE [TRIES]

BUNDLE is an installed WebResourceInstaller.app. Its own package is not used. Each try starts with
an installed update in a chroot and starts two concurrent runs of another update. The installer has
no lock, so each run deletes the directories of the other. Prints the number of tries (default: 500)
that left incomplete content under the recorded name, and the exit statuses.
"""

import collections
import pathlib
import plistlib
import shutil
import subprocess
import sys
import tempfile
import zipfile

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "Tests/Support"))

from private_root import INSTALL_ROOT, RECORD, command_in, inside  # noqa: E402

PROGRAM = "/X.app/Contents/MacOS/WebResourceInstaller"
FILES = 200


def write_package(path, update):
    """Writes a package of small files. Each file names the update."""
    with zipfile.ZipFile(path / "OrloWebResources.zip", "w") as package:
        for number in range(FILES):
            package.writestr(f"file{number:03}", f"update {update}, file {number}")
    (path / "metadata.txt").write_text(
        f'{{"clear":false,"updateid":{update},"regenerate":false}}')


def is_whole(root):
    record = plistlib.loads(inside(root, RECORD).read_bytes())
    directory = inside(root, INSTALL_ROOT) / record["tWebResourceInstallPath"]
    return all((directory / f"file{number:03}").is_file() and
               (directory / f"file{number:03}").read_text() == f"update 2, file {number}"
               for number in range(FILES))


def main(bundle, tries):
    spoilt, statuses = 0, collections.Counter()
    with tempfile.TemporaryDirectory() as root:
        shutil.copytree(bundle, inside(root, "/X.app"))
        resources = inside(root, "/X.app/Contents/Resources")
        write_package(resources, 1)
        subprocess.run(command_in(root, PROGRAM), check=True)  # also copies the libraries
        for _ in range(tries):
            shutil.rmtree(inside(root, "/Library"))
            write_package(resources, 1)
            subprocess.run(command_in(root, PROGRAM, added=True), check=True)
            write_package(resources, 2)
            runs = [subprocess.Popen(command_in(root, PROGRAM, added=True)) for _ in range(2)]
            statuses.update(run.wait() for run in runs)
            spoilt += not is_whole(root)
    print(f"{spoilt} of {tries} tries ({100 * spoilt / tries:.0f} %) were spoilt; exit statuses: "
          + ", ".join(f"{status}: {count}" for status, count in sorted(statuses.items())))


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    main(sys.argv[1], int(sys.argv[2]) if len(sys.argv) == 3 else 500)
