#!/usr/bin/env python3
"""Holds README.md's piece of C++ against the example that it quotes, which the suite builds and runs."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def main():
    quoted = re.findall(r"<!-- From (\S+);.*?-->\n```cpp\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)
    if not quoted:
        print("README.md quotes no example", file=sys.stderr)
        return 1
    stale = [name for name, code in quoted if not code.strip() or code not in (ROOT / name).read_text()]
    for name in stale:
        print(f"README.md has lines that are not, or no longer, in {name}", file=sys.stderr)
    return 1 if stale else 0


if __name__ == "__main__":
    sys.exit(main())
