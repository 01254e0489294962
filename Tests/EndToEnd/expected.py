"""The tree that the rules of a package give for an archive, computed without the installer."""

import zipfile

LONGEST_NAME = 511
LONGEST_COMPONENT = 255  # of the file system


def stored_name(info):
    """The name's bytes as they are in the archive."""
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
    """A directory tree in memory: a directory is a dictionary, a file is bytes."""

    def __init__(self):
        self.top = {}

    def find(self, path):
        """The node at a path; None when a component is missing or is below a file."""
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
        """Puts a node where a directory is ready for it, unless a directory is there."""
        parent, _, name = path.rpartition(b"/")
        directory = self.find(parent)
        if (isinstance(directory, dict) and len(name) <= LONGEST_COMPONENT
                and name not in (b"", b".", b"..") and not isinstance(directory.get(name), dict)):
            directory[name] = node

    def ensure_directory(self, path):
        """Every leading part of the path that is missing is made, in turn."""
        parts = path.rstrip(b"/").split(b"/")
        for count in range(1, len(parts) + 1):
            prefix = b"/".join(parts[:count])
            if self.find(prefix) is None:
                self.put(prefix, {})

    def tree(self):
        """The form in which the machine's trees are compared."""
        found = {}

        def visit(directory, prefix):
            for name, node in directory.items():
                found[prefix + name] = "a directory" if isinstance(node, dict) else node
                if isinstance(node, dict):
                    visit(node, prefix + name + b"/")

        visit(self.top, b"")
        return found


def extracted(package):
    """The tree that an undamaged package is extracted to."""
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
