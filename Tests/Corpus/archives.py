"""The corpus of packages: what each is, and its bytes."""

import bz2
import gzip
import lzma
import random
import stat
import struct
import zlib

from zip_bytes import (CENTRAL_SIGNATURE, DEFLATED, ENCRYPTED, END_SIGNATURE, IN_64_BITS,
                       SIZES_FOLLOW, STORED, UTF8, Entry, archive, deflated, descriptor,
                       end_record, extra, extra64)

NOISE = random.Random(1).randbytes(300_000)  # does not shrink
TEXT = b"".join(b"line %d of a text that shrinks\n" % number for number in range(2000))

A = Entry("a", b"first")
B = Entry("b", TEXT, DEFLATED)
Z = Entry("z", b"last")
D = Entry("d/")


def surrounded(*entries, **fields):
    """Between a first and a last entry that must come through whatever is between them."""
    return archive(A, *entries, Z, **fields)


def named(*names, flags=0):
    """Files, and directories, of these names, below and beside a directory "d"."""
    return surrounded(D, *(Entry(name, b"named", flags=flags) for name in names))


def changed(data, position, replacement):
    """With other bytes from a position on, which counts from the end when negative."""
    position += len(data) if position < 0 else 0
    return data[:position] + replacement + data[position + len(replacement):]


def long_name(length):
    """A name of this length, below the directories that long_directories() announces."""
    start = "d" * 250 + "/" + "e" * 250 + "/"
    return start + "f" * (length - len(start))


def long_directories():
    return Entry("d" * 250 + "/" + "e" * 250 + "/")


def broken_deflate(good):
    """Deflate data whose second block has a type that does not exist."""
    return deflated(good, flush=zlib.Z_FULL_FLUSH) + b"\7" * 32


def mode(bits):
    """The fields of an entry made on a system with file modes."""
    return {"central": {"made_by": 0x0314, "external": bits << 16}}


TREES = dict(
    stored_file=archive(A),
    deflated_file=archive(B),
    empty_file=archive(Entry("a")),
    empty_deflated_file=archive(Entry("a", b"", DEFLATED)),
    no_entries=archive(),
    only_a_directory=archive(D),
    directories_before_their_files=archive(D, Entry("d/e/"), Entry("d/e/f", b"x"), Entry("d/g")),
    file_before_its_directory=surrounded(Entry("d/f", b"early"), D, Entry("d/g", b"late")),
    file_without_directory_entries=surrounded(Entry("d/e/f", b"never")),
    directory_entry_makes_its_parents=archive(Entry("d/e/f/"), Entry("d/g", b"1"),
                                              Entry("d/e/h", b"2")),
    parent_entry_after_its_child=archive(Entry("d/e/"), D, Entry("d/f", b"1")),
    directory_with_two_entries=archive(D, Entry("d/f", b"1"), D, Entry("d/g", b"2")),
    directory_entry_with_data=archive(Entry("d/", b"data of a directory"), Entry("d/f", b"1")),
    directory_entry_deflated=archive(Entry("d/", b"", DEFLATED), Entry("d/f", b"1")),
    duplicate_file_last_wins=surrounded(Entry("f", b"one"), Entry("f", b"two")),
    duplicate_file_last_is_longer=surrounded(Entry("f", b"one"), Entry("f", TEXT, DEFLATED)),
    duplicate_file_last_is_empty=surrounded(Entry("f", b"one"), Entry("f")),
    duplicate_file_last_is_damaged=surrounded(
        Entry("f", TEXT), Entry("f", TEXT, DEFLATED, data=b"\7" * 50)),
    duplicate_file_last_cannot_be_opened=surrounded(
        Entry("f", b"one"), Entry("f", b"two", local={"signature": 0})),
    duplicate_file_last_is_of_an_unsupported_method=surrounded(
        Entry("f", b"one"), Entry("f", b"two", 1)),
    duplicate_file_three_times=surrounded(*(Entry("f", data) for data in (b"1", b"22", b"3"))),
    duplicate_through_dots=surrounded(D, Entry("f", b"long"), Entry("d/../f", b"x")),
    duplicate_through_empty_component=surrounded(D, Entry("d/f", b"long"), Entry("d//f", b"x")),
    duplicate_through_leading_slash=surrounded(Entry("f", b"long"), Entry("/f", b"x")),
    duplicate_through_zero_byte=surrounded(Entry("f", b"long"), Entry(b"f\0g", b"x")),
    directory_where_file_stood=surrounded(Entry("d", b"file"), D, Entry("d/f", b"never")),
    file_where_directory_stood=surrounded(D, Entry("d/f", b"1"), Entry("d", b"never")),
    file_below_a_file=surrounded(Entry("f", b"file"), Entry("f/g", b"never")),
    directory_below_a_file=surrounded(Entry("f", b"file"), Entry("f/g/h/")),
    parent_through_a_file=surrounded(Entry("f", b"file"), Entry("f/../g", b"never")),
    case_differs=surrounded(Entry("Read", b"1"), Entry("read", b"2"), Entry("D/"), D),
    two_hundred_levels=archive(*(Entry("d/" * count) for count in range(1, 201)),
                               Entry("d/" * 200 + "f", b"deep")),
    two_hundred_levels_at_once=archive(Entry("d/" * 200), Entry("d/" * 200 + "f", b"deep")),
    thousand_files=archive(*(Entry(f"{number}", b"%d" % number) for number in range(1000))),
    thousand_files_backwards=archive(*(Entry(f"{number}", b"%d" % number)
                                       for number in range(1000)), listed=range(999, -1, -1)),
)

