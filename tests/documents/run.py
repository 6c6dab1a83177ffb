#!/usr/bin/env python3
"""Runs every command of the documents, in a private network and in the company that its page names, and compares the output
that the page shows with what was printed.

    run.py --tool PATH [--peer-cyclone PATH ...] [PAGE | PAGE:LINE ...]     all commands (default: of all pages)
    run.py --tool PATH ... --record PAGE[:LINE] ...     writes what was printed into the page, and shows the difference
    run.py --root FOLDER ...             the documents of another tree
    run.py --table                       only: each command is run or listed in not_run.toml, each option is in the guide, and
                                         each link leads to something

How documents are written is told in README.md beside this script.
"""

import concurrent.futures
import fnmatch
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import threading
import time
import tomllib
import unittest

import grammar
import outputs
import pages
import picture
import scenes

import harness  # scenes knows the way to it

ROOT = pages.ROOT
HERE = pathlib.Path(__file__).resolve().parent
# Programs that a command may consist of. Everything else is to be listed.
PROGRAMS = {"ferret", "ferret-types", "grep", "head", "tail", "cut", "sort", "uniq", "wc", "cat", "echo", "ls", "ip",
            "tests/private-network.sh", "for", "done", "wait", "ulimit"}
HELP = {"-help", "-helpHidden", "-hOutput", "-version"}
# Nothing more is printed when nothing was for so long. Only more than what is shown can be missed by it.
QUIET_TIME = 2.0 if "--record" in sys.argv else 0.3
LIMIT = 20.0


def load_table(path=HERE / "not_run.toml"):
    """(pattern, reason) of the commands that are not run."""
    with open(path, "rb") as file:
        return [(pattern, entry["reason"]) for entry in tomllib.load(file)["entry"] for pattern in entry["commands"]]


def programs(text):
    """The programs of a command line, by their first words."""
    parts = re.split(r"\||&&|;|(?<!>)&(?!\d)", re.sub(r"'[^']*'|\"[^\"]*\"", "''", text))
    return [part.split()[0] for part in (part.strip().removeprefix("do ") for part in parts) if part]


def sort_commands(all_pages, table):
    """The commands to run, and what is wrong with the table."""
    to_run, wrong, used = [], [], set()
    for page in all_pages:
        for command in page.commands:
            listed = [pattern for pattern, _ in table if fnmatch.fnmatchcase(command.text, pattern)]
            used.update(listed)
            strangers = [name for name in programs(command.text) if name not in PROGRAMS]
            if listed:
                continue
            if strangers:
                wrong.append(f"{command.place}: neither run nor listed in not_run.toml: {command.text}")
            elif command.scene not in scenes.SCENES:
                wrong.append(f"{command.place}: no scene {command.scene} in scenes.py")
            else:
                to_run.append((page, command))
    wrong += [f"not_run.toml: no document has a command {pattern!r}" for pattern, _ in table if pattern not in used]
    return to_run, wrong


def options_missing(all_pages):
    """The guide shows every option of the manual page in a command."""
    page = next((page for page in all_pages if page.name == "docs/user-guide.md"), None)
    manual = ROOT / "packaging/ferret.1"
    words = {word for command in (page.commands if page else []) for word in shlex.split(command.text)}
    return [f"docs/user-guide.md: no command with {option}"
            for option in (f"-{name}" for name in re.findall(r"^\.It Fl (\w+)", manual.read_text(), re.MULTILINE)) if option not in words]


