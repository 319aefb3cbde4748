#!/usr/bin/env python3
"""Doxygen's input filter: lets one comment speak for a group of overloads.

In the headers a comment covers the functions that follow it up to the next blank line, so that ten overloads
need not say the same ten times. Doxygen wants a comment each; this repeats it, on the function's own line, so
that line numbers in warnings stay true.
"""

import re
import sys

DOC = re.compile(r"^\s*///(?!<)\s?(.*)")
FIELD_DOC = re.compile(r"///<|//!<")


def repeated(doc, line):
    indent = line[:len(line) - len(line.lstrip())]
    return f"{indent}/** {' '.join(doc)} */ {line.lstrip()}"


def filtered(lines):
    doc, covered, depth, inside = [], False, 0, False
    for line in lines:
        match = DOC.match(line)
        code = line.split("//")[0].strip()
        if match and not inside:
            if covered:
                doc, covered = [], False
            doc.append(match.group(1))
            yield line
            continue
        if code.startswith(("#", "template <")) and not inside:
            yield line
            continue
        starts = bool(code) and not inside
        if starts and covered and "(" in code and not code.startswith("}") and not FIELD_DOC.search(line):
            line = repeated(doc, line)
        yield line
        if not code and not inside:
            doc, covered = [], False
            continue
        depth += code.count("(") + code.count("{") - code.count(")") - code.count("}")
        if starts and code.endswith("{") and "(" not in code:
            # A class or a namespace opens: what follows is another matter.
            doc, covered, depth = [], False, 0
            continue
        inside = depth > 0 or not code.endswith((";", "}", ":"))
        if depth <= 0:
            depth = 0
        if not inside:
            covered = bool(doc)


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as source:
        text = source.read().split("\n")
    print("\n".join(filtered(text) if sys.argv[1].endswith(".h") else text), end="")