NAMES = dict(
    climbing_file=named("../up"),
    climbing_directory=named("../up/"),
    climbing_into_its_own_directory=named("../Resource0/in"),
    climbing_far=named("../../../../../../../../../../up"),
    climbing_after_a_descent=named("d/../../up"),
    climbing_behind_a_slash=named("/../up"),
    climbing_behind_a_dot=named("./../up"),
    climbing_behind_empty_components=named("d//../../up"),
    climbing_name_alone=named(".."),
    climbing_name_alone_with_slash=named("../"),
    climbing_with_backslashes=named("..\\up", "d\\..\\..\\up"),
    climbing_in_the_local_name_only=surrounded(
        Entry("f", b"x", local={"name": b"../f"})),
    climbing_in_the_central_name_only=surrounded(
        Entry("f", b"x", central={"name": b"../f"})),
    climbing_behind_a_zero_byte=named(b"f\0/../../up"),
    three_dots=named("...", ".../", ".../f"),
    dots_before_a_name=named("..f", "..f/"),
    dots_that_stay_inside=named("d/../f"),
    dots_through_a_missing_directory=named("missing/../f"),
    dots_through_an_implied_directory=named("e/../h/"),
    dot_alone=named("."),
    dot_with_slash=named("./"),
    dot_at_the_end_of_a_directory=named("d/./", "e/./"),
    dot_at_the_end_of_a_file=named("d/."),
    dots_at_the_end_of_a_file=named("d/.."),
    dots_at_the_end_of_a_directory=named("d/../", "e/../"),
    dot_in_the_middle=named("d/./f"),
    dot_before_each_name=archive(Entry("./"), Entry("./d/"), Entry("./d/f", b"x")),
    empty_component=named("d//f"),
    empty_component_at_the_end=named("e//"),
    slash_alone=named("/"),
    slashes_alone=named("///"),
    absolute_file=named("/f"),
    absolute_file_with_two_slashes=named("//f"),
    absolute_directory=named("/e/", "/e/f"),
    absolute_file_in_a_system_directory=named("/etc/passwd", "/tmp/f"),
    drive_letter=named("C:/f", "C:\\f"),
    backslashes_as_separators=named("e\\", "e\\f", "d\\g"),
    blanks=named(" ", " f", "f ", "d/ "),
    line_breaks_and_tabs=named("a\nb", "a\rb", "a\tb"),
    every_control_character=named(*(bytes((byte,)) for byte in range(1, 32)), b"\x7f"),
    every_high_byte=named(*(bytes((byte,)) for byte in range(128, 256))),
    shell_characters=named("*", "?", "$HOME", "`f`", "a;b", "a|b", "'", '"', "~", "-rf", "!"),
    format_characters=named("%s%n", "%d", "%"),
    colon=named("a:b"),
    trailing_dot=named("f.", "e./"),
    devices_of_other_systems=named("CON", "NUL", "aux.txt"),
    name_of_the_installed_directory=named("Resource0", "Resource1/"),
    name_of_the_metadata=named("metadata.txt", "OrloWebResources.zip"),
    junk_of_a_desktop=named(".DS_Store", "._f", "__MACOSX/", "__MACOSX/._f", "Thumbs.db"),
    flagged_utf8_name=named("grüße.html", "日本/", "日本/語", flags=UTF8),
    unflagged_utf8_name=named("grüße.html", "日本/", "日本/語"),
    flagged_ascii_name=named("f", flags=UTF8),
    emoji_name=named("👩‍👩‍👧", flags=UTF8),
    composed_and_decomposed_names=named("\u00e4", "a\u0308", flags=UTF8),
    byte_order_mark_in_a_name=named("\ufefff", flags=UTF8),
    right_to_left_override_in_a_name=named("a\u202egpj.exe", flags=UTF8),
    latin1_name=named(b"caf\xe9"),
    flagged_name_that_is_not_utf8=named(b"caf\xe9", flags=UTF8),
    overlong_slash_in_a_name=named(b"d\xc0\xaff", b"..\xc0\xafup", flags=UTF8),
    surrogate_in_a_name=named(b"\xed\xa0\x80", flags=UTF8),
    empty_name=named(b""),
    empty_name_twice=named(b"", b""),
    zero_byte_inside_a_name=named(b"f\0g"),
    zero_byte_first_in_a_name=named(b"\0f"),
    zero_byte_before_the_slash=named(b"e\0/"),
    zero_byte_behind_the_slash=named(b"e/\0f"),
    zero_byte_last_in_a_name=named(b"f\0"),
    zero_byte_in_a_name_of_600_bytes=named(b"f\0" + b"g" * 598),
    name_of_510_bytes=surrounded(long_directories(), Entry(long_name(510))),
    name_of_511_bytes=surrounded(long_directories(), Entry(long_name(511))),
    name_of_512_bytes=surrounded(long_directories(), Entry(long_name(512))),
    name_of_513_bytes=surrounded(long_directories(), Entry(long_name(513))),
    name_of_65535_bytes=surrounded(Entry("n" * 65535, b"never")),
    directory_name_of_511_bytes=surrounded(Entry(long_name(510) + "/")),
    directory_name_of_512_bytes=surrounded(Entry(long_name(511) + "/")),
    name_of_600_bytes_that_climbs_out_late=named("d/" * 290 + "../" * 300 + "up"),
    name_component_of_255_bytes=named("n" * 255),
    name_component_of_256_bytes=named("n" * 256),
    directory_component_of_255_bytes=named("n" * 255 + "/", "n" * 255 + "/f"),
    directory_component_of_256_bytes=named("n" * 256 + "/", "n" * 256 + "/f"),
    directory_component_of_256_bytes_below_a_new_one=named("e/" + "n" * 256 + "/"),
    long_component_that_dots_take_back=named("n" * 256 + "/../f"),
    unicode_path_field_that_differs=surrounded(
        Entry("f", b"x", extra=extra(0x7075, struct.pack("<BL", 1, zlib.crc32(b"f")) + b"other"))),
)

