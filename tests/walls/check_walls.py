#!/usr/bin/env python3
"""Holds the walls of the house: which folder may include what of another one, what may touch the system, and that comments name
what they speak of.

    check_walls.py ROOT

prints one line per broken rule and ends with status 1 when there is any.
"""

import pathlib
import re
import sys

SOURCES = {".h", ".hpp", ".cpp", ".c", ".cc"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

BELOW_DCPS = ("discovery", "xml", "types/lookup", "types/data", "types/model", "qos", "rtps/net", "rtps/protocol", "rtps/wire",
              "platform")
# The parts of meridian/src/dcps, each with the parts below it.
DCPS_PARTS = {
    "conditions": (),
    "delivery": (),
    "common": ("conditions",),
    "topics": ("common",),
    "endpoints": ("topics", "common"),
    "reader": ("endpoints", "topics", "common", "conditions", "delivery"),
    "writer": ("endpoints", "topics", "common"),
    "entities": ("reader", "writer", "endpoints", "topics", "common", "conditions", "delivery"),
}
# A folder of meridian/src may include itself and these.
LAYERS = {
    "platform": (),
    "rtps/wire": (),
    "rtps/protocol": ("rtps/wire",),
    "rtps/net": ("rtps/protocol", "rtps/wire", "platform"),
    "xml": ("platform",),
    "types/model": ("rtps/wire", "platform"),
    "types/network": ("types/model", "rtps/wire", "platform"),
    "types/documents": ("xml", "types/model", "platform"),
    "types/data": ("types/model", "rtps/wire", "platform"),
    "types/lookup": ("types/network", "types/model", "rtps/net", "rtps/protocol", "rtps/wire", "platform"),
    "qos": ("xml", "types/documents", "types/model", "rtps/wire", "platform"),
    "discovery": ("xml", "types/lookup", "types/model", "qos", "rtps/net", "rtps/protocol", "rtps/wire", "platform"),
    **{f"dcps/{part}": (*(f"dcps/{below}" for below in belows), *BELOW_DCPS) for part, belows in DCPS_PARTS.items()},
}
# Of platform, but pure: every layer may include it.
FOR_EVERY_LAYER = tuple(f"meridian/src/platform/{name}.h" for name in ("memory_budget", "seeded_hash", "text"))
# These know nothing of the public interface either.
PURE = ("rtps/wire", "rtps/protocol")
TOUCHES_SYSTEM = ("rtps/net", "platform")

SYSTEM_HEADER = re.compile(
    r"(sys|net|netinet|arpa|linux|asm|bits)/.*|(unistd|pthread|poll|ifaddrs|netdb|fcntl|dirent|dlfcn|sched|semaphore|signal|"
    r"spawn|syslog|termios|time|utime|err|fnmatch|glob|pwd|grp)\.h|ctime|csignal")
# Files, threads, locks and clocks of the standard library: platform has its own, which limit, name and annotate them.
SYSTEM_FACILITY = re.compile(
    r"fstream|filesystem|iostream|random|thread|stop_token|mutex|shared_mutex|condition_variable|future|semaphore|latch|barrier")
SYSTEM_CALL = re.compile(r"\b(clock_gettime|gettimeofday|nanosleep|fopen|freopen|tmpfile|popen|system|getenv|setenv)\s*\(|"
                         r"_clock::now\s*\(|\bsleep_(for|until)\s*\(")
VAGUE_WORD = re.compile(r"(no|some|any|every)body|\bwhoever", re.IGNORECASE)
# What the products of makers do otherwise stands in one table for each layer: only these files name vendor ids.
VENDOR_IDS = "meridian/src/rtps/wire/types.h"
MAKERS_TABLES = (VENDOR_IDS, "meridian/src/rtps/protocol/makers.h", "meridian/src/rtps/protocol/makers.cpp",
                 "meridian/src/types/data/dialect.cpp")
# Files, by their names, that may have such a facility all the same.
EXCEPTIONS = {
    ("listener_link.h", "thread"),  # only ids, to know a call back from its own thread
    ("type_registry.h", "thread"),  # only the id of who locked it
    ("type_registry.h", "mutex"),  # the public interface promises a lock that may be nested; platform's may not
}
FOREIGN_HEADER = re.compile(r"(dds|fastdds|fastrtps|fastcdr|ddscxx|org/eclipse/cyclonedds|OpenDDS|opendds)/.*|cyclonedds/.*")
MAY_INCLUDE_FOREIGN = ("tests/", "demo/", "bench/floors/")


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


def include_error(source, name, target, used):
    """What is wrong with this include, or None. Adds the exceptions that were needed to the used ones."""
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
    if other is not None and other != layer and other not in LAYERS[layer] and target not in FOR_EVERY_LAYER:
        return f"{layer} may not include {other}"
    if layer in PURE and target and target.startswith("meridian/include/"):
        return f"{layer} knows nothing of the public interface"
    if layer in TOUCHES_SYSTEM:
        return None
    exception = (pathlib.PurePosixPath(source).name, name)
    if SYSTEM_FACILITY.fullmatch(name) and exception in EXCEPTIONS:
        used.add(exception)
    elif SYSTEM_HEADER.fullmatch(name) or SYSTEM_FACILITY.fullmatch(name):
        return f"{layer} may not touch the system"
    return None


def vendor_id(root):
    """What finds the vendor id of another maker, by its name or in figures."""
    path = root / VENDOR_IDS
    names = re.findall(r"constexpr VendorId (k\w+)\{\{", path.read_text()) if path.is_file() else []
    return re.compile("|".join([r"\bVendorId\s*\{\{", *(rf"\b{name}\b" for name in names if name != "kOwnVendorId")]))


def check(root):
    """All broken rules as texts, the number of files looked at, and the exceptions that were needed."""
    root = pathlib.Path(root).resolve()
    errors = []
    used = set()
    files = 0
    maker = vendor_id(root)
    for top in ("agent", "srcCxx", "meridian", "demo", "bench", "tests"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix not in SOURCES or not path.is_file():
                continue
            files += 1
            source = path.relative_to(root).as_posix()
            for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
                vague = VAGUE_WORD.search(line)
                if vague:
                    errors.append(f"{source}:{number}: {vague[0]}: name the application, participant or reader that is meant")
                found = INCLUDE.match(line)
                if found:
                    error = include_error(source, found[2], resolve(root, path, found[2]), used)
                    if error:
                        errors.append(f"{source}:{number}: {found[2]}: {error}")
                    continue
                layer = layer_of(source)
                if layer and layer not in TOUCHES_SYSTEM and SYSTEM_CALL.search(line.split("//")[0]):
                    errors.append(f"{source}:{number}: {layer} asks the system for time, files or settings")
                if layer and source not in MAKERS_TABLES and maker.search(line.split("//")[0]):
                    errors.append(f"{source}:{number}: {layer} asks who the maker is, not for a quirk from the table")
    return errors, files, used


def needless(used):
    """Exceptions that no file makes use of, as texts."""
    return [f"check_walls.py: {name}: no exception for {header} is needed any more"
            for name, header in sorted(EXCEPTIONS - used)]


def main():
    errors, files, used = check(sys.argv[1])
    errors += needless(used)
    for error in errors:
        print(error)
    print(f"{len(errors)} broken rules in {files} files")
    return 1 if errors or files == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
