"""The program ferret-types: files and folders in, one document out."""

import argparse
import pathlib
import sys

from . import VERSION
from .catalogue import Catalogue
from .document import document
from .idl_reader import read_idl
from .problems import Place, Report
from .ros_interface import read_interface
from .sources import Library, ros_interface_file, search

EXIT_ERRORS = 1  # argparse ends with 2 on wrong usage


class Run:
    """One run: what was found, and what was read of it."""

    def __init__(self, paths, folders):
        self.report = Report()
        self._folders = [*folders, *(path for path in paths if pathlib.Path(path).is_dir())]
        self._library = Library(folders, self.report)
        self._catalogue = Catalogue(self.report, self._load)
        self._given = {}
        interfaces, documents = set(), []
        for path in paths:
            found = search(path, self.report)
            interfaces.update(found[0])
            documents += found[1]
            if not any(found) and pathlib.Path(path).is_dir():
                self.report.error(Place(path), "no .msg, .srv, .action or .idl file in this folder")
        for interface in sorted(interfaces):
            self._given[interface.key] = interface
            self._read_interface(interface)
        for path in documents:
            self._read_idl(path)
        self._catalogue.complete()

    def text(self):
        return document(self._catalogue.shown())

    def _read_interface(self, interface):
        if interface.path.suffix == ".idl":
            self._read_idl(interface.path)
            return
        for structure in read_interface(interface, self.report):
            self._catalogue.add(structure, only_ros=True)

    def _read_idl(self, path):
        declarations, interfaces = read_idl(path, self._find_include, self.report)
        for interface in interfaces:
            if interface.key not in self._given:
                self._read_interface(interface)
        for declaration in declarations:
            self._catalogue.add(declaration)

    def _load(self, key):
        """For the catalogue: reads a ROS type that the given files use and do not have."""
        interface = None if key in self._given else self._library.find(key)
        if interface is not None:
            self._given[key] = interface
            self._read_interface(interface)
        return interface is not None

    def _find_include(self, name, path):
        """The file that an #include in another one means, or the ROS interface that its text was made from."""
        for folder in (path.parent, *map(pathlib.Path, self._folders)):
            if (folder / name).is_file():
                return ros_interface_file(folder / name, self.report) or folder / name
        key = pathlib.PurePosixPath(name).with_suffix("").parts
        interface = self._given.get(key) or self._library.find(key)
        return interface.path if interface and interface.path.suffix == ".idl" else interface


def main(arguments=None):
    """Returns the exit status: 0, or 1 when something was wrong; wrong usage exits with 2."""
    parser = argparse.ArgumentParser(
        prog="ferret-types", allow_abbrev=False,
        description="Turns ROS 2 interface packages and OMG IDL files into one <types> document for ferret -qosFile.",
        epilog="example: ferret-types /opt/ros/jazzy/share > ros2.xml && ferret -printSample -qosFile ros2.xml")
    parser.add_argument("paths", nargs="+", metavar="PATH",
                        help="a .msg, .srv, .action or .idl file, or a folder that is searched for them")
    parser.add_argument("-I", dest="folders", action="append", default=[], metavar="DIR",
                        help="look for included files, and for types of ROS packages that are missing, in this folder too")
    parser.add_argument("-o", dest="output", metavar="FILE", help="write the document to this file")
    parser.add_argument("--version", action="version", version=f"ferret-types {VERSION}")
    options = parser.parse_args(arguments)

    run = Run(options.paths, options.folders)
    for line in run.report.lines():
        print(line, file=sys.stderr)
    if run.report.has_errors:
        return EXIT_ERRORS
    try:
        if options.output:
            pathlib.Path(options.output).write_text(run.text(), encoding="utf-8")
        else:
            sys.stdout.reconfigure(encoding="utf-8")
            sys.stdout.write(run.text())
            sys.stdout.flush()
    except OSError as error:
        print(f"{options.output or 'standard output'}: cannot be written: {error.strerror}", file=sys.stderr)
        sys.stderr.flush()
        return EXIT_ERRORS
    return 0
