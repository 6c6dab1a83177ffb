"""The grammar of docs/output.md, made into regular expressions, so that real output can be held to it.

The notation is that of the XML recommendation: name ::= expression; "text", 'text', #xN, [a-z#xN-#xN], [^...], ( ), |, ?, *, +.
A rule may use those of any place, but not itself: everything is regular. A name without a rule is an error.
"""

import json
import re

import pages

PAGE = "docs/output.md"
TOKEN = re.compile(r"""\s*(?:(?P<name>[A-Za-z][\w-]*)(?!\s*::=|[\w-])|(?P<text>"[^"]*"|'[^']*')|(?P<code>\#x[0-9A-Fa-f]+)|
                       (?P<set>\[[^\]]*\])|(?P<mark>[()|?*+]))""", re.VERBOSE)


class BadGrammar(Exception):
    pass


def _set(text):
    """A set of characters as Python has it."""
    body = re.sub(r"#x([0-9A-Fa-f]+)", lambda found: f"\\U{int(found[1], 16):08x}", re.sub(r"([\\&~|])", r"\\\1", text[1:-1]))
    return f"[{body}]"


class Grammar:
    def __init__(self, text):
        text = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)
        parts = re.split(r"^\s*([A-Za-z][\w-]*)\s*::=", text, flags=re.MULTILINE)
        if parts[0].strip():
            raise BadGrammar(f"no rule: {parts[0].strip()}")
        self.rules = dict(zip(parts[1::2], parts[2::2]))
        self._made = {}

    def pattern(self, name, users=()):
        """The regular expression of a rule."""
        if name in users:
            raise BadGrammar(f"{name} uses itself")
        if name not in self.rules:
            raise BadGrammar(f"no rule for {name}")
        if name not in self._made:
            rule = self.rules[name]
            result, at = "", 0
            while rule[at:].strip():
                token = TOKEN.match(rule, at)
                if token is None:
                    raise BadGrammar(f"{name}: not understood: {rule[at:].strip()[:40]}")
                at = token.end()
                kind, value = token.lastgroup, token[token.lastgroup]
                result += {"name": lambda v: f"(?:{self.pattern(v, (*users, name))})", "text": lambda v: f"(?:{re.escape(v[1:-1])})",
                           "code": lambda v: re.escape(chr(int(v[2:], 16))), "set": _set,
                           "mark": lambda v: "(?:" if v == "(" else v}[kind](value)
            self._made[name] = result
        return self._made[name]

    def match(self, name, text):
        return re.fullmatch(self.pattern(name), text) is not None


def of_page(root=pages.ROOT):
    """The grammar in the page about output."""
    page = pages.read(root / PAGE, root)
    return Grammar("\n".join("\n".join(lines) for _, kind, lines in page.blocks if kind == "ebnf"))


def complaints(grammar, text):
    """What of the output of a run is not as the grammar has it."""
    result = []
    for line in text.split("\n"):
        if not grammar.match("line", line):
            result.append(f"not a line of the grammar: {line!r}")
        found = re.search(r' sample=(\{.*)$', line)
        if found:
            try:
                json.loads(found[1])
            except ValueError as error:
                result.append(f"not JSON ({error}): {line!r}")
    if not result and not grammar.match("output", "".join(line for line in text.splitlines(True) if not grammar.match("log", line.rstrip("\n")))):
        result.append("all lines are of the grammar, but not their order")
    return result
