"""The figures of a benchmark as tables and a plot, with their targets."""

import math
import os
import pathlib
import platform
import re
import subprocess

DOCUMENT = pathlib.Path("Documentation/performance.md")
FIGURES = pathlib.Path("Documentation/performance-figures.md")
PLOT = pathlib.Path("Documentation/performance.svg")
BEGIN, END = "<!-- figures: begin -->\n", "<!-- figures: end -->\n"
MACHINE, COMPARISONS = "Machine", "Comparisons"
PEAK_KIB = 8192

# The targets: the largest figure that is good enough. Ratios are times: 0.5 is twice as fast.
EXTRACTION = {"small files": {"unzip": 0.74, "bsdtar": 0.92},
              "large file": {"unzip": 0.65}}
WRITING_BASELINE = 1.05
ON_DISK = {"unzip": 0.85, "bsdtar": 0.85}
UPDATE = 0.85
START = 1.2
CALLS = 10
COPY = 2
READ = {"manifest": 0.80, "flat map": 0.50, "strings": 0.90, "numbers": 0.60}
ALLOCATIONS = {"manifest": 3.0, "flat map": 5.1, "numbers": 1.6}
COMPANION = {"pack": 0.8, "check": 1.2, "check --prove": 1.6, "verify": 0.4, "install": 2.2}
BYTES_AN_ENTRY = 700
RECORD = {"reads": 5, "writes": 4}  # for each of four values, and one test for an identifier
CLEARED = 1  # in seconds
TOLERANCE = 1.1  # the factor beyond which --gate fails


