"""The documents: their blocks, and the commands in them with the output that is shown.

What a block holds is told by the word behind its fence, and by a comment before it that readers do not see:

    console         lines that begin with "$ " are commands, the lines below each are its whole output
    sh, indented    commands, one a line; their output is not shown
    anything else   no commands

    <!-- scene: NAME -->    in whose company the commands of the next block run (scenes.py)
    <!-- file: NAME -->     the next block is the file NAME for the commands of the page
"""

import pathlib
import re

import picture

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMMENT = re.compile(r"<!-- (scene|file): (\S+) -->")
FENCE = re.compile(r"```(\S*)$")
NO_SCENE = "alone"
# What would be taken for a command by a reader.
LOOKS_LIKE_COMMAND = re.compile(r"\$ |ferret +-|(sudo|ferret-types|cmake|ctest|apt|python3) +[-./\w]|\./[\w-]+\.sh")


class BadPage(Exception):
    """A document that says something that is not understood, with its file and line."""


class Command:
    """Its text, and the lines of output shown below it, or None where none is shown. Numbers count lines from 1."""

    def __init__(self, page, number, text, shown, scene):
        self.page = page
        self.number = number
        self.text = text
        self.shown = shown
        self.scene = scene

    @property
    def place(self):
        return f"{self.page.name}:{self.number}"


class Page:
    """A document: its commands, and the files that it shows."""

    def __init__(self, path, name):
        self.path = path
        self.name = name
        self.commands = []
        self.files = {}
        self.blocks = []  # (number of the first line, word of the fence, lines)


def without_comment(line):
    return re.match(r"""(?:'[^']*'|"[^"]*"|[^'"#]|(?<=\S)#)*""", line)[0].strip()


def join_continued(numbered):
    """Lines that end with a backslash go on in the next one."""
    result = []
    pending = None
    for number, line in numbered:
        number, line = (pending[0], f"{pending[1]} {line.strip()}") if pending else (number, line)
        pending = (number, line[:-1].rstrip()) if line.endswith("\\") else None
        if not pending:
            result.append((number, line))
    return result + ([pending] if pending else [])


def add_block(page, number, kind, lines, notes):
    page.blocks.append((number, kind, lines))
    if "file" in notes:
        page.files[notes["file"]] = "\n".join(lines) + "\n"
    scene = notes.get("scene", NO_SCENE)
    numbered = list(enumerate(lines, number))
    if kind == "sh":
        for at, line in join_continued((at, without_comment(line)) for at, line in numbered):
            if line:
                page.commands.append(Command(page, at, line, None, scene))
    elif kind == "console":
        for at, line in numbered:
            if line.startswith("$ "):
                page.commands.append(Command(page, at, line[2:], [], scene))
            elif at == number:
                raise BadPage(f"{page.name}:{at}: a console block begins with a command")
            else:
                page.commands[-1].shown.append(line)
    else:
        if not kind:
            raise BadPage(f"{page.name}:{number - 1}: say behind the fence what the block holds")
        for at, line in numbered:
            if LOOKS_LIKE_COMMAND.match(line):
                raise BadPage(f"{page.name}:{at}: a command in a block that is neither console nor sh: {line}")


def read_markdown(page):
    lines = page.path.read_text().split("\n")
    notes = {}
    at = 0
    while at < len(lines):
        line = lines[at]
        fence = FENCE.match(line)
        if fence:
            end = next((i for i in range(at + 1, len(lines)) if lines[i] == "```"), None)
            if end is None:
                raise BadPage(f"{page.name}:{at + 1}: a block without an end")
            add_block(page, at + 2, fence[1], lines[at + 1:end], notes)
            notes = {}
            at = end
        elif line.startswith("    ") and (at == 0 or not lines[at - 1]):
            end = at
            while end < len(lines) and (lines[end].startswith("    ") or
                                        (not lines[end] and end + 1 < len(lines) and lines[end + 1].startswith("    "))):
                end += 1
            add_block(page, at + 1, "sh", [each[4:] for each in lines[at:end]], notes)
            notes = {}
            at = end - 1
        else:
            found = COMMENT.fullmatch(line.strip())
            if found:
                notes[found[1]] = found[2]
            elif "<!-- scene" in line or "<!-- file" in line:
                raise BadPage(f"{page.name}:{at + 1}: not the form of a comment about a block: {line}")
        at += 1


def anchor(heading):
    """How a link names a heading."""
    return re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")


def broken_links(page, root=ROOT):
    """Links of a page to files or headings that are not there."""
    result = []
    for number, line in enumerate(page.path.read_text().split("\n"), 1):
        for target in re.findall(r"\]\((?!https?:)([^)\s]+)\)", line):
            name, _, heading = target.partition("#")
            path = page.path.parent / name if name else page.path
            if not path.exists() or not path.resolve().is_relative_to(root.resolve()):
                result.append(f"{page.name}:{number}: no file {name}")
            elif heading and heading not in map(anchor, re.findall(r"^#+ (.*)", path.read_text(), re.MULTILINE)):
                result.append(f"{page.name}:{number}: no heading for {target}")
    return result


def read_manual(page):
    """The commands of a manual page: the displayed lines of its examples. Those without a paragraph between them belong together."""
    section = None
    for number, line in enumerate(page.path.read_text().split("\n"), 1):
        if line.startswith(".Sh "):
            section = line[4:]
        found = re.match(r"\.Dl (?:\$ )?(.*)", line)
        if found and section == "EXAMPLES":
            page.commands.append(Command(page, number, found[1], None, "examples"))
            if page.blocks and page.blocks[-1][0] + len(page.blocks[-1][2]) == number:
                page.blocks[-1][2].append(line)
            else:
                page.blocks.append((number, "examples", [line]))


def read_picture(page):
    """A picture shows one command."""
    text, shown, scene = picture.parse(page.path.read_text())
    page.commands.append(Command(page, 1, text, shown, scene))


READERS = {".md": read_markdown, ".1": read_manual, ".svg": read_picture}


def read(path, root=ROOT):
    page = Page(path, path.relative_to(root).as_posix())
    READERS[path.suffix](page)
    return page


def read_all(root=ROOT):
    """All documents of the project that users read: pages, manual pages, and the pictures of runs."""
    patterns = ["*.md", "docs/*.md", "docs/run*.svg"]
    patterns += [f"{folder}/**/*.{kind}" for folder in ("bench", "demo", "packaging", "tests", "tools") for kind in ("md", "1")]
    return [read(path, root) for pattern in patterns for path in sorted(root.glob(pattern))]
