"""Computes the tree that an archive must give by the rules, without the installer."""

import zipfile

LONGEST_NAME = 511
LONGEST_COMPONENT = 255  # the limit of the file system


def stored_name(info):
    """Returns the bytes of the name as stored in the archive."""
    encoding = "utf-8" if info.flag_bits & 0x800 else "cp437"
    return info.orig_filename.encode(encoding)


def climbs_out(name):
    depth = 0
    for component in name.split(b"/"):
        depth += {b"": 0, b".": 0, b"..": -1}.get(component, 1)
        if depth < 0:
            return True
    return False


class Destination:
    """A directory tree in memory. A directory is a dictionary, and a file is bytes."""

    def __init__(self):
        self.top = {}

    def find(self, path):
        """Returns the node at a path, or None if a component is missing or is below a file."""
        trail = [self.top]
        for component in path.split(b"/"):
            if not isinstance(trail[-1], dict):
                return None
            if component == b"..":
                trail.pop()
            elif component not in (b"", b"."):
                trail.append(trail[-1].get(component))
        return trail[-1]

    def put(self, path, node):
        """Stores a node if its directory exists, unless the path is a directory."""
        parent, _, name = path.rpartition(b"/")
        directory = self.find(parent)
        if (isinstance(directory, dict) and len(name) <= LONGEST_COMPONENT
                and name not in (b"", b".", b"..") and not isinstance(directory.get(name), dict)):
            directory[name] = node

    def ensure_directory(self, path):
        """Makes each missing ancestor of the path, and the directory."""
        parts = path.rstrip(b"/").split(b"/")
        for count in range(1, len(parts) + 1):
            prefix = b"/".join(parts[:count])
            if self.find(prefix) is None:
                self.put(prefix, {})

    def tree(self):
        """Returns the tree in the form of the trees of a machine."""
        found = {}

        def visit(directory, prefix):
            for name, node in directory.items():
                found[prefix + name] = "a directory" if isinstance(node, dict) else node
                if isinstance(node, dict):
                    visit(node, prefix + name + b"/")

        visit(self.top, b"")
        return found


def extracted(package):
    """Returns the tree that the extraction of an undamaged package must give."""
    destination = Destination()
    with zipfile.ZipFile(package) as archive:
        for info in archive.infolist():
            name = stored_name(info)
            if len(name) > LONGEST_NAME:
                continue
            name = name.partition(b"\0")[0]
            if climbs_out(name):
                continue
            if name.endswith(b"/"):
                destination.ensure_directory(name)
            elif name:
                destination.put(name, archive.read(info))
    return destination.tree()
