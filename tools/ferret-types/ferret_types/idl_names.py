"""The names that an IDL file declares, what a name means in a scope, and the values of constants."""

import contextlib
import itertools
from dataclasses import dataclass

from .idl_annotations import Annotations
from .idl_expressions import ExpressionError, evaluate
from .model import REALS, STRINGS, WHOLE_NUMBERS
from .problems import Place, Problem

TYPE_KINDS = ("struct", "union", "enum", "bitmask", "bitset", "typedef", "interface")


@dataclass(frozen=True)
class Symbol:
    """What a name stands for. `kind` is the grammar's rule, or "enumerator", or "interface" for a ROS type that is read
    elsewhere. `tree` declares it; an enumerator's `tree` is that of its enumeration, a typedef has its `declarator` too."""

    name: str
    kind: str
    place: Place
    tree: object = None
    declarator: object = None
    annotations: Annotations | None = None
    autoid: str | None = None  # what the modules around it say

    @property
    def scope(self):
        return self.name.rpartition("::")[0]


def qualified(scope, name):
    return f"{scope}::{name}" if scope else name


def plain(token):
    """A name without the underscore that keeps it from being a keyword (OMG IDL 4.2, 7.2.3.2)."""
    return str(token).removeprefix("_")


def parts_of(tree, *kinds):
    """The children of these rules, or without kinds all that are there."""
    return [child for child in tree.children if child is not None and (not kinds or getattr(child, "data", None) in kinds)]


