#!/usr/bin/env python3
"""Holds the floors of the house: which folder of zel/ may include which.

base and platform are the ground; engines stand on them and never know the object runtime; front ends
stand on top and never know each other. Public headers include public headers only, and so does the tool.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

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
    "mux": FRONT_END + ["mux_formats/demux"],
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


def public_headers():
    text = (ROOT / "cmake/public_headers.cmake").read_text()
    return set(re.findall(r"^\s*(zel/\S+)$", text, re.MULTILINE))


def includes_of(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def faults_of_library_file(path, public):
    """Yields the faults of one file below zel/ as (line, text)."""
    name = path.relative_to(ROOT).as_posix()
    folder = path.parent.relative_to(ROOT / "zel").as_posix()
    rule = rule_of(folder)
    if rule is None:
        yield 1, f"zel/{folder} has no rule in scripts/check_includes.py"
        return
    if path.suffix == ".h" and "#pragma once" not in path.read_text():
        yield 1, "a header without #pragma once"
    for line, quote, target in includes_of(path):
        if quote == "<":
            continue
        if not (ROOT / target).is_file() or not target.startswith("zel/"):
            yield line, f'"{target}" is not named by its full path from the include root'
            continue
        target_folder = target[len("zel/"):].rpartition("/")[0]
        own = within(target_folder, rule) and rule_of(target_folder) == rule
        if not own and not any(within(target_folder, allowed) for allowed in ALLOWED[rule]):
            yield line, f"zel/{rule} may not include zel/{target_folder}"
        if name in public and target not in public:
            yield line, f'a public header includes "{target}", which is not installed'


def faults_of_caller(path, public):
    """Yields the faults of a file that must live on the public headers."""
    for line, _, target in includes_of(path):
        if target.startswith("zel/") and target not in public:
            yield line, f'"{target}" is not a public header'


def sources(folder):
    return sorted(p for p in (ROOT / folder).rglob("*") if p.suffix in (".h", ".cpp"))


def main():
    public = public_headers()
    faults = [f"{name}: listed as public, but not there" for name in sorted(public) if not (ROOT / name).is_file()]
    checks = [(p, faults_of_library_file) for p in sources("zel")]
    checks += [(p, faults_of_caller) for folder in ("tools", "examples") for p in sources(folder)]
    for path, check in checks:
        faults += [f"{path.relative_to(ROOT)}:{line}: {text}" for line, text in check(path, public)]
    print("\n".join(faults), file=sys.stderr if faults else sys.stdout, end="\n" if faults else "")
    if not checks:
        print("check_includes: no source files found", file=sys.stderr)
        return 1
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
