"""The bytes of zip archives, every field free to be wrong."""

import struct
import zlib

STORED, DEFLATED = 0, 8

ENCRYPTED, SIZES_FOLLOW, UTF8 = 1, 8, 0x800

IN_64_BITS = 0xFFFFFFFF

LOCAL_SIGNATURE = 0x04034B50
CENTRAL_SIGNATURE = 0x02014B50
END_SIGNATURE = 0x06054B50
END64_SIGNATURE = 0x06064B50
LOCATOR64_SIGNATURE = 0x07064B50
DESCRIPTOR_SIGNATURE = 0x08074B50


def deflated(content, level=9, strategy=zlib.Z_DEFAULT_STRATEGY, flush=zlib.Z_FINISH):
    """Raw deflate data; with another flush, a beginning after which more may follow."""
    deflate = zlib.compressobj(level, wbits=-15, strategy=strategy)
    return deflate.compress(content) + deflate.flush(flush)


def extra(kind, data):
    """One extra field."""
    return struct.pack("<HH", kind, len(data)) + data


def extra64(*numbers):
    """The extra field of the 64-bit form."""
    return extra(1, struct.pack(f"<{len(numbers)}Q", *numbers))


def descriptor(content, packed, signature=True, wide=False):
    """What follows the data of an entry whose local header leaves the sizes out."""
    start = struct.pack("<L", DESCRIPTOR_SIGNATURE) if signature else b""
    return start + struct.pack("<LQQ" if wide else "<LLL", zlib.crc32(content), len(packed),
                               len(content))


class Entry:
    """A member with its two headers. Other fields than those that belong to the content are given
    by their names: for both headers, or in `local` and `central` for one of them. `data` and
    `after` are the bytes in the archive for the content and after it."""

    def __init__(self, name, content=b"", method=STORED, *, data=None, after=b"", gap=b"",
                 local=None, central=None, **both):
        if isinstance(name, str):
            name = name.encode()
        packed = deflated(content) if method == DEFLATED else content
        self.data = packed if data is None else data
        self.after = after
        self.gap = gap  # before the local header
        fields = {"needed": 20, "flags": 0, "method": method, "time": 0, "date": 0x21,
                  "crc": zlib.crc32(content), "compressed": len(self.data), "size": len(content),
                  "name": name, "extra": b"", **both}
        self.local = {"signature": LOCAL_SIGNATURE, **fields, **(local or {})}
        self.central = {"signature": CENTRAL_SIGNATURE, "made_by": 0x0314, "comment": b"",
                        "disk": 0, "internal": 0, "external": 0, **fields, **(central or {})}

    def local_bytes(self):
        header = self.local
        return (struct.pack("<L", header["signature"]) + common(header) + header["name"]
                + header["extra"] + self.data + self.after)

    def central_bytes(self, offset):
        header = {"offset": offset, **self.central}
        return (struct.pack("<LH", header["signature"], header["made_by"]) + common(header)
                + struct.pack("<HHHLL",
                              header.get("comment_length", len(header["comment"])), header["disk"],
                              header["internal"], header["external"], header["offset"])
                + header["name"] + header["extra"] + header["comment"])


def common(header):
    """The fields that both headers share, from "version needed" to the extra field's length."""
    return struct.pack(
        "<HHHHHLLLHH",
        *(header[field] for field in ("needed", "flags", "method", "time", "date", "crc",
                                      "compressed", "size")),
        header.get("name_length", len(header["name"])),
        header.get("extra_length", len(header["extra"])))


def archive(*entries, listed=None, before_directory=b"", in_directory=b"", end64=None,
            locator64=None, **end):
    """The archive of these entries. `listed` are the indexes of those that the directory lists,
    in its order; `end`, `end64` and `locator64` are fields of the records at the end, the latter
    two written where they are given."""
    body, offsets = b"", []
    for entry in entries:
        body += entry.gap
        offsets.append(len(body))
        body += entry.local_bytes()
    body += before_directory
    places = range(len(entries)) if listed is None else listed
    directory = b"".join(entries[place].central_bytes(offsets[place]) for place in places)
    directory += in_directory
    frame = {"count": len(places), "directory_size": len(directory), "directory_offset": len(body)}
    records = b""
    if end64 is not None:
        records += end64_record({**frame, **end64})
    if locator64 is not None:
        records += locator64_record({"position": len(body) + len(directory), **locator64})
    return body + directory + records + end_record({**frame, **end})


def end_record(fields):
    fields = {"signature": END_SIGNATURE, "disk": 0, "directory_disk": 0,
              "disk_count": fields["count"], "comment": b"", **fields}
    return struct.pack(
        "<LHHHHLLH",
        *(fields[field] for field in ("signature", "disk", "directory_disk", "disk_count", "count",
                                      "directory_size", "directory_offset")),
        fields.get("comment_length", len(fields["comment"]))) + fields["comment"]


def end64_record(fields):
    fields = {"signature": END64_SIGNATURE, "record_size": 44, "disk_count": fields["count"],
              **fields}
    return struct.pack(
        "<LQHHLLQQQQ", fields["signature"], fields["record_size"], 45, 45, 0, 0,
        fields["disk_count"], fields["count"], fields["directory_size"],
        fields["directory_offset"])


def locator64_record(fields):
    fields = {"signature": LOCATOR64_SIGNATURE, "disk": 0, "disks": 1, **fields}
    return struct.pack("<LLQL", *(fields[field] for field in ("signature", "disk", "position",
                                                              "disks")))
