"""The picture of a run: a terminal as SVG, whose text is text, so that it can be read, searched, and compared with a real run.

It brings its own background, so it is the same on light and dark pages.
"""

import re
import xml.etree.ElementTree
from xml.sax.saxutils import escape

FONT_SIZE, ADVANCE, LINE, MARGIN = 13, 7.8, 19, 18
COLOURS = (  # the first that matches a part of a line decides
    (re.compile(r"^\$ .*"), "#ffffff"),
    (re.compile(r"^\d\d:\d\d:\d\d"), "#8b949e"),
    (re.compile(r"\bNew (?:writer|reader|data)\b"), "#56d364"),
    (re.compile(r"\bModified instance\b"), "#e3b341"),
    (re.compile(r"\b(?:Deleted (?:writer|reader)|Disposed instance|No writers)\b"), "#ff7b72"),
    (re.compile(r'topic="[^"]*"'), "#79c0ff"),
    (re.compile(r"sample=.*"), "#d2a8ff"),
)


def coloured(line):
    """The line as the contents of a text element."""
    found = sorted(((match.start(), match.end(), colour) for pattern, colour in COLOURS for match in pattern.finditer(line)))
    result, at = "", 0
    for begin, end, colour in found:
        if begin >= at:
            result += escape(line[at:begin]) + f'<tspan fill="{colour}">{escape(line[begin:end])}</tspan>'
            at = end
    return result + escape(line[at:])


def render(command, lines, scene):
    lines = [f"$ {command}", *(line.expandtabs(4) for line in lines)]
    width = max(map(len, lines)) * ADVANCE + 2 * MARGIN
    height = len(lines) * LINE + 2 * MARGIN
    head = [f"<!-- scene: {scene} -->",
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height}" width="{width:.0f}" height="{height}">',
            f'<rect width="{width:.0f}" height="{height}" rx="10" fill="#0d1117" stroke="#8b949e"/>',
            f'<g font-family="ui-monospace, \'DejaVu Sans Mono\', Menlo, Consolas, monospace" font-size="{FONT_SIZE}" fill="#e6edf3">']
    texts = [f'<text x="{MARGIN}" y="{MARGIN + LINE * (i + 0.75):.1f}" textLength="{len(line) * ADVANCE:.1f}" xml:space="preserve">'
             f"{coloured(line)}</text>" for i, line in enumerate(lines) if line]
    return "\n".join([*head, *texts, "</g>", "</svg>", ""])


def parse(text):
    """(command, lines, scene) of a picture."""
    root = xml.etree.ElementTree.fromstring(text)
    lines = ["".join(each.itertext()) for each in root.iter("{http://www.w3.org/2000/svg}text")]
    return lines[0].removeprefix("$ "), lines[1:], re.search(r"<!-- scene: (\S+) -->", text)[1]
