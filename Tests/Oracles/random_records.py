"""Random property lists in the place of the record: sound ones in both forms, and damaged ones."""

import datetime
import plistlib

from contract import PATH, RANDOM, UPDATE, VERSION, read_record

LETTERS = "ab <>&\"'\t\nä€𝄞"
CONTROLS = "\x01\r\x1f\ufffe"  # which XML cannot hold
INTEGERS = (0, 1, -1, 42, 255, 256, 32767, 2**31 - 1, 2**31, -2**31, -2**31 - 1, 2**63 - 1, -2**63,
            2**63, 2**64 - 1)
REALS = (0.0, -0.0, 1.5, 5.0, -1.0, 1e300, 0.1, float("inf"), 2.0**31 - 1, 2.0**31, -2.0**31,
         -2.0**31 - 1)


def text(random, is_binary, longest=12):
    letters = LETTERS + (CONTROLS if is_binary else "")
    return "".join(random.choices(letters, k=random.randrange(longest)))


def date(random, is_binary):
    made = datetime.datetime(random.randrange(1, 9999), 1, 1) + datetime.timedelta(
        seconds=random.randrange(86400 * 300))
    if is_binary:  # counted in seconds from 2001, in which a fraction of 2 is exact
        made = made.replace(year=random.randrange(1900, 2100),
                            microsecond=random.choice((0, 500_000)))
    return made


def value(random, is_binary, depth=0):
    kinds = [lambda: text(random, is_binary), lambda: random.choice(INTEGERS),
             lambda: random.randrange(-10**6, 10**6), lambda: random.choice(REALS),
             lambda: random.random() < 0.5, lambda: random.randbytes(random.randrange(40)),
             lambda: date(random, is_binary)]
    if is_binary:
        kinds.append(lambda: plistlib.UID(random.choice((0, 1, 255, 65536))))
    if depth < 4:
        kinds += [lambda: [value(random, is_binary, depth + 1) for _ in range(random.randrange(4))],
                  lambda: dictionary(random, is_binary, depth + 1)]
    return random.choice(kinds)()


def dictionary(random, is_binary, depth):
    return {text(random, is_binary): value(random, is_binary, depth)
            for _ in range(random.randrange(4))}


def known(random, is_binary):
    """The four values: right ones, ones at the limits, and ones of other types."""
    texts = ["Resource0", "", "x" * 126, "x" * 127, "x" * 128, "ä" * 63, "ä" * 64]
    numbers = [4711, 5.0, *INTEGERS, *REALS]
    choices = {RANDOM: numbers, UPDATE: numbers, PATH: texts, VERSION: texts}
    return {key: random.choice(right) if random.random() < 0.8 else value(random, is_binary)
            for key, right in choices.items() if random.random() < 0.7}


def values(random, is_binary):
    return {**dictionary(random, is_binary, 0), **known(random, is_binary)}


def damaged(random, data, is_binary):
    """Cut, or with a few bytes changed; never to a control character in XML, where plistlib reads
    none."""
    if random.random() < 0.5:
        return data[:random.randrange(len(data))]
    changed = bytearray(data)
    for _ in range(random.randrange(1, 5)):
        changed[random.randrange(len(changed))] = random.choice(
            range(256) if is_binary else (9, 10, *range(32, 256)))
    return bytes(changed)


# What makes a list malformed in the place of a value. plistlib reads some of it all the same.
MALFORMED = ("<integer>12abc</integer>", "<integer></integer>", "<integer/>",
             "<integer>1 2</integer>", "<integer>18446744073709551616</integer>",
             "<integer>-9223372036854775809</integer>", "<integer>0x10000000000000000</integer>",
             "<real>1.5x</real>", "<real></real>", "<date>2001-13-01T00:00:00Z</date>",
             "<date>2001-02-29T00:00:00Z</date>", "<date>yesterday</date>", "<data>!!!</data>",
             "<data>AAAAA</data>", "<data>AA==AA==</data>", "<string>&nbsp;</string>",
             "<string>& </string>", "<null/>", "<dict><key>no value</key></dict>",
             "<dict><key>twice</key><true/><key>twice</key><true/></dict>",
             "<array><key>no key</key></array>", "<true/><true/>", "")
SCALARS = {"integer": ("0", "7", "-42", "+1", "0x1F", "18446744073709551615"),
           "real": ("1.5", "-0.25", "1e300", "nan", "+infinity"),
           "date": ("2020-02-29T23:59:59Z", "0999-12-31T00:00:00Z"),
           "data": ("QUJDRA==", "QUI=", "QUJD"), "string": ("a &amp; b &lt;",)}
CHARACTERS = "019aAefxTZ:+-.=/_!&; "


def with_value(random, value):
    """A list in XML that is sound, except perhaps for this value."""
    data = plistlib.dumps(values(random, False)).decode().replace("<dict/>", "<dict></dict>")
    return data.replace("<dict>", f"<dict><key>strange</key>{value}", 1).encode()


def changed_value(random):
    """A scalar with one character left out, replaced or inserted."""
    name = random.choice(list(SCALARS))
    value = random.choice(SCALARS[name])
    at = random.randrange(len(value))
    replacement = random.choice(("", random.choice(CHARACTERS)))
    rest = value[at + random.randrange(2):]
    return f"<{name}>{value[:at]}{replacement}{rest}</{name}>"


def record(random):
    """The bytes of a file, and the values that it was made of; MALFORMED of one that must be set
    aside; None of one that may be."""
    if random.random() < 0.1:
        return with_value(random, random.choice(MALFORMED)), MALFORMED
    if random.random() < 0.1:
        data = with_value(random, changed_value(random))
        return data, MALFORMED if read_record(data) is None else None
    is_binary = random.random() < 0.5
    form = plistlib.FMT_BINARY if is_binary else plistlib.FMT_XML
    made = values(random, is_binary)
    data = plistlib.dumps(made, fmt=form, sort_keys=random.random() < 0.5)
    if random.random() < 0.2:
        return damaged(random, data, is_binary), None
    return data, made
