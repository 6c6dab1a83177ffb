"""What is wrong with the input, and where."""

import dataclasses


@dataclasses.dataclass(frozen=True, order=True)
class Place:
    """A line of a file; line 0 means the file as a whole."""

    file: str
    line: int = 0

    def __str__(self):
        return f"{self.file}:{self.line}" if self.line else self.file


class Problem(Exception):
    """An error at a place. Raised where reading cannot go on; a caller that can go on elsewhere reports it."""

    def __init__(self, place, text):
        super().__init__(f"{place}: {text}")
        self.place = place


class Report:
    """Collects errors, so that one run names all of them, and warnings. Each is kept once: files that include the same one find
    the same mistakes. `broken` has the names of types that could not be made, so that their users are not blamed too."""

    def __init__(self):
        self._errors = set()
        self._warnings = set()
        self.broken = set()

    def add(self, problem):
        self._errors.add((problem.place, str(problem)))

    def error(self, place, text):
        self.add(Problem(place, text))

    def warn(self, place, text):
        self._warnings.add((place, f"{place}: warning: {text}"))

    @property
    def has_errors(self):
        return bool(self._errors)

    def lines(self):
        """All messages in the order of files and lines."""
        return [line for _, line in sorted(self._errors | self._warnings)]
