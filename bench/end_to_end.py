#!/usr/bin/env python3
"""Samples from a real publisher: `ddsperf pub` (reliable, keyed, 32 bytes) beside one reader after the other.

    end_to_end.py FERRET [--seconds N] [--repeat N] [ROW...]

The floor is `ddsperf sub`, the reader that comes with the publisher. Both share the machine's processors, so the rate is
what the pair reaches; CPU seconds per million samples are what the reader alone costs. A ROW is a part of a row's name.
Everything runs in a private network.

The rows of topics have a fixed total rate, written in turn to so many topics by the test peer of the same build: what one
sample costs the tool must not grow with the number of topics. Their floor is the row with the fewest topics.
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
import threading
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


TOPICS = (10, 1000)
TOTAL_RATE = 5000  # samples per second, of all topics together

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
    to no reader."""
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


@dataclasses.dataclass
class TopicsOutcome:
    lost: int  # written and not reported
    cpu: dict  # microseconds per sample and thread; "all" is their sum


def nanoseconds_of_threads(process):
    """CPU time by the names of the threads."""
    used = collections.Counter()
    for thread in pathlib.Path(f"/proc/{process.pid}/task").iterdir():
        used[(thread / "comm").read_text().strip()] += int((thread / "schedstat").read_text().split()[0])
    return used


def measure_topics(topics, program, peer_program, seconds):
    """One run: the discovery of the topics, and two samples of each, are over before the measurement begins."""
    reader = subprocess.Popen([program], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True)
    lines = []
    collector = threading.Thread(target=lambda: lines.extend(reader.stdout))
    collector.start()
    peer = subprocess.Popen([peer_program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def do(command):
        peer.stdin.write(command + "\n")
        peer.stdin.flush()
        for line in peer.stdout:
            if line.startswith("error"):
                sys.exit(f"{command}: {line}")
            if line == "ok\n":
                return

    def wait_for_lines(count):
        end = time.monotonic() + 20
        while sum(" data " in line or "Modified" in line for line in lines) < count and time.monotonic() < end:
            time.sleep(0.1)
    try:
        do("participant")
        do(f"writer w{{i}} topic=T{{i}} type=unkeyed count={topics}")
        for number in range(topics):
            do(f"matched w{number} timeout=60")
        do(f"write w{{i}} over={topics} count={2 * topics} rate={TOTAL_RATE}")
        wait_for_lines(2 * topics)
        before = nanoseconds_of_threads(reader)
        count = seconds * TOTAL_RATE
        do(f"write w{{i}} over={topics} count={count} rate={TOTAL_RATE} size=16")
        time.sleep(0.3)  # until it has reported what it has
        after = nanoseconds_of_threads(reader)
    finally:
        peer.kill()
        peer.wait()
        reader.send_signal(signal.SIGINT)
        reader.wait()
        collector.join()
    reported = sum(int(line.split(",")[0]) for line in lines if "(Topic=" in line)
    cpu = {name: (after[name] - before[name]) / count / 1000 for name in after}
    return TopicsOutcome(2 * topics + count - reported, {"all": sum(cpu.values()), **cpu})


def report_topics(outcomes):
    """The ratio is that to the fewest topics of the same round."""
    threads = sorted({name for runs in outcomes.values() for run in runs for name in run.cpu})
    print(f"\n{f'at {TOTAL_RATE:,} samples/s in all':34} {'lost':>6} {'ratio':>6} "
          + " ".join(f"{'us ' + name:>12}" for name in threads))
    for topics, runs in outcomes.items():
        ratio = statistics.median(run.cpu["all"] / floor.cpu["all"] for run, floor in zip(runs, outcomes[TOPICS[0]]))
        print(f"{f'ferret, {topics:,} topics':34} {statistics.median(run.lost for run in runs):6.0f} {ratio:6.2f} "
              + " ".join(f"{statistics.median(run.cpu.get(name, 0) for run in runs):12.2f}" for name in threads))


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

    def wanted(name):
        return not arguments.rows or any(part in name for part in arguments.rows)
    rows = [ROWS[0]] + [row for row in ROWS[1:] if wanted(row.name)]
    outcomes = {row.name: [] for row in rows}
    with tempfile.TemporaryDirectory() as folder:
        # In turn, so that whatever else the machine does meets all alike.
        for _ in range(arguments.repeat if len(rows) > 1 else 0):
            for row in rows:
                outcomes[row.name].append(measure(row, program, arguments.seconds, pathlib.Path(folder)))
    if len(rows) > 1:
        report(rows, outcomes)

    peer = pathlib.Path(program).parent / "tests/interop/peers/peer_cyclone"
    if not any(wanted(f"{topics:,} topics") for topics in TOPICS):
        return
    if not peer.exists():
        sys.exit(f"{peer} was not built: no rows of topics")
    outcomes = {topics: [] for topics in TOPICS}
    for _ in range(arguments.repeat):
        for topics in TOPICS:
            outcomes[topics].append(measure_topics(topics, program, str(peer), arguments.seconds))
    report_topics(outcomes)


if __name__ == "__main__":
    main()