DATA = dict(
    **{f"stored_size_of_{size}_bytes": surrounded(Entry("f", NOISE[:size]))
       for size in (1, 8191, 8192, 8193, 16384, 65535, 65536, 65537, 300_000)},
    **{f"deflated_size_of_{size}_bytes": surrounded(Entry("f", NOISE[:size], DEFLATED))
       for size in (1, 8191, 8192, 8193, 16384, 65535, 65536, 65537, 300_000)},
    deflated_text=surrounded(Entry("f", TEXT, DEFLATED)),
    deflated_in_stored_blocks=surrounded(Entry("f", TEXT, DEFLATED, data=deflated(TEXT, level=0))),
    deflated_with_fixed_codes=surrounded(
        Entry("f", TEXT, DEFLATED, data=deflated(TEXT, strategy=zlib.Z_FIXED))),
    deflated_in_two_flushed_blocks=surrounded(
        Entry("f", TEXT * 2, DEFLATED,
              data=deflated(TEXT, flush=zlib.Z_FULL_FLUSH) + deflated(TEXT))),
    three_million_zeros=surrounded(Entry("f", bytes(3_000_000), DEFLATED)),
    wrong_checksum_of_stored_data=surrounded(Entry("f", b"text", crc=1)),
    wrong_checksum_of_deflated_data=surrounded(Entry("f", TEXT, DEFLATED, crc=1)),
    wrong_checksum_of_an_empty_file=surrounded(Entry("f", crc=1)),
    stored_data_changed=surrounded(Entry("f", b"text", data=b"tuxt")),
    deflated_data_changed=surrounded(
        Entry("f", TEXT, DEFLATED, data=changed(deflated(TEXT), 1000, b"\x55\xaa\x55"))),
    deflated_data_is_noise=surrounded(Entry("f", TEXT, DEFLATED, data=NOISE[:500])),
    deflated_data_is_the_text_itself=surrounded(Entry("f", TEXT, DEFLATED, data=TEXT)),
    deflated_data_in_a_zlib_frame=surrounded(Entry("f", TEXT, DEFLATED, data=zlib.compress(TEXT))),
    deflated_data_in_a_gzip_frame=surrounded(
        Entry("f", TEXT, DEFLATED, data=gzip.compress(TEXT, mtime=0))),
    deflated_data_cut=surrounded(Entry("f", TEXT, DEFLATED, data=deflated(TEXT)[:1000])),
    deflated_data_without_its_last_byte=surrounded(
        Entry("f", TEXT, DEFLATED, data=deflated(TEXT)[:-1])),
    deflated_data_without_any_byte=surrounded(Entry("f", TEXT, DEFLATED, data=b"")),
    deflated_data_with_bytes_behind=surrounded(
        Entry("f", TEXT, DEFLATED, data=deflated(TEXT) + b"more")),
    deflated_data_damaged_before_one_chunk=surrounded(
        Entry("f", TEXT, DEFLATED, data=broken_deflate(TEXT[:5000]))),
    deflated_data_damaged_behind_one_chunk=surrounded(
        Entry("f", TEXT, DEFLATED, data=broken_deflate(TEXT[:8192]))),
    deflated_data_damaged_behind_three_chunks=surrounded(
        Entry("f", NOISE, DEFLATED, data=broken_deflate(NOISE[:30_000]))),
    deflated_data_with_a_distance_too_far=surrounded(
        Entry("f", TEXT, DEFLATED, data=deflated(TEXT * 2)[3000:])),
    deflated_size_too_small=surrounded(Entry("f", TEXT, DEFLATED, size=10_000)),
    deflated_size_too_large=surrounded(Entry("f", TEXT, DEFLATED, size=100_000)),
    deflated_size_zero=surrounded(Entry("f", TEXT, DEFLATED, size=0)),
    deflated_compressed_size_too_small=surrounded(Entry("f", TEXT, DEFLATED, compressed=700)),
    deflated_compressed_size_too_large=surrounded(Entry("f", TEXT, DEFLATED, compressed=99_999)),
    deflated_compressed_size_zero=surrounded(Entry("f", TEXT, DEFLATED, compressed=0)),
    deflated_size_of_nearly_4_gib=surrounded(Entry("f", TEXT, DEFLATED, size=0xFFFFFFFE)),
    stored_sizes_too_small=surrounded(Entry("f", TEXT, size=10_000, compressed=10_000)),
    stored_sizes_too_large=surrounded(Entry("f", TEXT, size=65_000, compressed=65_000)),
    stored_sizes_beyond_the_file=surrounded(Entry("f", TEXT, size=1 << 30, compressed=1 << 30)),
    stored_sizes_of_nearly_4_gib=surrounded(
        Entry("f", TEXT, size=0xFFFFFFFE, compressed=0xFFFFFFFE)),
    stored_size_larger_than_compressed_size=surrounded(Entry("f", TEXT, size=len(TEXT) + 9000)),
    stored_size_smaller_than_compressed_size=surrounded(Entry("f", TEXT, size=len(TEXT) - 9000)),
    stored_size_zero=surrounded(Entry("f", TEXT, size=0)),
    stored_compressed_size_zero=surrounded(Entry("f", TEXT, compressed=0)),
    bzip2_entry=surrounded(Entry("f", TEXT, 12, data=bz2.compress(TEXT))),
    bzip2_entry_that_is_none=surrounded(Entry("f", TEXT, 12)),
    lzma_entry=surrounded(Entry("f", TEXT, 14, data=lzma.compress(TEXT, lzma.FORMAT_ALONE))),
    **{f"entry_of_method_{method}": surrounded(Entry("f", TEXT, method))
       for method in (1, 2, 6, 7, 9, 10, 11, 13, 93, 95, 97, 99, 0x100, 0x108, 0xFFFF)},
    encrypted_entry=surrounded(Entry("f", TEXT, data=NOISE[:len(TEXT) + 12], flags=ENCRYPTED)),
    encrypted_deflated_entry=surrounded(
        Entry("f", TEXT, DEFLATED, data=NOISE[:5000], flags=ENCRYPTED)),
    encrypted_entry_shorter_than_its_header=surrounded(Entry("f", b"short", flags=ENCRYPTED)),
    encrypted_empty_entry=surrounded(Entry("f", flags=ENCRYPTED)),
    encrypted_directory=surrounded(Entry("d/", flags=ENCRYPTED), Entry("d/f", b"1")),
    strongly_encrypted_entry=surrounded(Entry("f", TEXT, flags=0x41)),
    patch_data_flagged=surrounded(Entry("f", TEXT, flags=0x20)),
    masked_headers_flagged=surrounded(Entry("f", TEXT, flags=0x2000)),
    every_flag_but_encryption=surrounded(Entry("f", TEXT, flags=0xFFFE)),
)


