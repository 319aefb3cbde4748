#!/usr/bin/env python3
"""Shows from the built library that a change of a reference is one atomic instruction.

Reads the disassembly of Acquire and Release, follows every path from the entry to a return that calls
nothing (for Release: the path on which the object lives on), and counts the instructions that lock the
bus on it. Exit code 77, a skip, for builds and machines that this can't be asked of.
"""

import platform
import re
import shutil
import subprocess
import sys

SKIPPED = 77
PREFIX = "_ZNK8Morvalen3Zel25CDependenciesObjectVS2012"
LINE = re.compile(r"^\s*([0-9a-f]+):\t(.+)$")


def disassemble(library, symbol):
    text = subprocess.run(
        ["objdump", "-d", "--no-show-raw-insn", f"--disassemble={symbol}", library],
        check=True, capture_output=True, text=True).stdout
    found = [LINE.match(line) for line in text.splitlines()]
    return [(int(m.group(1), 16), m.group(2).split("#")[0].strip()) for m in found if m]


def is_atomic(instruction):
    # An exchange with memory locks the bus without saying so.
    return instruction.startswith("lock ") or re.match(r"xchg .*\(", instruction) is not None


def atomics_to_return(code):
    """Numbers of atomic instructions on the paths that return without a call."""
    index = {address: i for i, (address, _) in enumerate(code)}
    results = set()

    def follow(i, atomics, seen):
        while i < len(code) and i not in seen:
            seen = seen | {i}
            instruction = code[i][1]
            mnemonic = instruction.split()[0]
            atomics += is_atomic(instruction)
            if mnemonic in ("ret", "retq") or instruction in ("repz ret", "repz retq", "bnd ret"):
                results.add(atomics)
                return
            if mnemonic.startswith("call"):
                return
            if mnemonic.startswith("j"):
                target = re.search(r"\b([0-9a-f]+)\b", instruction[len(mnemonic):])
                known = target and "*" not in instruction and int(target.group(1), 16) in index
                if known:
                    follow(index[int(target.group(1), 16)], atomics, seen)
                if mnemonic.startswith("jmp"):
                    return
            i += 1

    follow(0, 0, frozenset())
    return results


def main():
    library = sys.argv[1]
    if platform.machine() != "x86_64":
        print(f"skipped: the instructions of {platform.machine()} aren't known here")
        return SKIPPED
    if shutil.which("objdump") is None:
        print("skipped: no objdump here")
        return SKIPPED
    failed = False
    for operation in ("7AcquireEv", "7ReleaseEv"):
        code = disassemble(library, PREFIX + operation)
        numbers = atomics_to_return(code)
        print(f"{operation[1:-2]}: atomic instructions by path: {sorted(numbers)}")
        if numbers != {1}:
            failed = True
            for address, instruction in code:
                print(f"  {address:x}: {instruction}")
    return 1 if failed else 0


sys.exit(main())
