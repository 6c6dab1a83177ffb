#!/usr/bin/env python3
"""Shows that the case runner notices what it is there to notice, with a shell script in the tool's place."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent

TOOL = r"""#!/bin/sh
case "$1" in
    count) shift; printf '%s\n' "$#" "$@" ;;
    length) printf '%s\n' "${#2}" ;;
    control) printf '%s' "$2" | od -An -tx1 ;;
    fail) echo out; echo err >&2; exit 3 ;;
    hang) exec sleep 60 ;;
    cat) cat "$2" ;;
    env) echo "$NAMED" ;;
    links) ip -o link | wc -l ;;
    wait) trap 'echo stopped; exit 1' INT; echo ready; while :; do sleep 0.05; done ;;
    trail) printf 'blank \nend' ;;
esac
"""


class Runner(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.folder.name)
        (self.root / "cases").mkdir()
        (self.root / "expected").mkdir()
        self.tool = self.root / "tool"
        self.tool.write_text(TOOL)
        self.tool.chmod(0o755)

    def tearDown(self):
        self.folder.cleanup()

    def run_cases(self, text, *options):
        path = self.root / "cases" / "theme.toml"
        path.write_text(text)
        done = subprocess.run([sys.executable, HERE / "run.py", "--tool", self.tool, path, *options],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=os.environ)
        return done.returncode, done.stdout

    def assert_holds(self, text):
        status, output = self.run_cases(text)
        self.assertEqual(status, 0, output)

    def assert_fails(self, text, *needles):
        status, output = self.run_cases(text)
        self.assertNotEqual(status, 0, output)
        for needle in needles:
            self.assertIn(needle, output)

    def test_what_holds(self):
        self.assert_holds(r'''
[[case]]
name = "repeat"
args = ["count", { repeat = 3, args = ["-p", "h{i}"] }]
status = 0
stdout = "6\n-p\nh0\n-p\nh1\n-p\nh2\n"
[[case]]
name = "long"
args = ["length", { join = [{ text = "x", times = 500 }, "yz"] }]
status = 0
stdout = "502\n"
[[case]]
name = "control"
args = ["control", "a\u0002b"]
status = 0
stdout = " 61 02 62\n"
[[case]]
name = "files"
args = ["cat", "sub/qos.xml"]
files = { "sub/qos.xml" = "<dds/>" }
status = 0
stdout = "<dds/>"
[[case]]
name = "env"
args = ["env"]
env = { NAMED = "value" }
status = 0
stdout = "value\n"
[[case]]
name = "signal"
args = ["wait"]
signal = "SIGINT"
signal_after = "ready"
status = 1
stdout_matches = 'ready\nstopped\n'
[[case]]
name = "only-loopback"
args = ["links"]
status = 0
stdout = "1\n"
[[case]]
name = "errors"
args = ["fail"]
status = 3
stdout = "out\n"
stderr = "err\n"
''')

    def test_a_wrong_byte_is_seen(self):
        self.assert_fails('[[case]]\nname="a"\nargs=["trail"]\nstatus=0\nstdout="blank\\nend"\n', "standard output differs")
        self.assert_fails('[[case]]\nname="a"\nargs=["trail"]\nstatus=0\nstdout="blank \\nend\\n"\n', "<no line end>")

    def test_a_wrong_status_is_seen(self):
        self.assert_fails('[[case]]\nname="a"\nargs=["fail"]\nstatus=0\nstdout="out\\n"\nstderr="err\\n"\n',
                          "exit status 3, expected 0")

    def test_unexpected_standard_error_is_seen(self):
        self.assert_fails('[[case]]\nname="a"\nargs=["fail"]\nstatus=3\nstdout="out\\n"\n', "standard error differs")
        self.assert_fails('[[case]]\nname="a"\nargs=["fail"]\nstatus=3\nstdout="out\\n"\nstderr_contains=["other"]\n',
                          "standard error lacks")

    def test_a_pattern_must_match_everything(self):
        self.assert_fails('[[case]]\nname="a"\nargs=["trail"]\nstatus=0\nstdout_matches="blank"\n', "does not match")

    def test_a_hanging_tool_fails(self):
        self.assert_fails('[[case]]\nname="a"\nargs=["hang"]\nstatus=0\nstdout=""\ntimeout=0.3\n', "still running")

    def test_mistakes_in_case_files_fail(self):
        self.assert_fails('[[case]]\nname="a"\nargs=["trail"]\nstatus=0\nexpect="x"\n', "unknown keys")
        self.assert_fails('[[case]]\nname="a"\nargs=["trail"]\nstdout=""\n', "no status")
        self.assert_fails('[[case]]\nname="a"\nstatus=0\nstdout=""\n[[case]]\nname="a"\nstatus=0\nstdout=""\n', "two cases")
        self.assert_fails('[[case]]\nname="a"\nargs=["trail"]\nstatus=0\n', "no expected output yet")
        self.assert_fails('timeout=3\n', "no cases")

    def test_regenerate_shows_then_writes(self):
        text = '[[case]]\nname="a"\nargs=["trail"]\nstatus=0\n'
        status, output = self.run_cases(text, "--regenerate", "a")
        self.assertEqual(status, 0, output)
        self.assertIn("+blank ", output)
        self.assertEqual((self.root / "expected" / "theme" / "a.txt").read_bytes(), b"blank \nend")
        self.assert_holds(text)

    def test_the_prefix_is_part_of_the_output(self):
        (self.root / "expected" / "head.txt").write_bytes(b"blank \n")
        self.assert_holds('prefix_file="head.txt"\n[[case]]\nname="a"\nargs=["trail"]\nstatus=0\nstdout="end"\n')
        self.assert_fails('prefix_file="head.txt"\n[[case]]\nname="a"\nargs=["trail"]\nstatus=0\nstdout="blank \\nend"\n')
        status, output = self.run_cases(
            'prefix_file="head.txt"\n[[case]]\nname="a"\nargs=["fail"]\nstatus=3\nstderr="err\\n"\n', "--regenerate", "a")
        self.assertEqual(status, 1, output)


if __name__ == "__main__":
    unittest.main()
