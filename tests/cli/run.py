#!/usr/bin/env python3
"""Runs command-line cases: data files that say what to run and, byte for byte, what it must print.

    run.py --tool PATH [CASE-FILE...]            all cases of the files (default: every file in cases/)
    run.py --tool PATH --only NAME [...]         the cases called NAME
    run.py --tool PATH --regenerate NAME [...]   show what would change in the expected output of NAME, then rewrite it

The format of a case file is described in README.md beside this script.
"""

import argparse
import concurrent.futures
import difflib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import tomllib

HERE = pathlib.Path(__file__).resolve().parent
PRIVATE_NETWORK = HERE.parent / "private-network.sh"

FILE_KEYS = {"prefix_file", "network", "timeout", "env", "case"}
CASE_KEYS = {"name", "about", "args", "stdout", "stdout_file", "stdout_matches", "stderr", "stderr_contains", "status",
             "timeout", "env", "network", "prefix_file", "files", "signal", "signal_after", "skip_prefix"}
DEFAULT_TIMEOUT = 10.0


class BadCase(Exception):
    """A case file that says something the runner does not understand; it fails the run, it is never skipped."""


def text_of(value):
    """The string that a text expression stands for: a string, or a table as README.md describes."""
    if isinstance(value, str):
        return value
    if isinstance(value, dict) and set(value) == {"text", "times"}:
        return text_of(value["text"]) * value["times"]
    if isinstance(value, dict) and set(value) == {"join"}:
        return "".join(text_of(part) for part in value["join"])
    raise BadCase(f"not a text: {value!r}")


def arguments_of(values):
    """The argument vector of a list of texts and of { repeat, args } tables."""
    result = []
    for value in values:
        if isinstance(value, dict) and set(value) == {"repeat", "args"}:
            for index in range(value["repeat"]):
                result += [text.replace("{i}", str(index)) for text in arguments_of(value["args"])]
        else:
            result.append(text_of(value))
    return result


class Case:
    """One case with the defaults of its file filled in."""

    def __init__(self, path, defaults, table):
        self.path = path
        self.name = table.get("name")
        if not isinstance(self.name, str) or not re.fullmatch(r"[A-Za-z0-9_.-]+", self.name):
            raise BadCase(f"{path.name}: a case needs a name of letters, digits, '_', '.' and '-', got {self.name!r}")
        unknown = set(table) - CASE_KEYS
        if unknown:
            raise BadCase(f"{path.name}: {self.name}: unknown keys {sorted(unknown)}")
        if "status" not in table:
            raise BadCase(f"{path.name}: {self.name}: no status")
        if "signal" in table and "signal_after" not in table:
            raise BadCase(f"{path.name}: {self.name}: signal needs signal_after")
        if sum(key in table for key in ("stdout", "stdout_file", "stdout_matches")) > 1:
            raise BadCase(f"{path.name}: {self.name}: more than one expected output")
        self.table = table
        self.arguments = arguments_of(table.get("args", []))
        self.status = table["status"]
        self.timeout = float(table.get("timeout", defaults.get("timeout", DEFAULT_TIMEOUT)))
        self.network = table.get("network", defaults.get("network", True))
        self.environment = {**defaults.get("env", {}), **table.get("env", {})}
        prefix_file = table.get("prefix_file", defaults.get("prefix_file"))
        self.prefix = b"" if prefix_file is None or table.get("skip_prefix") \
            else (path.parent.parent / "expected" / prefix_file).read_bytes()

    @property
    def expected_path(self):
        name = self.table.get("stdout_file", f"{self.path.stem}/{self.name}.txt")
        return self.path.parent.parent / "expected" / name

    def expected_stdout(self):
        """What must be printed, or None where the file with it does not exist yet."""
        if "stdout" in self.table:
            return self.prefix + text_of(self.table["stdout"]).encode()
        if not self.expected_path.exists():
            return None
        return self.prefix + self.expected_path.read_bytes()


class Outcome:
    def __init__(self, status, stdout, stderr, timed_out):
        self.status = status
        self.stdout = stdout
        self.stderr = stderr
        self.timed_out = timed_out


def collect(stream, sink, needle, seen):
    for chunk in iter(lambda: stream.read1(65536), b""):
        sink.extend(chunk)
        if needle is not None and needle in sink:
            seen.set()
    seen.set()


