"""Random property lists in the place of the record: sound ones in both forms, and damaged ones."""

import datetime
import plistlib

from record_oracle import PATH, RANDOM, UPDATE, VERSION

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


def damaged(random, data):
    """Cut, or with a few bytes changed."""
    if random.random() < 0.5:
        return data[:random.randrange(len(data))]
    changed = bytearray(data)
    for _ in range(random.randrange(1, 5)):
        changed[random.randrange(len(changed))] = random.randrange(256)
    return bytes(changed)


def record(random):
    """The bytes of a file, and the values that it was made of; None of a damaged one."""
    is_binary = random.random() < 0.5
    form = plistlib.FMT_BINARY if is_binary else plistlib.FMT_XML
    made = values(random, is_binary)
    data = plistlib.dumps(made, fmt=form, sort_keys=random.random() < 0.5)
    if random.random() < 0.2:
        return damaged(random, data), None
    return data, made
