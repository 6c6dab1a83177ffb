#!/usr/bin/env python3
"""Runs ferret-types on the cases of this folder; README.md says how they are written."""

import contextlib
import io
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap
import tomllib
import unittest

SKIPPED = 77
HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
PROGRAM = ROOT / "tools/ferret-types/ferret-types"

FRAME = '<?xml version="1.0" encoding="UTF-8"?>\n<dds>\n  <types>\n{}  </types>\n</dds>\n'
EMPTY = '<?xml version="1.0" encoding="UTF-8"?>\n<dds>\n  <types/>\n</dds>\n'
# A document with one mistake, which is found when all types of the documents before it have been made.
MISTAKE = '<types><struct name="Mistake"><member name="x" type="nonBasic" nonBasicTypeName="missing"/></struct></types>\n'

tool = None


def run_types(folder, *arguments):
    """The program, as users start it."""
    return subprocess.run([sys.executable, PROGRAM, *arguments], cwd=folder, capture_output=True, text=True, encoding="utf-8",
                          timeout=60)


def read_in_here(files, arguments):
    """What the program makes of these files, in this process: (exit status, document or None, standard error)."""
    from ferret_types.command_line import main as ferret_types
    with tempfile.TemporaryDirectory() as folder, contextlib.chdir(folder):
        for name, text in files.items():
            path = pathlib.Path(name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors):
            status = ferret_types([*arguments, "-o", "document.xml"])
        document = pathlib.Path("document.xml")
        return status, document.read_text(encoding="utf-8") if document.exists() else None, errors.getvalue()


def complaint_of_ferret(document):
    """What ferret has against a document; None if nothing."""
    mistake = document.with_name("mistake.xml")
    mistake.write_text(MISTAKE)
    result = subprocess.run([ROOT / "tests/private-network.sh", tool, "-timeout", "1", "-qosFile", f"{document};{mistake}"],
                            capture_output=True, text=True, timeout=60)
    expected = f'{mistake}:1: element <member>: there is no type "missing"'
    return None if result.stderr.endswith(f"{expected}\n") and result.stderr.count("\n") == 1 else result.stderr or result.stdout


class Case(unittest.TestCase):
    def __init__(self, theme, case):
        super().__init__("run_case")
        self.theme = theme
        self.case = case

    def __str__(self):
        return f"{self.theme}: {self.case['name']}"

    def id(self):
        return str(self)

    def run_case(self):
        unknown = self.case.keys() - {"name", "files", "arguments", "types", "messages", "status"}
        self.assertFalse(unknown, "unknown keys in the case")
        messages = "".join(f"{line}\n" for line in self.case.get("messages", []))
        types = self.case.get("types")
        status, document, errors = read_in_here(self.case["files"], self.case.get("arguments", ["."]))
        self.assertEqual(errors, messages)
        self.assertEqual(document, types and FRAME.format(textwrap.indent(types, "    ")) if types != "" else EMPTY)
        self.assertEqual(status, self.case.get("status", 1 if messages and types is None else 0))
        if types is not None and tool:
            with tempfile.TemporaryDirectory() as folder:
                file = pathlib.Path(folder, "document.xml")
                file.write_text(document, encoding="utf-8")
                self.assertIsNone(complaint_of_ferret(file))


class Broken(unittest.TestCase):
    """Files that end anywhere are told of, and break nothing."""

    def test_every_line_and_some_places_in_it(self):
        for case in all_cases().values():
            for name, text in case["files"].items():
                for at in [*range(0, len(text), 37), *(found.end() for found in re.finditer("\n", text))]:
                    status, document, errors = read_in_here({**case["files"], name: text[:at]}, case.get("arguments", ["."]))
                    said = [line for line in errors.splitlines() if ": warning: " not in line]
                    self.assertEqual((status, document is None), (1, True) if said else (0, False), (name, text[:at], errors))


