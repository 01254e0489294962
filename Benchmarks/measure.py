"""The measurements of script/bench: makes the packages, runs the commands, reports the figures.

    measure.py BENCH-DIRECTORY MEMORY-DIRECTORY [--quick] [--gate] [--zlib-ng=DIRECTORY]
"""

import dataclasses
import functools
import json
import pathlib
import plistlib
import shutil
import subprocess
import sys

import packages
import report
import runs

APPLICATION = "/WebResourceInstaller.app/Contents"
PROGRAM = APPLICATION + "/MacOS/WebResourceInstaller"
INSTALL_ROOT = "/Library/Application Support/Veltrane/Orlisk/2017/WebResources"
METADATA = '{"clear":false,"updateid":1,"regenerate":false}'
OTHERS = ("unzip", "bsdtar", "7zz")
READERS = ("this", "nlohmann", "rapidjson")
RECORD = "/Library/Preferences/com.veltrane.orlisk.2017.WebResource.plist.plist"


class Place:
    """A directory on one file system, with a chroot for each package."""

    def __init__(self, name, directory, bench):
        self.name = name
        self.directory = directory
        self.bench = bench
        self.is_disk = name != "tmpfs"

    def machine(self, package, variant=""):
        """Returns a chroot with the installer and `package`, and makes it the first time."""
        root = self.directory / (f"machine{variant}-" + package.path.stem)
        if not root.exists():
            shutil.copytree(self.bench / "installed/WebResourceInstaller.app",
                            root / "WebResourceInstaller.app")
            resources = root / (APPLICATION[1:] + "/Resources")
            shutil.copy(package.path, resources / "OrloWebResources.zip")
            (resources / "metadata.txt").write_text(METADATA)
            # The first run also copies the shared libraries into the chroot.
            subprocess.run(["script/lib/private-root", "run", str(root), PROGRAM], check=True)
        return root

    def installer(self, package, before=None):
        root = self.machine(package)
        return runs.Command("installer", [PROGRAM], str(root) + runs.MACHINE_FILES, str(root),
                            before)

    def other(self, name, package):
        """Returns the command that extracts `package` by another program into a fresh directory. On
        the disk the command also syncs the content, as the installer does."""
        target = self.directory / ("extracted-by-" + name)
        archive = str(package.path)
        arguments = {
            "unzip": [which("unzip"), "-qq", archive, "-d", str(target)],
            "bsdtar": ["/bin/sh", "-c", 'mkdir "$0" && exec bsdtar -xf "$1" -C "$0"',
                       str(target), archive],
            "7zz": [which("7zz"), "x", "-mmt1", "-bso0", "-bsp0", "-o" + str(target), archive],
        }
        command = arguments[name]
        if self.is_disk:
            command = ["/bin/sh", "-c", '"$@" && exec sync -f "$0"', str(target), *command]
        return runs.Command(name, command, str(target))

    def baseline(self, package):
        """Returns the command that reads and inflates each entry and writes nothing."""
        program = self.bench / "build/Benchmarks/ReadBaseline"
        return runs.Command("baseline", [str(program), str(package.path)],
                            str(self.directory / "nothing"))

    def writing_baseline(self, package):
        """Returns the command that reads and inflates each entry and appends it to one file."""
        program = self.bench / "build/Benchmarks/ReadBaseline"
        target = self.directory / "written"
        return runs.Command("baseline that writes",
                            ["/bin/sh", "-c", 'mkdir "$2" && exec "$0" "$1" "$2/f"',
                             str(program), str(package.path), str(target)], str(target))


DOCUMENTS = ("manifest", "flat map", "strings", "numbers")


def flat_map():
    """Returns a map of 10,000 strings. Keys and strings are too long to be stored in place."""
    return json.dumps({f"the key of member {number:05}": f"the text of member {number:05}"
                       for number in range(10000)})


def count_nodes(value):
    """Returns the number of values: the value itself and all values inside."""
    if isinstance(value, dict):
        value = list(value.values())
    return 1 + sum(map(count_nodes, value)) if isinstance(value, list) else 1


def which(program):
    return shutil.which(program) or sys.exit(program + " is missing")


