#!/usr/bin/env python3
"""Compares what the shared library exports with the committed list, or rewrites the list.

    exported_symbols.py LIBRARY            fails and shows the difference when there is one
    exported_symbols.py LIBRARY --update   rewrites tests/exported_symbols.txt

The list has demangled names, each once: to be read by people, and the same for g++ and clang, which make
different sets of constructor and destructor variants under one name. For the same reason it leaves out what
a compiler makes unasked of templates and virtual bases: tables and type information.
"""

import difflib
import pathlib
import re
import subprocess
import sys

LIST = pathlib.Path(__file__).resolve().parent.parent / "tests/exported_symbols.txt"


COMPILER_MADE = re.compile(
    r"VTT for |construction vtable for |(non-)?virtual thunk to |(typeinfo|typeinfo name|vtable) for [^<]*<")


def exported(library):
    output = subprocess.run(
        ["nm", "--dynamic", "--defined-only", "--demangle", "--format=posix", library],
        check=True, capture_output=True, text=True).stdout
    # A line is: name, type, value, size. Names hold blanks; the other three do not.
    names = {line.rsplit(" ", 3)[0] for line in output.splitlines()}
    return sorted(name for name in names if not COMPILER_MADE.match(name))


def main(arguments):
    library, update = arguments[0], "--update" in arguments[1:]
    symbols = exported(library)
    if not symbols:
        print(f"{library} exports nothing", file=sys.stderr)
        return 1
    if update:
        LIST.write_text("\n".join(symbols) + "\n")
        print(f"{len(symbols)} symbols in {LIST.name}")
        return 0
    listed = LIST.read_text().splitlines()
    if symbols == listed:
        print(f"{len(symbols)} symbols, as listed")
        return 0
    difference = difflib.unified_diff(listed, symbols, LIST.name, library, n=0, lineterm="")
    print("\n".join(difference), file=sys.stderr)
    print(f"If this is meant: scripts/exported_symbols.py {library} --update", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
