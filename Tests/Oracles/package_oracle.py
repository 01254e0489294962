"""A second implementation of the extraction, for any bytes as a package. The reader shares no code
with the product. The reader is as lenient as the zip library, because the leniency decides the content
that is installed from a damaged package."""

import zlib

from expected import LONGEST_NAME, Destination, climbs_out

CHUNK = 8192  # bytes of one write; of damaged data, the whole buffers before the damage stay
BUFFER = 16384  # bytes of one read of the library
STORED, DEFLATED = 0, 8
SIZES_FOLLOW = 8
CENTRAL, LOCAL, END = b"PK\1\2", b"PK\3\4", b"PK\5\6"


class Damaged(Exception):
    """The bytes end early or are wrong."""


def numbers(data, at, sizes):
    """Returns consecutive little-endian numbers of the given sizes. A byte after the end of the archive
    is no error: its value is the last byte read of the same number, or zero."""
    require(at >= 0)
    for size in sizes:
        there = data[at:at + size]
        there += (there[-1:] or b"\0") * (size - len(there))
        yield int.from_bytes(there, "little")
        at += size


def require(holds):
    if not holds:
        raise Damaged


class Entry:
    """One entry of the central directory."""

    def __init__(self, data, at):
        (_, _, _, _, self.method, _, _, self.crc, self.compressed, self.size, self.name_length,
         extra_length, comment_length, _, _, _, self.offset) = numbers(
             data, at, (4, 2, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2, 2, 2, 2, 4, 4))
        require(data[at:at + 4] == CENTRAL)
        self.name_at = at + 46
        self.next = self.name_at + self.name_length + extra_length + comment_length

    def name(self, data):
        length = min(self.name_length, LONGEST_NAME + 1)
        require(self.name_at + length <= len(data))
        return data[self.name_at:self.name_at + length].partition(b"\0")[0]


class Archive:
    """An archive. The constructor raises Damaged if the library does not open the archive."""

    def __init__(self, data):
        self.data = data
        end = data.rfind(END)
        require(end >= 0)
        _, disk, directory_disk, here, self.count, size, offset = numbers(
            data, end, (4, 2, 2, 2, 2, 4, 4))
        require(here == self.count and disk == directory_disk == 0 and offset + size <= end)
        self.before = end - (offset + size)  # bytes before the archive
        self.directory = offset + self.before

    def entries(self):
        """Yields the entries up to the first that cannot be read."""
        at = self.directory
        for _ in range(self.count):
            try:
                entry = Entry(self.data, at)
            except Damaged:
                return
            yield entry
            at = entry.next

    def content(self, entry):
        """Yields the bytes that are written for a file. Raises Damaged if the entry cannot be opened."""
        at = entry.offset + self.before
        (_, _, flags, method, _, _, crc, compressed, size, name_length, extra_length) = numbers(
            self.data, at, (4, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2))
        require(self.data[at:at + 4] == LOCAL and name_length == entry.name_length)
        require(method == entry.method and method in (STORED, DEFLATED))
        if not flags & SIZES_FOLLOW:
            require(crc == entry.crc and compressed in (entry.compressed, 0xFFFFFFFF)
                    and size in (entry.size, 0xFFFFFFFF))
        start = at + 30 + name_length + extra_length
        source = Source(self.data, start, entry.compressed)
        read = source.stored if method == STORED else source.inflated
        return b"".join(chunks(read, entry.size))


def chunks(read, size):
    """Yields the buffers of a file of this size, up to the first that cannot be read completely."""
    done = 0
    while done < size:
        try:
            chunk = read(min(CHUNK, size - done))
        except (Damaged, zlib.error):
            return
        if not chunk:
            return
        done += len(chunk)
        yield chunk


class Source:
    """The compressed bytes of one file."""

    def __init__(self, data, start, length):
        self.data = data
        self.at = start
        self.left = length
        self.pending = b""
        self.inflater = zlib.decompressobj(-15)

    def fill(self):
        if not self.pending and self.left:
            length = min(BUFFER, self.left)
            require(self.at + length <= len(self.data))
            self.pending = self.data[self.at:self.at + length]
            self.at += length
            self.left -= length

    def stored(self, wanted):
        chunk = b""
        while len(chunk) < wanted:
            self.fill()
            if not self.pending:
                break
            taken = self.pending[:wanted - len(chunk)]
            self.pending = self.pending[len(taken):]
            chunk += taken
        return chunk

    def inflated(self, wanted):
        chunk = b""
        while len(chunk) < wanted and not self.inflater.eof:
            self.fill()
            has_input = bool(self.pending)
            made = self.inflater.decompress(self.pending, wanted - len(chunk))
            self.pending = self.inflater.unconsumed_tail
            require(made or has_input or self.inflater.eof)
            chunk += made
        return chunk


def extracted(data):
    """Returns the tree that a package of these bytes gives."""
    destination = Destination()
    try:
        archive = Archive(data)
    except Damaged:
        return destination.tree()
    for entry in archive.entries():
        try:
            extract(archive, entry, destination)
        except Damaged:
            pass
    return destination.tree()


def extract(archive, entry, destination):
    name = entry.name(archive.data)
    if entry.name_length > LONGEST_NAME or not name or climbs_out(name):
        return
    if name.endswith(b"/"):
        destination.ensure_directory(name)
    else:
        destination.put(name, archive.content(entry))
