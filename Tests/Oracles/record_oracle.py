"""A second implementation of the rules for the record. Python's plistlib reads the values."""

from contract import PATH, RANDOM, UPDATE, VERSION
from private_root import record_of

LONGEST_CARRIED = 127  # bytes of a string that is restored after the record was cleared


def carried_number(value):
    """Returns the number if it fits 32 bits. -1 counts as absent."""
    if type(value) not in (int, float) or not -2**31 <= value < 2**31 or value != int(value):
        return None
    return int(value) if value != -1 else None


def carried_text(value):
    if type(value) is not str or not 0 < len(value.encode()) <= LONGEST_CARRIED:
        return None
    return value


def cleared(values):
    """Returns the values that are restored after the record was cleared."""
    kept = {key: carried_number(values.get(key)) for key in (RANDOM, UPDATE)}
    kept.update((key, carried_text(values.get(key))) for key in (PATH, VERSION))
    return {key: value for key, value in kept.items() if value is not None}


def after_run(values, clear, regenerate, installed):
    """Returns the record after a run that installed the update of this number, or None, and whether
    the run draws a random identifier."""
    kept = cleared(values) if clear else dict(values)
    draws = regenerate or RANDOM not in kept
    return {**kept, **({} if installed is None else record_of(installed))}, draws
