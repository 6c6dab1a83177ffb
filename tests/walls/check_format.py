#!/usr/bin/env python3
"""Holds the format of .clang-format in all C++ files.

    check_format.py ROOT

prints what clang-format would change and ends with status 1 when there is anything. Other versions of clang-format than
the one that .clang-format was made for differ in details: without that one the status is 77, which ctest takes as skipped.
"""

import pathlib
import re
import shutil
import subprocess
import sys

VERSION = "14"
SKIPPED = 77
FOLDERS = ("agent", "srcCxx", "meridian", "demo", "bench", "tests")


def find_tool():
    """The program of that version, or None."""
    for name in (f"clang-format-{VERSION}", "clang-format"):
        path = shutil.which(name)
        if path:
            told = subprocess.run([path, "--version"], stdout=subprocess.PIPE, text=True, check=True).stdout
            if re.search(rf"version {VERSION}\.", told):
                return path
    return None


def check(root, tool):
    """What the tool says of all files, empty when they are well, and the number of files."""
    files = [str(path) for folder in FOLDERS for path in sorted(pathlib.Path(root, folder).rglob("*"))
             if path.suffix in (".h", ".cpp")]
    told = subprocess.run([tool, "--dry-run", "-Werror", *files], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)
    return told.stdout or ("" if told.returncode == 0 else f"{tool} ended with status {told.returncode}\n"), len(files)


def main():
    tool = find_tool()
    if tool is None:
        print(f"clang-format {VERSION} is not installed: the format is not checked")
        return SKIPPED
    told, files = check(sys.argv[1], tool)
    print(told + f"{files} files")
    return 1 if told or files == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
