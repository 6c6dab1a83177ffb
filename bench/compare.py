#!/usr/bin/env python3
"""The tool beside the readers that it is compared with, in one table of ratios.

    compare.py FERRET [--rounds N] [--seconds N] [--json FILE] [--short] [TABLE...]

Every row is a median over rounds in which the tool and its floor run in turn, so that whatever else the machine does meets both
alike. The floor is `ddsperf sub`, the reader that comes with the publisher, unless the row says otherwise. Everything runs in a
private network. TABLE is a part of a table's name. `--short` only shows that all of it runs: one round, little of each table.
"""

import argparse
import contextlib
import dataclasses
import json
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

import end_to_end
from end_to_end import nanoseconds_of_threads, rate_of_publisher

SIZES = (32, 1024, 16384, 65536, 262144, 1048576, 4194304)
READS = ["-topicRegex", "DDSPerf*Data*", "-useFirstPublicationQos"]
DDSPERF_SUB = ["ddsperf", "sub"]


@dataclasses.dataclass
class Row:
    table: str
    name: str
    value: float
    floor: float
    unit: str
    target: str  # of the ratio; "" where there is none
    ratio: float = 0

    def __post_init__(self):
        self.ratio = self.value / self.floor if self.floor else float("nan")


@dataclasses.dataclass
class Bench:
    program: str
    peer: str
    builtin_reader: str
    contents: str
    rounds: int
    seconds: int
    short: bool
    folder: pathlib.Path

    def ferret(self, *options):
        return [self.program, *options]


@contextlib.contextmanager
def running(command, output=subprocess.DEVNULL, settle=0.5):
    """Runs a program for the time of the block, and ends it as a user would."""
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=output, stderr=subprocess.DEVNULL)
    time.sleep(settle)  # until it listens
    try:
        yield process
    finally:
        process.send_signal(signal.SIGINT)
        try:
            process.communicate(timeout=20)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def cpu_seconds(process):
    return sum(nanoseconds_of_threads(process).values()) / 1e9


def resident_bytes(process):
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"VmRSS:\s+(\d+)", status).group(1)) * 1024


@contextlib.contextmanager
def in_background(function, *arguments):
    """Calls a function while the block runs, and waits for its end."""
    thread = threading.Thread(target=function, args=arguments)
    thread.start()
    try:
        yield
    finally:
        thread.join()


def publish(seconds, *options):
    run = subprocess.run(["ddsperf", "-D", str(seconds), *options], stdout=subprocess.PIPE, text=True, timeout=seconds + 30,
                         check=False)
    return run.stdout


def rounds(bench, *measures):
    """The results of each measure, one after the other in each round."""
    results = [[] for _ in measures]
    for _ in range(bench.rounds):
        for result, measure in zip(results, measures):
            result.append(measure())
    return results


def compared(bench, table, name, unit, target, of_tool, of_floor):
    values, floors = rounds(bench, of_tool, of_floor)
    return Row(table, name, statistics.median(values), statistics.median(floors), unit, target)


def rate(bench):
    """What a publisher that writes as fast as it can reaches beside one reader."""
    def beside(command, size):
        with running(command):
            return rate_of_publisher(publish(bench.seconds + 1, "pub", "size", str(size)))
    for size in SIZES[:1] if bench.short else SIZES:
        yield compared(bench, "rate", f"publisher's rate, {size:,} B", "samples/s", ">= 1.0",
                       lambda size=size: beside(bench.ferret(*READS), size),
                       lambda size=size: beside(DDSPERF_SUB, size))


