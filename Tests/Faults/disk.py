"""A disk in memory, and its possible states after a power failure.

Two models of a disk with effects that are not synced:

  journal   Names and modes reach the disk in order. The state has a prefix of the effects, and a
            sync of any file includes all earlier effects. Unsynced content is present, missing,
            truncated or zeros.
  unordered Each unsynced effect may be present or missing, independent of the others. A sync of a
            directory includes its names, a sync of a file its content and mode, and a sync of the
            file system everything. A rename is one effect.
"""

import itertools
import os
import random
import stat

from private_root import DIRECTORY, SPECIAL
from recording import Mode, Names, Sync, Truncate, Write

TOP = (-1, b"")  # the slot of the top directory
DATA_FATES = ("kept", "lost", "short", "zeros")


class Node:
    def __init__(self, kind, mode=None, data=b"", target=None):
        self.kind = kind
        self.mode = mode
        self.data = data
        self.target = target


class Disk:
    """The entries below the directory `top`. A command sees the directory at the path `seen_at`."""

    def __init__(self, top, seen_at):
        self.seen_at = os.fsencode(seen_at).rstrip(b"/")
        self.nodes = [Node("directory")]
        self.start = {TOP: 0}  # the names at the beginning: (directory, name) to node
        self.load(os.fsencode(top), 0)
        self.names = dict(self.start)
        self.sizes = {}

    def load(self, path, directory):
        for entry in os.scandir(path):
            status = entry.stat(follow_symlinks=False)
            node = self.new_node(*described(entry.path, status))
            self.start[directory, entry.name] = node
            if stat.S_ISDIR(status.st_mode):
                self.load(entry.path, node)

    def new_node(self, kind, mode=None, data=b"", target=None):
        self.nodes.append(Node(kind, mode, data, target))
        return len(self.nodes) - 1

    # Operations on names, for the recorder -------------------------------------------------------

    def slot(self, path, start=None):
        """Returns (directory, name) of a path, or None if the path is outside the disk or below a
        missing directory."""
        if start is None:
            if not (path + b"/").startswith(self.seen_at + b"/"):
                return None
            path, start = path[len(self.seen_at):], 0
        components = [part for part in path.split(b"/") if part not in (b"", b".")]
        if not components:
            return TOP
        for name in components[:-1]:
            start = self.names.get((start, name))
            if start is None or self.nodes[start].kind != "directory" or name == b"..":
                return None
        return start, components[-1]

    def find(self, slot):
        return self.names.get(slot)

    def leads_on(self, slot, is_for_writing):
        node = self.names.get(slot)
        return is_for_writing and node is not None and self.nodes[node].kind == "link"

    def size(self, node):
        return self.sizes.get(node, len(self.nodes[node].data))

    def apply(self, effect):
        if isinstance(effect, Names):
            put(self.names, effect)
        elif isinstance(effect, Write):
            self.sizes[effect.node] = max(self.size(effect.node), effect.offset + len(effect.data))
        elif isinstance(effect, Truncate):
            self.sizes[effect.node] = effect.length


def described(path, status):
    """Returns the arguments of Node for the entry at a path."""
    if stat.S_ISDIR(status.st_mode):
        return "directory", stat.S_IMODE(status.st_mode)
    if stat.S_ISLNK(status.st_mode):
        return "link", None, b"", os.readlink(path)
    if stat.S_ISREG(status.st_mode):
        with open(path, "rb") as stream:
            return "file", stat.S_IMODE(status.st_mode), stream.read()
    return "special", status.st_mode


def put(names, effect):
    for directory, name, node in effect.slots:
        if node is None:
            names.pop((directory, name), None)
        else:
            names[directory, name] = node


def contents(data, effects):
    """Returns a file's bytes after writes and truncations."""
    data = bytearray(data)
    for effect in effects:
        if isinstance(effect, Truncate):
            del data[effect.length:]
            data.extend(bytes(effect.length - len(data)))
        else:
            data.extend(bytes(max(0, effect.offset - len(data))))
            data[effect.offset:effect.offset + len(effect.data)] = effect.data
    return bytes(data)


class State:
    """The names, contents and modes of a disk after a power failure. States with the same visible
    content are equal."""

    def __init__(self, disk, names, data, modes):
        self.disk = disk
        children = {}
        for (directory, name), node in names.items():
            children.setdefault(directory, []).append((name, node))
        self.found = {}
        self.modes = {}
        self.visit(0, b"", children, data, modes)

    def visit(self, directory, prefix, children, data, modes):
        for name, number in children.get(directory, ()):
            node, path = self.disk.nodes[number], prefix + name
            self.modes[path] = modes.get(number, node.mode)
            if node.kind == "directory":
                self.found[path] = DIRECTORY
                self.visit(number, path + b"/", children, data, modes)
            elif node.kind == "file":
                self.found[path] = data.get(number, node.data)
            else:
                self.found[path] = ("link", node.target) if node.kind == "link" else SPECIAL

    def key(self):
        return frozenset((path, what, self.modes[path]) for path, what in self.found.items())

    def write(self, top):
        """Writes the state into the directory `top`, which must not exist."""
        os.mkdir(top)
        for path in sorted(self.found):
            what, full = self.found[path], os.path.join(os.fsencode(top), path)
            if what == DIRECTORY:
                os.mkdir(full)
                os.chmod(full, self.modes[path])
            elif what == SPECIAL:
                os.mknod(full, self.modes[path])
            elif isinstance(what, tuple):
                os.symlink(what[1], full)
            else:
                with open(full, "wb") as stream:
                    stream.write(what)
                os.chmod(full, self.modes[path])


