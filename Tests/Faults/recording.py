"""Converts a command's system calls, as printed by strace, to effects on the disk.

No call is missed: each printed call is known as harmless or is converted to effects. Any other call
raises an exception, for example a writable shared mapping. The users of this module check the
effects: they replay the effects and compare the result with the real tree.
"""

import collections
import re
import subprocess

# The effects, in order. A node is a number for a file or a directory.
Names = collections.namedtuple("Names", "slots")  # one effect on (directory, name, node or None)s
Write = collections.namedtuple("Write", "node offset data")
Truncate = collections.namedtuple("Truncate", "node length")
Mode = collections.namedtuple("Mode", "node mode")
Sync = collections.namedtuple("Sync", "node")  # None means the whole file system

UMASK = 0o022

HARMLESS = set("""
    access arch_prctl brk chdir chroot clock_nanosleep clone clone3 connect execve exit exit_group
    faccessat faccessat2 fgetxattr flock fstat fstatfs futex getcwd getdents64 getegid geteuid
    getgid getpid getppid getrandom gettid getuid ioctl kill lstat madvise mprotect mremap munmap
    newfstatat poll pread64 prlimit64 ptrace read readlink readlinkat rseq rt_sigaction rt_sigprocmask
    rt_sigreturn sched_getaffinity sendto set_robust_list set_tid_address sigaltstack socket stat
    statfs statx sysinfo uname vfork wait4 waitid
    """.split())

LINE = re.compile(r"(\d+) +(\w+)\((.*)\) += (-?\w+|\?)(?: .*)?$")
UNFINISHED = re.compile(r"(\d+ +\w+\(.*) <unfinished \.\.\.>$")
# A process that is killed when the call begins: strace cannot read the call, and the kernel skips it.
SKIPPED = re.compile(r"\d+ +(\?\?\?\(|<\.\.\. \?\?\? resumed>)")
RESUMED = re.compile(r"(\d+) +<\.\.\. \w+ resumed>(.*)$")
TEXT = re.compile(r'"((?:\\x[0-9a-f]{2})*)"(\.\.\.)?')


def traced(command, log, **options):
    """Runs a command and returns its result and its calls: (process, name, arguments, result)."""
    result = subprocess.run(["strace", "-f", "-qq", "-xx", "-s", str(1 << 28), "-o", log, *command],
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, umask=UMASK, check=False, **options)
    with open(log, encoding="ascii") as lines:
        return result, list(parsed(lines))


def parsed(lines):
    begun = {}
    for line in lines:
        line = line.rstrip("\n")
        if SKIPPED.match(line):
            continue
        unfinished, resumed = UNFINISHED.match(line), RESUMED.match(line)
        if unfinished:
            begun[line.split()[0]] = unfinished.group(1)
            continue
        if resumed:
            line = begun.pop(resumed.group(1)) + resumed.group(2)
        call = LINE.match(line)
        if call:
            process, name, arguments, value = call.groups()
            yield process, name, arguments, number(value)
        elif not re.match(r"\d+ +(\+\+\+|---) ", line):
            raise ValueError(f"strace says {line[:200]}")


def number(value):
    """Returns a call's result, or None if the call does not return."""
    if value == "?":
        return None
    return int(value, 8) if re.fullmatch("0[0-7]+", value) else int(value, 0)


def texts(arguments):
    """Returns the byte strings among the arguments. Raises ValueError if a string is truncated."""
    found = []
    for digits, cut in TEXT.findall(arguments):
        if cut:
            raise ValueError("strace cut a string")
        found.append(bytes.fromhex(digits.replace("\\x", "")))
    return found


class File:
    """An open file description. Duplicated descriptors share an object."""

    def __init__(self, node, is_appended=False, is_pipe=False):
        self.node = node  # None for a file outside the disk
        self.is_pipe = is_pipe
        self.offset = 0
        self.is_appended = is_appended


