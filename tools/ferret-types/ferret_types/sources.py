"""Finds interface files: what is a ROS 2 package, and which files of it say the same twice."""

import functools
import os
import pathlib
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass

from .problems import Place

ROS_KINDS = ("msg", "srv", "action")


@dataclass(frozen=True, order=True)
class Interface:
    """A .msg, .srv or .action file and what it is called in ROS: package/kind/name."""

    package: str
    kind: str  # the second part of the name: the folder
    name: str
    path: pathlib.Path

    @property
    def key(self):
        return self.package, self.kind, self.name


def ros_original(path):
    """The .msg, .srv or .action file that this file was made from when its package was installed, or None: X.idl beside
    X.msg, and X_Request.msg beside X.srv."""
    stems = [path.stem] if path.suffix == ".idl" else [
        path.stem.removesuffix(part) for part in ("_Request", "_Response") if path.stem.endswith(part)]
    kinds = ROS_KINDS if path.suffix == ".idl" else ("srv",)
    originals = (path.with_name(f"{stem}.{kind}") for stem in stems for kind in kinds)
    return next((original for original in originals if original.is_file()), None)


def interface_of(path, top, report):
    """How ROS calls this file. `top` is the folder that was searched: no package.xml above it counts, unless it is that of the
    folder around msg, srv or action."""
    above = list(path.absolute().parents)
    in_kind = above[0].name in ROS_KINDS
    folder = above[1] if in_kind else above[0]
    last = top if folder.is_relative_to(top) else folder
    package = folder.name
    for candidate in above[:above.index(last) + 1]:
        if (candidate / "package.xml").is_file():
            description = candidate / "package.xml"
            shown = description if path.is_absolute() else pathlib.Path(os.path.relpath(description))
            package = _package_name(shown, report) or package
            break
    return Interface(package, above[0].name if in_kind else path.suffix[1:], path.stem, path)


def ros_interface_file(path, report):
    """The ROS interface that an IDL file was made from, or None."""
    original = ros_original(path)
    return original and interface_of(original, original.absolute().parent.parent, report)


@functools.cache
def _package_name(path, report):
    try:
        name = ElementTree.parse(path).getroot().findtext("name", "").strip()
    except (OSError, ElementTree.ParseError) as error:
        report.error(Place(str(path)), f"not a package description: {error}")
        return None
    if not name:
        report.error(Place(str(path)), "a package description without a name")
    return name


def _files_below(folder, report):
    def cannot_be_read(error):
        report.error(Place(error.filename), f"cannot be read: {error.strerror}")

    for parent, folders, files in os.walk(folder, onerror=cannot_be_read):
        folders[:] = sorted(name for name in folders if not name.startswith("."))
        yield from (pathlib.Path(parent, name) for name in sorted(files))


def search(argument, report):
    """The interfaces and the IDL files that an argument stands for. A file is taken as it is; in a folder, what was made
    from a file beside it is passed over."""
    path = pathlib.Path(argument)
    is_folder = path.is_dir()
    if not is_folder and path.suffix[1:] not in (*ROS_KINDS, "idl"):
        reason = "neither a folder nor a .msg, .srv, .action or .idl file" if path.exists() else "no such file or folder"
        report.error(Place(argument), reason)
        return [], []
    found = [file for file in _files_below(path, report) if ros_original(file) is None] if is_folder else [path]
    top = (path if is_folder else path.parent.parent).absolute()
    interfaces = [interface_of(file, top, report) for file in found if file.suffix[1:] in ROS_KINDS]
    documents = [file for file in found if file.suffix == ".idl"]
    return interfaces, documents


class Library:
    """The folders of -I: types of ROS packages in them are used by name, and only looked for when one is missing."""

    def __init__(self, folders, report):
        self._folders = [folder for folder in folders if pathlib.Path(folder).is_dir()]
        self._report = report
        for folder in set(folders) - set(self._folders):
            report.error(Place(folder), "no such folder")
        self._interfaces = None

    def find(self, key):
        """The interface with that package, kind and name, or None."""
        if self._interfaces is None:
            self._interfaces = {}
            for folder in self._folders:
                interfaces, documents = search(folder, self._report)
                interfaces += [interface_of(file, pathlib.Path(folder).absolute(), self._report) for file in documents
                               if file.parent.name in ROS_KINDS]
                for interface in interfaces:
                    self._interfaces.setdefault(interface.key, interface)  # folders named first count more
        return self._interfaces.get(key)
