#!/usr/bin/env python3
"""Holds the floors of the house: which folder of zel/ may include which.

base and platform are the ground; engines stand on them and never know the object runtime; front ends
stand on top and never know each other. Public headers include public headers only, and so does the tool.

    check_includes.py [ROOT]    names each fault as file:line, and fails if there is one

tests/scripts/check_includes_test.py holds it to that.
"""

import pathlib
import re
import sys

GROUND = ["base", "platform"]
ENGINE = GROUND + ["syntax"]
FRONT_END = ENGINE + ["runtime"]

# Folder of zel/ -> folders that it may include besides itself. The longest match counts, so that a part
# of a subsystem can have rules of its own.
ALLOWED = {
    "base": [],
    "platform": ["base"],
    "syntax": ["base"],
    "runtime": GROUND,
    "encoder": FRONT_END,
    "decoder/hevc": ENGINE,
    "decoder/frame_parallel": ENGINE + ["decoder/hevc"],
    "decoder/slice_tile": ENGINE + ["decoder/hevc"],
    "decoder/front_end": FRONT_END + ["decoder/frame_parallel", "decoder/slice_tile"],
    "mux/engine": ENGINE,
    # The one bridge between front ends and formats: tracks of ETV data go through the demultiplexer.
    "mux": FRONT_END + ["mux/engine", "mux_formats/demux"],
    "mux_formats": ENGINE,
    "dnxhd": ENGINE,
    "dnxhd/front_end": FRONT_END + ["dnxhd"],
    "aja/driver": ENGINE,
    "aja/card": ENGINE + ["aja/driver"],
    "aja/front_end": FRONT_END + ["aja/driver", "aja/card"],
}

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def within(folder, parent):
    return folder == parent or folder.startswith(parent + "/")


def rule_of(folder):
    matches = [name for name in ALLOWED if within(folder, name)]
    return max(matches, key=len) if matches else None


def public_headers(root):
    text = (root / "cmake/public_headers.cmake").read_text()
    return set(re.findall(r"^\s*(zel/\S+)$", text, re.MULTILINE))


def includes_of(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def faults_of_library_file(root, path, public):
    """Yields the faults of one file below zel/ as (line, text)."""
    name = path.relative_to(root).as_posix()
    folder = path.parent.relative_to(root / "zel").as_posix()
    rule = rule_of(folder)
    if rule is None:
        yield 1, f"zel/{folder} has no rule in scripts/check_includes.py"
        return
    if path.suffix == ".h" and "#pragma once" not in path.read_text():
        yield 1, "a header without #pragma once"
    for line, quote, target in includes_of(path):
        if quote == "<" and not target.startswith("zel/"):
            continue
        if not (root / target).is_file() or not target.startswith("zel/"):
            yield line, f'"{target}" is not named by its full path from the include root'
            continue
        target_folder = target[len("zel/"):].rpartition("/")[0]
        own = within(target_folder, rule) and rule_of(target_folder) == rule
        if not own and not any(within(target_folder, allowed) for allowed in ALLOWED[rule]):
            yield line, f"zel/{rule} may not include zel/{target_folder}"
        if name in public and target not in public:
            yield line, f'a public header includes "{target}", which is not installed'


def faults_of_caller(root, path, public):
    """Yields the faults of a file that must live on the public headers."""
    for line, _, target in includes_of(path):
        if target.startswith("zel/") and target not in public:
            yield line, f'"{target}" is not a public header'


def sources(root, folder):
    return sorted(p for p in (root / folder).rglob("*") if p.suffix in (".h", ".cpp"))


def faults_of_tree(root):
    """Every fault as a line of text, and the number of files examined."""
    public = public_headers(root)
    faults = [f"{name}: listed as public, but not there" for name in sorted(public) if not (root / name).is_file()]
    checks = [(p, faults_of_library_file) for p in sources(root, "zel")]
    checks += [(p, faults_of_caller) for folder in ("tools", "examples") for p in sources(root, folder)]
    for path, check in checks:
        faults += [f"{path.relative_to(root)}:{line}: {text}" for line, text in check(root, path, public)]
    return faults, len(checks)


def main():
    here = pathlib.Path(__file__).resolve().parent.parent
    faults, examined = faults_of_tree(pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else here)
    for fault in faults:
        print(fault, file=sys.stderr)
    if examined == 0:
        print("check_includes: no source files found", file=sys.stderr)
    return 1 if faults or examined == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