class Recorder:
    """Follows the calls of a command on a Disk and lists their effects."""

    def __init__(self, disk):
        self.disk = disk
        self.effects = []
        self.files = collections.defaultdict(dict)  # a map of descriptors for each process

    def record(self, calls):
        for process, name, arguments, result in calls:
            handler = getattr(self, "on_" + name, None)
            if handler is None and name not in HARMLESS:
                raise ValueError(f"unknown call {name}({arguments[:200]})")
            if handler is not None and result is not None and result >= 0:
                handler(process, arguments, result)
        return self.effects

    def add(self, effect):
        self.disk.apply(effect)
        self.effects.append(effect)

    # The arguments -----------------------------------------------------------------------------

    def descriptor(self, process, arguments):
        """Returns the file of the call's first argument. An unknown descriptor is outside the
        disk."""
        return self.files[process].get(arguments.split(",")[0], File(None))

    def node(self, process, arguments):
        file = self.descriptor(process, arguments)
        if file.node is None and not file.is_pipe and arguments.split(",")[0] not in ("1", "2"):
            raise ValueError(f"writes outside the disk: {arguments[:200]}")
        return file.node

    def slots(self, process, arguments):
        """Returns the names in the arguments as (directory, name), or None for a name outside the
        disk."""
        found = []
        for directory, digits in re.findall(r'(?:(AT_FDCWD|\d+), )?"((?:\\x[0-9a-f]{2})*)"',
                                            arguments):
            path = bytes.fromhex(digits.replace("\\x", ""))
            start = None
            if directory.isdigit() and not path.startswith(b"/"):
                start = self.files[process][directory].node
            found.append(self.disk.slot(path, start))
        return found

    @staticmethod
    def mode(arguments):
        return int(arguments.rsplit(",", 1)[1], 8) & ~UMASK

    def inside(self, slots):
        if None in slots:
            raise ValueError("changes a name outside the disk")
        return slots

    # Descriptors -------------------------------------------------------------------------------

    def on_openat(self, process, arguments, result):
        slot, = self.slots(process, arguments)
        flags = arguments.split('"')[2].split(",")[1].strip().split("|")
        if slot and self.disk.leads_on(slot, "O_RDONLY" not in flags):
            raise ValueError(f"writes through a link: {arguments[:200]}")
        node = self.disk.find(slot) if slot else None
        if slot and node is None:
            node = self.disk.new_node("file", self.mode(arguments))
            self.add(Names(((*slot, node),)))
        if slot and "O_TRUNC" in flags:
            self.add(Truncate(node, 0))
        self.files[process][str(result)] = File(node, "O_APPEND" in flags)

    on_open = on_openat

    def on_close(self, process, arguments, _):
        self.files[process].pop(arguments, None)

    def on_dup(self, process, arguments, result):
        self.files[process][str(result)] = self.descriptor(process, arguments)

    on_dup2 = on_dup3 = on_dup

    def on_close_range(self, process, arguments, _):
        first, last, _ = map(int, arguments.split(", "))
        for descriptor in [number for number in self.files[process]
                           if first <= int(number) <= last]:
            del self.files[process][descriptor]

    def on_fcntl(self, process, arguments, result):
        if "F_DUPFD" in arguments:
            self.on_dup(process, arguments, result)

    def on_pipe2(self, process, arguments, _):
        for descriptor in re.findall(r"\d+", arguments.split("]")[0]):
            self.files[process][descriptor] = File(None, is_pipe=True)

    def on_umask(self, process, arguments, _):
        if int(arguments, 8) != UMASK:
            raise ValueError(f"process {process} changes its umask to {arguments}")

    def on_mmap(self, process, arguments, _):
        _, _, protection, flags, descriptor, _ = arguments.split(", ")
        if "MAP_SHARED" in flags and "PROT_WRITE" in protection and descriptor != "-1":
            raise ValueError(f"process {process} maps a file to write to it")

    def on_lseek(self, process, arguments, result):
        self.descriptor(process, arguments).offset = result

    # Contents ----------------------------------------------------------------------------------

    def on_read(self, process, arguments, result):
        self.descriptor(process, arguments).offset += result

    def on_write(self, process, arguments, result):
        node = self.node(process, arguments)
        if node is None:
            return
        file = self.descriptor(process, arguments)
        if file.is_appended:
            file.offset = self.disk.size(node)
        self.add(Write(node, file.offset, b"".join(texts(arguments))[:result]))
        file.offset += result

    on_writev = on_write

    def on_pwrite64(self, process, arguments, result):
        self.add(Write(self.node(process, arguments), int(arguments.rsplit(",", 1)[1]),
                       texts(arguments)[0][:result]))

    def on_ftruncate(self, process, arguments, _):
        self.add(Truncate(self.node(process, arguments), int(arguments.rsplit(",", 1)[1])))

    def on_truncate(self, process, arguments, _):
        slot, = self.inside(self.slots(process, arguments))
        self.add(Truncate(self.disk.find(slot), int(arguments.rsplit(",", 1)[1])))

    def on_fchmod(self, process, arguments, _):
        self.add(Mode(self.node(process, arguments), int(arguments.split(",")[1], 8)))

    def on_chmod(self, process, arguments, _):
        slot, = self.inside(self.slots(process, arguments))
        self.add(Mode(self.disk.find(slot), int(arguments.rsplit(",", 1)[1], 8)))

    def on_fsync(self, process, arguments, _):
        self.add(Sync(self.node(process, arguments)))

    on_fdatasync = on_fsync

    def on_syncfs(self, process, arguments, _):
        self.node(process, arguments)
        self.add(Sync(None))

    # Names -------------------------------------------------------------------------------------

    def on_mkdir(self, process, arguments, _):
        slot, = self.inside(self.slots(process, arguments))
        self.add(Names(((*slot, self.disk.new_node("directory", self.mode(arguments))),)))

    on_mkdirat = on_mkdir

    def on_unlink(self, process, arguments, _):
        slot, = self.inside(self.slots(process, arguments))
        self.add(Names(((*slot, None),)))

    on_unlinkat = on_rmdir = on_unlink

    def on_rename(self, process, arguments, _):
        old, new = self.inside(self.slots(process, arguments))
        if "RENAME_EXCHANGE" in arguments:
            raise ValueError("exchanges two names")
        self.add(Names(((*old, None), (*new, self.disk.find(old)))))

    on_renameat = on_renameat2 = on_rename

    def on_link(self, process, arguments, _):
        old, new = self.inside(self.slots(process, arguments))
        self.add(Names(((*new, self.disk.find(old)),)))

    on_linkat = on_link

    def on_symlink(self, process, arguments, _):
        new, = self.inside(self.slots(process, arguments)[1:])
        self.add(Names(((*new, self.disk.new_node("link", target=texts(arguments)[0])),)))

    on_symlinkat = on_symlink
