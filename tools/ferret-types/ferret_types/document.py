"""Writes declarations as a <types> document (OMG DDS-XML 1.0, building block Types)."""

import functools
import xml.etree.ElementTree as ElementTree

from .model import BitMask, BitSet, Enum, Map, Struct, Typedef, Union


def document(declarations):
    """The text of the document that has these declarations, each in the modules that its name tells."""
    root = ElementTree.Element("dds")
    modules = {"": ElementTree.SubElement(root, "types")}
    for declaration in declarations:
        scope, _, name = declaration.name.rpartition("::")
        _write(declaration, _module(modules, scope), name)
    ElementTree.indent(root)
    text = ElementTree.tostring(root, encoding="unicode").replace(" />", "/>")
    return f'<?xml version="1.0" encoding="UTF-8"?>\n{text}\n'


def _module(modules, scope):
    if scope not in modules:
        parent, _, name = scope.rpartition("::")
        modules[scope] = ElementTree.SubElement(_module(modules, parent), "module", name=name)
    return modules[scope]


def _type_attributes(use):
    """The attributes that say what a member or typedef is."""
    def named(type_name, attribute, other):
        return {attribute: type_name.name} if type_name.is_basic else {
            attribute: "nonBasic", other: f"::{type_name.name}"}

    def bound(number):
        return "-1" if number is None else str(number)

    attributes = named(use, "type", "nonBasicTypeName")
    if use.string_bound is not None:
        attributes["stringMaxLength"] = str(use.string_bound)
    if isinstance(use.collection, Map):
        attributes |= named(use.collection.key, "mapKeyType", "mapKeyNonBasicTypeName")
        if use.collection.key.string_bound is not None:
            attributes["mapKeyStringMaxLength"] = str(use.collection.key.string_bound)
        attributes["mapMaxLength"] = bound(use.collection.bound)
    elif use.collection:
        attributes["sequenceMaxLength"] = bound(use.collection.bound)
    if use.dimensions:
        attributes["arrayDimensions"] = ",".join(map(str, use.dimensions))
    return attributes


def _add(parent, element, **attributes):
    """A new element; attributes without a value are left out."""
    return ElementTree.SubElement(parent, element, {
        name: str(value) for name, value in attributes.items() if value is not None})


def _add_member(parent, member):
    _add(parent, "member", name=member.name, **_type_attributes(member.type), **dict(member.traits))


@functools.singledispatch
def _write(declaration, parent, name):
    raise TypeError(f"no element for {declaration}")


@_write.register
def _(declaration: Struct, parent, name):
    base = declaration.base and f"::{declaration.base}"
    element = _add(parent, "struct", name=name, baseType=base, **dict(declaration.traits))
    for member in declaration.members:
        _add_member(element, member)


@_write.register
def _(declaration: Union, parent, name):
    element = _add(parent, "union", name=name, **dict(declaration.traits))
    discriminator = declaration.discriminator
    _add(element, "discriminator", **_type_attributes(discriminator.type), **dict(discriminator.traits))
    for case in declaration.cases:
        branch = _add(element, "case")
        for label in case.labels:
            _add(branch, "caseDiscriminator", value=label)
        _add_member(branch, case.member)


@_write.register
def _(declaration: Enum, parent, name):
    element = _add(parent, "enum", name=name, bitBound=declaration.bit_bound)
    for literal in declaration.literals:
        _add(element, "enumerator", name=literal.name, value=literal.value,
             defaultLiteral="true" if literal.is_default else None)


@_write.register
def _(declaration: BitMask, parent, name):
    element = _add(parent, "bitmask", name=name, bitBound=declaration.bit_bound)
    for flag in declaration.flags:
        _add(element, "flag", name=flag.name, position=flag.value)


@_write.register
def _(declaration: BitSet, parent, name):
    element = _add(parent, "bitset", name=name)
    for field in declaration.fields:
        _add(element, "bitfield", name=field.name, bit_bound=field.width, type=field.type)


@_write.register
def _(declaration: Typedef, parent, name):
    _add(parent, "typedef", name=name, **_type_attributes(declaration.type))