def output(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout


def described(title, package):
    return f"{title}: {package.files:,} of {package.size >> 20} MiB"


def rate(size, seconds):
    """Returns MiB/s; without a size, the time itself."""
    return f"{size / seconds / (1 << 20):.0f} MiB/s" if size else f"{seconds * 1000:.2f} ms"


class Report:
    def __init__(self, quick):
        self.quick = quick
        self.bars = []  # of the plot: title, name, ratio to unzip
        self.sections = {}  # heading: lines, in the order of the headings' first lines
        self.targets = []  # the name of each judged figure, the figure and the target
        self.machine()

    def line(self, heading, line):
        if heading not in self.sections:
            self.sections[heading] = []
            print(f"\n### {heading}\n")
        self.sections[heading].append(line)
        print(line, flush=True)

    def row(self, heading, columns, cells):
        """Adds a table row. The names of the columns come before the first row."""
        if heading not in self.sections:
            self.line(heading, "| " + " | ".join(columns) + " |")
            self.line(heading, "|---" * len(columns) + "|")
        self.line(heading, "| " + " | ".join(str(cell) for cell in cells) + " |")

    def judged(self, what, figure, target, form="{:.2f}"):
        """Returns the figure as text, with its target and whether the figure meets it."""
        text = form.format(figure)
        if target is None:
            return text
        self.targets.append((what, figure, target))
        return f"{text} (≤ {target}{'' if figure <= target else ', **missed**'})"

    def compare(self, job, other, ours, theirs, ratio, target=None):
        """Adds a row to the table of comparisons: two rates as text, and the ratio of the times."""
        judged = self.judged(f"{job} / {other}", ratio, target)
        self.row(COMPARISONS, ("Job", "Rate", "Beside", "Rate", "Time ratio"),
                 (job, ours, other, theirs, judged))

    def compare_series(self, job, series, other, size, target=None, ours="installer"):
        """Compares two commands of a series; `size` is the number of bytes that each processes."""
        self.compare(job, other, *(rate(size, series.median(name)) for name in (ours, other)),
                     series.ratio(ours, other), target)

    def missed(self, tolerance=1):
        """Returns the targets that are missed by more than the tolerance, each with its figure."""
        return [f"{what} {figure:.2f} (target {target})" for what, figure, target in self.targets
                if figure > target * tolerance]

    def machine(self):
        with open("/proc/cpuinfo", encoding="ascii") as stream:
            model = re.search(r"model name\s*: (.*)", stream.read())
        memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") >> 30
        release = platform.freedesktop_os_release()["PRETTY_NAME"]
        self.line(MACHINE, f"- {release}, Linux {platform.release().split('-')[0]}, "
                   f"{os.cpu_count()} × {model.group(1) if model else platform.machine()}, "
                   f"{memory} GiB, load {os.environ['BENCH_LOAD']} at the start.")
        names = ["g++", "libminizip*", "zlib1g", "unzip", "libarchive-tools", "7zip",
                 "nlohmann-json3-dev", "rapidjson-dev"]
        versions = output("dpkg-query", "-W", "-f=${Package} ${Version}\n", *names).splitlines()
        self.line(MACHINE, f"- Debian packages: {', '.join(dict.fromkeys(versions))}.")

    def extraction(self, title, package, series):
        targets = EXTRACTION.get(title, {})
        for other in ("unzip", "bsdtar", "7zz", "baseline"):
            self.compare_series(described(title, package), series, other, package.size,
                                targets.get(other))
        for name in ("installer", "baseline", "unzip", "bsdtar", "7zz"):
            self.bars.append((title, name, series.ratio(name, "unzip") if name != "unzip" else 1))

    def extraction_on_disk(self, title, package, series, calls):
        """Elapsed time, and its parts: the processor's time and the waits for the disk."""
        for other in ("unzip", "bsdtar", "7zz"):
            self.compare_series(f"{described(title, package)}, on a disk", series, other,
                                package.size, ON_DISK.get(other))
        content, record = (calls.get(name, (0, 0)) for name in ("syncfs", "fsync"))
        self.row("Parts of the time on a disk",
                 ("Package", "Whole, s", "Processor, s", "syncfs of the content: s",
                  "fsync of the record: s"),
                 (title, f"{series.median('installer'):.3f}",
                  f"{series.median_processor('installer'):.3f}", f"{content[0]}: {content[1]:.3f}",
                  f"{record[0]}: {record[1]:.3f}"))

    def writing_baseline(self, package, series):
        self.compare_series(described("large file", package), series, "baseline that writes",
                            package.size, WRITING_BASELINE)

    def update(self, place, package, series):
        self.compare_series(f"update on {place}", series, "script", package.size, UPDATE)

    def start(self, series):
        self.compare_series("run with ten files", series, "unzip", None, START)

    def zlib_ng(self, title, package, series):
        self.compare_series(f"{title} with zlib-ng", series, "the same with zlib", package.size,
                            ours="zlib-ng")

    def system_calls(self, title, per_file, kinds):
        often = sorted(((count, name) for name, count in kinds.items() if count >= 0.05),
                       reverse=True)
        self.row("System calls a file", ("Package", "Calls", "Of which"),
                 (title, self.judged(f"system calls a file, {title}", per_file,
                                     CALLS if title == "small files" else None, "{:.1f}"),
                  ", ".join(f"{name} {count:.1f}" for count, name in often)))

    def instructions(self, per_mebibyte, per_file, start):
        self.line("Instructions", f"- {per_mebibyte / 1e6:.1f} million for each MiB of a large file, "
                   f"{per_file / 1e3:.0f} thousand for each small file; {start / 1e6:.1f} million "
                   f"for a whole run with 1 MiB (callgrind).")

    def growth(self, unit, points):
        """Reports the slope of the logarithms: 1 if the time is proportional to the amount. The
        time of the smallest amount includes the start and the end of a run, so only the last two
        points count."""
        (amount, first, _), (more, last, _) = points[-2:]
        slope = math.log(last / first) / math.log(more / amount)
        for amount, taken, peak in points:
            final = amount == points[-1][0]
            self.row("Growth", ("Package", "Time, s", "Slope", "Peak memory, KiB"),
                     (f"{amount:,} {unit}", f"{taken:.3f}", f"{slope:.2f}" if final else "",
                      self.judged(f"memory, KiB, {amount:,} {unit}", peak, PEAK_KIB, "{}")))

    def values(self, documents, readers, best):
        for document in documents:
            rates = {reader: best[document, reader] for reader in readers}
            for reader, name, target in (("nlohmann", "nlohmann-json", READ[document]),
                                         ("rapidjson", "RapidJSON", None)):
                self.compare(f"JSON, {document}", name, rate(rates["this"], 1),
                             rate(rates[reader], 1), rates[reader] / rates["this"], target)

    def allocations(self, document, each):
        self.row("Allocations", ("Document", "A value"),
                 (document, self.judged(f"allocations a value, {document}", each,
                                        ALLOCATIONS.get(document))))

    def copies(self, medians):
        pointer = medians["CopyAllocatedSharedPointer"]["cpu_time"]
        for members in (10, 1000, 100000):
            taken = medians[f"CopyMap/{members}"]["cpu_time"]
            self.row("Copy of a map", ("Members", "ns", "/ shared pointer and allocation"),
                     (f"{members:,}", f"{taken:.0f}",
                      self.judged(f"copy of a map of {members:,}", taken / pointer, COPY)))
        for members in (1000, 100000):
            taken = medians[f"DestroyMap/{members}"]["cpu_time"]
            self.row("Destruction of a map", ("Members", "ns a member"),
                     (f"{members:,}", f"{taken / members:.0f}"))

    def companion(self, job, command, package, ours, theirs, series):
        self.compare_series(job, series, theirs, package.size, COMPANION[command], ours)

    def companion_memory(self, entries, each, few, large):
        each = self.judged("bytes an entry of check", each, BYTES_AN_ENTRY, "{:.0f}")
        self.line("Memory of check", f"- {each} bytes an entry at {entries:,} entries.")
        self.line("Memory of check",
                  f"- {few} KiB for a hundred small files, {large} KiB for one large file.")

    def record(self, calls, keys, taken, peak):
        heading = "The record"
        for what in ("reads", "writes"):
            judged = self.judged(f"{what} of the record", calls[what], RECORD[what], "{}")
            self.line(heading, f"- A fresh run {what} the file {judged} times.")
        self.line(heading, f"- It flushes the content {calls['syncfs']} times, and {calls['fsync']} "
                  "times the record: its file and its directory, for each value.")
        judged = self.judged("seconds of a cleared record", taken, CLEARED)
        self.line(heading, f"- With {keys:,} keys of other programs to clear, a run takes {judged} s and "
                  f"{peak >> 10} MiB.")

    def finish(self):
        """Writes the documents. A quick run, or one on a busy machine, writes nothing."""
        if self.quick:
            return
        document = DOCUMENT.read_text(encoding="utf-8")
        before, rest = document.split(BEGIN)
        after = rest.split(END)[1]
        DOCUMENT.write_text(f"{before}{BEGIN}\n{self.summary()}\n{END}{after}", encoding="utf-8")
        figures = "\n\n".join(f"## {heading}\n\n" + "\n".join(lines)
                              for heading, lines in self.sections.items()
                              if heading not in (MACHINE, COMPARISONS))
        FIGURES.write_text("# Performance: more figures\n\nWritten by `script/bench`. "
                           "[performance.md](performance.md) has the setup and the comparisons."
                           f"\n\n{figures}\n", encoding="utf-8")
        PLOT.write_text(self.plot(), encoding="utf-8")

    def summary(self):
        """The missed targets, the machine and the comparisons."""
        missed = self.missed()
        return "\n\n".join(("**Missed targets:** " + "; ".join(missed) + "." if missed
                            else "Every target is met.",
                            *("\n".join(self.sections[heading])
                              for heading in (MACHINE, COMPARISONS)))) + "\n"

    def plot(self):
        """Bars: for each package on a tmpfs, the time of each program relative to unzip."""
        colours = {"installer": "#1f6feb", "baseline": "#b0b0b0", "unzip": "#808080",
                   "bsdtar": "#909090", "7zz": "#a0a0a0"}
        scale = 400 / max(ratio for _, _, ratio in self.bars)
        height, shapes, last = 30, [], None
        for title, name, ratio in self.bars:
            if title != last:
                height += 26
                shapes.append(f'<text x="10" y="{height - 4}" font-weight="bold">{title}</text>')
                last = title
            width = ratio * scale
            shapes.append(f'<text x="90" y="{height + 12}" text-anchor="end">{name}</text>'
                          f'<rect x="96" y="{height}" width="{width:.0f}" height="14" '
                          f'fill="{colours[name]}"/>'
                          f'<text x="{100 + width:.0f}" y="{height + 12}">{ratio:.2f}</text>')
            height += 18
        return (f'<svg xmlns="http://www.w3.org/2000/svg" width="560" height="{height + 10}" '
                'font-family="sans-serif" font-size="12">\n'
                f'<rect width="560" height="{height + 10}" fill="white"/>\n'
                '<text x="10" y="20" font-size="14">Time on a tmpfs, unzip = 1</text>\n'
                + "\n".join(shapes) + "\n</svg>\n")