class Names:
    """The names of one unit. While a declaration is read, names are looked for in its scope."""

    def __init__(self, unit, tree, report):
        self._unit = unit
        self._report = report
        self._symbols = {}
        self._scope = ""
        self._structure = ""  # the one that is being read
        self._evaluating = []
        self.own_annotations = {str(found.children[1]) for found in tree.find_data("annotation_type")}
        for interface in unit.interfaces:
            self._declare(Symbol("::".join(interface.key), "interface", Place(str(interface.path))))
        self._collect(tree, "", None)

    # --- for annotations, and for messages

    def place(self, at):
        """The place of a token or tree."""
        return self._unit.place(getattr(at, "line", 0) or getattr(getattr(at, "meta", None), "line", 0))

    def problem(self, at, text):
        return Problem(self.place(at), text)

    def warn(self, at, text):
        self._report.warn(self.place(at), text)

    @staticmethod
    def text_of(scoped_name):
        top, *parts = scoped_name.children
        return ("::" if top else "") + "::".join(map(plain, parts))

    # --- names

    def _declare(self, symbol):
        first = self._symbols.setdefault(symbol.name, symbol)
        # A file that is included twice without a guard declares the same at the same place.
        if first.place != symbol.place and first.kind != "interface":
            raise Problem(symbol.place, f'"{symbol.name}" is already declared in {first.place}')

    def _collect(self, tree, scope, autoid):
        for definition in parts_of(tree, "definition"):
            declaration = definition.children[-1]
            if declaration.data in ("forward", "annotation_type"):
                continue
            annotations = Annotations(parts_of(definition, "annotation"), declaration.data, self)
            if declaration.data == "module":
                inner = qualified(scope, plain(declaration.children[0]))
                self._collect(declaration, inner, annotations.autoid(autoid))
            else:
                self._collect_one(declaration, scope, annotations, autoid)

    def _collect_one(self, tree, scope, annotations, autoid):
        def declare(name, kind=tree.data, **more):
            self._declare(Symbol(qualified(scope, plain(name)), kind, self.place(name), tree, **more))

        if tree.data == "typedef":
            for declarator in tree.children[-1].children:
                declare(declarator.children[0], declarator=declarator)
            return
        declare(tree.children[1 if tree.data == "constant" else 0], annotations=annotations, autoid=autoid)
        if tree.data == "enum":
            for literal in parts_of(tree, "enumerator"):
                declare(literal.children[-1], "enumerator")

    @contextlib.contextmanager
    def inside(self, symbol):
        """Looks for names where this symbol is declared."""
        around, self._scope = self._scope, symbol.scope
        try:
            yield
        finally:
            self._scope = around

    def find(self, tree):
        """The symbol that a scoped_name stands for in the scope of what is being read, or None."""
        written = self.text_of(tree)
        if written.startswith("::"):
            return self._symbols.get(written[2:])
        parts = self._scope.split("::") if self._scope else []
        scopes = ["::".join(parts[:count]) for count in range(len(parts), -1, -1)]
        # ROS keeps the constants of a message in a module, and its messages use them without that module's name.
        scopes.append(f"{self._structure}_Constants")
        return next((self._symbols[name] for scope in scopes if (name := qualified(scope, written)) in self._symbols), None)

    def find_type(self, tree):
        symbol = self.find(tree)
        if symbol is None or symbol.kind not in TYPE_KINDS:
            raise self.problem(tree, f'there is no type "{self.text_of(tree)}"')
        return symbol

    def unused(self, wanted):
        """The name, or if it is taken, one like it that is not."""
        return next(name for name in itertools.chain([wanted], (f"{wanted}_{number}" for number in itertools.count(2)))
                    if name not in self._symbols)

    # --- values

    def value(self, tree):
        """The value of a constant expression."""
        try:
            return evaluate(tree, self._value_of_name)
        except ExpressionError as error:
            raise self.problem(tree, str(error)) from None

    def literals_of(self, enumeration):
        """(name token, value, is the default) of each enumerator."""
        following = 0
        for literal in parts_of(enumeration, "enumerator"):
            annotations = Annotations(parts_of(literal, "annotation"), "enumerator", self)
            value = annotations.number("value", -1 << 31, (1 << 31) - 1)
            following = following if value is None else value
            yield literal.children[-1], following, annotations.is_set("defaultliteral")
            following += 1

    def _value_of_name(self, tree):
        symbol = self.find(tree)
        if symbol is None or symbol.kind not in ("constant", "enumerator"):
            raise ExpressionError(f'"{self.text_of(tree)}" is neither a constant nor an enumerator')
        if symbol.name in self._evaluating:
            raise ExpressionError(f'the value of "{symbol.name}" depends on itself')
        self._evaluating.append(symbol.name)
        try:
            with self.inside(symbol):
                return self._value_of_symbol(symbol)
        finally:
            self._evaluating.pop()

    def _value_of_symbol(self, symbol):
        if symbol.kind == "enumerator":
            return next(value for name, value, _ in self.literals_of(symbol.tree)
                        if plain(name) == symbol.name.rpartition("::")[2])
        kind, _, expression = symbol.tree.children
        value = self.value(expression)
        return self._fitting(kind, value, expression)

    def _fitting(self, kind, value, expression):
        """The value, if a constant of this type can have it."""
        base = self.base_of(kind)
        wanted = (int if base in WHOLE_NUMBERS or base == "enum" else (int, float) if base in REALS else
                  bool if base == "boolean" else str)
        known = base in (*WHOLE_NUMBERS, *REALS, *STRINGS, "enum", "boolean", "char8", "char16")
        in_range = base not in WHOLE_NUMBERS or type(value) is not int or \
            WHOLE_NUMBERS[base][0] <= value <= WHOLE_NUMBERS[base][1]
        if not known or not isinstance(value, wanted) or isinstance(value, bool) != (base == "boolean") or not in_range:
            raise self.problem(expression, f"{value!r} is no value for this type")
        return float(value) if base in REALS else value

    def behind(self, tree):
        """What a type is behind its typedefs: the symbol of a declaration, or the tree of a type without a name."""
        seen = set()
        with contextlib.ExitStack() as scopes:
            while tree.data == "scoped_name":
                symbol = self.find_type(tree)
                if symbol.kind != "typedef" or symbol.name in seen or len(symbol.declarator.children) > 1:
                    return symbol
                seen.add(symbol.name)
                scopes.enter_context(self.inside(symbol))
                tree = symbol.tree.children[0]
            return tree

    def base_of(self, tree):
        """The name of that: of the rule of a declaration, or of a basic type."""
        found = self.behind(tree)
        return found.kind if isinstance(found, Symbol) else found.data
