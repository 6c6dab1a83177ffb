"""Types, whatever language they were written in.

Names of types are qualified from the top ("std_msgs::msg::String") and without leading colons. The place of a declaration is
no part of it: the same type found twice is equal to itself.
"""

import dataclasses
from dataclasses import dataclass

from .problems import Place

STRINGS = ("string", "wstring")
WHOLE_NUMBERS = {
    **{f"int{bits}": (-(1 << bits - 1), (1 << bits - 1) - 1) for bits in (8, 16, 32, 64)},
    **{f"uint{bits}": (0, (1 << bits) - 1) for bits in (8, 16, 32, 64)},
    "byte": (0, 255),
}
REALS = ("float32", "float64", "float128")
BASIC = {*STRINGS, *WHOLE_NUMBERS, *REALS, "boolean", "char8", "char16"}


@dataclass(frozen=True)
class Sequence:
    bound: int | None = None


@dataclass(frozen=True)
class Map:
    key: "TypeUse"
    bound: int | None = None


@dataclass(frozen=True)
class TypeUse:
    """What a member, typedef or discriminator is: something basic or named, perhaps in a collection, perhaps in an array."""

    name: str
    string_bound: int | None = None
    collection: Sequence | Map | None = None
    dimensions: tuple[int, ...] = ()

    @property
    def is_basic(self):
        return self.name in BASIC

    @property
    def is_part(self):
        """Whether each value has one of a declared type in it: collections may be empty."""
        return not self.is_basic and self.collection is None

    def named_types(self):
        """The names of all types in it that are declared somewhere."""
        keys = self.collection.key.named_types() if isinstance(self.collection, Map) else []
        return keys if self.is_basic else [self.name, *keys]

    def renamed(self, rename):
        """The same with other names for declared types."""
        collection = self.collection
        if isinstance(collection, Map):
            collection = dataclasses.replace(collection, key=collection.key.renamed(rename))
        return dataclasses.replace(self, name=self.name if self.is_basic else rename(self.name), collection=collection)


@dataclass(frozen=True)
class Member:
    """`traits` are attributes of the document beyond name and type: key, optional, id and so on, with their values."""

    name: str
    type: TypeUse
    place: Place = dataclasses.field(compare=False)
    traits: tuple[tuple[str, str], ...] = ()


@dataclass(frozen=True)
class Declaration:
    name: str
    place: Place = dataclasses.field(compare=False)

    def uses(self):
        """(name of a declared type, place) for each use of one."""
        return []

    def parts(self):
        """The names of declared types that each of its values holds."""
        return []

    def renamed(self, name, rename):
        """The same declaration with this name, and with other names for the types that it uses."""
        return dataclasses.replace(self, name=name)


def _uses(members):
    return [(name, member.place) for member in members for name in member.type.named_types()]


def _renamed(member, rename):
    return dataclasses.replace(member, type=member.type.renamed(rename))


@dataclass(frozen=True)
class Struct(Declaration):
    members: tuple[Member, ...] = ()
    base: str | None = None
    traits: tuple[tuple[str, str], ...] = ()

    def uses(self):
        return [(self.base, self.place)] * (self.base is not None) + _uses(self.members)

    def parts(self):
        held = [member.type for member in self.members if ("optional", "true") not in member.traits]
        return [self.base] * (self.base is not None) + [use.name for use in held if use.is_part]

    def renamed(self, name, rename):
        return dataclasses.replace(self, name=name, base=self.base and rename(self.base),
                                   members=tuple(_renamed(member, rename) for member in self.members))


@dataclass(frozen=True)
class Case:
    """`labels` as the document has them: numbers, names of enumerators, or "default"."""

    labels: tuple[str, ...]
    member: Member


@dataclass(frozen=True)
class Union(Declaration):
    discriminator: Member
    cases: tuple[Case, ...] = ()
    traits: tuple[tuple[str, str], ...] = ()

    def uses(self):
        return _uses([self.discriminator, *(case.member for case in self.cases)])

    def renamed(self, name, rename):
        cases = tuple(Case(case.labels, _renamed(case.member, rename)) for case in self.cases)
        return dataclasses.replace(self, name=name, discriminator=_renamed(self.discriminator, rename), cases=cases)


@dataclass(frozen=True)
class Literal:
    """An enumerator and its value, or a flag and its position."""

    name: str
    value: int
    is_default: bool = False


@dataclass(frozen=True)
class Enum(Declaration):
    literals: tuple[Literal, ...]
    bit_bound: int | None = None


@dataclass(frozen=True)
class BitMask(Declaration):
    flags: tuple[Literal, ...]
    bit_bound: int | None = None


@dataclass(frozen=True)
class BitField:
    """Without a name it only takes room; without a type that follows from the width."""

    name: str | None
    width: int
    type: str | None = None


@dataclass(frozen=True)
class BitSet(Declaration):
    fields: tuple[BitField, ...]


@dataclass(frozen=True)
class Typedef(Declaration):
    type: TypeUse

    def uses(self):
        return [(name, self.place) for name in self.type.named_types()]

    def parts(self):
        return [self.type.name] if self.type.is_part else []

    def renamed(self, name, rename):
        return dataclasses.replace(self, name=name, type=self.type.renamed(rename))
