"""All types of a run under their plain names, and what is shown of them."""

from .checks import check
from .model import Struct
from .ros_wire import (EVENT_INFO, derived_from_actions, derived_from_services, is_ros_name, on_the_wire, wire_name)


class Catalogue:
    """`load` reads the file of a ROS type that is missing, named by package, kind and name, and adds what is in it; it tells
    whether there is such a file."""

    def __init__(self, report, load):
        self._report = report
        self._load = load
        self._types = {}
        self._only_ros = set()  # names of types from .msg, .srv and .action files: only the names on the wire exist

    def add(self, declaration, only_ros=False):
        """Adds a type. The same type may be found in several places."""
        first = self._types.setdefault(declaration.name, declaration)
        if first != declaration:
            self._report.error(declaration.place, f'"{declaration.name}" is another type than in {first.place}')
        elif only_ros and first is declaration:
            self._only_ros.add(declaration.name)

    def complete(self):
        """Adds what the types need: those that ROS derives, and those that are missing here."""
        self._look_for_missing()
        self._derive(derived_from_actions)
        self._look_for_missing()
        # Distributions before Iron have no service events, and no package that describes them.
        if self._is_there(EVENT_INFO):
            self._derive(derived_from_services)
            self._look_for_missing()
        check(self._types, self._report)

    def _derive(self, derive):
        structures = {name: declaration for name, declaration in self._types.items()
                      if isinstance(declaration, Struct) and is_ros_name(name)}
        for declaration in list(derive(structures)):
            self.add(declaration, only_ros=True)

    def _is_there(self, name):
        if name not in self._types and is_ros_name(name):
            self._load(tuple(name.split("::")))
        return name in self._types

    def _look_for_missing(self):
        looked_at = set()
        while len(looked_at) < len(self._types):
            for declaration in [self._types[name] for name in self._types if name not in looked_at]:
                looked_at.add(declaration.name)
                for used, place in declaration.uses():
                    if not self._is_there(used) and used not in self._report.broken:
                        name = used.replace("::", "/") if is_ros_name(used) else used
                        self._report.error(place, f'there is no type "{name}" in the files and folders given')

    def shown(self):
        """The declarations of the document. Plain names for what IDL files declare, names on the wire for ROS types."""
        for declaration in self._types.values():
            if declaration.name not in self._only_ros:
                yield declaration.renamed(declaration.name, self._plain_or_wire)
            if self._is_on_the_wire(declaration.name):
                yield on_the_wire(declaration, lambda name: wire_name(name) if self._is_on_the_wire(name) else name)

    def _is_on_the_wire(self, name):
        return is_ros_name(name) and isinstance(self._types[name], Struct)

    def _plain_or_wire(self, name):
        return wire_name(name) if name in self._only_ros else name
