#!/usr/bin/env python3
"""Endpoints, participants, types and instances come and go, with all options on: memory, descriptors and threads of the tool
level off. The long form goes on for half an hour.

FAULTS_CURVE=FOLDER writes what was measured to churn.csv and churn.svg there. FAULTS_CHURN_MINUTES sets the length.
"""

import csv
import itertools
import os
import pathlib
import random
import statistics
import sys
import threading
import time

import faults
from faults import MIB, harness, short_or_long

MINUTES = float(os.environ.get("FAULTS_CHURN_MINUTES", short_or_long(2, 30)))
TYPES = ("keyed", "unkeyed", "shape", "mutable", "appendable", "everything")
OPTIONS = ("-useFirstPublicationQos", "-printSample", "COMPACT", "-showSampleIdentity", "-showHandle", "-showPartition",
           "-showEntityName", "-showSampleFlags", "-topicRegex", "*")
MOST_DESCRIPTORS, MOST_THREADS = 40, 12


class Curve:
    """What the tool takes, measured each few seconds."""

    FIELDS = ("seconds", "memory_mib", "descriptors", "threads", "applications_so_far")

    def __init__(self):
        self.rows = []

    def add(self, seconds, tool, applications):
        self.rows.append((round(seconds, 1), round(tool.memory() / MIB, 2), len(os.listdir(f"/proc/{tool.pid}/fd")),
                          len(os.listdir(f"/proc/{tool.pid}/task")), applications))

    def column(self, name):
        at = self.FIELDS.index(name)
        return [row[at] for row in self.rows]

    def third(self, name, number):
        """What it is most of the time in one of three thirds: samples wait now and then, and that is no growth."""
        values = self.column(name)
        return statistics.median(values[len(values) * number // 3:len(values) * (number + 1) // 3])

    def write(self, folder):
        with open(pathlib.Path(folder, "churn.csv"), "w", newline="", encoding="ascii") as file:
            csv.writer(file, lineterminator="\n").writerows([self.FIELDS, *self.rows])
        pathlib.Path(folder, "churn.svg").write_text(self.drawing(), encoding="ascii")

    def drawing(self, width=720, height=150, left=60):
        """Three curves, one below the other, each from 0 to its most."""
        seconds = self.column("seconds")
        parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width + left + 20}" height="{3 * height + 40}" '
                 'font-family="sans-serif" font-size="12">']
        for number, (field, title) in enumerate((("memory_mib", "resident memory, MiB"), ("descriptors", "descriptors"),
                                                 ("threads", "threads"))):
            values = self.column(field)
            most, top = max(values) * 1.1, 20 + number * height
            bottom = top + height - 40
            points = " ".join(f"{left + width * when / seconds[-1]:.1f},{bottom - (height - 40) * value / most:.1f}"
                              for when, value in zip(seconds, values))
            parts += [f'<text x="{left}" y="{top - 5}">{title}</text>',
                      f'<path d="M{left} {top}V{bottom}H{left + width}" fill="none" stroke="gray"/>',
                      f'<text x="{left - 5}" y="{bottom}" text-anchor="end">0</text>',
                      f'<text x="{left - 5}" y="{top + 10}" text-anchor="end">{most:.0f}</text>',
                      f'<text x="{left + width}" y="{bottom + 15}" text-anchor="end">{seconds[-1] / 60:.0f} min</text>',
                      f'<polyline points="{points}" fill="none" stroke="black"/>']
        return "\n".join([*parts, "</svg>", ""])


class Churn(faults.FaultTest):
    def live(self, number, picker):
        """One application after the other: it comes, has writers and readers, writes instances that were never written before,
        changes, and goes: with a farewell or without."""
        names = itertools.count()
        while not self.over.is_set():
            maker = picker.choice((self.started_cyclone, self.started_cyclone, self.started_fastdds))
            peer = maker(picker)
            try:
                peer.do("participant")
                for _ in range(picker.randint(1, 12)):
                    if self.over.is_set():
                        break
                    name = f"e{next(names)}"
                    kind = picker.choice(TYPES if maker == self.started_cyclone else TYPES[:2])
                    topic = f"T{picker.randrange(40)}_{kind}"
                    what = " ".join((picker.choice(("", "best_effort")), picker.choice(("", "transient_local depth=10")),
                                     picker.choice(("", "partitions=A,B", "partitions=P*"))))
                    if picker.random() < 0.3:
                        peer.do(f"reader {name} topic={topic} type={kind} {what}")
                        continue
                    # A new name, now and then.
                    other = f"type_name=peers::T{number}_{next(names)}" if kind == "keyed" and \
                        maker == self.started_cyclone and picker.random() < 0.2 else ""
                    peer.do(f"writer {name} topic={topic} type={kind} {what} {other}")
                    peer.do(f"write {name} count={picker.choice((1, 20, 200))} keys=200 key={picker.randrange(1 << 30)} "
                            f"size={picker.choice((0, 10, 1000, 100000))} rate=400", limit=60 * harness.SLOWNESS)
                    if picker.random() < 0.5:
                        peer.do(f"delete {name}")
                if picker.random() < 0.5:
                    peer.quit(60 * harness.SLOWNESS)
            except AssertionError as failure:
                if not self.over.is_set():
                    self.troubles.append(str(failure).splitlines()[0])
            finally:
                peer.close()
                self.applications += 1

    def started_cyclone(self, picker):
        return self.cyclone(lease=picker.choice((2, 5)))

    def started_fastdds(self, _):
        return self.fastdds()

    def test_levels_off(self):
        self.over, self.troubles, self.applications = threading.Event(), [], 0
        self.cyclone().close()  # skips where there is none
        self.fastdds().close()
        with open(os.devnull, "wb") as nowhere:
            tool = self.raw_tool(nowhere, *OPTIONS)
        threads = [threading.Thread(target=self.live, args=(number, random.Random(number)), daemon=True) for number in range(3)]
        for thread in threads:
            thread.start()
        curve, begin = Curve(), time.monotonic()
        step = min(10.0, MINUTES * 60 / 60)
        while time.monotonic() - begin < MINUTES * 60:
            curve.add(time.monotonic() - begin, tool, self.applications)
            faults.measure_for(step)
        self.over.set()
        for thread in threads:
            thread.join(120)
        if os.environ.get("FAULTS_CURVE"):
            curve.write(os.environ["FAULTS_CURVE"])
        print(f"\n    {self.applications} applications came and went; troubles of theirs: {self.troubles[:5]}", end="",
              file=sys.stderr, flush=True)
        self.at_least("applications", self.applications, MINUTES * 4, "came and went")
        self.bound("descriptors", max(curve.column("descriptors")), MOST_DESCRIPTORS, "at most at one time")
        self.bound("threads", max(curve.column("threads")), MOST_THREADS, "at most at one time")
        if MINUTES >= 10:
            middle, last = curve.third("memory_mib", 1), curve.third("memory_mib", 2)
            self.bound(f"memory in the last third, {middle:.1f} in the middle one", last, 1.1 * middle + 4, "MiB", 1)
        self.bound("memory", max(curve.column("memory_mib")), faults.BUDGET * faults.BUDGET_SLACK / MIB, "MiB")
        tool.signal(2)
        self.assertEqual(tool._child.wait(30 * harness.SLOWNESS), 1)


if __name__ == "__main__":
    faults.main()
