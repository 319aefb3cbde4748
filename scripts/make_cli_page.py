#!/usr/bin/env python3
"""Makes docs/cli.md from the --help texts of the zel command.

    make_cli_page.py ZEL           rewrites docs/cli.md
    make_cli_page.py ZEL --check   fails when docs/cli.md is not what would be written
"""

import pathlib
import sys

import help_text

PAGE = pathlib.Path(__file__).resolve().parent.parent / "docs/cli.md"

INTRODUCTION = """# The zel command

This page is made from the `--help` texts: `scripts/make_cli_page.py build/release/tools/zel/zel`.

Results go to standard output, everything else to standard error. On a terminal, longer work shows one line
of progress. An output file is whole or not there: what fails, or is interrupted, removes it. An input is never
overwritten. With `--json` the results are one JSON document on standard output, with the same keys each time.
"""


def cli_page(zel):
    parts = [INTRODUCTION]
    for page in help_text.pages(zel):
        title = " ".join(["zel", *page.name.split()])
        parts.append(f"## {title}\n\n```\n{page.text}```\n")
    return "\n".join(parts)


def main():
    text = cli_page(sys.argv[1])
    if "--check" not in sys.argv[2:]:
        PAGE.write_text(text)
        return 0
    if PAGE.is_file() and PAGE.read_text() == text:
        return 0
    print(f"docs/cli.md is out of date: run scripts/make_cli_page.py {sys.argv[1]}", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
