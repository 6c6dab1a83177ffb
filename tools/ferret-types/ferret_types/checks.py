"""What can only be said of types when all of them are known."""

import graphlib
import hashlib

from .model import Struct, Typedef

_ID_BITS = 0x0fffffff


def check(types, report):
    """Reports what is wrong with these types, given by their names."""
    _check_parts(types, report)
    for declaration in types.values():
        if isinstance(declaration, Struct):
            _check_members(_with_bases(declaration, types), report)


def _check_parts(types, report):
    """No value can hold one of its own type."""
    try:
        graphlib.TopologicalSorter({name: declaration.parts() for name, declaration in types.items()}).prepare()
    except graphlib.CycleError as error:
        name = min(name for name in error.args[1] if name in types)
        report.error(types[name].place, f'"{name}" holds itself')


def _with_bases(struct, types):
    """The structure and its bases, the outermost base first."""
    chain = []
    declaration = struct
    while declaration is not None and declaration not in chain:
        if isinstance(declaration, Struct):
            chain.insert(0, declaration)
        declaration = types.get(declaration.type.name if isinstance(declaration, Typedef) else declaration.base)
        if not isinstance(declaration, (Struct, Typedef)):
            break
    return chain


def _check_members(chain, report):
    """Members need names and ids of their own (DDS-XTypes 1.3, 7.3.1.2.1)."""
    names, ids = set(), {}
    for struct in chain:
        following = max(ids, default=-1) + 1
        for member in struct.members:
            number = _id_of(member, struct, following)
            if member.name in names:
                report.error(member.place, f'a second member "{member.name}"')
            elif number in ids:
                report.error(member.place, f'"{member.name}" has the id {number}, as "{ids[number]}" has')
            names.add(member.name)
            ids.setdefault(number, member.name)
            following = number + 1


def _id_of(member, struct, following):
    traits = dict(member.traits)
    if "id" in traits:
        return int(traits["id"])
    if "hashid" in traits:
        return _hash_of(traits["hashid"] or member.name)
    return _hash_of(member.name) if ("autoid", "hash") in struct.traits else following


def _hash_of(name):
    return int.from_bytes(hashlib.md5(name.encode(), usedforsecurity=False).digest()[:4], "little") & _ID_BITS
