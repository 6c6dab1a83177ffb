"""The preprocessor of IDL (OMG IDL 4.2, 7.3), as far as files of types use it: includes, conditions on names, constants."""

import pathlib
import re
from dataclasses import dataclass, field

from .problems import Place, Problem

# Texts and characters are matched so that what looks like a comment in them is kept.
_COMMENT_OR_TEXT = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|/\*', re.DOTALL)
_WORD_OR_TEXT = re.compile(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|[A-Za-z_]\w*', re.ASCII)
_DIRECTIVE = re.compile(r"\s*#\s*(\w*)\s*(.*?)\s*")
_INCLUDE = re.compile(r'"([^"]+)"|<([^>]+)>')
_DEFINE = re.compile(r"([A-Za-z_]\w*)(\()?\s*(.*)", re.ASCII)
_CONDITION = re.compile(r"(!?)\s*(?:defined\s*\(\s*(\w+)\s*\)|defined\s+(\w+)|([01]))")
_MAX_INCLUDES = 100


@dataclass
class Unit:
    """An IDL file with all that it includes: lines without directives and comments, and where each came from. `keys` are the
    pragmas that name key members: (place, words), from the pragma's name on. `interfaces` are included files that ROS has in
    another form. `passed_over` is what says something in other languages than this one: (place, text)."""

    lines: list[str] = field(default_factory=list)
    places: list[Place] = field(default_factory=list)
    keys: list[tuple[Place, list[str]]] = field(default_factory=list)
    interfaces: list[object] = field(default_factory=list)
    passed_over: list[tuple[Place, str]] = field(default_factory=list)

    def place(self, line):
        """Where line number `line` (from 1) came from; the last one for the end of the text."""
        return self.places[min(max(line, 1), len(self.places)) - 1]


class Preprocessor:
    """`find_include(name, including path)` returns the path of a file, or an interface that takes its place, or None."""

    def __init__(self, find_include):
        self._find_include = find_include
        self._macros = {}
        self._once = set()
        self._unit = Unit()

    def run(self, path):
        """The unit of this file. Raises the first problem."""
        self._include(pathlib.Path(path), Place(str(path)), 0)
        self._unit.lines.append("")
        self._unit.places.append(Place(str(path), self._unit.places[-1].line if self._unit.places else 1))
        return self._unit

    def _include(self, path, at, depth):
        if depth > _MAX_INCLUDES:
            raise Problem(at, f"more than {_MAX_INCLUDES} includes in each other")
        if path.resolve() in self._once:
            return
        conditions = []  # of each #if around a line: (place, it holds, one of its branches held before)
        for place, line in self._lines_of(path):
            found = _DIRECTIVE.fullmatch(line)
            if found and found[1] in ("if", "ifdef", "ifndef", "elif", "else", "endif"):
                self._condition(place, found[1], found[2], conditions)
            elif not all(holds for _, holds, _ in conditions):
                pass
            elif found and found[1] == "include":
                self._include_named(place, found[2], path, depth)
            elif found:
                self._directive(place, found[1], found[2], path)
            else:
                self._unit.lines.append(self._replaced(line, place))
                self._unit.places.append(place)
        if conditions:
            raise Problem(conditions[-1][0], "a condition without #endif")

    def _condition(self, place, word, text, conditions):
        if word in ("if", "ifdef", "ifndef"):
            # Inside of what does not hold nothing is looked at, and no branch comes to hold.
            is_read = all(holds for _, holds, _ in conditions)
            holds = is_read and self._holds(place, word, text)
            conditions.append((place, holds, holds or not is_read))
            return
        if not conditions:
            raise Problem(place, f"#{word} without #if")
        start, _, before = conditions.pop()
        if word != "endif":
            holds = not before and (word == "else" or self._holds(place, word, text))
            conditions.append((start, holds, before or holds))

    def _holds(self, place, word, text):
        if word in ("ifdef", "ifndef"):
            if not text.isidentifier():
                raise Problem(place, f"#{word} needs a name")
            return (text in self._macros) == (word == "ifdef")
        found = _CONDITION.fullmatch(text)
        if not found:
            raise Problem(place, f'#{word} understands "defined(NAME)", "!defined(NAME)", 0 and 1, not "{text}"')
        name = found[2] or found[3]
        holds = name in self._macros if name else found[4] == "1"
        return holds != bool(found[1])

    def _include_named(self, place, text, path, depth):
        found = _INCLUDE.fullmatch(text)
        if not found:
            raise Problem(place, f"#include needs a file name in quotes or angle brackets, not {text or 'nothing'}")
        name = found[1] or found[2]
        target = self._find_include(name, path)
        if target is None:
            raise Problem(place, f'there is no "{name}" beside this file, in the folders given, or in those of -I')
        if isinstance(target, pathlib.Path):
            self._include(target, place, depth + 1)
        else:
            self._unit.interfaces.append(target)

    def _directive(self, place, word, text, path):
        if word == "define":
            found = _DEFINE.fullmatch(text)
            if not found:
                raise Problem(place, "#define needs a name")
            if found[2]:
                raise Problem(place, f'"{found[1]}": macros with parameters are not understood')
            self._macros[found[1]] = found[3]
        elif word == "undef":
            self._macros.pop(text, None)
        elif word == "pragma":
            words = text.replace('"', " ").split()
            if words[:1] in (["keylist"], ["DCPS_DATA_KEY"]):
                self._unit.keys.append((place, words))
            elif words == ["once"]:
                self._once.add(path.resolve())
            elif words[:1] != ["DCPS_DATA_TYPE"]:  # every structure is a type
                self._unit.passed_over.append((place, f"#pragma {text}"))
        elif word:
            raise Problem(place, f"#{word} is not understood")

    def _replaced(self, line, place, inside=()):
        """The line with all names of macros replaced; those in their texts too, but none in its own."""
        def replacement(found):
            word = found[0]
            return word if word not in self._macros or word in inside else self._replaced(
                self._macros[word], place, (*inside, word))
        return _WORD_OR_TEXT.sub(replacement, line) if self._macros else line

    def _lines_of(self, path):
        """(place, line) of a file: comments taken out, lines that end with a backslash joined with the next ones."""
        text = _text_of(path)

        def without_comment(found):
            comment = found[0]
            place = Place(str(path), text.count("\n", 0, found.start()) + 1)
            if comment == "/*":
                raise Problem(place, "a comment without end")
            if comment.startswith("//@"):  # older compilers read such comments
                self._unit.passed_over.append((place, comment.strip()))
            return " " + "\n" * comment.count("\n") if comment.startswith("/") else comment

        number, lines = 0, _COMMENT_OR_TEXT.sub(without_comment, text).split("\n")
        while number < len(lines):
            first, line = number, lines[number]
            while line.endswith("\\") and number + 1 < len(lines):
                number += 1
                line = line[:-1] + lines[number]
            yield Place(str(path), first + 1), line
            number += 1


def _text_of(path):
    """The standard's character set is ISO Latin-1; most files are UTF-8."""
    try:
        try:
            return path.read_text(encoding="utf-8-sig")
        except UnicodeDecodeError:
            return path.read_text(encoding="latin-1")
    except OSError as error:
        raise Problem(Place(str(path)), f"cannot be read: {error.strerror}") from None