def streamed(name, content, method=DEFLATED, **options):
    """An entry with a data descriptor; `wide`, `signature`: its form."""
    packed = deflated(content) if method == DEFLATED else content
    return Entry(name, content, method, flags=SIZES_FOLLOW,
                 local={"crc": 0, "compressed": 0, "size": 0},
                 after=descriptor(content, packed, **options))


def in_64_bits(name, content, method=STORED):
    """An entry whose sizes are in the 64-bit extra fields of both headers."""
    packed = deflated(content) if method == DEFLATED else content
    return Entry(name, content, method, needed=45, compressed=IN_64_BITS, size=IN_64_BITS,
                 extra=extra64(len(content), len(packed)))


HEADERS = dict(
    data_descriptor_with_signature=surrounded(streamed("f", TEXT)),
    data_descriptor_without_signature=surrounded(streamed("f", TEXT, signature=False)),
    data_descriptor_in_64_bits=surrounded(streamed("f", TEXT, wide=True)),
    data_descriptor_of_stored_data=surrounded(streamed("f", TEXT, STORED)),
    data_descriptor_of_other_content=surrounded(
        Entry("f", TEXT, DEFLATED, flags=SIZES_FOLLOW, after=descriptor(b"other", b"other"),
              local={"crc": 0, "compressed": 0, "size": 0})),
    data_descriptor_missing=surrounded(
        Entry("f", TEXT, DEFLATED, flags=SIZES_FOLLOW,
              local={"crc": 0, "compressed": 0, "size": 0})),
    data_descriptor_and_sizes_ahead=surrounded(
        Entry("f", TEXT, DEFLATED, flags=SIZES_FOLLOW, after=descriptor(TEXT, deflated(TEXT)))),
    data_descriptor_without_its_flag=surrounded(
        Entry("f", TEXT, DEFLATED, after=descriptor(TEXT, deflated(TEXT)))),
    data_descriptor_flagged_in_the_local_header_only=surrounded(
        Entry("f", TEXT, DEFLATED, local={"flags": SIZES_FOLLOW, "crc": 0, "compressed": 0,
                                          "size": 0})),
    data_descriptor_flagged_in_the_central_header_only=surrounded(
        Entry("f", TEXT, DEFLATED, central={"flags": SIZES_FOLLOW})),
    local_sizes_zero_without_a_descriptor=surrounded(
        Entry("f", TEXT, DEFLATED, local={"crc": 0, "compressed": 0, "size": 0})),
    local_name_differs=surrounded(Entry("f", TEXT, local={"name": b"g"})),
    local_name_longer=surrounded(Entry("f", TEXT, local={"name": b"ffff"})),
    local_name_shorter=surrounded(Entry("ffff", TEXT, local={"name": b"f"})),
    local_name_empty=surrounded(Entry("f", TEXT, local={"name": b""})),
    local_name_is_a_directory=surrounded(Entry("f", TEXT, local={"name": b"f/"})),
    local_name_length_wrong=surrounded(Entry("f", TEXT, local={"name_length": 3})),
    local_name_length_beyond_the_file=surrounded(Entry("f", TEXT[:99],
                                                       local={"name_length": 0xFFFF})),
    local_checksum_differs=surrounded(Entry("f", TEXT, DEFLATED, local={"crc": 1})),
    local_compressed_size_differs=surrounded(Entry("f", TEXT, DEFLATED, local={"compressed": 1})),
    local_size_differs=surrounded(Entry("f", TEXT, DEFLATED, local={"size": 1})),
    local_method_differs=surrounded(Entry("f", TEXT, DEFLATED, local={"method": STORED})),
    local_method_unsupported=surrounded(Entry("f", TEXT, DEFLATED, local={"method": 14})),
    central_method_unsupported=surrounded(Entry("f", TEXT, DEFLATED, central={"method": 14})),
    local_encryption_flag_differs=surrounded(Entry("f", TEXT, local={"flags": ENCRYPTED})),
    central_encryption_flag_differs=surrounded(Entry("f", TEXT, central={"flags": ENCRYPTED})),
    local_utf8_flag_differs=surrounded(Entry("grüße", TEXT, central={"flags": UTF8})),
    local_version_of_the_future=surrounded(Entry("f", TEXT, local={"needed": 99})),
    both_versions_of_the_future=surrounded(Entry("f", TEXT, needed=0xFFFF)),
    local_time_differs=surrounded(Entry("f", TEXT, local={"time": 0x6000, "date": 0x5555})),
    local_extra_field_longer=surrounded(
        Entry("f", TEXT, local={"extra": extra(0x5455, b"\3" + bytes(8))},
              central={"extra": extra(0x5455, b"\3" + bytes(4))})),
    local_extra_field_of_60000_bytes=surrounded(
        Entry("f", TEXT, local={"extra": extra(0x4141, bytes(60_000))})),
    local_extra_length_wrong=surrounded(Entry("f", TEXT, local={"extra_length": 7})),
    local_extra_length_beyond_the_file=surrounded(
        Entry("f", TEXT[:99], local={"extra_length": 0xFFFF})),
    local_signature_damaged=surrounded(Entry("f", TEXT, local={"signature": 0})),
    local_signature_of_the_first_entry_damaged=archive(
        Entry("f", TEXT, local={"signature": 0x04034B51}), Z),
    local_signature_of_every_entry_damaged=archive(
        *(Entry(name, TEXT, local={"signature": 0}) for name in "abc")),
    local_header_of_a_directory_damaged=surrounded(
        Entry("d/", local={"signature": 0}), Entry("d/f", b"1")),
    offset_beyond_the_file=surrounded(Entry("f", TEXT, central={"offset": 1 << 30})),
    offset_into_the_data=surrounded(Entry("f", TEXT, central={"offset": 99})),
    offset_one_too_large=surrounded(Entry("f", TEXT, central={"offset": 37})),
    offset_of_another_entry=surrounded(Entry("f", TEXT, central={"offset": 0})),
    offset_into_the_directory=archive(A, Entry("f", b"x", central={"offset": 70})),
    one_header_for_two_entries=archive(A, Z, listed=(0, 0, 1)),
    entry_nested_in_the_data_of_another=archive(
        Entry("f", Entry("g", TEXT).local_bytes()), Entry("g", TEXT, central={"offset": 31})),
    gaps_between_entries=archive(A, Entry("f", TEXT, gap=b"gap" * 100), Entry("g", gap=b"g" * 9)),
    entries_listed_backwards=archive(A, B, D, Entry("d/f", b"x"), Z, listed=(4, 3, 2, 1, 0)),
    entry_that_is_not_listed=archive(A, Entry("hidden", TEXT), Z, listed=(0, 2)),
    entry_listed_twice=archive(A, B, Z, listed=(0, 1, 1, 2)),
    extra_field_of_times=surrounded(
        Entry("f", TEXT, extra=extra(0x5455, b"\1" + struct.pack("<L", 1_000_000_000)))),
    extra_field_of_owners=surrounded(
        Entry("f", TEXT, extra=extra(0x7875, b"\1\4" + bytes(4) + b"\4" + bytes(4)))),
    extra_field_of_another_system=surrounded(
        Entry("f", TEXT, extra=extra(0x000A, bytes(4) + extra(1, bytes(24))))),
    extra_field_cut=surrounded(Entry("f", TEXT, extra=struct.pack("<HH", 0x5455, 200) + b"x")),
    extra_field_of_three_bytes=surrounded(Entry("f", TEXT, extra=b"abc")),
    extra_field_of_noise=surrounded(Entry("f", TEXT, extra=NOISE[:777])),
    entry_comment=surrounded(Entry("f", TEXT, central={"comment": b"comment"})),
    entry_comment_of_65535_bytes=surrounded(Entry("f", TEXT, central={"comment": b"c" * 65535})),
    link_entry=surrounded(Entry("f", b"/etc/passwd", **mode(stat.S_IFLNK | 0o777))),
    link_entry_and_a_file_through_it=surrounded(
        Entry("up", b"..", **mode(stat.S_IFLNK | 0o777)), Entry("up/f", b"never")),
    device_entry=surrounded(Entry("f", b"1", **mode(stat.S_IFCHR | 0o666))),
    pipe_entry=surrounded(Entry("f", b"1", **mode(stat.S_IFIFO | 0o666))),
    directory_mode_without_a_slash=surrounded(Entry("d", **mode(stat.S_IFDIR | 0o755)),
                                              Entry("d/f", b"never")),
    file_mode_with_a_slash=surrounded(Entry("d/", **mode(stat.S_IFREG | 0o644)),
                                      Entry("d/f", b"1")),
    mode_without_any_right=surrounded(Entry("d/", **mode(stat.S_IFDIR)),
                                      Entry("d/f", b"1", **mode(stat.S_IFREG))),
    setuid_mode=surrounded(Entry("f", b"1", **mode(stat.S_IFREG | 0o6755))),
    made_without_modes=surrounded(Entry("f", b"1", central={"made_by": 20, "external": 0x27})),
    made_by_an_unknown_system=surrounded(Entry("f", b"1", central={"made_by": 0xFFFF})),
    date_that_does_not_exist=surrounded(Entry("f", b"1", time=0xFFFF, date=0xFFFF)),
    date_of_zero=surrounded(Entry("f", b"1", date=0)),
    entry_on_another_disk=surrounded(Entry("f", b"1", central={"disk": 3})),
    zip64_entry=surrounded(in_64_bits("f", TEXT)),
    zip64_deflated_entry=surrounded(in_64_bits("f", TEXT, DEFLATED)),
    zip64_empty_entry=surrounded(in_64_bits("f", b"")),
    zip64_local_header_only=surrounded(
        Entry("f", TEXT, local={"compressed": IN_64_BITS, "size": IN_64_BITS,
                                "extra": extra64(len(TEXT), len(TEXT))})),
    zip64_central_header_only=surrounded(
        Entry("f", TEXT, central={"compressed": IN_64_BITS, "size": IN_64_BITS,
                                  "extra": extra64(len(TEXT), len(TEXT))})),
    zip64_offset=archive(Entry("f", TEXT, central={"offset": IN_64_BITS, "extra": extra64(0)}), Z),
    zip64_offset_beyond_the_file=surrounded(
        Entry("f", TEXT, central={"offset": IN_64_BITS, "extra": extra64(1 << 60)})),
    zip64_field_without_need=surrounded(Entry("f", TEXT, extra=extra64(1, 2))),
    zip64_field_missing=surrounded(Entry("f", TEXT, compressed=IN_64_BITS, size=IN_64_BITS)),
    zip64_field_too_short=surrounded(
        Entry("f", TEXT, compressed=IN_64_BITS, size=IN_64_BITS, extra=extra(1, bytes(4)))),
    zip64_field_of_nothing=surrounded(
        Entry("f", TEXT, compressed=IN_64_BITS, size=IN_64_BITS, extra=extra(1, b""))),
    zip64_field_behind_another=surrounded(
        Entry("f", TEXT, compressed=IN_64_BITS, size=IN_64_BITS,
              extra=extra(0x5455, b"\1" + bytes(4)) + extra64(len(TEXT), len(TEXT)))),
    zip64_field_twice=surrounded(
        Entry("f", TEXT, compressed=IN_64_BITS, size=IN_64_BITS,
              extra=extra64(len(TEXT), len(TEXT)) + extra64(1, 1))),
    zip64_sizes_beyond_the_file=surrounded(
        Entry("f", TEXT, compressed=IN_64_BITS, size=IN_64_BITS, extra=extra64(1 << 40, 1 << 40))),
    zip64_sizes_that_are_negative=surrounded(
        Entry("f", TEXT, compressed=IN_64_BITS, size=IN_64_BITS,
              extra=extra64((1 << 64) - 1, (1 << 64) - 1))),
)


