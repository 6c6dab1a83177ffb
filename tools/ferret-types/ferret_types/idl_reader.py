"""Reads IDL files: preprocessing, then the grammar in idl.lark, then declarations."""

import functools
import pathlib

import lark

from .idl_declarations import Declarations
from .idl_preprocessor import Preprocessor
from .problems import Place, Problem

_NO_DATA = ("interface", "valuetype", "exception", "component", "native", "any", "Object", "fixed", "eventtype", "porttype")


@functools.cache
def _grammar():
    text = pathlib.Path(__file__).with_name("idl.lark").read_text(encoding="utf-8")
    return lark.Lark(text, parser="lalr", propagate_positions=True, maybe_placeholders=True)


def read_idl(path, find_include, report):
    """The declarations of an IDL file and of all that it includes, and the ROS interfaces among those (see Preprocessor)."""
    try:
        unit = Preprocessor(find_include).run(path)
        for place, text in unit.passed_over:
            report.warn(place, f"{text} is not known, and is passed over")
        return Declarations(unit, _parse(unit), report).read(), unit.interfaces
    except Problem as problem:
        report.add(problem)
    except RecursionError:
        report.error(Place(str(path)), "expressions or types nest too deep")
    return [], []


def _parse(unit):
    try:
        return _grammar().parse("\n".join(unit.lines))
    except lark.exceptions.UnexpectedCharacters as error:
        raise Problem(unit.place(error.line), f'"{error.char}" is not understood here') from None
    except lark.exceptions.UnexpectedToken as error:
        if error.token.type == "$END":
            raise Problem(unit.place(len(unit.lines)), "the file ends in the middle of a declaration") from None
        reason = "describes nothing that a sample can hold" if error.token in _NO_DATA else "is not understood here"
        raise Problem(unit.place(error.token.line), f'"{error.token}" {reason}') from None
