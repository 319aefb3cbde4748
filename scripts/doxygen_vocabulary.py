#!/usr/bin/env python3
"""Shows Doxygen what the vocabulary's headers hold: its filter for them (FILTER_PATTERNS).

The classes there get their members from lists in .def files, which Doxygen's preprocessor leaves out. This
prints the header with each such list in the place of its #include, a member a line, documented by its value.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

INCLUDE = re.compile(r'#include "(zel/runtime/vocabulary/\w+\.def)"')
DEFINE = re.compile(r"#define (ZEL_\w+)\((\w+), (\w+)\) (.+)")
ENTRY = re.compile(r'(ZEL_\w+)\((\w+), *(".*"|\w+)\)')


def members(path, macros):
    for line in (ROOT / path).read_text().splitlines():
        entry = ENTRY.fullmatch(line)
        if entry:
            macro, constant, value = entry.groups()
            name, argument, body = macros[macro]
            body = re.sub(rf"\b{name}\b", constant, body)
            body = re.sub(rf"\b{argument}\b", lambda _: value, body)
            yield f"  {body}  ///< {value}"


def main(header):
    macros = {}
    for line in pathlib.Path(header).read_text().splitlines():
        define = DEFINE.fullmatch(line)
        if define:
            macros[define[1]] = define.groups()[1:]
        include = INCLUDE.fullmatch(line)
        if include:
            listed = list(members(include[1], macros))
            if not listed:
                sys.exit(f"{header}: no entries found in {include[1]}")
            print("\n".join(listed))
        else:
            print(line)


if __name__ == "__main__":
    main(sys.argv[1])
