"""Values of constant expressions (OMG IDL 4.2, 7.4.1.4.3)."""

import operator
import re

from lark import Token

_ESCAPES = {"n": "\n", "t": "\t", "v": "\v", "b": "\b", "r": "\r", "f": "\f", "a": "\a", "0": "\0"}
_ESCAPE = re.compile(r"\\(?:x([0-9a-fA-F]{1,2})|u([0-9a-fA-F]{1,4})|([0-7]{1,3})|(.))")
_MAX_BITS = 64


class ExpressionError(Exception):
    """Why an expression has no value."""


def _divide(left, right):
    if isinstance(left, float) or isinstance(right, float):
        return left / right
    quotient = abs(left) // abs(right)  # IDL cuts off, Python rounds down
    return quotient if (left < 0) == (right < 0) else -quotient


def _remainder(left, right):
    return left - right * _divide(left, right)


def _shift(shift):
    def checked(left, right):
        if not 0 <= right < _MAX_BITS:
            raise ExpressionError(f"a shift by {right} bits")
        return shift(left, right)
    return checked


_FOR_NUMBERS = {"add": operator.add, "subtract": operator.sub, "multiply": operator.mul, "divide": _divide}
_FOR_WHOLE_NUMBERS = {
    "bit_or": operator.or_, "bit_xor": operator.xor, "bit_and": operator.and_, "shift_left": _shift(operator.lshift),
    "shift_right": _shift(operator.rshift), "remainder": _remainder}


def evaluate(tree, value_of):
    """The value as int, float, bool or str (characters have one letter); `value_of` tells that of a scoped_name tree."""
    if tree.data == "scoped_name":
        return value_of(tree)
    if tree.data == "number":
        return _literal(tree.children)
    values = [evaluate(child, value_of) for child in tree.children]
    whole = tree.data in _FOR_WHOLE_NUMBERS or tree.data == "invert"
    for value in values:
        if isinstance(value, (bool, str)) or (whole and isinstance(value, float)):
            raise ExpressionError(f"no calculation with {value!r}")
    if tree.data in ("minus", "invert"):
        return -values[0] if tree.data == "minus" else ~values[0]
    try:
        result = (_FOR_NUMBERS | _FOR_WHOLE_NUMBERS)[tree.data](*values)
    except ZeroDivisionError:
        raise ExpressionError("a division by zero") from None
    except OverflowError:
        raise ExpressionError("a number that is too large") from None
    if isinstance(result, int) and result.bit_length() > _MAX_BITS:
        raise ExpressionError(f"a number of more than {_MAX_BITS} bits")
    return result


def _literal(tokens):
    kind, text = tokens[0].type, str(tokens[0])
    if kind == "INTEGER":
        is_octal = len(text) > 1 and text[0] == "0" and text[1] not in "xX"
        try:
            return int(text, 8 if is_octal else 0)
        except ValueError:
            raise ExpressionError(f'"{text}" is not a number') from None
    if kind == "REAL":
        return float(text.rstrip("dD"))
    if kind == "BOOLEAN":
        return text.upper() == "TRUE"
    return "".join(_unescaped(token) for token in tokens)


def _unescaped(token: Token):
    def letter(found):
        if found[4]:
            return _ESCAPES.get(found[4], found[4])
        digits, base = next((digits, base) for digits, base in zip(found.groups(), (16, 16, 8)) if digits)
        return chr(int(digits, base))
    return _ESCAPE.sub(letter, token.removeprefix("L")[1:-1])
