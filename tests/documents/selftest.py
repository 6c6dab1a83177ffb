#!/usr/bin/env python3
"""Shows that the test of the documents notices what it is there to notice."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import grammar
import outputs
import pages
import picture
import run

HERE = pathlib.Path(__file__).resolve().parent

SHOWN = """\
12:00:00 New writer        from 10.0.0.1        : topic="A" type="T" guid="0x0110525E,0x1B59BC5E,0x8178B153:0x00000302"
12:00:00 New data          from 10.0.0.1        : topic="A" type="T"
x: 1

12:00:01 Modified instance from 10.0.0.1        : topic="A" type="T"
x: 2

12:00:01 New reader        from 10.0.0.1        : topic="B" type="T"
12:00:01.123 [17] error net tell: datagram from udpv4:10.0.0.1:40000 of host 01010203.04050607.08090a0b
""".split("\n")

TOOL = """#!/bin/sh
echo "ferret is listening for data, press CTRL+C to stop it."
echo
echo '13:01:02 New writer        from 127.0.0.1       : topic="A" type="T"'
echo '13:01:02 New reader        from 127.0.0.1       : topic="B" type="T"'
trap 'printf "\\n\\n---- Statistics ----\\nDiscovered 1 DataWriters and 1 DataReaders\\n\\n\\n"; exit 1' INT
while :; do sleep 0.05; done
"""
PAGE = """# Page

```console
$ ferret
12:00:00 New writer        from 10.0.0.1        : topic="A" type="T"
12:00:00 New reader        from 10.0.0.1        : topic="B" type="T"
```
"""


class Tree(unittest.TestCase):
    """A tree of documents in a temporary folder."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)

    def read(self, text, name="README.md"):
        (self.root / name).write_text(text)
        return pages.read(self.root / name, self.root)


class Pages(Tree):
    def test_commands_of_every_kind_of_block(self):
        page = self.read("A\n\n    ferret -a  # why\n    ferret \\\n      -b\n\n<!-- scene: plant -->\n```console\n$ ferret -c\nout\n"
                         "\n$ ferret -d\n```\n\n```sh\n# nothing\nferret -e 'x # y'\n```\n\n```text\nferret is listening\n```\n")
        self.assertEqual([(each.text, each.shown, each.scene, each.number) for each in page.commands], [
            ("ferret -a", None, "alone", 3), ("ferret -b", None, "alone", 4), ("ferret -c", ["out", ""], "plant", 9),
            ("ferret -d", [], "plant", 12), ("ferret -e 'x # y'", None, "alone", 17)])

    def test_what_is_not_understood_is_an_error(self):
        for text in ("```\nx\n```\n", "```text\n$ ferret\n```\n", "```text\nferret -mode DISC\n```\n", "```console\nout\n```\n",
                     "```sh\nferret\n", "<!-- scene plant -->\n"):
            with self.subTest(text), self.assertRaises(pages.BadPage):
                self.read(text)

    def test_examples_of_manual_pages(self):
        page = self.read(".Sh PEERS\n.Dl no example\n.Sh EXAMPLES\n.Dl $ ferret -a\n.Pp\n.Dl ferret -b\n", "p.1")
        self.assertEqual([each.text for each in page.commands], ["ferret -a", "ferret -b"])

    def test_a_command_is_run_or_listed(self):
        page = self.read("    ferret | sudo tee x\n    cmake --build x\n    ferret -a | grep -v '|'\n")
        to_run, wrong = run.sort_commands([page], [("cmake *", "builds"), ("ninja *", "builds")])
        self.assertEqual([command.text for _, command in to_run], ["ferret -a | grep -v '|'"])
        self.assertEqual(len(wrong), 2, wrong)
        self.assertIn("neither run nor listed", wrong[0])
        self.assertIn("no document has a command 'ninja *'", wrong[1])

    def test_a_scene_that_does_not_exist(self):
        page = self.read("<!-- scene: nowhere -->\n```sh\nferret\n```\n")
        self.assertIn("no scene nowhere", run.sort_commands([page], [])[1][0])

    def test_links_lead_to_something(self):
        page = self.read("# Top: a `b`\n[a](#top-a-b) [b](README.md#top-a-b) [c](https://nowhere/x) ![d](README.md)\n")
        self.assertEqual(pages.broken_links(page, self.root), [])
        page = self.read("# Top\n[a](#bottom)\n[b](gone.md) [c](../..)\n")
        self.assertEqual(pages.broken_links(page, self.root), [
            "README.md:2: no heading for #bottom", "README.md:3: no file gone.md", "README.md:3: no file ../.."])

    def test_a_picture_keeps_its_text(self):
        lines = ["12:00:00 New data   \"<&>\"", "", "\tx"]
        command, shown, scene = picture.parse(picture.render("ferret -a", lines, "plant"))
        self.assertEqual((command, scene), ("ferret -a", "plant"))
        self.assertEqual(outputs.difference(shown, lines), "")


