"""The packages of the benchmark, with the same bytes in every run."""

import dataclasses
import pathlib
import random
import subprocess
import zipfile


@dataclasses.dataclass
class Package:
    path: pathlib.Path
    files: int
    size: int  # the size of the content in bytes


def text(generator, length):
    """Returns words that compress about as well as a web page."""
    words = [bytes(generator.choices(b"abcdefghijklmnopqrstuvwxyz", k=generator.randint(2, 9)))
             for _ in range(2000)]
    return b" ".join(generator.choices(words, k=length // 4))[:length]


def small_files(path, files, directories, stored=False):
    """Makes a package of small files without extra fields. Each directory has an entry before its
    files."""
    generator = random.Random(files)
    source = generator.randbytes(1 << 20) if stored else text(generator, 1 << 20)
    package = Package(path, files, 0)
    method = zipfile.ZIP_STORED if stored else zipfile.ZIP_DEFLATED
    with zipfile.ZipFile(path, "w", method) as archive:
        for directory in range(directories):
            name = f"directory{directory:04}/"
            archive.writestr(zipfile.ZipInfo(name), b"")
            for file in range(directory, files, directories):
                size = generator.randint(200, 4000)
                start = generator.randrange(len(source) - size)
                package.size += size
                archive.writestr(f"{name}file{file:06}.html", source[start:start + size])
    return package


def large_file(path, mebibytes):
    generator = random.Random(mebibytes)
    source = text(generator, 4 << 20)
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        with archive.open("large.txt", "w", force_zip64=True) as stream:
            for _ in range(mebibytes):
                start = generator.randrange(len(source) - (1 << 20))
                stream.write(source[start:start + (1 << 20)])
    return Package(path, 1, mebibytes << 20)


def real_content(path, directory):
    """Packs a directory with `zip -r`, with extra fields."""
    path.unlink(missing_ok=True)
    subprocess.run(["zip", "-qr", path.resolve(), "."], cwd=directory, check=True)
    with zipfile.ZipFile(path) as archive:
        entries = archive.infolist()
    return Package(path, sum(not entry.is_dir() for entry in entries),
                   sum(entry.file_size for entry in entries))
