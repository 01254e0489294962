#!/usr/bin/env python3
"""Measures the distribution of the installer's random identifiers over a fleet: identifiers.py

The identifier is the first number that rand() returns after srand(the time in seconds). All
machines that draw in the same second therefore get the same identifier. The program draws for a
million machines that install within a minute, an hour and a day, with the C library of this system.
Prints the number of different identifiers and the sizes of the groups of a staged rollout.
"""

import collections
import ctypes
import random

MACHINES = 1_000_000
LARGEST = 10_000
WINDOWS = {"a minute": 60, "an hour": 3600, "a day": 86_400}
STARTS = range(1_700_000_000, 1_800_000_000, 12_500_003)  # eight start times within three years

LIBRARY = ctypes.CDLL(None)


def identifier(second):
    """Returns the identifier that a machine draws at `second`, as OSUtils::RegisterRandom()
    does."""
    LIBRARY.srand(ctypes.c_uint(second))
    return LIBRARY.rand() % LARGEST + 1


def fleet(start, length):
    """Counts the machines for each identifier, if all machines draw within `length` seconds."""
    generator = random.Random(start)
    machines = collections.Counter()
    seconds = collections.Counter(generator.choices(range(length), k=MACHINES))
    for second, count in seconds.items():
        machines[identifier(start + second)] += count
    return machines


def parts(machines, number):
    """Returns the shares, in percent, of `number` equal ranges of identifiers."""
    width = LARGEST // number
    return [100 / MACHINES * sum(machines[i + 1] for i in range(part * width, (part + 1) * width))
            for part in range(number)]


def span(shares):
    return f"{min(shares):.2f} to {max(shares):.2f} %"


def main():
    print("| Installed within | Identifiers in use | Largest share of one | Ten parts | "
          "A hundred parts |")
    print("|---|---|---|---|---|")
    for name, length in WINDOWS.items():
        fleets = [fleet(start, length) for start in STARTS]
        used = [len(machines) for machines in fleets]
        largest = max(max(machines.values()) for machines in fleets)
        tenths = [share for machines in fleets for share in parts(machines, 10)]
        hundredths = [share for machines in fleets for share in parts(machines, 100)]
        print(f"| {name} | {min(used):,} to {max(used):,} | {100 * largest / MACHINES:.2f} % | "
              f"{span(tenths)} | {span(hundredths)} |")


if __name__ == "__main__":
    main()
