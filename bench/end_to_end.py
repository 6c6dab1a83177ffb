#!/usr/bin/env python3
"""Samples from a real publisher: `ddsperf pub` (reliable, keyed, 32 bytes) beside one reader after the other.

    end_to_end.py FERRET [--seconds N] [--repeat N] [ROW...]

The floor is `ddsperf sub`, the reader that comes with the publisher. Both share the machine's processors, so the rate is
what the pair reaches; CPU seconds per million samples are what the reader alone costs. A ROW is a part of a row's name.
Everything runs in a private network.
"""

import argparse
import collections
import dataclasses
import os
import pathlib
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time

PRIVATE_NETWORK = pathlib.Path(__file__).resolve().parent.parent / "tests/private-network.sh"
INSIDE = "FERRET_BENCH_INSIDE"
# At this verbosity the logger tells that samples were overwritten.
OPTIONS = ["-topicRegex", "DDSPerf*Data*", "-useFirstPublicationQos", "-verbosity", "2"]


@dataclasses.dataclass
class Row:
    name: str
    options: list  # of ferret; None: this is ddsperf sub
    to_file: bool = False


ROWS = [
    Row("ddsperf sub", None),
    Row("ferret > /dev/null", []),
    Row("ferret > file", [], True),
    Row("ferret -showSampleIdentity > file", ["-showSampleIdentity"], True),
    Row("ferret COMPACT > /dev/null", ["-printSample", "COMPACT"]),
]


@dataclasses.dataclass
class Outcome:
    published: float  # samples per second, as the publisher says
    reported: float  # samples per second that were reported
    overwrote: bool  # some came and were pushed out before they were reported
    cpu: float  # seconds of the reader per million samples


def reported_in(path):
    """Samples per second by the time stamps of the lines, without the first and the last second, which are not whole."""
    with open(path, "rb") as lines:
        counts = collections.Counter(line[:8] for line in lines if b" topic=" in line)
    whole = [counts[second] for second in sorted(counts)[1:-1]]
    return statistics.mean(whole) if whole else 0


def rate_of_publisher(text):
    """Samples per second that the publisher says it wrote, without the first second: until it has found its reader it writes
    to nobody."""
    units = {"": 1, "k": 1e3, "M": 1e6}
    rates = [float(number) * units[unit] for number, unit in re.findall(r" ([\d.]+)(k|M|)/s ", text)]
    return statistics.mean(rates[1:]) if len(rates) > 1 else 0


def run_beside_publisher(command, seconds, output, errors):
    """What the publisher printed, and the CPU seconds of the reader."""
    with open(output, "wb") as out, open(errors, "wb") as err:
        reader = subprocess.Popen(command, stdout=out, stderr=err)
    try:
        time.sleep(0.5)  # until it listens
        publisher = subprocess.run(["ddsperf", "-D", str(seconds), "pub", "size", "32"], stdout=subprocess.PIPE,
                                   text=True, timeout=seconds + 20)
        time.sleep(0.3)  # until it has reported what it has
    finally:
        reader.send_signal(signal.SIGINT)
        _, status, used = os.wait4(reader.pid, 0)
        reader.returncode = os.waitstatus_to_exitcode(status)
    return publisher.stdout, used.ru_utime + used.ru_stime


def measure(row, program, seconds, folder):
    """One run of one reader."""
    is_floor = row.options is None
    command = ["ddsperf", "sub"] if is_floor else [program, *OPTIONS, *row.options]
    output = folder / "output" if row.to_file else pathlib.Path(os.devnull)
    errors = folder / "errors"
    said, cpu = run_beside_publisher(command, seconds, output, errors)
    published = rate_of_publisher(said)
    complaints = errors.read_text(errors="replace")
    overwrote = "the oldest are lost" in complaints
    # All readers are reliable: what was written came, and where nothing was overwritten it was reported.
    reported = reported_in(output) if row.to_file else published
    if not published or not reported:
        sys.exit(f"{row.name}: no samples\n{said}\n{complaints}")
    return Outcome(published, reported, overwrote, cpu / (reported * seconds) * 1e6)


def report(rows, outcomes):
    """The ratio is that of a row's rate to the floor of the same round; what was overwritten makes a rate without lines an
    upper limit."""
    print(f"{'':34} {'published/s':>12} {'reported/s':>12} {'ratio':>6} {'overwrote':>10} {'CPU s/million':>14}")
    for row in rows:
        runs = outcomes[row.name]
        ratio = statistics.median(run.reported / floor.reported for run, floor in zip(runs, outcomes[rows[0].name]))
        print(f"{row.name:34} {statistics.median(run.published for run in runs):12,.0f} "
              f"{statistics.median(run.reported for run in runs):12,.0f} {ratio:6.2f} "
              f"{sum(run.overwrote for run in runs):4} of {len(runs)} {statistics.median(run.cpu for run in runs):14.2f}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("ferret")
    parser.add_argument("--seconds", type=int, default=4)
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("rows", nargs="*")
    arguments = parser.parse_intermixed_args()
    if os.environ.get(INSIDE) is None:
        os.environ[INSIDE] = "1"
        os.execv(PRIVATE_NETWORK, [str(PRIVATE_NETWORK), sys.executable, __file__, *sys.argv[1:]])

    program = str(pathlib.Path(arguments.ferret).resolve())
    rows = [ROWS[0]] + [row for row in ROWS[1:]
                        if not arguments.rows or any(part in row.name for part in arguments.rows)]
    outcomes = {row.name: [] for row in rows}
    with tempfile.TemporaryDirectory() as folder:
        # In turn, so that whatever else the machine does meets all alike.
        for _ in range(arguments.repeat):
            for row in rows:
                outcomes[row.name].append(measure(row, program, arguments.seconds, pathlib.Path(folder)))
    report(rows, outcomes)


if __name__ == "__main__":
    main()