def added(bench):
    """What a reader costs an application that is there already: the rate of its publisher, and the round trip of its pings."""
    def of_publisher(command):
        with running(DDSPERF_SUB), running(command):
            return rate_of_publisher(publish(bench.seconds + 1, "pub", "size", "1024"))

    def of_ping(command):
        """Median and 99 % of the round trips, in microseconds."""
        with running(["ddsperf", "pong"]), running(command):
            text = publish(bench.seconds + 1, "ping")
        found = re.findall(r"mean ([\d.]+)us min [\d.]+us 50% ([\d.]+)us 90% [\d.]+us 99% ([\d.]+)us", text)
        if not found:
            raise SystemExit(f"ddsperf ping said no round trips:\n{text}")
        return [statistics.median(float(row[column]) for row in found) for column in (1, 2)]

    tool = bench.ferret("-useFirstPublicationQos")
    yield compared(bench, "added", "rate of a publisher with a subscriber", "samples/s", ">= 1.0",
                   lambda: of_publisher(tool), lambda: of_publisher(DDSPERF_SUB))
    pings, floors = rounds(bench, lambda: of_ping(tool), lambda: of_ping(DDSPERF_SUB))
    for column, name in enumerate(("median", "99 %")):
        yield Row("added", f"round trip of its pings, {name}", statistics.median(ping[column] for ping in pings),
                  statistics.median(ping[column] for ping in floors), "us", "<= 1.0")


