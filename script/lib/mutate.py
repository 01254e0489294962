#!/usr/bin/env python3
"""Measures whether the tests notice bugs: changes the code in one place at a time, and prints each
change that no test notices.

    campaign mutate [--count N] [--jobs N] [--again | --sanitized] [FILE...]

Draws changes evenly from the classes and kinds of change, until N (default 850) of them count. A
change does not count if the code does not compile, or compiles to the same machine code. Each change
is tried in a chroot on a temporary copy of the whole file system, which needs root. The tests near
the changed file run first, then those that noticed earlier changes of the file. A test that takes
more than ten times its usual processor time has failed. Slow and distant tests do not run, and for
a changed header only the tests of the installed programs. The results are in
build/mutation/results.jsonl. The next run tries only changes of files that differ since then.

--again: tries only the changes that passed, with all tests.
--sanitized: the same, under the sanitizers.
"""

import argparse
import collections
import concurrent.futures
import functools
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

import changes

TOP = pathlib.Path(__file__).resolve().parents[2]
WORK = TOP / "build/mutation"
RESULTS = WORK / "results.jsonl"
BASE = WORK / "base"  # a copy of the sources, which may change during a run
SANITIZED = "--sanitized" in sys.argv
AGAIN = SANITIZED or "--again" in sys.argv
BUILD = BASE / ("build-sanitized" if SANITIZED else "build")
FLAGS = "-O1 -fsanitize=address,undefined -fno-sanitize-recover=all" if SANITIZED else "-O2"
MEMORY = [] if SANITIZED else [f"--as={8 << 30}"]  # the sanitizers reserve more
SOURCES = ("Source/*.cpp Include/*.h Common/*.cpp Common/*.h Platform/*.cpp Platform/*.h "
           "Tools/webresources/*.cpp Tools/webresources/*.h").split()
NEAR = {"Common": ("Common", "EndToEnd"), "Include": ("Source", "EndToEnd"),  # below Tests/
        "Platform": ("Platform", "Doubles", "Tools", "EndToEnd"), "Source": ("Source", "EndToEnd"),
        "Tools": ("Tools",)}
SLOW = ("Darwin.", "EndToEnd.Large", "EndToEnd.Memcheck")
OTHERS = ("EndToEnd.Hardening", "MacFacts", "PackageMacOS", "Scripts")  # they test no source in SOURCES
INSTALLING = ("InstallTest", "PlanTest")  # slow; they run only for the sources of INSTALLERS
INSTALLERS = ("Tools/webresources/commands/", "Tools/webresources/machine/")
WITHOUT_TOOLS = ("Darwin.", "EndToEnd.", "Oracles")  # tests of the installer alone
LONGEST = 300  # seconds for one build or test
TOGETHER = 8  # changes in one trial with --again

# Tests --------------------------------------------------------------------------------------------

