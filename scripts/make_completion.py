#!/usr/bin/env python3
"""Makes the bash completion of the zel command from its --help texts.

    make_completion.py ZEL FILE
"""

import pathlib
import re
import sys

import help_text

TEMPLATE = """\
# bash completion of zel. Made by scripts/make_completion.py from the --help texts.

_zel() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}}
  local command=${{COMP_WORDS[1]}} first=2 options='' choices=''
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W '{nouns} --help --version' -- "$word")
    return
  fi
  case $command in
{verbs}
  esac
  case $command in
{commands}
  esac
  if [[ -n $choices ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
    return
  fi
  if [[ $word == -* && $word != - ]] && ((COMP_CWORD >= first)); then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    return
  fi
  compopt -o default
}}
complete -F _zel zel
"""


def choices_of(row):
    """The values that an option takes, where its text lists them or its type is a choice."""
    if row.names.endswith("on|off"):
        return ["on", "off"]
    match = re.search(r": ((?:[a-z0-9-]+, )+[a-z0-9-]+)", row.text)
    return match.group(1).split(", ") if match and row.names.endswith(" NAME") else []


def verb_case(noun, verbs):
    return f"""\
    {noun})
      if ((COMP_CWORD == 2)); then
        mapfile -t COMPREPLY < <(compgen -W '{' '.join(verbs)} --help' -- "$word")
        return
      fi
      command+=" ${{COMP_WORDS[2]}}"
      first=3
      ;;"""


def command_case(page):
    options = [row.long_option for row in page.rows if row.long_option]
    lines = [f"    '{page.name}')", f"      options='{' '.join(options)}'"]
    cases = [(row.long_option, choices_of(row)) for row in page.rows if choices_of(row)]
    if cases:
        lines.append("      case $previous in")
        lines += [f"        {option}) choices='{' '.join(choices)}' ;;" for option, choices in cases]
        lines.append("      esac")
    return "\n".join([*lines, "      ;;"])


def completion(zel):
    names = [name.split() for name in help_text.summaries(zel)]
    nouns = list(dict.fromkeys(name[0] for name in names))
    verbs = {noun: [name[1] for name in names if name[0] == noun and len(name) > 1] for noun in nouns}
    pages = help_text.pages(zel)[1:]
    return TEMPLATE.format(
        nouns=" ".join(nouns),
        verbs="\n".join(verb_case(noun, those) for noun, those in verbs.items() if those),
        commands="\n".join(command_case(page) for page in pages))


def main():
    path = pathlib.Path(sys.argv[2])
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(completion(sys.argv[1]))


if __name__ == "__main__":
    main()
