"""What is made from the help texts and the key table: pages of docs, the manual pages, the completion."""

import subprocess
import unittest

import help_text
import make_cli_page
import make_completion
import make_configuration_page
import make_man
from zel_command import ZEL, ZelTest


class Pages(ZelTest):
    def test_cli_page_is_up_to_date(self):
        self.assertEqual(make_cli_page.PAGE.read_text(), make_cli_page.cli_page(ZEL),
                         f"run scripts/make_cli_page.py {ZEL}")

    def test_configuration_page_and_dictionary_are_up_to_date(self):
        for path, text in ((make_configuration_page.PAGE, make_configuration_page.configuration_page(ZEL)),
                           (make_configuration_page.DICTIONARY, make_configuration_page.dictionary(ZEL))):
            self.assertEqual(path.read_text(), text, f"run scripts/make_configuration_page.py {ZEL}")

    def test_help_is_taken_apart_wholly(self):
        for page in help_text.pages(ZEL):
            words = " ".join([page.usage, *page.description, *(group.title + ":" for group in page.groups if group.title),
                              *(row.names + " " + row.text for row in page.rows), *page.examples]).split()
            printed = page.text.replace("Usage: ", "", 1).replace("\nExamples:\n", "\n").split()
            self.assertEqual(sorted(words), sorted(printed), page.name)

    def test_manual_pages_have_every_option(self):
        subprocess.run([make_man.__file__, ZEL, "man"], cwd=self.folder, check=True)
        for page in help_text.pages(ZEL):
            text = (self.folder / "man" / f"{make_man.file_name(page.name)}.1").read_text()
            for section in ("NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS", "EXAMPLES", "SEE ALSO"):
                self.assertIn(f"\n.SH {section}\n", text)
            for row in page.rows:
                if row.long_option:
                    self.assertIn(f"\\fB{make_man.escaped(row.long_option)}\\fR", text)

    def test_completion_is_sound_bash_and_completes(self):
        subprocess.run([make_completion.__file__, ZEL, "zel.bash"], cwd=self.folder, check=True)
        for words, wanted in ((["zel", "for"], "formats"), (["zel", "hevc", "en"], "encode"),
                              (["zel", "hevc", "encode", "--vbv-i"], "--vbv-init"),
                              (["zel", "hevc", "encode", "--preset", "ultra"], "ultrafast"),
                              (["zel", "hevc", "encode", "--open-gop", "of"], "off"),
                              (["zel", "keys", "--js"], "--json"), (["zel", "--vers"], "--version")):
            script = 'source ./zel.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _zel; echo "${COMPREPLY[*]}"'
            process = subprocess.run(["bash", "-euc", script, "bash", *words], cwd=self.folder, capture_output=True,
                                     text=True)
            self.assertEqual((process.stdout.strip(), process.stderr), (wanted, ""), words)


if __name__ == "__main__":
    unittest.main()
