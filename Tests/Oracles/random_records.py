"""Makes random property lists as records: correct lists in both forms, and damaged lists."""

import datetime
import plistlib

from contract import PATH, RANDOM, UPDATE, VERSION

LETTERS = "ab <>&\"'\t\nä€𝄞"
INTEGERS = (0, 1, -1, 42, 255, 256, 32767, 2**31 - 1, 2**31, -2**31, -2**31 - 1, 2**63 - 1, -2**63,
            2**63, 2**64 - 1)
REALS = (0.0, -0.0, 1.5, 5.0, -1.0, 1e300, 0.1, float("inf"), 2.0**31 - 1, 2.0**31, -2.0**31,
         -2.0**31 - 1)


def text(random, longest=12):
    return "".join(random.choices(LETTERS, k=random.randrange(longest)))


def date(random):
    return datetime.datetime(random.randrange(1, 9999), 1, 1) + datetime.timedelta(
        seconds=random.randrange(86400 * 300))


def value(random, depth=0):
    kinds = [lambda: text(random), lambda: random.choice(INTEGERS),
             lambda: random.randrange(-10**6, 10**6), lambda: random.choice(REALS),
             lambda: random.random() < 0.5, lambda: random.randbytes(random.randrange(40)),
             lambda: date(random)]
    if depth < 4:
        kinds += [lambda: [value(random, depth + 1) for _ in range(random.randrange(4))],
                  lambda: dictionary(random, depth + 1)]
    return random.choice(kinds)()


def dictionary(random, depth):
    return {text(random): value(random, depth) for _ in range(random.randrange(4))}


def known(random):
    """Returns the four values: correct values, values at the limits, and values of other types."""
    texts = ["Resource0", "", "x" * 126, "x" * 127, "x" * 128, "ä" * 63, "ä" * 64]
    numbers = [4711, 5.0, *INTEGERS, *REALS]
    choices = {RANDOM: numbers, UPDATE: numbers, PATH: texts, VERSION: texts}
    return {key: random.choice(right) if random.random() < 0.8 else value(random)
            for key, right in choices.items() if random.random() < 0.7}


def values(random):
    return {**dictionary(random, 0), **known(random)}


def damaged(random, data):
    """Truncates the data, or changes a few bytes. No byte becomes a control character, which plistlib
    refuses."""
    if random.random() < 0.5:
        return data[:random.randrange(len(data))]
    changed = bytearray(data)
    for _ in range(random.randrange(1, 5)):
        changed[random.randrange(len(changed))] = random.choice((9, 10, *range(32, 256)))
    return bytes(changed)


# Each of these, as a value, makes a list malformed.
MALFORMED = ("<key>no value</key>", "<true/><true/>", "<true/>text", "text<true/>", "",
             "<array>" * 101 + "</array>" * 101, "<array></dict>", "<array a='\"'/>",
             "<true/><!-- -- -->", "<string>\0</string>", "</dict><dict>")
# Values whose bytes the installer keeps. The form of an empty element may change: each is in the
# form that the installer writes. plistlib reads only some of them, and differently.
KEPT = ("<integer>12abc</integer>", "<integer/>", "<integer>123456789012345678901234567890</integer>",
        "<integer>0x1F</integer>", "<real>1.5x</real>", "<date>2001-13-01T00:00:00.5Z</date>",
        "<data>!!!</data>", "<string>&nbsp; & </string>", "<null/>", "<string> \r\n </string>",
        "<string>a<![CDATA[<b>&]]>c</string>", "<array><!-- a - b --><?c d?></array>",
        "<dict><key>no value</key></dict>", "<array>" * 89 + "<array/>" + "</array>" * 89,
        "<dict><key>twice</key><true/><key>twice</key><true/></dict>")
SCALARS = {"integer": ("0", "7", "-42", "+1", "0x1F", "18446744073709551615"),
           "real": ("1.5", "-0.25", "1e300", "nan", "+infinity"),
           "date": ("2020-02-29T23:59:59Z", "0999-12-31T00:00:00Z"),
           "data": ("QUJDRA==", "QUI=", "QUJD"), "string": ("a &amp; b &lt;",)}
CHARACTERS = "019aAefxTZ:+-.=/_!&; "


def with_value(random, value):
    """Returns a list in XML that is correct apart from `value`."""
    data = plistlib.dumps(values(random)).decode().replace("<dict/>", "<dict></dict>")
    return data.replace("<dict>", f"<dict><key>strange</key>{value}", 1).encode()


def changed_value(random):
    """Returns a scalar with one character removed, replaced or inserted."""
    name = random.choice(list(SCALARS))
    value = random.choice(SCALARS[name])
    at = random.randrange(len(value))
    replacement = random.choice(("", random.choice(CHARACTERS)))
    rest = value[at + random.randrange(2):]
    return f"<{name}>{value[:at]}{replacement}{rest}</{name}>"


def record(random):
    """Returns the bytes of a file and the expected result: the values of a correct list, MALFORMED if
    the file must be renamed, a text that the file must keep, or None if the file may be renamed."""
    form = random.random()
    if form < 0.1:
        return with_value(random, random.choice(MALFORMED)), MALFORMED
    if form < 0.2:
        kept = random.choice(KEPT)
        return with_value(random, kept), kept
    if form < 0.3:
        return with_value(random, changed_value(random)), None
    made = values(random)
    if form < 0.4:
        return plistlib.dumps(made, fmt=plistlib.FMT_BINARY), MALFORMED
    data = plistlib.dumps(made, sort_keys=random.random() < 0.5)
    return (damaged(random, data), None) if form < 0.6 else (data, made)
