#!/usr/bin/env python3
"""tidy.py BUILD JOBS: clang-tidy over each file that BUILD/compile_commands.json names.

A file that was found clean is not looked at again until something that it is made of differs: what the
preprocessor makes of it, comments included, the rules, or the program. What was found clean stays in
BUILD/clean.
"""

import concurrent.futures
import hashlib
import json
import pathlib
import re
import shlex
import subprocess
import sys

PROGRAM = "clang-tidy-14"


def output_of(command, folder):
    return subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=True).stdout


def preprocessed(entry):
    command = shlex.split(entry["command"])
    place = command.index("-o")
    del command[place : place + 2]
    command[command.index("-c")] = "-E"
    return output_of([*command, "-C"], entry["directory"])


def look_at(entry, build, rules):
    """What clang-tidy says about a file; nothing where it is clean."""
    try:
        content = preprocessed(entry)
    except subprocess.CalledProcessError as error:
        return error.stderr.decode()
    clean = build / "clean" / hashlib.sha256(rules + content).hexdigest()
    if clean.exists():
        return ""
    # On standard error it counts what it left out of the system's headers.
    run = subprocess.run([PROGRAM, "-quiet", "-p", str(build), entry["file"]], capture_output=True, text=True, check=False)
    said = run.stdout.strip()
    if run.returncode != 0 and not said:
        said = run.stderr.strip() or f"{entry['file']}: {PROGRAM} ended with {run.returncode}"
    if not said:
        clean.touch()
    return re.sub(r"\x1b\[[0-9;]*m", "", said)


def main():
    build, jobs = pathlib.Path(sys.argv[1]), int(sys.argv[2])
    (build / "clean").mkdir(exist_ok=True)
    rules = output_of([PROGRAM, "--version"], ".") + output_of([PROGRAM, "--dump-config"], ".")
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    is_clean = True
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for said in pool.map(lambda entry: look_at(entry, build, rules), entries):
            if said:
                is_clean = False
                print(said, file=sys.stderr, flush=True)
    return 0 if is_clean else 1


if __name__ == "__main__":
    sys.exit(main())
