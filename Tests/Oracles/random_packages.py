"""Makes random packages: correct ones, and packages with damage in any part."""

from zip_bytes import (DEFLATED, ENCRYPTED, SIZES_FOLLOW, STORED, UTF8, Entry, archive, descriptor,
                       extra)

COMPONENTS = [b"a", b"b", b"x", b"y", b"X", b"..", b".", b"", b"a b", b"\\", "ä".encode(), b"\xff",
              b"e" * 255, b"f" * 256, b"Resource0", b"...", b".x", b"x.", b"xy"]
WEIGHTS = [20, 10, 40, 40, 3, 4, 4, 3, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 5]
DIRECTORIES = (b"", b"a/", b"b/", b"a/b/")
SIZES = (0, 1, 100, 8191, 8192, 8193, 16384, 30_000)


def name(random):
    if random.random() < 0.5:  # in a directory that usually has an entry
        return random.choice(DIRECTORIES) + random.choice((b"x", b"y", b"X", b"index.html"))
    parts = random.choices(COMPONENTS, WEIGHTS, k=random.choice((1, 1, 1, 2, 2, 3, 4)))
    made = b"/".join(parts) + (b"/" if random.random() < 0.4 else b"")
    if random.random() < 0.03:
        made = b"/" + made
    if random.random() < 0.03:
        at = random.randrange(len(made) + 1)
        made = made[:at] + b"\0" + made[at:]
    if random.random() < 0.02:
        made = (made + b"/" + b"g/" * 300)[:random.randrange(508, 516)]
    return made


def content(random):
    size = random.choice(SIZES)
    return random.choice((bytes(size), random.randbytes(size), (b"a line of text\n" * 2000)[:size]))


def damaged(random, data):
    """Returns other bytes: truncated, changed in one place, extended, or replaced."""
    if not data:
        return b"damage"
    at = random.randrange(len(data))
    return random.choice((data[:at], data[:at] + random.randbytes(1) + data[at + 1:], data + b"x",
                          random.randbytes(len(data))))


def entry(random, names):
    data = content(random)
    method = random.choice((STORED, DEFLATED))
    flags = random.choice((0, 0, UTF8, ENCRYPTED))
    fields = {"flags": flags}
    if random.random() < 0.1:
        method = random.choice((1, 6, 9, 14, 99))
    if random.random() < 0.1:
        fields["extra"] = extra(0x5455, random.randbytes(5))
    made = Entry(random.choice(names), data, method, **fields)
    if random.random() < 0.1:
        stream(made, data)
    if random.random() < 0.15:
        made.data = damaged(random, made.data)
        for header in (made.local, made.central):
            header["compressed"] = len(made.data) + random.choice((0, 0, 0, 1, -1))
    if random.random() < 0.1:
        spoil(random, made)
    return made


def stream(made, data):
    """Writes the sizes and the checksum after the data."""
    made.local.update(flags=made.local["flags"] | SIZES_FOLLOW, crc=0, compressed=0, size=0)
    made.central["flags"] |= SIZES_FOLLOW
    made.after = descriptor(data, made.data)


def spoil(random, made):
    """Makes one field of one header or of both headers wrong."""
    field = random.choice(("crc", "size", "compressed", "method", "signature", "name", "flags"))
    value = {"name": b"other", "size": random.randrange(40_000),
             "compressed": random.randrange(40_000)}.get(field, random.randrange(1 << 16))
    for header in random.choice(((made.local,), (made.central,), (made.local, made.central))):
        header[field] = value


def package(random):
    """Returns the bytes of a random package."""
    names = [name(random) for _ in range(random.randrange(1, 9))]
    entries = [Entry(part) for part in DIRECTORIES[1:] if random.random() < 0.7]
    entries += [entry(random, names) for _ in range(random.randrange(0, 12))]
    if random.random() < 0.3:
        random.shuffle(entries)
    for made in entries:
        for header in (made.local, made.central):
            header["compressed"] = max(0, header["compressed"])
    options = {}
    if random.random() < 0.1 and entries:
        options["listed"] = random.choices(range(len(entries)), k=random.randrange(1, 9))
    if random.random() < 0.1:
        options["comment"] = random.randbytes(random.randrange(30))
    if random.random() < 0.05:
        options[random.choice(("count", "directory_size", "directory_offset", "disk",
                               "disk_count"))] = random.randrange(100)
    made = archive(*entries, **options)
    if random.random() < 0.1:
        made = random.randbytes(random.randrange(100)) + made
    return spoiled(random, made) if random.random() < 0.3 else made


def spoiled(random, data):
    """Removes, changes or adds bytes anywhere."""
    if random.random() < 0.4:
        return data[:random.randrange(len(data) + 1)]
    changed = bytearray(data)
    for _ in range(random.randrange(1, 9)):
        # Most bytes are content. The central directory is at the end.
        at = random.randrange(len(data)) if random.random() < 0.4 else -random.randrange(
            1, min(len(data), 400) + 1)
        changed[at] = random.randrange(256)
    return bytes(changed) + (b"more" if random.random() < 0.1 else b"")
