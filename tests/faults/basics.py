"""What every part of the fault tests needs: limits, the tool's ports, and waiting for conditions."""

import sys
import time

import forge  # noqa: F401 - with it comes the way to the modules of the interop tests

import harness

LONG_FLAG = "--long"
LONG = LONG_FLAG in sys.argv
MIB = 1 << 20
METATRAFFIC_PORT, USER_PORT = 7410, 7411  # of the first participant on a host, which the tool has to be


def short_or_long(short, long):
    return long if LONG else short


def wait_until(what, condition, limit=10.0):
    """Waits for a condition that no process tells of."""
    end = time.monotonic() + limit * harness.SLOWNESS
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.01)


def measure_for(seconds):
    """A window in which something is counted."""
    time.sleep(seconds)
