"""Compares output that is shown in a document with that of a run.

Times, addresses, ports, GUIDs, process ids and names of hosts are made the same first. Lines whose order two threads decide are put
into one order: the discovery lines of each topic, its samples, and messages of the logger each keep their own order. The
start and the statistics of a run count only where the document shows them.
"""

import difflib
import re
import socket

ELLIPSIS = "..."
LISTENING = "ferret is listening for data"
STATISTICS = "---- Statistics ----"
HEADER = re.compile(r" built with DDS version: |^~+$")
LOGGED = re.compile(r"\d\d:\d\d:\d\d\.\d{3} ")

GUID = r"0x[0-9A-F]{8},0x[0-9A-F]{8},0x[0-9A-F]{8}:0x[0-9A-F]{6}([0-9A-F]{2})"
RULES = [(re.compile(pattern), replacement) for pattern, replacement in (
    (r"^(\d{4}-\d\d-\d\d )?\d\d:\d\d:\d\d\.\d{3} ", r"TIME "),
    (r"^(TIME )?\d+\.\d{6} ", r"\1MONOTONIC "),
    (r"^((?:TIME )?(?:MONOTONIC )?)\[\d+(/\d+)?\] ", r"\1[ID] "),
    (r"^([\w.]+:)?\d\d:\d\d:\d\d ", r"\1TIME "),
    (r"version: \d+\.\d+\.\d+( \(meridian [\d.]+\))?", "version: VERSION"),
    (GUID, r"GUID:\1"),
    (r"(?<![.0-9a-f])[0-9a-f]{8}\.[0-9a-f]{8}\.[0-9a-f]{8}(?![.0-9a-f])", "PREFIX"),
    (r"from \d+\.\d+\.\d+\.\d+ *:", "from ADDRESS:"),
    (r"\b\d+\.\d+\.\d+\.\d+\b", "ADDRESS"),
    (r"\b(?:[0-9a-f]{1,4}:){1,7}:?[0-9a-f]{1,4}\b(?=[\]\" ])", "ADDRESS"),
    (r"(?<=[\w\]]):\d{4,5}\b", ":PORT"),
)]
TOPIC = re.compile(r"^TIME (New|Updated|Deleted|Modified|Disposed|No) (writer|reader|data|instance|writers) .*? topic=\"(.*?)\" type=")
TOPIC_STATISTICS = re.compile(r"^ +\d+, \d+, \d+ +\(Topic")
OWN_LINE = re.compile(r"^(ferret: | +\d+, \d+, \d+ +\(Topic|----|Discovered |Received samples|\d+ samples were|ferret is |to_string failed)")


def normalise(line):
    line = line.expandtabs(4)  # a picture has no tabs
    line = line.replace(socket.gethostname(), "HOST") if len(socket.gethostname()) > 3 else line
    for pattern, replacement in RULES:
        line = pattern.sub(replacement, line)
    return line.rstrip()


def without_frame(lines, like):
    """The lines without the start and the statistics of a run, unless the others have them."""
    lines = list(lines)
    if not any(HEADER.search(line) for line in like):
        lines = [line for line in lines if not HEADER.search(line)]
    if not any(line.startswith(LISTENING) for line in like):
        lines = [line for line in lines if not line.startswith(LISTENING)]
    end = next((i for i, line in enumerate(lines) if line == STATISTICS), None)
    if end is not None and STATISTICS not in like:
        lines = lines[:end] + [line for line in lines[end:] if LOGGED.match(line)]  # the logger's last messages come later
    text = "\n".join(lines).strip("\n")
    return (text if STATISTICS in like else re.sub(r"\n{3,}", "\n\n", text)).split("\n")


def records(lines):
    """Texts of one or more normalised lines that belong together, in the one order."""
    result = []  # (order, lines)
    is_sample = False
    for line in map(normalise, lines):
        if not line:
            continue
        topic = TOPIC.match(line)
        if topic:
            is_sample = topic[2] not in ("writer", "reader")
            result.append(((1, topic[3], is_sample, "" if is_sample else topic[2]), [line]))
        elif line.startswith(("TIME ", "[ID] ")):
            result.append(((0, line), [line]))
        elif is_sample and not OWN_LINE.match(line):
            next(each for each in reversed(result) if each[0][0] == 1)[1].append(line)
        else:
            is_sample = False
            result.append(((3, line) if TOPIC_STATISTICS.match(line) else (2,), [line]))
    return ["\n".join(each) for _, each in sorted(result, key=lambda each: each[0])]


def missing(shown, actual):
    """Records that are shown and did not come, as far as that can be told while a run goes on."""
    there = records(actual)
    result = []
    expected = [line for line in without_frame(shown, []) if line and line != ELLIPSIS]
    while any(not LOGGED.match(line) for line in expected) and LOGGED.match(expected[-1]):
        del expected[-1]  # what the logger says at the end of the run
    for record in records(expected):
        if record in there:
            there.remove(record)
        else:
            result.append(record)
    return result


def difference(shown, actual):
    """What is not the same, as a text; empty when all is."""
    expected = records(line for line in shown if line != ELLIPSIS)
    printed = records(actual)
    if ELLIPSIS in shown:
        rest = iter(printed)
        if all(record in rest for record in expected):
            return ""
    elif expected == printed:
        return ""
    lines = difflib.unified_diff("\n".join(expected).split("\n"), "\n".join(printed).split("\n"), "shown", "printed", lineterm="",
                                 n=1)
    return "\n".join(lines) or "the order differs"