def execute(tool, case):
    """Runs the case in an empty folder of its own; a child that is still there at the time limit is killed."""
    command = ([str(PRIVATE_NETWORK)] if case.network else []) + [str(tool)] + case.arguments
    folder = tempfile.mkdtemp(prefix="cli-case-")
    try:
        for name, content in case.table.get("files", {}).items():
            path = pathlib.Path(folder, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(text_of(content).encode())
        child = subprocess.Popen(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, env={**os.environ, **case.environment})
        needle = case.table["signal_after"].encode() if "signal" in case.table else None
        output, errors = bytearray(), bytearray()
        seen, ignored = threading.Event(), threading.Event()
        threads = [threading.Thread(target=collect, args=(child.stdout, output, needle, seen)),
                   threading.Thread(target=collect, args=(child.stderr, errors, None, ignored))]
        for thread in threads:
            thread.start()
        timed_out = False
        try:
            if needle is not None and seen.wait(case.timeout) and child.poll() is None:
                child.send_signal(getattr(signal, case.table["signal"]))
            child.wait(case.timeout)
        except subprocess.TimeoutExpired:
            timed_out = True
        finally:
            if child.poll() is None:
                child.kill()
                child.wait()
            for thread in threads:
                thread.join()
            child.stdout.close()
            child.stderr.close()
        return Outcome(child.returncode, bytes(output), bytes(errors), timed_out)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def visible(data):
    """Lines in which every byte that a terminal would hide can be seen, trailing blanks and line ends included."""
    return [line.decode(errors="backslashreplace").encode("unicode_escape").decode().replace("\\n", "") +
            ("" if line.endswith(b"\n") else "  <no line end>")
            for line in data.splitlines(keepends=True)]


def difference(expected, actual):
    return "\n".join(difflib.unified_diff(visible(expected), visible(actual), "expected", "printed", lineterm="", n=2))


def complaints(case, outcome):
    """Everything in which the outcome differs from the case, as texts; empty when the case holds."""
    result = []
    if outcome.timed_out:
        result.append(f"still running after {case.timeout:g} s, killed")
    elif outcome.status != case.status:
        result.append(f"exit status {outcome.status}, expected {case.status}")
    if "stdout_matches" in case.table:
        pattern = re.escape(case.prefix) + text_of(case.table["stdout_matches"]).encode()
        if not re.fullmatch(pattern, outcome.stdout, re.DOTALL):
            result.append("standard output does not match the pattern:\n" + "\n".join(visible(outcome.stdout)))
    else:
        expected = case.expected_stdout()
        if expected is None:
            result.append(f"no expected output yet ({case.expected_path}); make it with --regenerate {case.name}\n" +
                          difference(b"", outcome.stdout))
        elif expected != outcome.stdout:
            result.append("standard output differs:\n" + difference(expected, outcome.stdout))
    if "stderr_contains" in case.table:
        for text in case.table["stderr_contains"]:
            if text_of(text).encode() not in outcome.stderr:
                result.append(f"standard error lacks {text_of(text)!r}:\n" + "\n".join(visible(outcome.stderr)))
    else:
        expected = text_of(case.table.get("stderr", "")).encode()
        if expected != outcome.stderr:
            result.append("standard error differs:\n" + difference(expected, outcome.stderr))
    return result


def load(paths):
    cases = []
    for path in paths:
        try:
            with open(path, "rb") as file:
                document = tomllib.load(file)
        except tomllib.TOMLDecodeError as error:
            raise BadCase(f"{path}: {error}") from error
        unknown = set(document) - FILE_KEYS
        if unknown:
            raise BadCase(f"{path.name}: unknown keys {sorted(unknown)}")
        if not document.get("case"):
            raise BadCase(f"{path.name}: no cases")
        names = set()
        for table in document["case"]:
            case = Case(path, document, table)
            if case.name in names:
                raise BadCase(f"{path.name}: two cases called {case.name}")
            names.add(case.name)
            cases.append(case)
    return cases


def regenerate(tool, case):
    """Shows how the expected output would change and writes it. Only output kept in a file is ever rewritten."""
    if "stdout" in case.table or "stdout_matches" in case.table:
        print(f"{case.name}: its expected output stands in {case.path.name} and is edited there")
        return False
    outcome = execute(tool, case)
    if outcome.timed_out or outcome.status != case.status or not outcome.stdout.startswith(case.prefix):
        print(f"{case.name}: not rewritten: {'; '.join(complaints(case, outcome))}")
        return False
    old = case.expected_stdout() or b""
    if old == outcome.stdout and case.expected_path.exists():
        print(f"{case.name}: unchanged")
        return True
    print(f"{case.name}: {case.expected_path}\n{difference(old, outcome.stdout)}")
    case.expected_path.parent.mkdir(parents=True, exist_ok=True)
    case.expected_path.write_bytes(outcome.stdout[len(case.prefix):])
    return True


def main():
    parser = argparse.ArgumentParser(description="Runs command-line cases; see README.md")
    parser.add_argument("--tool", required=True, type=pathlib.Path)
    parser.add_argument("--only", nargs="+", default=[], metavar="NAME")
    parser.add_argument("--regenerate", nargs="+", default=[], metavar="NAME")
    parser.add_argument("--jobs", type=int, default=2, help="cases at the same time (default 2)")
    parser.add_argument("files", nargs="*", type=pathlib.Path)
    options = parser.parse_args()

    tool = options.tool.resolve()
    if not os.access(tool, os.X_OK):
        print(f"no program at {tool}")
        return 2
    try:
        cases = load([path.resolve() for path in options.files] or sorted((HERE / "cases").glob("*.toml")))
    except BadCase as error:
        print(error)
        return 2
    wanted = options.only + options.regenerate
    missing = set(wanted) - {case.name for case in cases}
    if missing:
        print(f"no case called {', '.join(sorted(missing))}")
        return 2
    if wanted:
        cases = [case for case in cases if case.name in wanted]
    if not cases:
        print("no cases found")
        return 2
    if options.regenerate:
        return 0 if all([regenerate(tool, case) for case in cases]) else 1

    if any(case.network for case in cases):
        probe = subprocess.run([str(PRIVATE_NETWORK), "true"], stderr=subprocess.PIPE)
        if probe.returncode != 0:
            print(probe.stderr.decode(errors="replace").strip())
            return 1

    failed = 0
    with concurrent.futures.ThreadPoolExecutor(max(1, options.jobs)) as pool:
        for case, outcome in zip(cases, pool.map(lambda case: execute(tool, case), cases)):
            problems = complaints(case, outcome)
            if problems:
                failed += 1
                print(f"FAIL {case.path.stem}/{case.name}")
                for problem in problems:
                    print("    " + problem.replace("\n", "\n    "))
    print(f"{len(cases) - failed} of {len(cases)} cases hold")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
