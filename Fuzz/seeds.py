#!/usr/bin/env python3
"""Makes the seeds of a fuzzer: inputs of every form that the rules of its subject know.

    seeds.py TARGET LARGEST-SIZE DIRECTORY
"""

import datetime
import json
import pathlib
import plistlib
import random
import sys

sys.path.append(str(pathlib.Path(__file__).parent.parent / "Tests/Corpus"))

from archives import ARCHIVES  # noqa: E402
from metadata_files import FILES  # noqa: E402
from zip_bytes import DEFLATED, Entry, archive, deflated  # noqa: E402

TEXTS = [
    *("", " ", "null", "true", "false", "tru", "nul", "fals", '""', '"a"', '"', "[]", "{}", "[", "{"),
    *("0", "-0", "7", "-7", "07", "1.5", "-1.5", ".5", "7.", "1e2", "1E+2", "1e-2", "1.5e10", "1e"),
    *("9223372036854775807", "-9223372036854775808", "18446744073709551617", "1e400", "1e-400"),
    *("1e4294967297", "0.12345678901234567890", "0." + "1" * 40, "1" * 60, "-", "1e2147483648"),
    *('"12^"', '"12^^"', '"^"', '"^^"', '"12a^"', '"99999999999999999999^"', '"\\u0031^"'),
    *('"\\"\\\\\\/\\b\\f\\n\\r\\t"', '"\\u0041\\u00e9\\u65e5\\ud83d\\ude00\\u0000"', '"\\x"', '"\\u12"'),
    *('"\xe9\u65e5\U0001f600"', '{"\xe9":1}', "[1,]", '{"a":}', '{"a":1,"a":2}', '{"":1,"a":2}'),
    *('{"a":1,"":2,"b":3,"":4}', '["12^",["^^",{"a^":"7^"}]]', "[[[[[[[[1]]]]]]]]", "[1 2]", "[1}"),
    *('{"a":{"b":{"c":[1,"x",true,null,1.5]}}}', "[1,2]x", '{"a" : [ 1 ,\t2 ]\v\f}', '{"a"}', "{1:2}"),
    "[" * 400, '{"a":' * 200, "[" * 200 + "]" * 200, json.dumps(list(range(50))),
]


def text_to_value():
    yield from (text.encode() for text in TEXTS)
    yield from (b"\xff", b'"\xff"', b'"\xc3"', b"[\xe9]", b"{\xc3\xa9}", b'"a\0b"', b"[1\0]", b"\0")
    yield from metadata_to_answers()


def metadata_to_answers():
    yield from (data for data in FILES.values() if data is not None)


def described(name, content, kind=0, times=0, fields=b""):
    """Returns an entry's description in the format of archive_to_tree.cpp."""
    return bytes((kind, times, len(name))) + name + bytes((len(content),)) + content + fields


def archive_to_tree():
    yield from (b"\0" + data for data in ARCHIVES.values())
    names = (b"f", b"d/", b"d/f", b"d/e/", b"../f", b"d/../../f", b"/f", b"./f", b"d//f", b"d/..", b"f\0g")
    for kind, fields in ((0, b""), (1, b""), (2, b"\x0c"), (4, b"\1"), (8, b"\x81\x80"), (16, b"\1"),
                         (16, b"\x08"), (32, b"\2up"), (64, b"\0"), (129, b"\3\x03\0\0")):
        yield b"\1" + b"".join(described(name, b"contents", kind, 9, fields) for name in names)
    yield b"\1" + described(b"d/" * 50, b"", 0, 3) + described(b"d/" * 50, b"x" * 255, 1, 4 * 7)
    yield b"\1" + b"".join(described(b"f", deflated(b"text" * 100), 2 + 128, 0, b"\x08")
                           for _ in range(3))


def large_archive_to_tree():
    noise = random.Random(1).randbytes(8_000_000)
    text = b"a line of a text that shrinks\n" * 4_000
    directories = [Entry(f"d{number}/") for number in range(50)]
    yield b"\0" + archive(Entry("f", noise), comment=noise[:60_000])
    yield b"\0" + noise[:1_000_000] + archive(Entry("f", noise[:7_000_000], DEFLATED))
    yield b"\0" + archive(*(Entry(f"{number}", noise[number * 99_000:][:99_000])
                           for number in range(80)))
    yield b"\0" + archive(*directories, *(
        Entry(f"d{number % 50}/{number}", noise[number * 9_000:][:9_000] + text[:number * 300],
              DEFLATED) for number in range(400)))
    yield b"\0" + archive(*directories, *(
        Entry(f"d{number % 50}/{'name' * 60}{number}", b"%d" % number) for number in range(3_000)))


VALUES = dict(
    string="a&b<c>\"' \t\u00e9\U0001f600\n", empty="", integer=7, negative=-7, smallest=-2**63,
    unsigned=2**64 - 1, real=0.1, large=1e300, small=5e-324, infinite=float("-inf"), true=True,
    false=False, date=datetime.datetime(2020, 1, 2, 3, 4, 5), data=bytes(range(256)),
    array=[1, "x", [], {}, [True, 1.5]], dictionary={"": 1, "&": {"k": [b"x"]}},
    iUpdateId=1, tWebResourceInstallPath="Resource0", tFullVersion="17.011.30138.1", irandom=5)
def xml(items):
    return ('<?xml version="1.0" encoding="UTF-8"?>\n<!DOCTYPE plist>\n<plist version="1.0">'
            f"<dict>{items}</dict></plist>").encode()


def property_list_to_record():
    yield from (b"", b"x", b"bplist00", b"<plist>", b"{ a = 1; }", xml(""), xml("<key>k</key>"))
    yield plistlib.dumps(VALUES, fmt=plistlib.FMT_BINARY)
    yield xml("").decode().encode("utf-16")
    for values in (VALUES, {}, [1], *({name: value} for name, value in VALUES.items())):
        yield plistlib.dumps(values, fmt=plistlib.FMT_XML)
    for item in ("<integer>0x10</integer>", "<integer>-0x8</integer>", "<real>nan</real>",
                 "<integer>123456789012345678901234567890</integer>", "<real>1e999</real>",
                 "<date>2020</date>", "<date>2020-01-02T03:04:05.6Z</date>", "<data>AA</data>",
                 "<string>&#65;&amp;&lt;&#x1F600;&#13;\r\n</string>", "<string> </string>",
                 "<string><![CDATA[<a>]]></string>", "<string/>", "<array><true/></array>",
                 "<dict><key>CF$UID</key><integer>5</integer></dict>", "<!-- -->", "<key>a</key>",
                 "<?a b?><array a='\"'/>", "<array>" * 100 + "</array>" * 100):
        yield xml("<key>a</key>" + item + "<key>b</key><true/>")
        yield xml("<key>iUpdateId</key>" + item + "<key>iUpdateId</key><true/>")
    yield b"<!DOCTYPE plist [<!ENTITY e \"]>\">]>" + xml("<key>a</key><string>&e;</string>")


def main():
    target, largest, directory = sys.argv[1], int(sys.argv[2]), pathlib.Path(sys.argv[3])
    directory.mkdir(parents=True, exist_ok=True)
    for number, data in enumerate(globals()[target]()):
        if len(data) <= largest:
            (directory / f"{number:04}").write_bytes(data)


main()