def directory_begin(data, record=0):
    """Where the directory's first, or a later, record begins."""
    position = -1
    for _ in range(record + 1):
        position = data.index(struct.pack("<L", CENTRAL_SIGNATURE), position + 1)
    return position


WHOLE = archive(A, B, D, Entry("d/f", b"x"), Z)
DIRECTORY_BEGIN = directory_begin(WHOLE)
SECOND_RECORD = directory_begin(WHOLE, 1)
FOURTH_RECORD = directory_begin(WHOLE, 3)
WITHOUT_NUMBERS = {"count": 0xFFFF, "disk_count": 0xFFFF, "directory_size": IN_64_BITS,
                   "directory_offset": IN_64_BITS}

FRAMES = dict(
    **{f"prefix_of_{length}_bytes": NOISE[:length] + WHOLE for length in (1, 22, 4096, 70_000)},
    prefix_of_a_script=b"#!/bin/sh\nexit\n" + WHOLE,
    prefix_of_another_archive=archive(Entry("other", b"other")) + WHOLE,
    prefix_that_offsets_count=archive(Entry("f", TEXT, gap=b"#!/bin/sh\n"), Z),
    prefix_of_a_spanning_mark=b"PK\7\x08" + WHOLE,
    prefix_of_a_single_segment_mark=b"PK00" + WHOLE,
    **{f"suffix_of_{length}_bytes": WHOLE + NOISE[:length]
       for length in (1, 22, 4096, 65_513, 65_514, 70_000)},
    suffix_of_an_end_signature=WHOLE + struct.pack("<L", END_SIGNATURE),
    suffix_of_an_empty_archive=WHOLE + archive(),
    suffix_of_the_same_archive=WHOLE + WHOLE,
    **{f"comment_of_{length}_bytes": archive(A, Z, comment=b"c" * length)
       for length in (1, 1000, 65_513, 65_514, 65_535)},
    comment_with_an_end_signature=archive(A, Z, comment=b"see PK\5\6 here"),
    comment_with_an_archive=archive(A, Z, comment=archive(Entry("other", b"other"))),
    comment_with_a_zip64_locator=archive(A, Z, comment=struct.pack("<LLQL", 0x07064B50, 0, 0, 1)),
    comment_shorter_than_its_length=archive(A, Z, comment=b"cut", comment_length=99),
    comment_longer_than_its_length=archive(A, Z, comment=b"comment", comment_length=3),
    no_bytes=b"",
    one_byte=b"P",
    only_a_local_signature=b"PK\3\4",
    only_an_end_signature=b"PK\5\6",
    only_local_entries=WHOLE[:DIRECTORY_BEGIN],
    only_the_directory=WHOLE[DIRECTORY_BEGIN:],
    only_the_end_record=WHOLE[-22:],
    noise=NOISE[:10_000],
    web_page=b"<html><body>404</body></html>\n" * 50,
    gzip_file=gzip.compress(TEXT, mtime=0),
    xz_file=lzma.compress(TEXT),
    text_with_every_signature=b"PK\3\4 PK\1\2 PK\5\6 PK\6\6 PK\6\7 PK\7\x08" * 9,
    truncated_in_the_first_local_header=WHOLE[:20],
    truncated_in_the_data=WHOLE[:300],
    truncated_in_central_directory=WHOLE[:SECOND_RECORD + 20],
    truncated_before_the_end_record=WHOLE[:-22],
    truncated_in_the_end_record=WHOLE[:-10],
    truncated_by_one_byte=WHOLE[:-1],
    central_signature_of_the_first_record_damaged=changed(WHOLE, DIRECTORY_BEGIN, b"XX"),
    central_signature_of_the_second_record_damaged=changed(WHOLE, SECOND_RECORD, b"XX"),
    central_signature_of_the_fourth_record_damaged=changed(WHOLE, FOURTH_RECORD, b"XX"),
    central_name_length_too_large=surrounded(Entry("f", TEXT, central={"name_length": 20})),
    central_name_length_beyond_the_file=surrounded(
        Entry("f", TEXT, central={"name_length": 0xFFFF})),
    central_name_length_zero=surrounded(Entry("f", TEXT, central={"name_length": 0})),
    central_extra_length_too_large=surrounded(Entry("f", TEXT, central={"extra_length": 20})),
    central_comment_length_too_large=surrounded(Entry("f", TEXT, central={"comment_length": 20})),
    central_comment_length_skips_an_entry=surrounded(
        Entry("f", TEXT, central={"comment_length": 47}), Entry("g", b"skipped")),
    digital_signature_in_the_directory=archive(A, Z, in_directory=b"PK\5\5\4\0sign"),
    decryption_record_before_the_directory=archive(A, Z,
                                                   before_directory=b"PK\6\x08\4\0\0\0data"),
    count_of_entries_too_small=archive(A, B, Z, count=2),
    count_of_entries_too_large=archive(A, B, Z, count=4),
    count_of_entries_zero=archive(A, B, Z, count=0),
    count_of_entries_65535=archive(A, B, Z, count=0xFFFF),
    counts_of_disk_and_whole_differ=archive(A, B, Z, disk_count=1),
    disk_numbers_set=archive(A, B, Z, disk=1, directory_disk=1),
    directory_on_another_disk=archive(A, B, Z, directory_disk=1),
    directory_size_too_small=archive(A, B, Z, directory_size=50),
    directory_size_too_large=archive(A, B, Z, directory_size=200),
    directory_size_zero=archive(A, B, Z, directory_size=0),
    directory_size_beyond_the_file=archive(A, B, Z, directory_size=1 << 30),
    directory_offset_too_small=archive(A, B, Z, directory_offset=10),
    directory_offset_one_too_large=archive(
        A, B, Z, directory_offset=directory_begin(archive(A, B, Z)) + 1),
    directory_offset_zero=archive(A, B, Z, directory_offset=0),
    directory_offset_beyond_the_file=archive(A, B, Z, directory_offset=1 << 30),
    end_record_twice=WHOLE + WHOLE[-22:],
    end_record_of_nothing_before_the_right_one=(
        WHOLE[:-22] + end_record({"count": 0, "directory_size": 0, "directory_offset": 0})
        + WHOLE[-22:]),
    end_record_damaged=changed(WHOLE, -22, b"XX"),
    zip64_end_records=archive(A, B, Z, end64={}, locator64={}),
    zip64_end_records_that_alone_have_the_numbers=archive(A, B, Z, end64={}, locator64={},
                                                          **WITHOUT_NUMBERS),
    zip64_end_records_behind_a_prefix=b"prefix" + archive(A, B, Z, end64={}, locator64={}),
    zip64_end_record_without_locator=archive(A, B, Z, end64={}, **WITHOUT_NUMBERS),
    zip64_locator_without_end_record=archive(A, B, Z, locator64={}),
    zip64_locator_beyond_the_file=archive(A, B, Z, end64={}, locator64={"position": 1 << 50}),
    zip64_locator_of_another_disk=archive(A, B, Z, end64={}, locator64={"disk": 1}),
    zip64_locator_of_two_disks=archive(A, B, Z, end64={}, locator64={"disks": 2}),
    zip64_locator_damaged=archive(A, B, Z, end64={}, locator64={"signature": 0},
                                  **WITHOUT_NUMBERS),
    zip64_end_record_damaged=archive(A, B, Z, end64={"signature": 0}, locator64={}),
    zip64_end_record_of_another_length=archive(A, B, Z, end64={"record_size": 4444}, locator64={}),
    zip64_count_too_small=archive(A, B, Z, end64={"count": 1}, locator64={}),
    zip64_count_too_large=archive(A, B, Z, end64={"count": 1 << 40}, locator64={}),
    zip64_directory_offset_beyond_the_file=archive(
        A, B, Z, end64={"directory_offset": 1 << 50}, locator64={}),
    zip64_directory_size_beyond_the_file=archive(
        A, B, Z, end64={"directory_size": 1 << 50}, locator64={}),
)


def united(*groups):
    names = [name for group in groups for name in group]
    assert len(names) == len(set(names))
    return {name: data for group in groups for name, data in group.items()}


ARCHIVES = united(TREES, NAMES, DATA, HEADERS, FRAMES)
