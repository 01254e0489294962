"""Compares the shipped installer with a second implementation, on random packages and records.

    oracles.py [--sample N] [--jobs N] [ORACLE...]

Prints a line an oracle: packages, or records. A sample takes the first N cases. Each case has a
number, which makes it again.
"""

import collections
import random
import time

import packages
import records
from faults import run_chosen

ORACLES = {"packages": (packages.Packages, 20_000), "records": (records.Records, 5_000)}
BATCH = 50


def run_batch(task):
    """Runs some cases and returns the differences and the counts."""
    name, numbers = task
    oracle = ORACLES[name][0]()
    counts = collections.Counter()
    for number in numbers:
        counts.update(oracle.try_case(number, random.Random(f"{name} {number}")))
    return counts, oracle.faults


def run_oracle(name, pool, count):
    began = time.monotonic()
    count = count or ORACLES[name][1]
    counts, faults = collections.Counter(), []
    batches = [(name, range(first, min(first + BATCH, count))) for first in range(0, count, BATCH)]
    for part, wrong in pool.imap_unordered(run_batch, batches):
        counts += part
        faults += wrong
    figures = ", ".join(f"{number} {what}" for what, number in sorted(counts.items()))
    print(f"{name}: {count} cases: {figures}; {len(faults)} exceptions; "
          f"{time.monotonic() - began:.0f} s", flush=True)
    for fault in faults[:50]:
        print(f"  {fault}"[:2000], flush=True)
    return not faults


if __name__ == "__main__":
    run_chosen(ORACLES, __doc__, run_oracle)
