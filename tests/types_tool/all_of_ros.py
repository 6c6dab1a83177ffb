#!/usr/bin/env python3
"""For a developer's machine: a document of real ROS 2 packages, which ferret must accept and which must be complete.

    all_of_ros.py --tool FERRET FOLDER...

The folders hold packages as they are installed, or source trees. They are not part of this project.
"""

import argparse
import pathlib
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

import run

SUFFIXES = {"msg": [""], "srv": ["_Request", "_Response"],
            "action": ["_Goal", "_Result", "_Feedback", "_SendGoal_Request", "_SendGoal_Response", "_GetResult_Request",
                       "_GetResult_Response", "_FeedbackMessage"]}


def names_in(document):
    """Qualified names of all structures of a document."""
    found = set()

    def walk(element, scope):
        for child in element:
            if child.tag == "module":
                walk(child, f"{scope}{child.get('name')}::")
            elif child.tag == "struct":
                found.add(scope + child.get("name"))

    walk(ElementTree.fromstring(document).find("types"), "")
    return found


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("folders", nargs="+")
    options = parser.parse_args()
    run.tool = pathlib.Path(options.tool).resolve()

    result = run.run_types(".", *options.folders)
    if result.returncode != 0:
        sys.exit(result.stderr)
    with tempfile.TemporaryDirectory() as folder:
        document = pathlib.Path(folder, "all.xml")
        document.write_text(result.stdout, encoding="utf-8")
        complaint = run.complaint_of_ferret(document)
        if complaint:
            sys.exit(f"not accepted: {complaint}")

    names = names_in(result.stdout)
    interfaces = [path for folder in options.folders for kind in SUFFIXES
                  for path in pathlib.Path(folder).rglob(f"{kind}/*.{kind}")]
    missing = [path for path in interfaces for suffix in SUFFIXES[path.suffix[1:]]
               if not any(name.endswith(f"::{path.suffix[1:]}::dds_::{path.stem}{suffix}_") for name in names)]
    print(f"{len(interfaces)} interfaces, {len(names)} structures, {len(result.stdout)} bytes")
    for path in missing:
        print(f"not in the document: {path}")
    sys.exit(1 if missing or not interfaces else 0)


if __name__ == "__main__":
    main()