class Outputs(unittest.TestCase):
    def test_what_differs_from_run_to_run_does_not_count(self):
        other = "\n".join(SHOWN).replace("12:00:0", "23:59:5").replace("10.0.0.1        ", "192.168.100.200 ").replace("[17]", "[4711]") \
            .replace("0x0110525E", "0x01FFFFFF").replace(":40000", ":52311").replace("01010203", "0f0f0f0f").split("\n")
        self.assertEqual(outputs.difference(SHOWN, other), "")

    def test_order_that_two_threads_decide_does_not_count(self):
        other = [*SHOWN[7:], *SHOWN[1:7], SHOWN[0]]
        self.assertEqual(outputs.difference(SHOWN, other), "")

    def test_everything_else_counts(self):
        text = "\n".join(SHOWN)
        for old, new in (('topic="A"', 'topic="C"'), ("New reader ", "New writer "), ("x: 1", "x: 7"), ("error net", "warning net"),
                         ("from 10.0.0.1        : topic=\"B\"", "from unknown ip      : topic=\"B\""), ("0x00000302", "0x00000307"),
                         ("Modified instance", "Disposed instance"), ("x: 2\n", "x: 2\ny: 3\n")):
            with self.subTest(old):
                self.assertNotEqual(text.replace(old, new), text)
                self.assertNotEqual(outputs.difference(SHOWN, text.replace(old, new).split("\n")), "")
        self.assertNotEqual(outputs.difference(SHOWN, SHOWN[:7]), "", "lines that did not come")
        self.assertNotEqual(outputs.difference(SHOWN, [*SHOWN, SHOWN[0]]), "", "one line too many")
        swapped = [SHOWN[0], *SHOWN[4:7], *SHOWN[1:4], *SHOWN[7:]]
        self.assertNotEqual(outputs.difference(SHOWN, swapped), "", "samples of one topic in another order")

    def test_keys_are_no_prefixes_of_participants(self):
        line = '12:00:00 New data          from 10.0.0.1        : topic="A" type="T" key="{}.8f3dd070.02d92468.00c929e9"'
        self.assertNotEqual(outputs.difference([line.format("71d31d99")], [line.format("71d31d98")]), "")

    def test_the_frame_counts_where_it_is_shown(self):
        printed = ["", "Spy built with DDS version: 1.0.0", "~~~~", "ferret is listening for data.", "", SHOWN[0], "", "",
                   "---- Statistics ----", "Discovered 1 DataWriters and 0 DataReaders"]
        self.assertEqual(outputs.without_frame(printed, [SHOWN[0]]), [SHOWN[0]])
        with_frame = outputs.without_frame(printed, [printed[3], "---- Statistics ----"])
        self.assertEqual(outputs.difference(printed[3:], with_frame), "")
        self.assertNotEqual(outputs.difference([*printed[3:-1], "Discovered 2 DataWriters and 0 DataReaders"], with_frame), "")

    def test_an_ellipsis_stands_for_any_lines(self):
        self.assertEqual(outputs.difference([SHOWN[0], "..."], SHOWN), "")
        self.assertNotEqual(outputs.difference([SHOWN[0].replace('"A"', '"D"'), "..."], SHOWN), "")


