#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0

"""Prints a text stub of a library of macOS, with which the linker links without the library.

The stub lists the functions and constants that the headers declare and the sources use. Nothing of the library
itself is needed.

    text_stub.py INSTALL_NAME --headers FILE... --sources FILE...
"""
import argparse
import pathlib
import re
import sys

COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
IDENTIFIER = re.compile(r"\b[A-Za-z_]\w*")
FUNCTION = re.compile(r"\b([A-Za-z_]\w*)\s*\((?!\s*\*)")  # a type is followed by a pointer in brackets
CONSTANT = re.compile(r"\b(?:extern|CF_EXPORT)\s+const\b[^;(]*?\b(\w+)\s*;")
MACRO = re.compile(r"^[ \t]*#[ \t]*define[ \t]+(\w+)((?:\\\n|[^\n])*)", re.MULTILINE)


def text_of(files):
    return "\n".join(COMMENT.sub(" ", pathlib.Path(file).read_text(errors="replace")) for file in files)


def symbols(headers, sources):
    """Returns the names of what the headers declare and the sources use, by themselves or through a macro."""
    macros = dict(MACRO.findall(headers))
    declarations = MACRO.sub("", headers)
    declared = set(FUNCTION.findall(declarations)) | set(CONSTANT.findall(declarations))
    used = set(IDENTIFIER.findall(sources))
    for name in used & set(macros):
        used |= set(IDENTIFIER.findall(macros[name]))
    return sorted(declared & used)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("install_name")
    parser.add_argument("--headers", nargs="+", required=True)
    parser.add_argument("--sources", nargs="+", required=True)
    arguments = parser.parse_args()

    names = symbols(text_of(arguments.headers), text_of(arguments.sources))
    if not names:
        sys.exit(f"the sources use nothing of {arguments.install_name}")
    targets = "[ x86_64-macos, arm64-macos ]"
    listed = ", ".join("_" + name for name in names)
    print(f"""--- !tapi-tbd
tbd-version: 4
targets: {targets}
install-name: '{arguments.install_name}'
exports:
  - targets: {targets}
    symbols: [ {listed} ]
...""")


if __name__ == "__main__":
    main()
