#!/usr/bin/env python3
"""Makes what is made from the table of configuration keys: docs/configuration.md, and the dictionary by which
configuration texts are fuzzed.

    make_configuration_page.py ZEL           rewrites both
    make_configuration_page.py ZEL --check   fails when one is not what would be written
"""

import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/configuration.md"
DICTIONARY = ROOT / "tests/fuzz/dictionaries/fuzz_tsm_config.dict"

INTRODUCTION = """# Keys of multiplexer configurations

This page is made from the key table: `scripts/make_configuration_page.py build/release/tools/zel/zel`.

A configuration is a text of lines. `Transport*` and `Program1*`, `Program2*`... begin main sections, `Video1$`,
`Audio1$`... the streams behind them; a line `Key = value` sets a value of the section it stands in; `#` begins a
comment. Names of sections and keys may be written in either case. A key that ends in `1...` is numbered: `Descriptor1`,
`Descriptor2` and so on without a gap. `zel config check FILE` tells every fault in a configuration, `zel config print
FILE` what was understood.

| Kind | What stands behind `=` |
|---|---|
| yes/no | `Yes` or `No` |
| choice | one of the words listed |
| integer | a number: decimal, hexadecimal with `0x`, octal with a leading 0 |
| long | a number, decimal only |
| time | `[-]hh:mm:ss:ff`; `;` or `.` before the frames says drop frame |
| time offset | `[-]hh:mm:ss.ss` |
| bytes | pairs of hexadecimal digits, over as many lines as it takes |

"""


def sections(zel):
    return json.loads(subprocess.run([zel, "config", "keys", "--json"], check=True, capture_output=True).stdout)


def configuration_page(zel):
    parts = []
    for name, keys in sections(zel).items():
        rows = [f"## {name}\n\n| Key | Kind | Default |\n|---|---|---|\n"]
        for key, of in keys.items():
            kind = of["type"] + (": " + ", ".join(of["choices"]) if "choices" in of else "")
            rows.append(f"| `{key}` | {kind} | {of['default']} |\n")
        parts.append("".join(rows))
    return INTRODUCTION + "\n".join(parts)


def quoted(text):
    return '"' + "".join(each if 32 <= ord(each) < 127 and each not in '"\\' else f"\\x{ord(each):02X}" for each in text) + '"'


def dictionary(zel):
    words = {"=", "#", "\n", "Yes", "No", "0x", "%i", "01:00:00:00", "-00:00:01.5"}
    for name, keys in sections(zel).items():
        words.add(f"\n{name}*\n" if name == "Transport" else f"\n{name}1*\n" if name == "Program" else f"\n{name}1$\n")
        for key, of in keys.items():
            words.add(f"{key} = ")
            words.update(of.get("choices", []))
    return "".join(quoted(word) + "\n" for word in sorted(words))


def main():
    stale = False
    for path, text in ((PAGE, configuration_page(sys.argv[1])), (DICTIONARY, dictionary(sys.argv[1]))):
        if "--check" not in sys.argv[2:]:
            path.parent.mkdir(exist_ok=True)
            path.write_text(text)
        elif not path.is_file() or path.read_text() != text:
            stale = True
            print(f"{path.relative_to(ROOT)} is out of date: run scripts/make_configuration_page.py {sys.argv[1]}",
                  file=sys.stderr)
    return 1 if stale else 0


if __name__ == "__main__":
    sys.exit(main())
