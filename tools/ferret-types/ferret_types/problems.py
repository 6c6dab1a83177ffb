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
    """An error at a place. Raised where reading cannot go on; whoever can go on elsewhere reports it."""

    def __init__(self, place, text):
        super().__init__(f"{place}: {text}")
        self.place = place


class Report:
    """Collects errors, so that one run names all of them, and warnings. Each is kept once: files that include the same
    one find the same mistakes."""

    def __init__(self):
        self.errors = []
        self.warnings = []

    def add(self, problem):
        if str(problem) not in map(str, self.errors):
            self.errors.append(problem)

    def error(self, place, text):
        self.add(Problem(place, text))

    def warn(self, place, text):
        line = f"{place}: warning: {text}"
        if line not in self.warnings:
            self.warnings.append(line)

    def lines(self):
        """All messages, the errors in the order of files and lines."""
        return self.warnings + [str(problem) for problem in sorted(self.errors, key=lambda problem: (problem.place, str(problem)))]
