#!/usr/bin/env python3
"""Runs every interop test with the peers of each release in a folder and prints a row of a table for each release.

    all_releases.py FOLDER --tool build/release/ferret [--peers build/release/tests/interop/peers] [--only NAME]
                    [--build] [--themes samples,contents] [--log FOLDER]

FOLDER is one that peers/build_releases.sh filled, which --build calls first. A release of one maker runs together with one of the other; who has no
partner gets the peers of --peers, which also make a row. The exit status is 0 when no test failed. Themes run two at a time,
and those that measure alone.
"""

import argparse
import collections
import concurrent.futures
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
ALONE = ("sample_counts", "sample_interrupts")
RESULT = re.compile(r"^(?P<test>test_\w+) \((?P<case>[\w.]+)\)(?:.*\n)*?.*?\.\.\. (?P<result>ok|FAIL|ERROR|skipped '(?P<reason>.*)')$",
                    re.MULTILINE)


class Maker:
    """Peers of one maker in one folder."""

    PROGRAMS = {"cyclone": ("peer_cyclone", "ddsperf"), "fastdds": ("peer_fastdds", "peer_ros", "peer_dynamic")}

    def __init__(self, kind, folder):
        self.program = folder / self.PROGRAMS[kind][0]
        self.arguments = []
        for name in self.PROGRAMS[kind]:
            program = next((path for path in (folder / name, folder.parent / "bin" / name, pathlib.Path("/usr/bin") / name)
                            if path.exists()), None)
            if program is not None:
                self.arguments += ["--" + name.replace("_", "-"), str(program)]

    def release(self):
        told = subprocess.run([self.program, "release"], stdin=subprocess.DEVNULL, capture_output=True, text=True)
        found = re.search(r"^release (.*)$", told.stdout, re.MULTILINE)
        if not found:
            sys.exit(f"{self.program} does not tell its release: {told.stderr}")
        return found[1]


def makers(kind, folder, own):
    found = [own] if own and (own / f"peer_{kind}").exists() else []
    found += sorted(peers for peers in folder.glob("*/peers") if (peers / f"peer_{kind}").exists())
    return [Maker(kind, peers) for peers in found]


def run(theme, tool, arguments, log):
    """Results of the tests of one theme: pairs of a name and what came of it."""
    command = [sys.executable, str(HERE / f"test_{theme}.py"), "--tool", str(tool), *arguments]
    try:
        told = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace", timeout=1200)
        text = told.stderr + told.stdout
    except subprocess.TimeoutExpired as late:
        text = (late.stderr or b"").decode(errors="replace") + "\nran for 20 minutes"
    (log / f"{theme}.log").write_text(text)
    results = [(f"{theme}.{found['test']}", "skipped: " + found["reason"] if found["reason"] else found["result"])
               for found in RESULT.finditer(text)]
    told = re.search(r"^Ran (\d+) tests? in", text, re.MULTILINE)
    if not told or int(told[1]) != len(results):
        results.append((f"{theme}", f"ERROR: {len(results)} results of {told[1] if told else 'an unknown number of'} tests"))
    return results


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--tool", type=pathlib.Path, required=True)
    parser.add_argument("--peers", type=lambda text: pathlib.Path(text).resolve())
    parser.add_argument("--only", help="pairs with this in the name of a release")
    parser.add_argument("--build", action="store_true")
    parser.add_argument("--themes")
    parser.add_argument("--log", type=pathlib.Path, default=pathlib.Path("releases"))
    options = parser.parse_args()
    if options.build and subprocess.run([HERE / "peers/build_releases.sh", options.folder]).returncode != 0:
        return 1
    themes = options.themes.split(",") if options.themes else sorted(
        file.stem[len("test_"):] for file in HERE.glob("test_*.py") if file.stem != "test_harness")

    # The latest of one maker beside the latest of the other.
    cyclones, fasts = (sorted(makers(kind, options.folder.resolve(), options.peers),
                              key=lambda maker: [int(word) for word in maker.release().split()[-1].split(".")], reverse=True)
                       for kind in ("cyclone", "fastdds"))
    count = max(len(cyclones), len(fasts))
    if count == 0:
        sys.exit("no peers found")
    failed = False
    for number in range(count):
        pair = [releases[min(number, len(releases) - 1)] for releases in (cyclones, fasts) if releases]
        names = [maker.release() for maker in pair]
        if options.only and not any(options.only in name for name in names):
            continue
        log = options.log / "+".join(name.replace(" ", "-") for name in names)
        log.mkdir(parents=True, exist_ok=True)
        arguments = [argument for maker in pair for argument in maker.arguments]
        job = lambda theme: run(theme, options.tool.resolve(), arguments, log)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            results = [result for some in pool.map(job, [theme for theme in themes if theme not in ALONE]) for result in some]
        results += [result for theme in ALONE if theme in themes for result in job(theme)]
        skipped = collections.Counter(result[9:] for _, result in results if result.startswith("skipped"))
        bad = [(name, result) for name, result in results if result != "ok" and not result.startswith("skipped")]
        failed = failed or bool(bad)
        print(f"| {' and '.join(names)} | {len(results)} | {len(results) - sum(skipped.values()) - len(bad)} | "
              f"{sum(skipped.values())} | {'; '.join(f'{reason} ({times})' for reason, times in skipped.items())} |")
        for name, result in bad:
            print(f"    {result}: {name}", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
