"""Reads .msg, .srv and .action files (docs.ros.org, "Interfaces")."""

import re

from .model import Member, Sequence, Struct, TypeUse, WHOLE_NUMBERS
from .problems import Place, Problem

_BASIC = {
    "bool": "boolean", "byte": "byte", "char": "uint8", "float32": "float32", "float64": "float64",
    "string": "string", "wstring": "wstring", **{name: name for name in WHOLE_NUMBERS if name != "byte"},
}
_SEPARATOR = "---"
# The structures that the parts of a file become.
_PARTS = {"msg": ("",), "srv": ("_Request", "_Response"), "action": ("_Goal", "_Result", "_Feedback")}

_TYPE = re.compile(r"(?P<name>[A-Za-z]\w*(?:/[A-Za-z]\w*)?)(?:<=(?P<string>\d+))?"
                   r"(?:\[(?P<bounded><=)?(?P<size>\d*)\])?", re.ASCII)
_NAME = re.compile(r"[A-Za-z]\w*", re.ASCII)


def read_interface(interface, report):
    """The structures of an interface file, by their plain names ("package::msg::Name")."""
    file = str(interface.path)
    try:
        lines = interface.path.read_text(encoding="utf-8-sig").splitlines()
    except OSError as error:
        report.error(Place(file), f"cannot be read: {error.strerror}")
        return []
    except UnicodeDecodeError:
        report.error(Place(file), "is not UTF-8")
        return []
    for name in (interface.package, interface.name):
        if not _NAME.fullmatch(name):
            report.error(Place(file), f'"{name}" cannot be the name of a package or an interface')
            return []
    suffixes = _PARTS[interface.path.suffix[1:]]
    parts = [[]]
    for number, line in enumerate(lines, 1):
        if line.rstrip() == _SEPARATOR:
            parts.append([])
        else:
            parts[-1].append((Place(file, number), line))
    if len(parts) != len(suffixes):
        report.error(Place(file), f"{len(parts) - 1} lines \"{_SEPARATOR}\" where there should be {len(suffixes) - 1}")
        return []
    return [_structure(interface, suffix, part, report) for suffix, part in zip(suffixes, parts)]


def _structure(interface, suffix, lines, report):
    members = {}
    constants = set()
    for place, line in lines:
        # A comment begins wherever the sign stands, in a text as well.
        words = line.partition("#")[0].split(maxsplit=1)
        if not words:
            continue
        try:
            if len(words) == 1:
                raise Problem(place, f'"{words[0]}" without a name')
            if "=" in words[1]:
                _check_constant(place, *words, constants)
            else:
                name = words[1].split()[0]  # what follows is the default value
                if name in members:
                    raise Problem(place, f'a second "{name}"')
                members[name] = _member(place, interface.package, words[0], name)
        except Problem as problem:
            report.add(problem)
    name = f"{interface.package}::{interface.kind}::{interface.name}{suffix}"
    return Struct(name, lines[0][0] if lines else Place(str(interface.path)), tuple(members.values()))


def _check_constant(place, type_name, rest, constants):
    """Constants are not sent, and nothing in these files can refer to them; but what looks like one must be one."""
    name, value = (part.strip() for part in rest.split("=", 1))
    if type_name not in _BASIC:
        raise Problem(place, f'a constant of type "{type_name}", which is not a basic one')
    if not _NAME.fullmatch(name):
        raise Problem(place, f'"{name}" is not a valid name of a constant')
    if not value and _BASIC[type_name] not in ("string", "wstring"):
        raise Problem(place, f'the constant "{name}" has no value')
    if name in constants:
        raise Problem(place, f'a second "{name}"')
    constants.add(name)


def _member(place, package, type_name, name):
    if not _NAME.fullmatch(name):
        raise Problem(place, f'"{name}" is not a valid name of a field')
    return Member(name, _type(place, package, type_name), place)


def _type(place, package, text):
    found = _TYPE.fullmatch(text)
    if not found:
        raise Problem(place, f'"{text}" is not a type')
    name = _BASIC.get(found["name"])
    if found["string"] is not None and name not in ("string", "wstring"):
        raise Problem(place, f'"{text}": only strings have a bound of this kind')
    if name is None:
        other, _, message = found["name"].rpartition("/")
        name = f"{other or package}::msg::{message}"
    size = found["size"]
    numbers = [int(number) for number in (found["string"], size) if number]
    if 0 in numbers or (found["bounded"] and not size):
        raise Problem(place, f'"{text}": a size is a number from 1')
    is_sequence = found["bounded"] or size == ""
    return TypeUse(name, int(found["string"]) if found["string"] else None,
                   Sequence(int(size) if size else None) if is_sequence else None,
                   (int(size),) if size and not is_sequence else ())