def cpu(bench):
    """Processor time of the reader for each sample that it counted (floor) or reported as a line."""
    def per_sample(command, output):
        for _ in range(3): # seldom, ddsperf finds its reader and writes nothing
            with running(command, output) as process:
                text = publish(bench.seconds + 1, "pub", "size", "32")
                used = cpu_seconds(process)
            if rate_of_publisher(text) > 0:
                return used / (rate_of_publisher(text) * bench.seconds) * 1e6
        raise SystemExit(f"ddsperf pub wrote nothing:\n{text}")

    def to_file():
        with open(bench.folder / "lines", "wb") as lines:
            return per_sample(bench.ferret(*READS), lines)

    def to_pipe():
        with subprocess.Popen(["cat"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL) as other_end:
            return per_sample(bench.ferret(*READS), other_end.stdin)
    for name, measure in (("file", to_file), ("pipe", to_pipe)):
        yield compared(bench, "cpu", f"per line of 32 B to a {name}", "us", "<= 1.0", measure,
                       lambda: per_sample(DDSPERF_SUB, subprocess.DEVNULL))


class Peer:
    """A test peer under its commands."""

    def __init__(self, program):
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def send(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()

    def wait(self, command):
        for line in self.process.stdout:
            if line.startswith("error"):
                raise SystemExit(f"{command}: {line}")
            if line == "ok\n":
                return

    def do(self, command):
        self.send(command)
        self.wait(command)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()


def wait_until_printed(path):
    """Until nothing more comes."""
    size, since = -1, time.monotonic()
    while time.monotonic() < since + 0.3:
        if os.path.getsize(path) != size:
            size, since = os.path.getsize(path), time.monotonic()
        time.sleep(0.02)


def count_lines(path, wanted):
    with open(path, "rb") as lines:
        return sum(wanted in line for line in lines)


def contents(bench):
    """Processor time of the tool for a sample of twelve mixed members; the floor is its line without contents."""
    def per_sample(*options):
        count = bench.seconds * 20000
        with open(bench.folder / "lines", "wb") as lines, Peer(bench.peer) as peer:
            peer.do("participant")
            peer.do("writer w topic=Mixed type=mixed")
            with running(bench.ferret("-useFirstPublicationQos", *options), lines) as process:
                peer.do("matched w")
                before = cpu_seconds(process)
                peer.do(f"write w count={count} rate=20000")
                wait_until_printed(bench.folder / "lines")
                used = cpu_seconds(process) - before
        return used / count * 1e6
    for form, target in (("COMPACT", "<= 1.5"), ("PLAIN", "<= 1.7")):
        yield compared(bench, "contents", f"{form} of 12 mixed members", "us", target,
                       lambda form=form: per_sample("-printSample", form), per_sample)
    for form, last_member in (("COMPACT", b'"distance":123456789012}'), ("PLAIN", b"distance: 123456789012")):
        count = 200000 * (1 if bench.short else 5)
        with open(bench.folder / "lines", "wb") as lines, Peer(bench.peer) as peer:
            peer.do("participant")
            peer.do("writer w topic=Mixed type=mixed")
            with running(bench.ferret("-useFirstPublicationQos", "-printSample", form), lines):
                peer.do("matched w")
                begin = time.monotonic()
                peer.do(f"write w count={count} rate=200000")
                rate = count / (time.monotonic() - begin)
                wait_until_printed(bench.folder / "lines")
        missing = count - count_lines(bench.folder / "lines", last_member)
        yield Row("contents", f"missing of {count:,} in {form} at {rate:,.0f}/s", missing, 1, "samples", "<= 0")


def payload(bench):
    """COMPACT of large samples on one core, against 400 MB/s of payload."""
    for name in ("Point cloud of 1 MB", "Camera image of 6 MB"):
        text = subprocess.run([bench.contents, str(2 * bench.rounds), name], stdout=subprocess.PIPE, text=True, check=True).stdout
        size, best = re.search(r"COMPACT: (\d+) bytes.*?as the spy prints it\D*([\d.]+)", text, re.DOTALL).groups()
        yield Row("payload", f"{name}, COMPACT", int(size) / float(best) * 1000, 400, "MB/s", ">= 1.0")


def topics(bench):
    """Processor time for a sample where one total rate is shared by so many topics; the floor is one topic."""
    counts = (1, 10) if bench.short else (1, 10, 100, 1000)
    costs = rounds(bench, *(lambda n=n: end_to_end.measure_topics(n, bench.program, bench.peer, bench.seconds).cpu["all"]
                            for n in counts))
    for count, cost in zip(counts, costs):
        yield Row("topics", f"a sample, {count:,} topics", statistics.median(cost), statistics.median(costs[0]), "us",
                  "<= 1.2" if count > 1 else "")


def endpoints(bench):
    """From the first command to make so many writers until the last one is told, and what the reader's memory grew by."""
    def until_all(command, count):
        output = bench.folder / "endpoints"
        with open(output, "wb") as lines, running(command, lines) as process, Peer(bench.peer) as peer:
            peer.do("participant")
            memory, before = resident_bytes(process), time.monotonic()
            command = f"writer w{{i}} topic=T{{i}} type=keyed count={count}"
            with in_background(peer.do, command):
                while count_lines(output, b"New writer") < count:
                    if time.monotonic() > before + 60:
                        raise SystemExit(f"{count_lines(output, b'New writer')} of {count} endpoints")
                    time.sleep(0.005)
                return (time.monotonic() - before) * 1000, (resident_bytes(process) - memory) / count
    for count in (1000,) if bench.short else (1000, 2000, 4000):
        runs, floors = rounds(bench, lambda: until_all(bench.ferret("-mode", "DISC"), count),  # noqa: B023
                              lambda: until_all([bench.builtin_reader], count))  # noqa: B023
        for column, (what, unit, target) in enumerate((("time until told", "ms", "<= 1.0"), ("memory for each", "bytes", ""))):
            yield Row("endpoints", f"{count:,} writers, {what}", statistics.median(run[column] for run in runs),
                      statistics.median(run[column] for run in floors), unit, target)


def plant(bench):
    """40 processes with 50 writers each, 20,000 samples a second together, against one core."""
    def share(processes=4 if bench.short else 40, writers=50, total=20000):
        with open(bench.folder / "lines", "wb") as lines, contextlib.ExitStack() as all_peers, \
                running(bench.ferret("-useFirstPublicationQos"), lines) as process:
            peers = [all_peers.enter_context(Peer(bench.peer)) for _ in range(processes)]
            for number, peer in enumerate(peers):
                peer.do("participant")
                peer.do(f"writer w{{i}} topic=P{number}_{{i}} type=unkeyed count={writers}")
            for peer in peers:
                for writer in range(writers):
                    peer.do(f"matched w{writer} timeout=60")
            before, start = cpu_seconds(process), time.monotonic()
            count = bench.seconds * total // processes
            for peer in peers:
                peer.send(f"write w{{i}} over={writers} count={count} rate={total // processes}")
            for peer in peers:
                peer.wait("write")
            writing = time.monotonic() - start
            wait_until_printed(bench.folder / "lines")
            used = (cpu_seconds(process) - before) / writing
        lost = processes * count - count_lines(bench.folder / "lines", b"New data")
        return used, lost
    results = rounds(bench, share)[0]
    yield Row("plant", "40 processes, 2,000 writers, 20,000 samples/s", statistics.median(used for used, _ in results), 1, "cores",
              "<= 0.25")
    yield Row("plant", "of them lost", sum(lost for _, lost in results), 1, "samples", "<= 0")


def loss(bench):
    """Samples that have no line, at the highest rate (in steps) that a second ddsperf sub takes without loss."""
    def lost_by_sub(rate_wanted):
        with open(bench.folder / "counts", "wb") as counts, running(DDSPERF_SUB), running(DDSPERF_SUB, counts):
            publish(bench.seconds, "pub", str(rate_wanted), "size", "32")
        return sum(int(lost) for lost in re.findall(r"total \d+ lost (\d+)", (bench.folder / "counts").read_text())[-1:])
    steps = (50000,) if bench.short else (400000, 300000, 200000, 150000, 100000, 50000)
    highest = next((step for step in steps if lost_by_sub(step) == 0), steps[-1])
    with open(bench.folder / "lines", "wb") as lines, running(DDSPERF_SUB), running(bench.ferret(
            *READS, "-showSampleIdentity"), lines):
        publish(3 if bench.short else 30, "pub", str(highest), "size", "32")
        wait_until_printed(bench.folder / "lines")
    numbers = [int(high) << 32 | int(low) for high, low in re.findall(
        rb" virtual_sn=\((\d+), (\d+)\)", (bench.folder / "lines").read_bytes())]
    missing = numbers[-1] - numbers[0] + 1 - len(set(numbers)) + len(numbers) - len(set(numbers)) if numbers else highest
    yield Row("loss", f"missing or double of {len(numbers):,} at {highest:,}/s", missing, 1, "lines", "<= 0")


def idle(bench):
    """Without applications."""
    with running(bench.ferret(), settle=2) as process:
        before = cpu_seconds(process)
        time.sleep(max(bench.seconds, 2))
        used = (cpu_seconds(process) - before) / max(bench.seconds, 2)
        resident = resident_bytes(process) / (1 << 20)
    yield Row("idle", "of one core", used, 1, "cores", "<= 0.001")
    yield Row("idle", "resident", resident, 1, "MiB", "<= 5.0")


TABLES = (rate, added, cpu, loss, contents, payload, topics, endpoints, plant, idle)


def met(row):
    if not row.target:
        return ""
    relation, limit = row.target.split()
    holds = row.ratio >= float(limit) if relation == ">=" else row.ratio <= float(limit)
    return "yes" if holds else "no"


def show(row):
    print(f"{row.table:10} {row.name:52} {row.value:12,.3f} {row.floor:12,.3f} {row.unit:10} {row.ratio:8.3f} {row.target:9} "
          f"{met(row)}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("ferret")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=int, default=1)
    parser.add_argument("--json")
    parser.add_argument("--short", action="store_true")
    parser.add_argument("tables", nargs="*")
    arguments = parser.parse_intermixed_args()
    if os.environ.get(end_to_end.INSIDE) is None:
        os.environ[end_to_end.INSIDE] = "1"
        os.execv(end_to_end.PRIVATE_NETWORK, [str(end_to_end.PRIVATE_NETWORK), sys.executable, __file__, *sys.argv[1:]])
    program = pathlib.Path(arguments.ferret).resolve()
    rows = []
    print(f"{'table':10} {'what':52} {'ferret':>12} {'floor':>12} {'unit':10} {'ratio':>8} {'target':9} met")
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(str(program), str(program.parent / "tests/interop/peers/peer_cyclone"),
                      str(program.parent / "bench/builtin_reader"), str(program.parent / "bench/bench_contents"),
                      1 if arguments.short else arguments.rounds, arguments.seconds, arguments.short, pathlib.Path(folder))
        for table in TABLES:
            if arguments.tables and not any(part in table.__name__ for part in arguments.tables):
                continue
            for row in table(bench):
                show(row)
                rows.append(row)
    if arguments.json:
        pathlib.Path(arguments.json).write_text(json.dumps([dataclasses.asdict(row) for row in rows], indent=1) + "\n")


if __name__ == "__main__":
    main()
