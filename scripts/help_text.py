"""Reads what the zel command says about itself: the --help texts, taken apart.

Manual pages, docs/cli.md and the completion are made from this, and the tests run its examples.
"""

import dataclasses
import re
import subprocess


@dataclasses.dataclass
class Row:
    names: str  # "-o, --output FILE", "INPUT", "hevc encode"
    text: str

    @property
    def long_option(self):
        match = re.search(r"--[a-z0-9-]+", self.names)
        return match.group(0) if match else None

    @property
    def takes_value(self):
        return self.long_option is not None and not self.names.endswith(self.long_option)


@dataclasses.dataclass
class Group:
    title: str  # empty for operands and plain options
    rows: list


@dataclasses.dataclass
class Page:
    name: str  # "", "formats", "hevc encode"
    usage: str  # without "Usage: "
    description: list  # paragraphs
    groups: list
    examples: list
    text: str  # as printed

    def group(self, title):
        return next((group for group in self.groups if group.title == title), None)

    @property
    def rows(self):
        return [row for group in self.groups for row in group.rows]



def parse_rows(lines):
    """Rows of names and text in two columns; lines that are indented further go on with the text."""
    rows = []
    for line in lines:
        indent = len(line) - len(line.lstrip())
        starts = indent == 2 or line.startswith("      --")
        if not starts:
            rows[-1].text = (rows[-1].text + " " + line.strip()).strip()
            continue
        names, _, text = line.strip().partition("  ")
        rows.append(Row(names, text.strip()))
    return rows


def parse(name, text):
    head, _, examples = text.partition("\nExamples:\n")
    blocks = head.split("\n\n")
    usage, _, description = blocks[0].partition("\n")
    paragraphs = [description] if description else []
    groups = []
    for block in blocks[1:]:
        lines = block.strip("\n").splitlines()
        if lines[0].startswith("  "):
            groups.append(Group("", parse_rows(lines)))
        elif len(lines) > 1 and lines[0].endswith(":") and lines[1].startswith("  "):
            groups.append(Group(lines[0].rstrip(":"), parse_rows(lines[1:])))
        else:
            paragraphs.append(block)
    return Page(name, usage.removeprefix("Usage: "), [" ".join(p.split()) for p in paragraphs], groups,
                [line.strip() for line in examples.splitlines() if line.strip()], text)


def page(zel, name):
    text = subprocess.run([zel, *name.split(), "--help"], check=True, capture_output=True, text=True).stdout
    return parse(name, text)


def summaries(zel):
    """Of every subcommand, by name, in the order of the tool's own --help."""
    return {row.names: row.text for row in page(zel, "").group("Subcommands").rows}


def pages(zel):
    """The tool's page, and one a subcommand."""
    return [page(zel, name) for name in ["", *summaries(zel)]]


def version(zel):
    return subprocess.run([zel, "--version"], check=True, capture_output=True, text=True).stdout.split()[1]
