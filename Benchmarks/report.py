"""The figures of a benchmark as tables and a plot, beside the targets."""

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
PEAK_KIB = 8192

# The targets. A figure is good if it is at most its target.
EXTRACTION = {"small files": {"unzip": 0.74, "bsdtar": 0.92},
              "large file": {"unzip": 0.65}}
WRITING_FLOOR = 1.05
ON_DISK = {"unzip": 0.85, "bsdtar": 0.85}
UPDATE = 0.85
START = 1.2
CALLS = 10
COPY = 2
READ = {"manifest": 0.80, "flat map": 0.50, "strings": 0.90, "numbers": 0.60}
ALLOCATIONS = {"manifest": 3.0, "flat map": 5.1, "numbers": 1.6}
COMPANION = {"pack": 0.8, "check": 1.2, "check --prove": 1.6, "verify": 0.4}
BYTES_AN_ENTRY = 700
RECORD = {"reads": 5, "writes": 4}  # for each of four values, and one test for an identifier
CLEARED = 1  # in seconds
TOLERANCE = 1.1  # the factor beyond which --gate fails


def output(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout


def described(title, package):
    return f"{title}: {package.files:,} of {package.size >> 20} MiB"


class Report:
    def __init__(self, quick):
        self.quick = quick
        self.bars = []  # the plot: title, name, ratio to unzip
        self.sections = {}  # heading: lines, in the order of the first line of each heading
        self.targets = []  # description, figure and target of each measurement
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
        """Adds a figure, its target and the verdict. `what` is the description in the list of
        targets."""
        text = form.format(figure)
        if target is None:
            return text
        self.targets.append((what, figure, target, form))
        return f"{text} (≤ {target}{'' if figure <= target else ', **missed**'})"

    def missed(self):
        """Returns the measurements that exceed their target by more than the tolerance."""
        return [what for what, figure, target, _ in self.targets if figure > target * TOLERANCE]

    def machine(self):
        with open("/proc/cpuinfo", encoding="ascii") as stream:
            model = re.search(r"model name\s*: (.*)", stream.read())
        memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") >> 30
        release = platform.freedesktop_os_release()["PRETTY_NAME"]
        self.line("Machine", f"- {release}, Linux {platform.release().split('-')[0]}, "
                   f"{os.cpu_count()} × {model.group(1) if model else platform.machine()}, "
                   f"{memory} GiB, load {os.getloadavg()[0]:.1f} at the start.")
        names = ["g++", "libminizip*", "zlib1g", "unzip", "libarchive-tools", "7zip",
                 "nlohmann-json3-dev", "rapidjson-dev"]
        versions = output("dpkg-query", "-W", "-f=${Package} ${Version}, ", *names)
        self.line("Machine", f"- Debian packages: {versions.rstrip(', ')}.")

    def extraction(self, title, package, series):
        targets = EXTRACTION.get(title, {})
        others = ("floor", "unzip", "bsdtar", "7zz")
        ratios = {name: series.ratio("installer", name) for name in others}
        self.row("Whole run of the installer beside the extraction alone, on a tmpfs",
                 ("Package", "Installer, s", *(f"/ {name}" for name in others)),
                 (described(title, package), f"{series.median('installer'):.3f}",
                  *(self.judged(f"{title} / {name}", ratios[name], targets.get(name))
                    for name in others)))
        for name in ("installer", *others):
            ratio = series.ratio(name, "unzip") if name != "unzip" else 1
            self.bars.append((title, name, ratio))

    def extraction_on_disk(self, title, package, series, calls):
        """Divides the elapsed time into processor time and waits for flushes."""
        others = ("unzip", "bsdtar", "7zz")
        content, record = (calls.get(name, (0, 0)) for name in ("syncfs", "fsync"))
        self.row("The same on the disk; the others end with sync -f",
                 ("Package", "Installer, s", "Of which processor, s", "Content's flush, s",
                  "Record's flushes, s", *(f"/ {name}" for name in others)),
                 (described(title, package), f"{series.median('installer'):.3f}",
                  f"{series.median_processor('installer'):.3f}", f"{content[0]}: {content[1]:.3f}",
                  f"{record[0]}: {record[1]:.3f}",
                  *(self.judged(f"{title} on the disk / {name}", series.ratio("installer", name),
                                ON_DISK.get(name)) for name in others)))

    def writing_floor(self, series):
        self.line("The large file beside the floor's loop, with each portion also written to a file",
                  "- Ratio on a tmpfs: " + self.judged(
                      "large file / floor that writes", series.ratio("installer", "writing floor"),
                      WRITING_FLOOR) + ".")

    def update(self, place, series):
        self.row("Update of an installed package beside a script (bsdtar, rm -rf, mv)",
                 ("On", "Installer, s", "Script, s", "Ratio"),
                 (place, f"{series.median('installer'):.3f}", f"{series.median('script'):.3f}",
                  self.judged(f"update on {place} / script", series.ratio("installer", "script"),
                              UPDATE)))

    def start(self, series):
        ratio = self.judged("ten files / unzip", series.ratio("installer", "unzip"), START)
        self.line("A package of ten files, on a tmpfs",
                  f"- Installer {series.median('installer') * 1000:.2f} ms, unzip "
                  f"{series.median('unzip') * 1000:.2f} ms, ratio {ratio}.")

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
            rates = {reader: best[document, reader] / (1 << 20) for reader in readers}
            self.row("JSON text to values, and their end",
                     ("Document", "This, MiB/s", "nlohmann-json", "RapidJSON",
                      "Time / nlohmann-json"),
                     (document, *(f"{rate:.0f}" for rate in rates.values()),
                      self.judged(f"{document} / nlohmann-json", rates["nlohmann"] / rates["this"],
                                  READ[document])))

    def allocations(self, document, each):
        self.row("Allocations", ("Document", "A value"),
                 (document, self.judged(f"allocations a value, {document}", each,
                                        ALLOCATIONS.get(document))))

    def copies(self, medians):
        floor = medians["CopyAllocatedSharedPointer"]["cpu_time"]
        for members in (10, 1000, 100000):
            taken = medians[f"CopyMap/{members}"]["cpu_time"]
            self.row("Copy of a map", ("Members", "ns", "/ shared pointer and allocation"),
                     (f"{members:,}", f"{taken:.0f}",
                      self.judged(f"copy of a map of {members:,}", taken / floor, COPY)))
        for members in (1000, 100000):
            taken = medians[f"DestroyMap/{members}"]["cpu_time"]
            self.row("Destruction of a map", ("Members", "ns a member"),
                     (f"{members:,}", f"{taken / members:.0f}"))

    def companion(self, title, command, ours, theirs, series):
        self.row("The companion command", ("Package", "Command", "s", "Beside", "s", "Ratio"),
                 (title, command, f"{series.median(ours):.3f}", f"`{theirs}`",
                  f"{series.median(theirs):.3f}",
                  self.judged(f"{command}, {title} / {theirs}", series.ratio(ours, theirs),
                              COMPANION[command])))

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
        self.line(heading, f"- With {keys:,} foreign keys to clear a run takes {judged} s and "
                  f"{peak >> 10} MiB.")

    def targets_section(self):
        for what, figure, target, form in self.targets:
            self.row("Every target", ("What", "Figure", "Target", ""),
                     (what, form.format(figure), f"≤ {target}",
                      "met" if figure <= target else "**missed**"))

    def finish(self):
        self.targets_section()
        if self.quick:
            return
        document = DOCUMENT.read_text(encoding="utf-8")
        before, rest = document.split(BEGIN)
        after = rest.split(END)[1]
        DOCUMENT.write_text(f"{before}{BEGIN}\n{self.summary()}\n{END}{after}", encoding="utf-8")
        figures = "\n\n".join(f"## {heading}\n\n" + "\n".join(lines)
                              for heading, lines in self.sections.items())
        FIGURES.write_text("# Performance: all figures\n\nWritten by `script/bench`. "
                           f"[performance.md](performance.md) says what they mean.\n\n{figures}\n",
                           encoding="utf-8")
        PLOT.write_text(self.plot(), encoding="utf-8")

    def summary(self):
        """Returns a description of the machine, and the ratio of each measurement to its
        comparison."""
        rows = "\n".join(f"| {what} | {form.format(figure)} | {target}"
                         f"{'' if figure <= target else ', **missed**'} |"
                         for what, figure, target, form in self.targets if " / " in what)
        machine = "\n".join(self.sections["Machine"])
        return f"{machine}\n\n| Time / beside | Ratio | At most |\n|---|---|---|\n{rows}\n"

    def plot(self):
        """Returns bars: the time of each program for each package on a tmpfs, relative to unzip."""
        colours = {"installer": "#1f6feb", "floor": "#b0b0b0", "unzip": "#808080",
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