class Bench:
    def __init__(self, bench, memory, quick, zlib_ng):
        self.bench = bench
        self.quick = quick
        self.zlib_ng_directory = zlib_ng
        self.rounds = 3 if quick else 6
        self.disk_rounds = 3  # few, because the deletion of a run's files may take milliseconds
        self.memory = Place("tmpfs", memory, bench)
        disk = bench / "disk"
        shutil.rmtree(disk, ignore_errors=True)
        disk.mkdir()
        self.disk = Place("disk", disk, bench)
        self.store = memory / "packages"
        self.store.mkdir()
        self.report = report.Report(quick)

    def run(self):
        small, large, stored = self.generated("", 10 if self.quick else 1)
        web = packages.real_content(
            self.store / "web.zip",
            self.bench / "packages/libjs-mathjax/usr/share/javascript/mathjax")
        ten = packages.small_files(self.store / "ten.zip", 10, 1)
        self.extraction(self.memory, small, web, large, stored)
        self.large_file(large)
        self.zlib_ng(small, large)
        self.update(self.memory, web)
        self.start(ten)
        if not self.quick:
            few, short, few_stored = self.generated("fewer-", 10)
            self.extraction(self.disk, few, web, short, few_stored)
            self.update(self.disk, web)
        self.system_calls(small, web, ten)
        self.instructions()
        self.growth()
        self.values()
        self.allocations()
        self.companion(web, stored)
        self.installation()
        self.companion_memory()
        self.record(ten)
        self.report.finish()
        shutil.rmtree(self.disk.directory)

    def generated(self, prefix, divisor):
        return (packages.small_files(self.store / f"{prefix}small.zip", 20000 // divisor,
                                     200 // divisor),
                packages.large_file(self.store / f"{prefix}large.zip", 256 // divisor),
                packages.small_files(self.store / f"{prefix}stored.zip", 10000 // divisor,
                                     100 // divisor, stored=True))

    def extraction(self, place, small, web, large, stored):
        for title, package in (("small files", small), ("web content", web),
                               ("large file", large), ("stored files", stored)):
            commands = [place.installer(package), *(place.other(name, package) for name in OTHERS)]
            if place.is_disk:
                series = runs.Series(commands, self.disk_rounds, on_disk=True)
                calls = runs.system_calls(place.installer(package), "fsync,syncfs")
                self.report.extraction_on_disk(title, package, series, calls)
            else:
                commands.insert(1, place.baseline(package))
                self.report.extraction(title, package, runs.Series(commands, self.rounds))

    def large_file(self, large):
        commands = [self.memory.installer(large), self.memory.writing_baseline(large)]
        self.report.writing_baseline(large, runs.Series(commands, self.rounds))

    def zlib_ng(self, small, large):
        """Compares the installer on Debian's zlib with the same program on a zlib-ng that was built
        to replace zlib."""
        if not self.zlib_ng_directory:
            return
        for title, package in (("small files", small), ("large file", large)):
            plain = self.memory.installer(package)
            plain.name = "the same with zlib"
            root = self.memory.machine(package, "-zlib-ng")
            for library in root.rglob("libz.so.1"):
                shutil.copy(self.zlib_ng_directory / "libz.so.1", library)
            replaced = runs.Command("zlib-ng", [PROGRAM], str(root) + runs.MACHINE_FILES, str(root))
            self.report.zlib_ng(title, package, runs.Series([replaced, plain], self.rounds))

    def update(self, place, web):
        """Compares the installer with a script: each replaces an installed package by another. Each
        run updates an installation of its own."""
        site = place.directory / "site"
        durable = "sync -f . && " if place.is_disk else ""
        script = ('mkdir -p "$0" && cd "$0" && mkdir new && bsdtar -xf "$1" -C new && '
                  f"{durable}rm -rf current && mv new current && {durable}true")
        arguments = ["/bin/sh", "-c", script, str(site), str(web.path)]
        commands = [place.installer(web), runs.Command("script", arguments, str(site))]
        for command in commands:
            command.before = functools.partial(self.installed, dataclasses.replace(command))
        rounds = self.disk_rounds if place.is_disk else self.rounds
        self.report.update(place.name, web, runs.Series(commands, rounds, on_disk=place.is_disk))

    def installed(self, command):
        """Installs the site that `command` then updates."""
        runs.seconds(command, on_disk=True)

    def start(self, ten):
        """Measures a package of ten files: the start, the end and the record of a run."""
        place = self.memory
        commands = [place.installer(ten), place.other("unzip", ten)]
        self.report.start(runs.Series(commands, self.rounds, repetitions=20))

    def system_calls(self, small, web, ten):
        base = sum(calls for calls, _ in runs.system_calls(self.memory.installer(ten)).values())
        for title, package in (("small files", small), ("web content", web)):
            kinds = runs.system_calls(self.memory.installer(package))
            calls = sum(calls for calls, _ in kinds.values())
            files = package.files - ten.files
            self.report.system_calls(title, (calls - base) / files,
                                     {name: count / package.files
                                      for name, (count, _) in kinds.items()})

    def instructions(self):
        """Counts instructions by the difference of two packages, without the start of a run."""
        def count(package):
            root = self.memory.machine(package)
            (root / "dev").mkdir(exist_ok=True)
            subprocess.run(["script/lib/private-root", "add", str(root), "/usr/bin/valgrind.bin"],
                           check=True)
            tools = root / "usr/libexec/valgrind"
            tools.mkdir(parents=True, exist_ok=True)
            for pattern in ("callgrind-*-linux", "vgpreload_c*-linux.so", "default.supp"):
                for file in pathlib.Path("/usr/libexec/valgrind").glob(pattern):
                    shutil.copy(file, tools)
            return runs.instructions(self.memory.installer(package))

        one, nine = (count(packages.large_file(self.store / f"callgrind{size}.zip", size))
                     for size in (1, 9))
        few, many = (count(packages.small_files(self.store / f"callgrind{files}.zip", files, 1))
                     for files in (10, 510))
        self.report.instructions((nine - one) / 8, (many - few) / 500, one)

    def growth(self):
        """Measures time and memory for several numbers of files and for several sizes of one file."""
        rounds = 3
        numbers = (1000, 10000) if self.quick else (1000, 10000, 100000)
        sizes = (1, 64) if self.quick else (1, 32, 1024)
        for unit, amounts, make in (
                ("files", numbers,
                 lambda path, amount: packages.small_files(path, amount, amount // 100)),
                ("MiB", sizes, packages.large_file)):
            points = []
            for amount in amounts:
                package = make(self.store / "growth.zip", amount)
                command = self.memory.installer(package)
                times = runs.Series([command], rounds).median("installer")
                points.append((amount, times, runs.peak_kib(command)))
                shutil.rmtree(self.memory.machine(package))
            self.report.growth(unit, points)

    def values(self):
        documents = self.bench / "documents"
        documents.mkdir(exist_ok=True)
        testdata = ("golang-github-valyala-fastjson-dev/usr/share/gocode/src/github.com/valyala/"
                    "fastjson/testdata/")
        for name, source in (("manifest", "npm/usr/share/nodejs/npm/package.json"),
                             ("numbers", testdata + "canada.json"),
                             ("strings", testdata + "twitter.json")):
            shutil.copy(self.bench / "packages" / source, documents / name)
        (documents / "flat map").write_text(flat_map(), encoding="ascii")
        best = {}
        for _ in range(3 if self.quick else 20):
            for document in DOCUMENTS:
                for reader in READERS:
                    row = self.benchmark(f"^{document}/{reader}$", str(documents / document))[0]
                    key = (document, reader)
                    best[key] = max(best.get(key, 0), row["bytes_per_second"])
        self.report.values(DOCUMENTS, READERS, best)
        copies = self.benchmark("^(Copy|Destroy)", "--benchmark_repetitions=5")
        self.report.copies({row["run_name"]: row for row in copies
                            if row.get("aggregate_name") == "median"})

    def benchmark(self, choice, *arguments):
        """Returns the rows of one run of ValuesBenchmark in a separate process."""
        result = subprocess.run(
            [str(self.bench / "build/Benchmarks/ValuesBenchmark"), "--benchmark_format=json",
             "--benchmark_min_time=0.05", "--benchmark_filter=" + choice, *arguments],
            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        return json.loads(result.stdout)["benchmarks"]

    def allocations(self):
        """Counts the allocations of a document's values, without those of the process itself."""
        program = str(self.bench / "build/Benchmarks/ValuesBenchmark")
        for document in DOCUMENTS:
            path = self.bench / "documents" / document
            once, twice = (runs.allocations([program, times, str(path)])
                           for times in ("--build=1", "--build=2"))
            nodes = count_nodes(json.loads(path.read_bytes()))
            self.report.allocations(document, (twice - once) / nodes)

    def companion(self, *packages_):
        """Compares each command with the usual tools for the same job."""
        for title, package in zip(("web content", "stored files"), packages_):
            self.companion_on(title, package)

    def companion_on(self, title, package):
        program = self.bench / "installed/bin/webresources"
        machine = self.memory.machine(package)
        runs.seconds(self.memory.installer(package))
        bundle = str(machine) + APPLICATION
        installed = str(machine) + INSTALL_ROOT + "/Resource0"
        packed = self.memory.directory / "packed"
        scratch = self.memory.directory / "unpacked"

        def fresh():
            for directory in (packed, scratch):
                shutil.rmtree(directory, ignore_errors=True)
                directory.mkdir()

        def shell(name, script, *arguments):
            return runs.Command(name, ["/bin/sh", "-c", script, *map(str, arguments)], str(packed),
                                before=fresh)

        # Findings about the content, for example names without a flag, are no failure here.
        done = '; [ $? -le 1 ]'
        tests = (
            ("pack", shell("webresources", '"$0" pack --quiet --create --update-id 1 --output "$1" "$2"',
                           program, packed, installed),
             shell("zip -r", 'cd "$1" && zip -qr "$0/package.zip" .', packed, installed)),
            ("check", shell("webresources", '"$0" check --quiet "$1" >/dev/null' + done, program,
                            bundle),
             shell("unzip -t", 'unzip -tqq "$0"', package.path)),
            ("check --prove", shell("webresources",
                                    'TMPDIR="$2" "$0" check --prove --quiet "$1" >/dev/null' + done,
                                    program, bundle, scratch),
             shell("unzip", 'unzip -qq "$0" -d "$1"', package.path, scratch)),
            ("verify", shell("webresources", '"$0" verify "$1" --root "$2" >/dev/null' + done,
                             program, bundle, machine),
             shell("unzip, diff -r",
                   'unzip -tqq "$0" && unzip -qq "$0" -d "$1" && diff -r "$1" "$2"',
                   package.path, scratch, installed)))
        for command, ours, theirs in tests:
            self.report.companion(f"{command}, {title}", command, package, ours.name, theirs.name,
                                  runs.Series([ours, theirs], self.rounds))

    def installation(self):
        """Compares `webresources install` with the installer alone: both update 5,000 files."""
        package = packages.small_files(self.store / "update.zip", 5000, 50)
        root = self.memory.machine(package)
        command = str(self.bench / "installed/bin/webresources")
        subprocess.run(["script/lib/private-root", "add", str(root), command], check=True)
        arguments = [command, "install", "--quiet", APPLICATION.rpartition("/")[0]]
        installed = self.memory.directory / "installed-before"
        product = str(root) + runs.MACHINE_FILES
        runs.seconds(runs.Command("first", arguments, product, str(root)))
        shutil.copytree(product, installed, symlinks=True)
        metadata = root / (APPLICATION[1:] + "/Resources/metadata.txt")
        metadata.write_text(METADATA.replace('"updateid":1', '"updateid":2'))

        def before():
            shutil.rmtree(product)
            shutil.copytree(installed, product, symlinks=True)

        commands = [runs.Command("webresources", arguments, product, str(root), before),
                    runs.Command("the installer alone", [PROGRAM], product, str(root), before)]
        self.report.companion("install, update of 5,000 files", "install", package,
                              commands[0].name, commands[1].name,
                              runs.Series(commands, self.rounds))

    def companion_memory(self):
        """Measures the memory of `check` for each entry, and for a large one."""
        program = str(self.bench / "installed/bin/webresources")

        def peak(package):
            bundle = self.memory.directory / "checked"
            bundle.mkdir(exist_ok=True)
            shutil.copy(package.path, bundle / "OrloWebResources.zip")
            (bundle / "metadata.txt").write_text(METADATA)
            kib = runs.peak_kib(runs.Command("check", [program, "check", "--quiet", str(bundle)],
                                             str(self.memory.directory / "nothing")))
            shutil.rmtree(bundle)
            return kib

        entries = 20000 if self.quick else 200000
        few = peak(packages.small_files(self.store / "checked.zip", 100, 1))
        many = peak(packages.small_files(self.store / "checked.zip", entries, entries // 100))
        large = peak(packages.large_file(self.store / "checked.zip", 64 if self.quick else 512))
        self.report.companion_memory(entries, (many - few) * 1024 / entries, few, large)

    def record(self, ten):
        """Measures the preferences file: flushes, reads and writes of a first run, and a file of
        many keys."""
        command = self.memory.installer(ten)
        calls = runs.system_calls_at(command, RECORD)
        machine = self.memory.machine(ten)
        (machine / (APPLICATION[1:] + "/Resources/metadata.txt")).write_text(
            METADATA.replace('"clear":false', '"clear":true'))
        keys = 18000

        def crowd():
            path = pathlib.Path(str(machine) + RECORD)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(plistlib.dumps({f"key{number:05}": number for number in range(keys)}))

        crowded = runs.Command("installer", [PROGRAM], command.product, command.root, crowd)
        self.report.record(calls, keys, runs.Series([crowded], self.rounds).median("installer"),
                           runs.peak_kib(crowded))


def main(bench, memory, *options):
    zlib_ng = [pathlib.Path(option.partition("=")[2]) for option in options
               if option.startswith("--zlib-ng=")]
    measured = Bench(pathlib.Path(bench).resolve(), pathlib.Path(memory).resolve(),
                     "--quick" in options, zlib_ng[0] if zlib_ng else None)
    measured.run()
    beyond = measured.report.missed(report.TOLERANCE)
    if "--gate" in options and beyond:
        sys.exit("bench: missed by more than 10 %: " + "; ".join(beyond))


if __name__ == "__main__":
    main(*sys.argv[1:])