class CommandLine(unittest.TestCase):
    """What is no matter of input and output alone."""

    MESSAGE = "int32 a\n"

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "p/msg").mkdir(parents=True)
        (self.folder / "p/msg/M.msg").write_text(self.MESSAGE)

    def test_help_and_version(self):
        for option in ("-h", "--help"):
            result = run_types(self.folder, option)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.assertTrue(result.stdout.startswith("usage: ferret-types "), result.stdout)
        result = run_types(self.folder, "--version")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertRegex(result.stdout, r"^ferret-types \d+\.\d+\.\d+\n$")

    def test_the_manual_page(self):
        page = PROGRAM.with_name("ferret-types.1")
        options = set(re.findall(r"^  (?:(-\w), )?(--?[\w-]+)", run_types(self.folder, "-h").stdout, re.MULTILINE))
        documented = set(re.findall(r"^\.It Fl (?:Fl (\w+)|(\w))", page.read_text(), re.MULTILINE))
        self.assertEqual({(short or long).lstrip("-") for short, long in options}, {short or long for short, long in documented})
        if shutil.which("mandoc") is None:
            self.skipTest("mandoc is not installed")
        lint = subprocess.run(["mandoc", "-Tlint", page], capture_output=True, text=True).stdout.splitlines()
        self.assertEqual([line for line in lint if "referenced manual not found" not in line], [])

    def test_wrong_usage(self):
        for arguments in ((), ("-x", "p"), ("-I",), ("p", "-o"), ("--vers",)):
            result = run_types(self.folder, *arguments)
            self.assertEqual((result.returncode, result.stdout), (2, ""), arguments)
            self.assertIn("usage: ferret-types", result.stderr)

    def test_a_link_to_the_program(self):
        """As packages install it."""
        link = self.folder / "link"
        link.symlink_to(PROGRAM)
        result = subprocess.run([sys.executable, link, "p"], cwd=self.folder, capture_output=True, text=True)
        self.assertEqual((result.returncode, result.stdout), (0, run_types(self.folder, "p").stdout))

    def test_a_file_for_the_document(self):
        result = run_types(self.folder, "p", "-o", "out.xml")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        self.assertEqual((self.folder / "out.xml").read_text(), run_types(self.folder, "p").stdout)

    def test_no_document_where_something_is_wrong(self):
        (self.folder / "p/msg/N.msg").write_text("Unknown u\n")
        result = run_types(self.folder, "p", "-o", "out.xml")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertFalse((self.folder / "out.xml").exists())

    def test_what_cannot_be_written(self):
        result = run_types(self.folder, "p", "-o", "none/out.xml")
        self.assertEqual((result.returncode, result.stderr), (1, "none/out.xml: cannot be written: No such file or directory\n"))
        with open("/dev/full", "w") as full:
            result = subprocess.run([sys.executable, PROGRAM, "p"], cwd=self.folder, stdout=full, stderr=subprocess.PIPE,
                                    text=True)
        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith("standard output: cannot be written: No space left on device\n"), result.stderr)

    def test_other_characters(self):
        """ROS files are UTF-8; IDL files may be ISO Latin-1."""
        (self.folder / "p/msg/M.msg").write_bytes(b"int32 a # \xff\n")
        (self.folder / "q.idl").write_bytes(b"struct S { long a; }; // \xff\r\n")
        (self.folder / "r.idl").write_bytes(b"struct \xff { long a; };\n")
        result = run_types(self.folder, ".")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, 'p/msg/M.msg: is not UTF-8\nr.idl:1: "\xff" is not understood here\n')

    def test_what_cannot_be_read(self):
        for name in ("a.idl", "p/msg/N.msg"):
            (self.folder / name).symlink_to("nowhere")
        (self.folder / "b.idl").symlink_to("p")
        result = run_types(self.folder, "p", "a.idl", ".")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, "a.idl: cannot be read: No such file or directory\n"
                                        "p/msg/N.msg: cannot be read: No such file or directory\n")

    def test_the_same_text_again(self):
        for name in "ZYXA":
            (self.folder / f"p/msg/{name}.msg").write_text("M m\n")
        self.assertEqual(run_types(self.folder, "p").stdout, run_types(self.folder, "p/msg", "p").stdout)

    def test_deep_expressions(self):
        (self.folder / "deep.idl").write_text("const long A = " + "(" * 5000 + "-" * 5000 + "1" + ")" * 5000 + ";\n")
        result = run_types(self.folder, "deep.idl")
        self.assertEqual((result.returncode, result.stderr), (1, "deep.idl: expressions or types nest too deep\n"))


def all_cases():
    """Each case by its theme and name."""
    files = sorted((HERE / "cases").glob("*.toml"))
    return {(file.stem, case["name"]): case for file in files for case in tomllib.loads(file.read_text(encoding="utf-8"))["case"]}


def load_tests(loader, tests, _):
    tests.addTests(Case(theme, case) for (theme, _), case in all_cases().items())
    return tests


def main():
    global tool
    if "--tool" in sys.argv:
        at = sys.argv.index("--tool")
        tool = pathlib.Path(sys.argv[at + 1]).resolve()
        del sys.argv[at:at + 2]
    try:
        import lark  # noqa: F401
    except ModuleNotFoundError:
        print("skipped: the Python module lark (python3-lark) is not installed")
        sys.exit(SKIPPED)
    sys.path.insert(0, str(PROGRAM.parent))
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
