"""The figures of a benchmark as tables and a plot, with the targets beside them."""

import math
import os
import pathlib
import platform
import re
import subprocess

DOCUMENT = pathlib.Path("Documentation/performance.md")
PLOT = pathlib.Path("Documentation/performance.svg")
BEGIN, END = "<!-- figures: begin -->\n", "<!-- figures: end -->\n"
PEAK_KIB = 8192

# The targets, as ratios of whole runs on a tmpfs.
TARGETS = {"small files": {"unzip": 0.74, "bsdtar": 0.92},
           "large file": {"unzip": 0.65, "floor": 1.05}}
UPDATE_TARGET = 0.85
START_TARGET = 1.2
CALLS_TARGET = 10
COPY_TARGET = 2
READ_TARGET = 1
COMPANION_TARGET = 2


def judged(figure, target, form="{:.2f}"):
    """A figure with its target and whether it is met."""
    text = form.format(figure)
    if target is None:
        return text
    return f"{text} (≤ {target}{'' if figure <= target else ', **missed**'})"


def output(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout


class Report:
    def __init__(self, quick):
        self.quick = quick
        self.bars = []  # of the plot: title, name, ratio to unzip
        self.sections = {}  # heading: lines, in the order of the headings' first lines
        self.machine()

    def line(self, heading, line):
        if heading not in self.sections:
            self.sections[heading] = []
            print(f"\n### {heading}\n")
        self.sections[heading].append(line)
        print(line, flush=True)

    def row(self, heading, columns, cells):
        """A table row; the names of the columns come before the first."""
        if heading not in self.sections:
            self.line(heading, "| " + " | ".join(columns) + " |")
            self.line(heading, "|---" * len(columns) + "|")
        self.line(heading, "| " + " | ".join(str(cell) for cell in cells) + " |")

    def machine(self):
        with open("/proc/cpuinfo", encoding="ascii") as stream:
            model = re.search(r"model name\s*: (.*)", stream.read())
        memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") >> 30
        release = platform.freedesktop_os_release()["PRETTY_NAME"]
        self.line("Machine", f"- {release}, Linux {platform.release().split('-')[0]}, "
                   f"{os.cpu_count()} × {model.group(1) if model else platform.machine()}, "
                   f"{memory} GiB, load {os.getloadavg()[0]:.1f} at the start.")
        names = ["g++-12", "libminizip1", "zlib1g", "unzip", "libarchive-tools", "7zip",
                 "nlohmann-json3-dev", "rapidjson-dev"]
        versions = output("dpkg-query", "-W", "-f=${Package} ${Version}, ", *names)
        self.line("Machine", f"- Debian packages: {versions.rstrip(', ')}.")

    def extraction(self, title, package, place, series, flushes):
        targets = TARGETS.get(title, {}) if place == "tmpfs" else {}
        others = ("floor", "unzip", "bsdtar", "7zz")
        ratios = {name: series.ratio("installer", name) for name in others}
        self.row("Whole run of the installer beside the extraction alone",
                 ("Package", "On", "Installer, s", *(f"/ {name}" for name in others),
                  "Of which flushes, s"),
                 (f"{title}: {package.files:,} of {package.size >> 20} MiB", place,
                  f"{series.median('installer'):.3f}",
                  *(judged(ratios[name], targets.get(name)) for name in others),
                  f"{flushes:.3f}"))
        if place == "tmpfs":
            for name in ("installer", *others):
                ratio = series.ratio(name, "unzip") if name != "unzip" else 1
                self.bars.append((title, name, ratio))

    def writing_floor(self, series):
        self.line("The large file beside the floor's loop, with each piece also written to a file",
                  f"- Ratio on a tmpfs: {series.ratio('installer', 'writing floor'):.2f}.")

    def update(self, place, series):
        target = UPDATE_TARGET if place == "tmpfs" else None
        self.row("Update of an installed package beside a script (bsdtar, rm -rf, mv)",
                 ("On", "Installer, s", "Script, s", "Ratio"),
                 (place, f"{series.median('installer'):.3f}", f"{series.median('script'):.3f}",
                  judged(series.ratio("installer", "script"), target)))

    def start(self, series):
        self.line("A package of ten files", f"- On a tmpfs: installer {series.median('installer') * 1000:.2f} ms, unzip "
                   f"{series.median('unzip') * 1000:.2f} ms, ratio "
                   f"{judged(series.ratio('installer', 'unzip'), START_TARGET)}.")

    def flushes(self, calls, taken):
        self.line("A package of ten files", f"- On the disk, the record's {calls} flushes (file and directory, for each of "
                   f"its four values) take {taken * 1000:.1f} ms more.")

    def system_calls(self, title, per_file, kinds):
        often = sorted(((count, name) for name, count in kinds.items() if count >= 0.05),
                       reverse=True)
        self.row("System calls a file", ("Package", "Calls", "Of which"),
                 (title, judged(per_file, CALLS_TARGET if title == "small files" else None,
                                "{:.1f}"),
                  ", ".join(f"{name} {count:.1f}" for count, name in often)))

    def instructions(self, per_mebibyte, per_file, start):
        self.line("Instructions", f"- {per_mebibyte / 1e6:.1f} million for each MiB of a large file, "
                   f"{per_file / 1e3:.0f} thousand for each small file; {start / 1e6:.1f} million "
                   f"for a whole run with 1 MiB (callgrind).")

    def growth(self, unit, points):
        """The slope is that of the logarithms: 1 when the time grows as the amount does. The time
        of the smallest amount holds the start and end of a run, so the last two count."""
        (amount, first, _), (more, last, _) = points[-2:]
        slope = math.log(last / first) / math.log(more / amount)
        for amount, taken, peak in points:
            final = amount == points[-1][0]
            self.row("Growth", ("Package", "Time, s", "Slope", "Peak memory, KiB"),
                     (f"{amount:,} {unit}", f"{taken:.3f}", f"{slope:.2f}" if final else "",
                      judged(peak, PEAK_KIB, "{}")))

    def values(self, medians):
        for name in ("manifest", "numbers", "strings"):
            rates = {reader: medians[f"{name}/{reader}"]["bytes_per_second"] / (1 << 20)
                     for reader in ("this", "nlohmann", "rapidjson")}
            self.row("JSON text to values, and their end",
                     ("Document", "This, MiB/s", "nlohmann-json", "RapidJSON",
                      "Time / nlohmann-json"),
                     (name, *(f"{rate:.0f}" for rate in rates.values()),
                      judged(rates["nlohmann"] / rates["this"], READ_TARGET)))
        floor = medians["CopyAllocatedSharedPointer"]["cpu_time"]
        for members in (10, 1000, 100000):
            taken = medians[f"CopyMap/{members}"]["cpu_time"]
            self.row("Copy of a map", ("Members", "ns", "/ shared pointer and allocation"),
                     (f"{members:,}", f"{taken:.0f}", judged(taken / floor, COPY_TARGET)))
        for members in (1000, 100000):
            taken = medians[f"DestroyMap/{members}"]["cpu_time"]
            self.row("Destruction of a map", ("Members", "ns a member"),
                     (f"{members:,}", f"{taken / members:.0f}"))

    def companion(self, title, ours, theirs, series):
        self.row("The companion command", ("Command", "s", "Beside", "s", "Ratio"),
                 (title, f"{series.median(ours):.3f}", f"`{theirs}`",
                  f"{series.median(theirs):.3f}",
                  judged(series.ratio(ours, theirs), COMPANION_TARGET)))

    def finish(self):
        if self.quick:
            return
        document = DOCUMENT.read_text(encoding="utf-8")
        before, rest = document.split(BEGIN)
        after = rest.split(END)[1]
        figures = "\n\n".join(f"### {heading}\n\n" + "\n".join(lines)
                              for heading, lines in self.sections.items())
        DOCUMENT.write_text(f"{before}{BEGIN}\n{figures}\n\n{END}{after}", encoding="utf-8")
        PLOT.write_text(self.plot(), encoding="utf-8")

    def plot(self):
        """Bars: the time of each program for each package on a tmpfs, unzip's being 1."""
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
