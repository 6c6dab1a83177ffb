#!/usr/bin/env python3
"""The program, its manual page and its completions know the same options and the same values."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TABLES = ("agent/QuixAgentOptions.cpp", "srcCxx/quixspy/quixSpyOptions.cpp")
# Options whose value is one of a few words, as the manual page shows them.
CHOICES = {"-mode": ["USER", "DISC"], "-printSample": ["PLAIN", "COMPACT"], "-discoveryPlugins": ["SDP", "SDP2"]}


def text(path):
    return (ROOT / path).read_text()


def options_of_program():
    return [name for table in TABLES for name in re.findall(r'Option\("(-\w+)"', text(table))]


class Options(unittest.TestCase):
    def test_the_tables_hold_options(self):
        names = options_of_program()
        self.assertGreater(len(names), 40)
        self.assertEqual(len(names), len(set(names)))

    def test_usage_page(self):
        """What the pages of the program list stands in its tables (a page cuts names at 28 characters)."""
        for page in ("-help", "-helpHidden"):
            lines = subprocess.run([TOOL, page], capture_output=True, text=True, check=False).stdout.splitlines()
            shown = [line.split()[0] for line in lines if line.startswith("    -")]
            self.assertTrue(shown)
            for name in shown:
                self.assertTrue([one for one in options_of_program() if one.startswith(name)], name)

    def test_manual_page(self):
        self.assertEqual(["-" + name for name in re.findall(r"^\.It Fl (\w+)", text("packaging/ferret.1"), re.M)],
                         sorted(options_of_program(), key=self.order_of_page))
        for name, values in CHOICES.items():
            self.assertRegex(text("packaging/ferret.1"),
                             rf"(?m)^\.It Fl {name[1:]} (Op )?Cm {' *[|] *'.join(values)}$")

    @staticmethod
    def order_of_page(name):
        return options_of_program().index(name)

    def test_bash(self):
        self.assertEqual(sorted(self.completions("-")), sorted(options_of_program()))
        for name, values in CHOICES.items():
            self.assertEqual([word for word in self.completions("", name) if not word.startswith("-")], values)

    def completions(self, current, previous="ferret"):
        words = ["ferret", current] if previous == "ferret" else ["ferret", previous, current]
        script = (f'complete() {{ :; }}; source {ROOT}/packaging/completion/ferret.bash; COMP_WORDS=("$@"); '
                  'COMP_CWORD=$(($# - 1)); _ferret; printf "%s\\n" "${COMPREPLY[@]}"')
        run = subprocess.run(["bash", "-c", script, "bash", *words], capture_output=True, text=True, check=True)
        return run.stdout.split()

    def test_zsh(self):
        page = text("packaging/completion/_ferret")
        names = re.findall(r"^    '(?:\(- \*\)|\*)?(-\w+)\[", page, re.M)
        self.assertEqual(names, options_of_program())
        for name, values in CHOICES.items():
            line = next(line for line in page.splitlines() if f"'{name}[" in line)
            for value in values:
                self.assertRegex(line, rf"[( ]{value}[) \\]")

    def test_pages_are_well_formed(self):
        """mandoc finds no error, where it is installed; zsh reads the file, where that is."""
        commands = [["mandoc", "-T", "lint", "-W", "warning", str(ROOT / "packaging/ferret.1")],
                    ["zsh", "-n", str(ROOT / "packaging/completion/_ferret")],
                    ["bash", "-n", str(ROOT / "packaging/completion/ferret.bash")]]
        for command in commands:
            try:
                run = subprocess.run(command, capture_output=True, text=True, check=False,
                                     cwd=tempfile.gettempdir())
            except FileNotFoundError:
                print(f"{command[0]} is missing: not checked", file=sys.stderr)
                continue
            self.assertEqual((run.returncode, run.stdout + run.stderr), (0, ""), command)


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main(verbosity=2)
