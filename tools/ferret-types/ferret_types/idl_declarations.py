"""Makes declarations of the tree of an IDL file."""

from .idl_annotations import Annotations
from .idl_keys import Keys
from .idl_names import Symbol, parts_of, plain, qualified
from .model import (BASIC, STRINGS, WHOLE_NUMBERS, BitField, BitMask, BitSet, Case, Enum, Literal, Map, Member, Sequence, Struct,
                    Typedef, TypeUse, Union)
from .problems import Problem

_MAX_SIZE = (1 << 31) - 1
_MAX_BITS = 64
_TYPES = (*BASIC, "sequence", "map", "scoped_name")


class Declarations(Keys):
    def __init__(self, unit, tree, report):
        super().__init__(unit, tree, report)
        self._made = []  # typedefs for collections in collections, which the document cannot nest

    def read(self):
        """All declarations of the unit, in its order. What is wrong goes to the report."""
        result = []
        make = {"struct": self._struct, "union": self._union, "enum": self._enum, "bitmask": self._bitmask,
                "bitset": self._bitset, "typedef": self._typedef, "constant": self._check_constant}
        for symbol in list(self._symbols.values()):
            if symbol.kind not in make:
                continue
            self._scope, self._structure = symbol.scope, symbol.name
            try:
                made = make[symbol.kind](symbol)
            except Problem as problem:
                self._report.add(problem)
                self._report.broken.add(symbol.name)
                continue
            result += [*self._made, made] if made else []
            self._made.clear()
        return result

    def _check_constant(self, symbol):
        kind, _, expression = symbol.tree.children
        self._fitting(kind, self.value(expression), expression)

    # --- types in use

    def _type_of(self, tree):
        return next(child for child in tree.children if getattr(child, "data", None) in _TYPES)

    def _size(self, tree):
        value = self.value(tree)
        if type(value) is not int or not 1 <= value <= _MAX_SIZE:
            raise self.problem(tree, f"a size of {value!r}, which is not a number from 1 to {_MAX_SIZE}")
        return value

    def _use(self, tree, declarator, owner):
        """A type with the dimensions of its declarator. `owner` begins the name of what has to be made beside it."""
        name, *dimensions = declarator.children
        use = self._undimensioned(tree, owner + plain(name))
        return TypeUse(use.name, use.string_bound, use.collection, tuple(self._size(size) for size in dimensions))

    def _undimensioned(self, tree, owner):
        if tree.data == "scoped_name":
            return TypeUse(self.find_type(tree).name)
        if tree.data in STRINGS:
            bounds = parts_of(tree)
            return TypeUse(tree.data, self._size(bounds[0]) if bounds else None)
        if tree.data not in ("sequence", "map"):
            return TypeUse(tree.data)
        Annotations(parts_of(tree, "annotation"), "element", self)
        types = parts_of(tree, *_TYPES)
        bounds = [part for part in parts_of(tree) if part.data not in (*_TYPES, "annotation")]
        # A bound that is a name looks like one more type.
        if len(types) > (1 if tree.data == "sequence" else 2):
            bounds = [types.pop()]
        bound = self._size(bounds[0]) if bounds else None
        element = self._element(types[-1], f"{owner}_element")
        if tree.data == "sequence":
            return TypeUse(element.name, element.string_bound, Sequence(bound))
        return TypeUse(element.name, element.string_bound, Map(self._element(types[0], f"{owner}_key"), bound))

    def _element(self, tree, owner):
        """What a collection holds. A collection in it gets a typedef."""
        use = self._undimensioned(tree, owner)
        if use.collection is None:
            return use
        name = self.unused(qualified(self._scope, owner))
        self._declare(Symbol(name, "made", self.place(tree)))
        self._made.append(Typedef(name, self.place(tree), use))
        return TypeUse(name)

    # --- structures and unions

    def _aggregate_traits(self, symbol):
        traits = (("extensibility", symbol.annotations.extensibility()), ("autoid", symbol.annotations.autoid(symbol.autoid)))
        return tuple((name, value) for name, value in traits if value is not None)

    def _member(self, tree, declarator, annotations, owner):
        use = self._use(self._type_of(tree), declarator, owner)
        return Member(plain(declarator.children[0]), use, self.place(declarator.children[0]), annotations.member_traits())

    def _struct(self, symbol):
        owner = symbol.name.rpartition("::")[2] + "_"
        bases = parts_of(symbol.tree, "scoped_name")
        base = self.find_type(bases[0]) if bases else None
        if base and self.base_of(bases[0]) not in ("struct", "interface"):
            raise self.problem(bases[0], f'"{base.name}" is not a structure')
        members = {}
        for tree in parts_of(symbol.tree, "member"):
            annotations = Annotations(parts_of(tree, "annotation"), "member", self)
            for declarator in parts_of(tree, "declarators")[0].children:
                member = self._member(tree, declarator, annotations, owner)
                self._new(members, member.name, declarator, f'a second member "{member.name}"')
                members[member.name] = member
        self._mark_keys(symbol, members)
        return Struct(symbol.name, symbol.place, tuple(members.values()), base and base.name, self._aggregate_traits(symbol))

    def _new(self, known, what, at, text):
        if what in known:
            raise self.problem(at, text)

    def _union(self, symbol):
        owner = symbol.name.rpartition("::")[2] + "_"
        head = parts_of(symbol.tree, "discriminator")[0]
        kind = self._type_of(head)
        if self.base_of(kind) not in (*WHOLE_NUMBERS, "boolean", "char8", "char16", "enum"):
            raise self.problem(kind, "not a type that a union can be switched by")
        annotations = Annotations(parts_of(head, "annotation"), "discriminator", self)
        traits = (("key", "true"),) if annotations.is_set("key") else ()
        discriminator = Member("", self._undimensioned(kind, owner), symbol.place, traits)
        cases, labels, names = [], set(), set()
        for tree in parts_of(symbol.tree, "case"):
            annotations = Annotations(parts_of(tree, "annotation"), "case", self)
            member = self._member(tree, parts_of(tree, "declarator")[0], annotations, owner)
            self._new(names, member.name, tree, f'a second member "{member.name}"')
            names.add(member.name)
            cases.append(Case(tuple(self._labels(tree, kind, labels)), member))
        return Union(symbol.name, symbol.place, discriminator, tuple(cases), self._aggregate_traits(symbol))

    def _labels(self, case, kind, known):
        for tree in parts_of(case, "label"):
            label = self._label(tree.children[0], kind) if tree.children else "default"
            self._new(known, label, tree, f"a second label {label}")
            known.add(label)
            yield label

    def _label(self, expression, kind):
        """A label as the document has it: enumerators by name, characters as numbers."""
        base = self.base_of(kind)
        if base == "enum":
            return self._enumerator_label(expression, kind)
        value = self._fitting(kind, self.value(expression), expression)
        if base in ("char8", "char16"):
            if len(value) != 1:
                raise self.problem(expression, f"{value!r} is not one character")
            return str(ord(value))
        if not -1 << 31 <= value < 1 << 32:
            raise self.problem(expression, f"the label {value} has more than 32 bits")
        return str(value).lower()

    def _enumerator_label(self, expression, kind):
        enumeration = self.behind(kind)
        with self.inside(enumeration):
            literals = {plain(name): value for name, value, _ in self.literals_of(enumeration.tree)}
        # Compilers take the enumerators of the discriminator's type wherever that type stands.
        written = self.text_of(expression) if expression.data == "scoped_name" else None
        if written in literals:
            return written
        value = self.value(expression)
        for name, known in literals.items():
            if known == value and type(value) is int:
                return name
        raise self.problem(expression, f"{value!r} is not an enumerator of the discriminator")

    # --- enumerations and bits

    def _enum(self, symbol):
        bits = symbol.annotations.number("bitbound", 1, 32)
        literals, values = [], set()
        for name, value, is_default in self.literals_of(symbol.tree):
            self._new(values, value, name, f'"{name}" has the value {value}, as another enumerator has')
            values.add(value)
            if not -1 << (bits or 32) - 1 <= value < 1 << (bits or 32):
                raise self.problem(name, f"the value {value} has more than {bits} bits")
            literals.append(Literal(plain(name), value, is_default))
        return Enum(symbol.name, symbol.place, tuple(literals), bits)

    def _bitmask(self, symbol):
        bits = symbol.annotations.number("bitbound", 1, _MAX_BITS)
        flags, following = {}, 0
        for tree in parts_of(symbol.tree, "flag"):
            annotations = Annotations(parts_of(tree, "annotation"), "flag", self)
            position = annotations.number("position", 0, (bits or 32) - 1)
            following = following if position is None else position
            name = plain(tree.children[-1])
            self._new(flags.values(), following, tree, f'"{name}" has the position {following}, as another flag has')
            self._new(flags, name, tree, f'a second flag "{name}"')
            flags[name] = following
            following += 1
        if following > (bits or 32):
            raise Problem(symbol.place, f'"{symbol.name}" has more flags than bits')
        return BitMask(symbol.name, symbol.place, tuple(Literal(*flag) for flag in flags.items()), bits)

    def _bitset(self, symbol, *derived):
        bases = parts_of(symbol.tree, "scoped_name")
        fields = []
        if bases:
            base = self.find_type(bases[0])
            if base.kind != "bitset" or base.name in (symbol.name, *derived):
                raise self.problem(bases[0], f'"{base.name}" is not another bit set')
            # The document knows no inheritance of bit sets; the fields of the base come first.
            with self.inside(base):
                fields += self._bitset(base, symbol.name, *derived).fields
        for tree in parts_of(symbol.tree, "bitfield"):
            fields += self._bit_fields(tree)
        names = [field.name for field in fields if field.name]
        if len(set(names)) < len(names):
            raise Problem(symbol.place, f'two bit fields of "{symbol.name}" have the same name')
        if not 1 <= sum(field.width for field in fields) <= _MAX_BITS:
            raise Problem(symbol.place, f'"{symbol.name}" does not have 1 to {_MAX_BITS} bits')
        return BitSet(symbol.name, symbol.place, tuple(fields))

    def _bit_fields(self, tree):
        Annotations(parts_of(tree, "annotation"), "bitfield", self)
        trees = [part for part in parts_of(tree) if hasattr(part, "data") and part.data != "annotation"]
        names = [plain(part) for part in parts_of(tree) if not hasattr(part, "data")]
        width = self._size(trees[0])
        kind = self.base_of(trees[1]) if len(trees) > 1 else None
        if kind is not None and kind not in (*WHOLE_NUMBERS, "boolean"):
            raise self.problem(tree, "a bit field is a whole number or a boolean")
        return [BitField(name, width, kind) for name in names or [None]]

    def _typedef(self, symbol):
        return Typedef(symbol.name, symbol.place, self._use(symbol.tree.children[0], symbol.declarator, ""))
