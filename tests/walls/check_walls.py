#!/usr/bin/env python3
"""Holds the walls of the house: which folder may include what of another one, and who may touch the system.

    check_walls.py ROOT

prints one line per broken rule and ends with status 1 when there is any.
"""

import pathlib
import re
import sys

SOURCES = {".h", ".hpp", ".cpp", ".c", ".cc"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

BELOW_DCPS = ("discovery", "types/lookup", "types/data", "types/model", "qos", "rtps/net", "rtps/protocol", "rtps/wire",
              "platform")
# The parts of meridian/src/dcps, each with the parts below it.
DCPS_PARTS = {
    "conditions": (),
    "delivery": (),
    "common": ("conditions",),
    "topics": ("common", "entities"),
    "endpoints": ("topics", "common"),
    "reader": ("endpoints", "topics", "common", "conditions", "delivery", "entities"),
    "writer": ("endpoints", "topics", "common", "reader", "entities"),
    "entities": ("reader", "writer", "endpoints", "topics", "common", "conditions", "delivery"),
}
# A folder of meridian/src may include itself and these.
LAYERS = {
    "platform": (),
    "rtps/wire": (),
    "rtps/protocol": ("rtps/wire",),
    "rtps/net": ("rtps/protocol", "rtps/wire", "platform"),
    "types/model": ("rtps/wire", "platform"),
    "types/network": ("types/model", "rtps/wire", "platform"),
    "types/documents": ("types/model", "platform"),
    "types/data": ("types/model", "rtps/wire", "platform"),
    "types/lookup": ("types/network", "types/model", "rtps/net", "rtps/protocol", "rtps/wire", "platform"),
    "qos": ("types/documents", "types/model", "rtps/wire", "platform"),
    "discovery": ("types/lookup", "types/model", "qos", "rtps/net", "rtps/protocol", "rtps/wire", "platform"),
    **{f"dcps/{part}": (*(f"dcps/{below}" for below in belows), *BELOW_DCPS) for part, belows in DCPS_PARTS.items()},
}
# These know nothing of the public interface either, and never ask for the time: they are told.
PURE = ("rtps/wire", "rtps/protocol")
TOUCHES_SYSTEM = ("rtps/net", "platform")

SYSTEM_HEADER = re.compile(
    r"(sys|net|netinet|arpa|linux|asm|bits)/.*|(unistd|pthread|poll|ifaddrs|netdb|fcntl|dirent|dlfcn|sched|semaphore|signal|"
    r"spawn|syslog|termios|time|utime|err|fnmatch|glob|pwd|grp)\.h|ctime|csignal")
SYSTEM_CLOCK = re.compile(r"\b(clock_gettime|gettimeofday|nanosleep)\s*\(|_clock::now\s*\(|\bsleep_(for|until)\s*\(")
FOREIGN_HEADER = re.compile(r"(dds|fastdds|fastrtps|fastcdr|ddscxx|org/eclipse/cyclonedds|OpenDDS|opendds)/.*|cyclonedds/.*")
MAY_INCLUDE_FOREIGN = ("tests/", "demo/")


def resolve(root, source, name):
    """The file of this tree that an include can mean, relative to the root, whatever the compiler is told to search."""
    for base in (source.parent, root, root / "srcCxx", root / "meridian/include", root / "meridian/src"):
        path = (base / name).resolve()
        if path.is_file() and path.is_relative_to(root):
            return path.relative_to(root).as_posix()
    return None


def layer_of(path):
    """The folder of meridian/src that a file stands in, or None outside of it."""
    if not path.startswith("meridian/src/"):
        return None
    inner = path[len("meridian/src/"):]
    return next((layer for layer in LAYERS if inner.startswith(layer + "/")), inner)


def include_error(source, name, target):
    """What is wrong with this include, or None."""
    if FOREIGN_HEADER.fullmatch(name) and target is None and not source.startswith(MAY_INCLUDE_FOREIGN):
        return "another maker's header"
    tool = source.startswith(("agent/", "srcCxx/"))
    if tool and target and target.startswith("meridian/src/"):
        return "the tool sees only meridian's public headers"
    if source.startswith("agent/") and target and target.startswith("srcCxx/"):
        return "the frame knows nothing of the spy"
    if source.startswith("meridian/") and target and target.startswith(("agent/", "srcCxx/")):
        return "the library knows nothing of the tool"
    if source.startswith("meridian/include/"):
        if target and not target.startswith("meridian/include/"):
            return "a public header includes public headers only"
        if SYSTEM_HEADER.fullmatch(name):
            return "a public header with a system header"
    layer = layer_of(source)
    if layer is None:
        return None
    if layer not in LAYERS:
        return "a folder of meridian/src without a place in the house"
    other = layer_of(target) if target else None
    if other is not None and other != layer and other not in LAYERS[layer]:
        return f"{layer} may not include {other}"
    if layer in PURE and target and target.startswith("meridian/include/"):
        return f"{layer} knows nothing of the public interface"
    if layer not in TOUCHES_SYSTEM and SYSTEM_HEADER.fullmatch(name):
        return f"{layer} may not touch the system"
    return None


def check(root):
    """All broken rules as texts, and the number of files looked at."""
    root = pathlib.Path(root).resolve()
    errors = []
    files = 0
    for top in ("agent", "srcCxx", "meridian", "demo", "bench", "tests"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix not in SOURCES or not path.is_file():
                continue
            files += 1
            source = path.relative_to(root).as_posix()
            for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
                found = INCLUDE.match(line)
                if found:
                    error = include_error(source, found[2], resolve(root, path, found[2]))
                    if error:
                        errors.append(f"{source}:{number}: {found[2]}: {error}")
                elif layer_of(source) in PURE and SYSTEM_CLOCK.search(line.split("//")[0]):
                    errors.append(f"{source}:{number}: {layer_of(source)} asks for the time or sleeps")
    return errors, files


def main():
    errors, files = check(sys.argv[1])
    for error in errors:
        print(error)
    print(f"{len(errors)} broken rules in {files} files")
    return 1 if errors or files == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