def run(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def programs(name, command):
    """Returns the targets that a test needs."""
    built = [os.path.relpath(each, BUILD) for each in command if each.startswith(f"{BUILD}/")]
    if built:
        return built
    return ["WebResourceInstaller"] + ["webresources"] * (not name.startswith(WITHOUT_TOOLS))


def tests():
    """Returns the tests by name."""
    found = {}
    for test in json.loads(run("ctest", "--show-only=json-v1", cwd=BUILD))["tests"]:
        properties = {each["name"]: each["value"] for each in test["properties"]}
        name, command = test["name"], test["command"]
        if any(each.startswith("test_") for each in command):
            command.append("--failfast")
        if "FIXTURES_SETUP" not in properties and not name.startswith(OTHERS):
            place = pathlib.Path(properties["WORKING_DIRECTORY"])
            found[name] = {"command": command, "directory": str(place), "near": place.name,
                           "environment": properties.get("ENVIRONMENT", []),
                           "bundle": "FIXTURES_REQUIRED" in properties,
                           "programs": programs(name, command)}
    return found


@functools.cache
def built(*targets):
    """Builds the targets. Returns whether this succeeded, and whether anything was out of date."""
    result = subprocess.run(["ninja", *targets], cwd=BUILD, stdout=subprocess.PIPE, check=False,
                            timeout=LONGEST)
    return result.returncode == 0, b"no work to do" not in result.stdout


def status(test, limit):
    """Returns the exit status of a test, or a text if there is none. Each process of the test may use
    `limit` seconds of processor time; the whole test may take three times `limit`."""
    environment = dict(os.environ, GTEST_FAIL_FAST="1")
    environment.update(each.split("=", 1) for each in test["environment"])
    try:
        if not all(built(each)[0] for each in test["programs"]):
            return "not built"
        if test["bundle"]:
            run("cmake", "--install", BUILD, "--prefix", BUILD / "Tests/installed")
        return subprocess.run(
            ["prlimit", f"--cpu={limit:.0f}", *MEMORY, *test["command"]],
            cwd=test["directory"], env=environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            timeout=min(3 * limit, LONGEST), check=False).returncode
    except subprocess.TimeoutExpired:
        return "out of time"


# In a sandbox -------------------------------------------------------------------------------------

NAMESPACE = ["unshare", "--mount", "--pid", "--fork", "--kill-child"]
SANDBOX = """set -e
mount -t tmpfs -o size=3g none "$1"
mkdir "$1/upper" "$1/work" "$1/root"
mount -t overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" none "$1/root"
mount -t tmpfs -o mode=755 none "$1/root/dev"  # a copy: a changed program may delete devices
cp -a /dev/null /dev/zero /dev/full /dev/random /dev/urandom /dev/tty "$1/root/dev"
mkdir -m 1777 "$1/root/dev/shm"
mkdir "$1/root/dev/pts"
mount -t devpts -o newinstance,ptmxmode=0666 none "$1/root/dev/pts"
ln -s pts/ptmx "$1/root/dev/ptmx"
ln -s /proc/self/fd "$1/root/dev/fd"
mount -t proc none "$1/root/proc"
root=$1/root
shift
exec chroot "$root" "$@" --inside"""


def in_sandbox(job):
    """Runs inside() for a job in the sandbox and returns the result. A changed program may kill its
    process group, and so the sandbox."""
    (WORK / "root").mkdir(exist_ok=True)
    try:
        return json.loads(run(
            *NAMESPACE, "sh", "-c", SANDBOX, "sh", WORK / "root", sys.executable, "-B", __file__,
            *sys.argv[1:], input=json.dumps(job),
            env={**os.environ, "CCACHE_DISABLE": "1"},  # no change is compiled twice
            stderr=subprocess.DEVNULL, start_new_session=True))
    except subprocess.CalledProcessError as error:
        if not job["changes"]:
            raise
        return {"outcome": "noticed", "by": "the end of the sandbox", "status": error.returncode}


def duration(test):
    """Returns the seconds that a test takes, or None if the test fails."""
    start = time.time()
    return time.time() - start if status(test, LONGEST) == 0 else None


def make(change):
    file, (begin, end) = BASE / change["file"], change["place"]
    source = file.read_text()
    file.write_text(source[:begin] + change["is"] + source[end:])


def inside(job):
    """Makes the changes of a job, runs the tests and returns the outcome. Without changes, returns the
    duration of each test."""
    if not job["changes"]:
        return {name: duration(test) for name, test in job["tests"].items()}
    objects = [BUILD / each for each in job["objects"]]
    before = [each.read_bytes() for each in objects]
    for change in sorted(job["changes"], key=lambda change: -change["place"][0]):
        make(change)  # from the end of a file, so that earlier places stay
    if not built(*job["objects"])[0]:
        return {"outcome": "does not compile"}
    if not SANITIZED and [each.read_bytes() for each in objects] == before:
        return {"outcome": "same code"}
    for name, test in job["tests"].items():
        isConcerned = any(built(each) != (True, False) for each in test["programs"])
        result = status(test, max(10, 10 * job["seconds"][name])) if isConcerned else 0
        if result != 0:
            return {"outcome": "noticed", "by": name, "status": result}
    return {"outcome": "passed"}


# The whole ----------------------------------------------------------------------------------------

def set_up():
    """Copies the sources and builds them unchanged."""
    for name in run("git", "ls-files", cwd=TOP).splitlines():
        source, copy = TOP / name, BASE / name
        if not copy.exists() or copy.read_bytes() != source.read_bytes():  # keeps the time of equal files
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    run("cmake", "-S", BASE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
        "-DCMAKE_CXX_FLAGS_RELEASE=", f"-DCMAKE_CXX_FLAGS={FLAGS}")
    run("ninja", "-j2", cwd=BUILD)


def objects_of_files():
    """Returns, for each source file, the object files of the product that include it."""
    found, current = collections.defaultdict(list), None
    for line in run("ninja", "-t", "deps", cwd=BUILD).splitlines():
        if not line.startswith(" "):
            current = line.split(":")[0]
        elif not current.startswith("Tests/") or "/Platform/apple/" in current:
            found[os.path.relpath(os.path.join(BUILD, line.strip()), BASE)].append(current)
    return found


def near_of(file):
    return NEAR[file.split("/")[0]]


class Trial:
    """Tries changes, with the tests in the order in which they are likely to notice."""

    def __init__(self, files):
        near = {each for file in files for each in near_of(file)}
        self.objects = objects_of_files()
        self.tests = {name: test for name, test in tests().items()
                      if AGAIN or (test["near"] in near and not name.startswith(SLOW))}
        self.seconds = in_sandbox({"changes": [], "tests": self.tests})
        failed = [name for name, seconds in self.seconds.items() if seconds is None]
        if failed:
            raise SystemExit(f"These fail without a change: {failed}")
        self.caught = collections.Counter()  # noticed changes by file and test

    def __call__(self, *made):
        """Makes all the given changes together and returns their common outcome."""
        start, file = time.time(), made[0]["file"]
        near, compiles = near_of(file), file.endswith(".cpp")
        distant = () if file.startswith(INSTALLERS) else INSTALLING
        order = sorted([name for name, test in self.tests.items() if AGAIN
                        or (test["near"] in near and not name.startswith(distant)
                            and (compiles or test["bundle"]))],
                       key=lambda name: (-self.caught[file, name],
                                         self.tests[name]["near"] != near[0],
                                         self.seconds[name]))
        objects = sorted({each for change in made for each in self.objects[change["file"]]})
        outcome = in_sandbox({"changes": made, "objects": objects,
                              "tests": {name: self.tests[name] for name in order},
                              "seconds": self.seconds})
        seconds = round(time.time() - start, 1)
        return [{**change, **outcome, "seconds": seconds} for change in made]

    def settle(self, *made):
        """Returns the outcome of each change. Makes the changes together, and halves the group if a test
        notices: most changes pass."""
        found = self(*made)
        if found[0]["outcome"] == "passed" or len(made) == 1:
            return found
        middle = len(made) // 2
        return self.settle(*made[:middle]) + self.settle(*made[middle:])


def overlap(one, other):
    return (one["file"] == other["file"] and one["place"][0] < other["place"][1] + 1
            and other["place"][0] < one["place"][1] + 1)


def groups(left, size):
    """Yields groups of changes that do not overlap."""
    left = list(left)
    while left:
        group = []
        for change in left:
            if len(group) < size and not any(overlap(change, each) for each in group):
                group.append(change)
        left = [change for change in left if change not in group]
        yield group


def results(arguments, files, trial):
    """Yields the outcome of each change; for those of an earlier run, without a trial."""
    left = changes.drawn(BASE, [file for file in files if file in trial.objects])
    known = {}
    if RESULTS.exists():
        known = {each["id"]: each for each in map(json.loads, RESULTS.read_text().splitlines())}
    if AGAIN:
        left = [each for each in left if known.get(each["id"], {}).get("outcome") == "passed"]
        known = {}
    left = groups(left, TOGETHER) if AGAIN else ([each] for each in left)
    counted, running = 0, set()
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        while running or counted < arguments.count:
            while counted < arguments.count and len(running) < arguments.jobs:
                group = next(left, None)
                if group is None:
                    break
                running.add(pool.submit(
                    lambda each: [known[each[0]["id"]]] if each[0]["id"] in known
                    else trial.settle(*each), group))
            if not running:
                return
            done, running = concurrent.futures.wait(
                running, return_when=concurrent.futures.FIRST_COMPLETED)
            for result in (result for each in done for result in each.result()):
                trial.caught[result["file"], result.get("by")] += 1
                counted += result["outcome"] in ("noticed", "passed")
                if result["id"] not in known:
                    with RESULTS.open("a") as file:
                        print(json.dumps(result), file=file)
                yield result


class Parser(argparse.ArgumentParser):
    def error(self, message):
        self.print_usage(sys.stderr)
        self.exit(64, f"campaign mutate: {message}\n")


def main():
    parser = Parser(usage=__doc__.split("\n\n")[1].strip())
    parser.add_argument("--count", type=int, default=850)
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--sanitized", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("files", nargs="*")
    arguments = parser.parse_args()
    files = arguments.files or run("git", "ls-files", *SOURCES, cwd=TOP).split()
    set_up()
    outcomes = collections.Counter()
    for result in results(arguments, files, Trial(files)):
        outcomes[result["outcome"]] += 1
        if result["outcome"] == "passed":
            print("{file}:{line}: {was} -> {is}    in: {where}".format(**result), flush=True)
    print(f"{outcomes['noticed'] + outcomes['passed']} changes: {outcomes['noticed']} noticed, "
          f"{outcomes['passed']} passed. Left out: {outcomes['does not compile']} that do not "
          f"compile, {outcomes['same code']} that change no code")


if __name__ == "__main__":
    if sys.argv[-1] == "--inside":
        for each in signal.SIGINT, signal.SIGHUP:  # a background job ignores these
            signal.signal(each, signal.SIG_DFL)
        print(json.dumps(inside(json.load(sys.stdin))))
    else:
        main()
