"""Annotations (OMG IDL 4.2, 8.3; DDS-XTypes 1.3, 7.3.1.2): which say something about the form of data, and where."""

_OF_AGGREGATES = {"extensibility", "final", "appendable", "mutable", "autoid"}
_OF_CASES = {"id", "hashid", "external", "mustunderstand"}
_WITH_MEANING = {
    "module": {"autoid"},
    "struct": _OF_AGGREGATES,
    "union": _OF_AGGREGATES,
    "member": _OF_CASES | {"key", "optional"},
    "case": _OF_CASES,
    "discriminator": {"key"},
    "element": {"external"},
    # They have no extensibility on the wire.
    "enum": {"bitbound", "extensibility", "final", "appendable", "mutable"},
    "bitmask": {"bitbound", "extensibility", "final", "appendable", "mutable"},
    "bitset": {"extensibility", "final", "appendable", "mutable"},
    "enumerator": {"value", "defaultliteral"},
    "flag": {"position"},
    "bitfield": set(),
    "typedef": set(),
    "constant": set(),
}
# They say nothing about the form of data.
_PASSED_OVER = {
    "default", "range", "min", "max", "unit", "verbatim", "topic", "nested", "defaultnested", "tryconstruct",
    "ignoreliteralnames", "datarepresentation", "service", "oneway", "ami"}


def _normalized(name):
    """@Key, @BitBound and @bit_bound were all written at some time."""
    return name.lower().replace("_", "")


class Annotations:
    """The annotations of one declaration. `reader` evaluates expressions, and knows places and annotations of the file's own."""

    def __init__(self, trees, target, reader):
        self._reader = reader
        self._found = {}
        for tree in trees:
            written = reader.text_of(tree.children[0])
            name = _normalized(written)
            if name in _WITH_MEANING[target]:
                self._found[name] = tree
            elif name not in _PASSED_OVER and written not in reader.own_annotations:
                known = any(name in names for names in _WITH_MEANING.values())
                reader.warn(tree, f"@{written} " + (f"says nothing about a {target}" if known else "is not known") +
                            ", and is passed over")

    def __contains__(self, name):
        return name in self._found

    def _problem(self, name, text):
        tree = self._found[name]
        return self._reader.problem(tree, f"@{self._reader.text_of(tree.children[0])} {text}")

    def _parameter(self, name):
        """The tree of the parameter, or None."""
        parameters = [child for child in self._found[name].children[1:] if child is not None]
        if len(parameters) > 1:
            raise self._problem(name, "has more than one parameter")
        if not parameters:
            return None
        return parameters[0].children[1] if parameters[0].data == "parameter" else parameters[0]

    def _value(self, name, kind, what):
        tree = self._parameter(name)
        value = None if tree is None else self._reader.value(tree)
        if type(value) is not kind:
            raise self._problem(name, f"needs {what}")
        return value

    def is_set(self, name):
        """Whether it is there, and not with FALSE as its parameter."""
        return name in self and (self._parameter(name) is None or self._value(name, bool, "TRUE or FALSE"))

    def number(self, name, least, most):
        """Its number, or None without the annotation."""
        if name not in self:
            return None
        value = self._value(name, int, "a number")
        if not least <= value <= most:
            raise self._problem(name, f"{value} is not between {least} and {most}")
        return value

    def word(self, name, words, otherwise):
        """Its parameter as one of these words; `otherwise` is what it means to leave the parameter out."""
        tree = self._parameter(name)
        text = otherwise if tree is None else self._reader.text_of(tree) if tree.data == "scoped_name" else None
        if text not in words:
            raise self._problem(name, f"is one of {', '.join(words)}")
        return text.lower()

    def extensibility(self):
        """final, appendable or mutable as written, or None."""
        if "extensibility" in self:
            return self.word("extensibility", ("FINAL", "APPENDABLE", "MUTABLE"), None)
        return next((name for name in ("final", "appendable", "mutable") if name in self), None)

    def autoid(self, inherited):
        """sequential or hash; what a module around it says where nothing is written."""
        return self.word("autoid", ("SEQUENTIAL", "HASH"), "HASH") if "autoid" in self else inherited

    def member_traits(self):
        """Attributes of a member of the document."""
        flags = (("key", "key"), ("optional", "optional"), ("mustunderstand", "mustUnderstand"), ("external", "external"))
        traits = [(attribute, "true") for name, attribute in flags if self.is_set(name)]
        number = self.number("id", 0, 0x0fffffff)
        if number is not None:
            traits.append(("id", str(number)))
        if "hashid" in self:
            has_text = self._parameter("hashid") is not None
            traits.append(("hashid", self._value("hashid", str, "a text") if has_text else ""))
        return tuple(traits)