class PowerCuts:
    """The possible states after a power failure during a recording."""

    def __init__(self, disk, effects, seed):
        self.disk = disk
        self.effects = effects
        self.choice = random.Random(seed)
        self.made = {}
        self.written = {}

    def final(self):
        """Returns the state in which no effect is lost."""
        return self.state(self.effects, self.fated(len(self.effects), lambda node: "kept"))

    # Contents -----------------------------------------------------------------------------------

    def unsynced(self, cut):
        """Returns the files written before effect number `cut`. The value is the number of synced
        effects and the number of all effects on the file."""
        if cut not in self.written:
            self.written[cut] = self.count_written(cut)
        return self.written[cut]

    def count_written(self, cut):
        counts, synced = {}, {}
        for effect in self.effects[:cut]:
            if isinstance(effect, (Write, Truncate)):
                counts[effect.node] = counts.get(effect.node, 0) + 1
            elif isinstance(effect, Sync):
                synced.update(counts if effect.node is None else
                              {effect.node: counts.get(effect.node, 0)})
        return {node: (synced.get(node, 0), count) for node, count in counts.items()}

    def fated(self, cut, fate_of):
        """Returns the content of every file after a power failure at `cut`."""
        return {node: self.content(node, synced, count, fate_of(node) if synced < count else "kept")
                for node, (synced, count) in self.unsynced(cut).items()}

    def content(self, node, synced, count, fate):
        key = node, synced, count, fate
        if key not in self.made:
            self.made[key] = self.make_content(*key)
        return self.made[key]

    def make_content(self, node, synced, count, fate):
        effects = [effect for effect in self.effects
                   if isinstance(effect, (Write, Truncate)) and effect.node == node][:count]
        before = contents(self.disk.nodes[node].data, effects[:synced])
        after = contents(before, effects[synced:])
        if fate == "kept":
            return after
        if fate == "lost":
            return before
        if fate == "short":
            return after[:(len(before) + len(after)) // 2]
        return contents(before, [Write(node, effect.offset, bytes(len(effect.data)))
                                 if isinstance(effect, Write) else effect
                                 for effect in effects[synced:]])

    def fates(self, cut):
        """Yields the possible fates of the contents: the same fate for all files, and a separate
        fate for each file."""
        files = [node for node, (synced, count) in self.unsynced(cut).items() if synced < count]
        for fate in DATA_FATES if files else ("kept",):
            yield lambda node, fate=fate: fate
        if len(files) > 1:
            for one, fate in itertools.product(files, DATA_FATES[1:]):
                yield lambda node, one=one, fate=fate: fate if node == one else "kept"
            for one in files:
                yield lambda node, one=one: "kept" if node == one else "lost"

    def random_fates(self):
        chosen = {}
        return lambda node: chosen.setdefault(node, self.choice.choice(DATA_FATES))

    # States -------------------------------------------------------------------------------------

    def state(self, effects, data):
        names, modes = dict(self.disk.start), {}
        for effect in effects:
            if isinstance(effect, Names):
                put(names, effect)
            elif isinstance(effect, Mode):
                modes[effect.node] = effect.mode
        return State(self.disk, names, data, modes)

    def journal(self):
        """Yields pairs of a cut and a state. The cut is the number of effects before the power
        failure."""
        for prefix in range(len(self.effects) + 1):
            until = next((at for at in range(prefix, len(self.effects))
                          if isinstance(self.effects[at], Sync)), len(self.effects))
            for cut in sorted({prefix, until}):
                for fate in self.fates(cut):
                    yield cut, self.state(self.effects[:prefix], self.fated(cut, fate))

    def unordered(self, most):
        """As journal(). At each cut, yields all subsets of the effects that may be lost, or `most`
        subsets."""
        for cut in range(len(self.effects) + 1):
            kept, free = self.demanded(cut)
            for subset in self.subsets(free, most):
                effects = [self.effects[at] for at in sorted((*kept, *subset))]
                for fate in (lambda node: "kept", lambda node: "lost", self.random_fates()):
                    yield cut, self.state(effects, self.fated(cut, fate))

    def demanded(self, cut):
        """Returns the numbers of the effects on names and modes: the synced effects, and the other
        effects."""
        kept, free = [], []
        for at, effect in enumerate(self.effects[:cut]):
            if isinstance(effect, (Names, Mode)):
                (kept if self.is_synced(effect, at, cut) else free).append(at)
        return kept, free

    def is_synced(self, effect, at, cut):
        places = ({directory for directory, _, _ in effect.slots} if isinstance(effect, Names)
                  else {effect.node})
        return any(isinstance(later, Sync) and (later.node is None or later.node in places)
                   for later in self.effects[at + 1:cut])

    def subsets(self, free, most):
        if 1 << len(free) <= most:
            for count in range(len(free) + 1):
                yield from itertools.combinations(free, count)
            return
        yield ()
        yield free
        for one in self.choice.sample(free, min(len(free), most // 4)):
            yield [other for other in free if other != one]
            yield [one]
        for _ in range(most // 2):
            yield [one for one in free if self.choice.random() < 0.5]
