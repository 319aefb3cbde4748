#!/usr/bin/env python3
"""Makes the manual pages of the zel command from its --help texts.

    make_man.py ZEL FOLDER    writes zel.1, zel-formats.1, zel-hevc-encode.1, ... into FOLDER
"""

import pathlib
import re
import sys

import help_text

EXIT_STATUS = [
    ("0", "The work is done."),
    ("1", "The work failed; one line on standard error says why."),
    ("2", "Wrong usage; standard error says what was wrong and what it should be."),
    ("3", "The work is done, but there were warnings, and --report-warnings asked to be told."),
]


def escaped(text):
    """Text for troff: nothing of it is a request or an escape, and a hyphen stays what it is."""
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("`", "\\(ga")
    return "\\&" + text if text.startswith((".", "\\(aq")) else text


def file_name(name):
    return "-".join(["zel", *name.split()])


def styled_names(names):
    """Option names in bold, what stands for a value in italics."""
    parts = []
    for part in re.split(r"( |, )", names):
        if part in (" ", ", "):
            parts.append(part)
        elif part.startswith("-") or part.islower():
            parts.append(f"\\fB{escaped(part)}\\fR")
        else:
            parts.append(f"\\fI{escaped(part)}\\fR")
    return "".join(parts)


def tagged(rows):
    for row in rows:
        yield ".TP"
        yield styled_names(row.names)
        yield escaped(row.text)


def man_page(page, summary, others, version):
    title = file_name(page.name)
    yield f'.TH {title.upper()} 1 "" "zel {version}" "User Commands"'
    yield ".SH NAME"
    yield f"{escaped(title)} \\- {escaped(summary)}"
    yield ".SH SYNOPSIS"
    command = " ".join(["zel", *page.name.split()])
    yield f".B {escaped(command)}"
    yield escaped(page.usage.removeprefix(command).strip())
    yield ".SH DESCRIPTION"
    for index, paragraph in enumerate(page.description):
        if index:
            yield ".PP"
        yield escaped(paragraph)
    for group in page.groups:
        if group.title != "Exit codes":
            yield f".SH {escaped((group.title or 'Operands and options').upper())}"
            yield from tagged(group.rows)
    yield ".SH EXIT STATUS"
    for code, text in EXIT_STATUS:
        yield ".TP"
        yield code
        yield escaped(text)
    yield ".SH EXAMPLES"
    yield ".nf"
    for example in page.examples:
        yield escaped(example)
    yield ".fi"
    yield ".SH SEE ALSO"
    yield ",\n".join(f".BR {escaped(file_name(name))} (1)" for name in others).replace("(1),", "(1),")


def main():
    zel, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    summaries = {"": "broadcast engines on the command line", **help_text.summaries(zel)}
    version = help_text.version(zel)
    for page in help_text.pages(zel):
        others = [name for name in summaries if name != page.name]
        text = "\n".join(man_page(page, summaries[page.name], others, version)) + "\n"
        (folder / f"{file_name(page.name)}.1").write_text(text)


if __name__ == "__main__":
    main()