class TheGrammar(unittest.TestCase):
    def setUp(self):
        self.grammar = grammar.of_page()

    def test_lines(self):
        begin = '12:00:00 New data          from 10.0.0.1        : topic="A" type="T"'
        for good in (begin, begin + ' sample={"a":1}', begin + ' virtual_sn=(0, 1) name="n" S partition="a,b"',
                     begin.replace("12:00:00", "xx:xx:xx"), begin.replace("10.0.0.1  ", "unknown ip")):
            self.assertTrue(self.grammar.match("sample", good), good)
        for bad in (begin + " ", begin[1:], begin.replace("New data", "New datum"), begin.replace("10.0.0.1", "10.0.0"),
                    begin + ' name="n" virtual_sn=(0, 1)', begin + " sample={", begin + ' S  partition="a"', begin + ' guid="0x1"'):
            self.assertFalse(self.grammar.match("sample", bad), bad)
        writer = '12:00:00 New writer        from 10.0.0.1        : topic="A" type="T"'
        self.assertTrue(self.grammar.match("discovery", writer + ' name="n" DP partition="p" S  partition="a"'))
        for bad in (writer + ' S partition="a"', writer.replace("New", "Modified"), writer + ' S  partition="a" name="n"'):
            self.assertFalse(self.grammar.match("discovery", bad), bad)

    def test_whole_runs(self):
        good = "\nSpy built with DDS version: 1.0.0\n~~~~\nferret is listening for data, press CTRL+C to stop it.\n\n" + \
            '12:00:00 New data          from 10.0.0.1        : topic="A" type="T"\nx: 1\ny:\n   [0]: 7\n\n' + \
            "\n\n---- Statistics ----\nDiscovered 1 DataWriters and 0 DataReaders\n" + \
            'Received samples (Data, Dispose, NoWriters):\n\t1, 0, 0 \t(Topic="A"  Type="T")\n\n\n'
        self.assertEqual(grammar.complaints(self.grammar, good), [])
        for old, new in (("---- Statistics ----\n", ""), ("\t1, 0, 0", "\t1, 0"), ("x: 1\n", "12:00:00 New\n"), ("Discovered", "Found"),
                         ("   [0]: 7\n", "   [0]: 7\n\n\n\n\n"), ("data, press", "data. press")):
            with self.subTest(old):
                self.assertNotEqual(grammar.complaints(self.grammar, good.replace(old, new)), [])
        broken = good.replace('type="T"\nx: 1\ny:\n   [0]: 7\n\n', 'type="T" sample={"x":}\n')
        self.assertIn("not JSON", grammar.complaints(self.grammar, broken)[0])

    def test_grammars_that_are_none(self):
        for text in ("a ::= b", "a ::= a", "a ::= (a", "a = b", 'a ::= "x" %'):
            with self.subTest(text), self.assertRaises((grammar.BadGrammar, grammar.re.error)):
                grammar.Grammar(text).match("a", "")


class WholeRun(Tree):
    def run_page(self, text):
        self.read(text)
        tool = self.root / "tool"
        tool.write_text(TOOL)
        tool.chmod(0o755)
        done = subprocess.run([sys.executable, HERE / "run.py", "--tool", tool, "--root", self.root, "README.md"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env={**os.environ, "INTEROP_SLOWNESS": "0.2"})  # what is not there is not waited for so long
        return done.returncode, done.stdout

    def test_a_page_that_holds(self):
        self.assertEqual(self.run_page(PAGE), (0, "1 of 1 commands hold\n"))

    def test_a_changed_line_is_seen(self):
        changes = (('topic="B"', 'topic="C"'), ("New reader", "New writer"), ("```\n", "12:00:00 New\n```\n"))
        status, told = self.run_page("".join(PAGE.replace(old, new) for old, new in changes))
        self.assertEqual(status, 1, told)
        self.assertEqual(told.count(": ferret\n    the output differs:"), len(changes), told)
        self.assertIn("0 of 3 commands hold", told)


if __name__ == "__main__":
    unittest.main()