class Run:
    """A command line in a shell, in a session of its own, with both outputs in one."""

    def __init__(self, network, command, folder, path):
        self.lines = []
        self._changed = threading.Condition()
        self._last = time.monotonic()
        self._child = network.start(["bash", "-c", command], cwd=folder, env={**os.environ, "PATH": f"{path}:{os.environ['PATH']}"},
                                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        self._thread = threading.Thread(target=self._collect, daemon=True)
        self._thread.start()

    def _collect(self):
        for raw in self._child.stdout:
            with self._changed:
                self.lines.append(raw.decode(errors="backslashreplace").rstrip("\n"))
                self._last = time.monotonic()
                self._changed.notify_all()

    def wait_for(self, condition, limit=LIMIT):
        """False when the time is over. Ends early when the command has ended."""
        end = time.monotonic() + limit * harness.SLOWNESS
        with self._changed:
            while not condition():
                if self._child.poll() is not None and not self._thread.is_alive():
                    return condition()
                if time.monotonic() > end:
                    return False
                self._changed.wait(0.05)
        return True

    def wait_until_quiet(self):
        self.wait_for(lambda: time.monotonic() - self._last > QUIET_TIME, 2 * QUIET_TIME)

    def interrupt(self):
        """What CTRL+C does."""
        try:
            os.killpg(self._child.pid, signal.SIGINT)
        except ProcessLookupError:
            pass

    def end(self, limit=LIMIT):
        """The exit status, or None when it had to be killed."""
        try:
            status = self._child.wait(limit * harness.SLOWNESS)
        except subprocess.TimeoutExpired:
            status = None
        try:
            os.killpg(self._child.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._child.wait()
        self._thread.join(5)
        self._child.stdout.close()
        return status


def is_run(command):
    """Whether its output is that of a run of the tool, unchanged."""
    return programs(command.text) in (["ferret"], ["ulimit", "ferret"]) and not is_help(command)


def printed(command, lines):
    """What of the output is compared with what is shown, and shown when it is recorded."""
    lines = outputs.without_frame(lines, command.shown or []) if is_run(command) else lines
    return "\n".join(lines).rstrip("\n").split("\n")


def is_help(command):
    return any(word in HELP for word in shlex.split(command.text))


def perform(command, folder, path):
    """Runs one command in its scene. Returns (lines, exit status) or raises unittest.SkipTest."""
    stage = scenes.Stage(command.text, folder)
    run = None
    try:
        play = scenes.SCENES[command.scene](stage)
        next(play)
        text = command.text
        for there, here in stage.replace.items():
            text = text.replace(there, here)
        run = Run(stage.network, text, folder, path)
        spies = "ferret" in programs(command.text) and not is_help(command)
        if spies:
            run.wait_for(lambda: any(outputs.LISTENING in line for line in run.lines), 2 if "|" in text or ">" in text else LIMIT)
            next(play, None)
            if "-timeout" not in text:
                if command.shown:
                    run.wait_for(lambda: not outputs.missing(command.shown, run.lines))
                run.wait_until_quiet()
                run.interrupt()
        status = run.end()
        return run.lines, status
    finally:
        if run is not None:
            run.end(0)
        stage.doCleanups()


def complaints(command, lines, status):
    """What is wrong with the run of a command, as texts."""
    result = []
    text = "\n".join(lines)
    spies = is_run(command)
    if status is None:
        result.append("still running, killed")
    elif status not in (0, 1):
        result.append(f"exit status {status}")
    elif command.shown is None and not re.search(r"\bferret\b(?!-)", command.text) and status != 0:
        result.append(f"exit status {status}")
    elif command.shown is None and spies and status != 1:
        result.append("the run was not completed")
    if command.shown is not None:
        difference = outputs.difference(command.shown, printed(command, lines))
        if difference:
            result.append("the output differs:\n" + difference)
    elif spies and command.scene != pages.NO_SCENE and not any(printed(command, lines)):
        result.append("nothing was seen")
    if spies and outputs.STATISTICS in text and "-verbosity" not in command.text and "-LogFormat" not in command.text:
        result += grammar.complaints(grammar.of_page(), text + "\n")
    return result


def run_block(page, commands, path):
    """Runs the commands of one block, one after the other in one folder. A list of (command, lines, complaints or None)."""
    result = []
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        for name, text in page.files.items():
            (folder / name).write_text(text)
        for name in ("tests", "demo", "packaging"):
            (folder / name).symlink_to(ROOT / name)
        for command in commands:
            try:
                lines, status = perform(command, folder, path)
                result.append((command, lines, complaints(command, lines, status)))
            except unittest.SkipTest as reason:
                result.append((command, [], None))
                print(f"skipped {command.place}: {reason}", flush=True)
            except Exception as error:  # pylint: disable=broad-except - one command must not hide the others
                result.append((command, [], [f"{type(error).__name__}: {error}"]))
    return result


def blocks_of(to_run):
    """Commands of one page and one block, which stand close together, belong together."""
    result = []
    for page, command in to_run:
        block = next((begin for begin, _, lines in page.blocks if begin <= command.number < begin + len(lines)), command.number)
        if not result or result[-1][0] != (page.name, block):
            result.append(((page.name, block), page, []))
        result[-1][2].append(command)
    return [(page, commands) for _, page, commands in result]


def record(page, results):
    """Writes what was printed into the page, from its end to its beginning."""
    if page.path.suffix == ".svg":
        for command, lines, _ in results:
            page.path.write_text(picture.render(command.text, printed(command, lines), command.scene))
        return
    text = page.path.read_text().split("\n")
    for command, lines, _ in sorted(results, key=lambda each: -each[0].number):
        if command.shown is None or not lines or outputs.ELLIPSIS in command.shown or \
                not outputs.difference(command.shown, printed(command, lines)):
            continue
        text[command.number:command.number + len(command.shown)] = [line.rstrip() for line in printed(command, lines)]
    page.path.write_text("\n".join(text))


def main():
    arguments = sys.argv[1:]
    if "--table" not in arguments and harness.INSIDE not in arguments:
        harness._enter_namespaces()  # pylint: disable=protected-access - it starts this program again
    recording = "--record" in arguments
    table_only = "--table" in arguments
    names = []
    root = ROOT
    while arguments:
        word = arguments.pop(0)
        if word in (harness.INSIDE, "--record", "--table"):
            continue
        if word == "--root":
            root = pathlib.Path(arguments.pop(0))
        elif word.startswith("--"):
            setattr(harness.options, word[2:].replace("-", "_"), pathlib.Path(arguments.pop(0)).resolve())
        else:
            names.append(word)

    try:
        all_pages = pages.read_all(root)
    except pages.BadPage as error:
        sys.exit(str(error))
    to_run, wrong = sort_commands(all_pages, load_table())
    if table_only:
        wrong += options_missing(all_pages)
        wrong += [each for page in all_pages if page.path.suffix == ".md" for each in pages.broken_links(page, root)]
        print("\n".join(wrong + [f"{len(to_run)} commands to run, {len(wrong)} complaints"]))
        return 1 if wrong or not to_run else 0

    if names:
        to_run = [(page, command) for page, command in to_run if page.name in names or command.place in names]
    if not to_run:
        sys.exit("no commands")
    with tempfile.TemporaryDirectory() as path, concurrent.futures.ThreadPoolExecutor(6) as pool:
        os.symlink(harness.options.tool, pathlib.Path(path, "ferret"))
        os.symlink(ROOT / "tools/ferret-types/ferret-types", pathlib.Path(path, "ferret-types"))
        blocks = blocks_of(to_run)
        outcome = list(pool.map(lambda block: run_block(*block, path), blocks))
        for at, block in enumerate(blocks):
            # What depends on time may differ where the machine is too busy. What a page says falsely differs each time.
            for _ in range(2):
                if any(problems for _, _, problems in outcome[at]):
                    print(f"again, alone: {block[1][0].place}", flush=True)
                    outcome[at] = run_block(*block, path)
    results = [each for block in outcome for each in block]
    failed = [each for each in results if each[2]]
    for command, lines, problems in failed:
        print(f"FAIL {command.place}: {command.text}")
        for problem in problems:
            print("    " + problem.replace("\n", "\n    "))
    if recording:
        for page in all_pages:
            record(page, [each for each in results if each[0].page is page])
    print(f"{len(results) - len(failed)} of {len(results)} commands hold")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
