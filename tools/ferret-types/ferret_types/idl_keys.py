"""Keys as older compilers of IDL have them: in pragmas beside the structures."""

import dataclasses
import math
import re

from .idl_names import Names, Symbol, parts_of, plain
from .problems import Problem

_STEP = re.compile(r"(\w+)((?:\[\w+\])*)", re.ASCII)
_KEY = ("key", "true")


class Keys(Names):
    """The names of a unit, and which members its pragmas make keys. No pragma is an error: without one that cannot be followed
    the document is right but for the keys."""

    def __init__(self, unit, tree, report):
        super().__init__(unit, tree, report)
        self._keys = {}  # by structure, and by who says so: its members. "" is the structure itself, else a path that leads to it
        self._elements = {}  # of arrays: {(structure, member): (place, how the first is written, all)}
        self._through = set()  # (structure, member) that paths lead through
        self._lent = set()  # structures with no keys but those that paths name
        for place, (pragma, *words) in unit.keys:
            structure = self._structure_of_pragma(place, pragma, "".join(words[:1]))
            for path in words[1:] if structure else ():
                self._take_path(place, pragma, structure, path)

    def _structure_of_pragma(self, place, pragma, written):
        name = written.removeprefix("::")
        structs = [symbol for symbol in self._symbols.values() if symbol.kind == "struct" and symbol.place.file == place.file
                   and f"::{symbol.name}".endswith(f"::{name}")]
        if pragma == "keylist":  # stands below its structure, and names it as seen from there
            structs = [symbol for symbol in structs if symbol.place.line <= place.line][-1:]
        elif name in self._symbols and self._symbols[name].kind == "struct":
            structs = [self._symbols[name]]
        if len(structs) == 1:
            return structs[0]
        what = f'there are several structures "{written}"' if structs else f'there is no structure "{written}"'
        self._report.warn(place, f"#pragma {pragma}: {what}" + (" above" if pragma == "keylist" else ""))
        return None

    def _take_path(self, place, pragma, structure, path):
        """Takes the key that `a`, `a.b` or `a[0].b` names."""
        steps, at, user = [], structure, ""
        for step in path.split("."):
            found = _STEP.fullmatch(step)
            tree = found and isinstance(at, Symbol) and at.kind == "struct" and self._tree_of_member(at, found[1])
            if not tree:
                self._report.warn(place, f'#pragma {pragma}: "{structure.name}" has no member "{path}"')
                return
            steps.append((at, user, *found.groups()))
            user = f"{user or structure.name}.{found[1]}"
            at = self._behind_member(at, tree)
        for number, (owner, user, member, element) in enumerate(steps):
            self._keys.setdefault(owner.name, {}).setdefault(user, {})[member] = place
            if number + 1 < len(steps):
                self._through.add((owner.name, member))
            if element:
                self._elements.setdefault((owner.name, member), (place, member + element, set()))[2].add(element)

    @staticmethod
    def _tree_of_member(structure, name):
        return next((tree for tree in parts_of(structure.tree, "member")
                     for declarator in parts_of(tree, "declarators")[0].children if plain(declarator.children[0]) == name), None)

    def _behind_member(self, structure, tree):
        """What a member is, or its elements are; None where that is an error, which is told where the member is read."""
        try:
            with self.inside(structure):
                found = self.behind(self._type_of(tree))
            if isinstance(found, Symbol) and found.kind == "typedef":  # of an array
                with self.inside(found):
                    found = self.behind(found.tree.children[0])
            return found
        except Problem:
            return None

    def _mark_keys(self, symbol, members):
        """Makes those of `members`, of this structure, keys that pragmas say are."""
        users = dict(self._keys.get(symbol.name, {}))
        own = {name for name, member in members.items() if _KEY in member.traits} | users.pop("", {}).keys()
        keys = own or set().union(*users.values())
        if keys and not own:
            self._lent.add(symbol.name)
        for user, named in users.items():
            if named.keys() != keys:
                self._report.warn(min(named.values()), f'the keys of "{symbol.name}" are {_listed(keys)} wherever it is used, '
                                                       f'but for "{user}" they should be {_listed(named)}')
        for name in keys:
            member = members[name]
            if _KEY not in member.traits:
                members[name] = dataclasses.replace(member, traits=(_KEY, *member.traits))
            if member.type.name in self._lent and (symbol.name, name) not in self._through:
                self._report.warn(member.place, f'some members of "{member.type.name}" only are keys, as a pragma for another '
                                                f'structure says: of "{name}" too')
            place, first, all_named = self._elements.get((symbol.name, name), (None, "", ()))
            if place and (not member.type.dimensions or len(all_named) < math.prod(member.type.dimensions)):
                self._report.warn(place, f'"{first}" of "{symbol.name}" cannot be a key alone: all of "{name}" is')


def _listed(names):
    return ", ".join(f'"{name}"' for name in sorted(names))
