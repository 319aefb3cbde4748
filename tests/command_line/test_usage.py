"""Finding a subcommand, help, version, and every kind of wrong usage."""

import re
import unittest

from zel_command import ZelTest


class Usage(ZelTest):
    def test_version_is_one_line_on_standard_output(self):
        outcome = self.done("--version")
        self.assertRegex(outcome.out, rb"^zel \d+\.\d+\.\d+\n$")
        self.assertEqual(outcome.err, "")

    def test_nothing_at_all(self):
        outcome = self.zel()
        self.assertEqual(outcome.code, 2)
        self.assertRegex(outcome.err, r"^zel: a subcommand is missing: one of config, dnxhd, formats, keys, .*\nTry 'zel --help'\.\n$")

    def test_unknown_subcommand_gets_a_hint(self):
        self.misused("format", message='there is no subcommand "format"; did you mean "formats"?')
        self.misused("hevc", "encoed", message='hevc: there is no verb "encoed"; did you mean "encode"?')

    def test_unknown_option_gets_a_hint(self):
        self.misused("hevc", "encode", "a.y4m", "-o", "b", "--bit-rate", "5M",
                     message='hevc encode: there is no option --bit-rate; did you mean "--bitrate"?')

    def test_unknown_option_on_its_own(self):
        self.misused("keys", "--nonsense", message="keys: there is no option --nonsense")

    def test_option_without_its_value(self):
        self.misused("hevc", "encode", "a.y4m", "-o", message="hevc encode: --output needs a value: --output FILE")

    def test_operands_missing_and_to_spare(self):
        outcome = self.zel("hevc", "encode", "-o", "b")
        self.assertEqual(outcome.code, 2)
        self.assertTrue(outcome.err.startswith("zel: hevc encode: INPUT is missing: "), outcome.err)
        self.misused("keys", "a", "b", message='keys: there is one operand too many: "b"')

    def test_wrong_usage_leaves_no_files(self):
        self.zel("hevc", "encode", "nothing.y4m", "-o", "out.hevc", "--crf", "abc")
        self.assertEqual(self.files(), [])

    def test_help_is_on_standard_output_within_80_columns(self):
        for arguments in ([], ["formats"], ["keys"], ["hevc"], ["hevc", "encode"]):
            for flag in ("--help", "-h"):
                outcome = self.done(*arguments, flag)
                self.assertEqual(outcome.err, "")
                text, _, examples = outcome.out.decode().partition("\nExamples:\n")
                self.assertTrue(text.startswith(" ".join(["Usage: zel", *arguments])), text)
                self.assertTrue(examples.strip(), arguments)
                for line in text.splitlines():
                    self.assertLessEqual(len(line), 80, line)

    def test_help_of_the_tool_names_every_subcommand(self):
        text = self.done("--help").out.decode()
        for name in ("formats", "keys", "hevc encode"):
            self.assertTrue(re.search(rf"^  {name}  ", text, re.MULTILINE), name)

    def test_help_wins_over_what_is_missing(self):
        self.assertIn(b"Usage: zel hevc encode", self.done("hevc", "encode", "--help").out)


if __name__ == "__main__":
    unittest.main()
