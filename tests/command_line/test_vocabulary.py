"""zel formats and zel keys."""

import json
import subprocess
import unittest

from zel_command import ZEL, ZelTest


class Formats(ZelTest):
    def test_document_has_everything_in_order(self):
        document = self.done("formats", "--json").json
        self.assertEqual(list(document), ["video", "audio", "table"])
        self.assertEqual([len(document[name]) for name in document], [293, 93, 584])
        self.assertEqual(document["video"][0], {"name": "OneChannel8bit", "code": 0x59383030})
        self.assertEqual(document["video"][-1], {"name": "DRM", "code": 0x64726D20})
        self.assertEqual(document["audio"][0], {"name": "Unknown", "code": 0})
        self.assertEqual(document["table"][0], {"code": 0x64726D69, "parent": 0x64726D20,
                                                "name": "iTunes Protected AVC"})
        self.assertEqual(sum(row["parent"] == 0 for row in document["table"]), 108)
        self.assertEqual(sum(row["name"] is not None for row in document["table"]), 333)

    def test_text_has_the_same_rows(self):
        lines = self.done("formats").out.decode().splitlines()
        self.assertEqual(sum(line.startswith("  ") for line in lines), 293 + 93 + 584)
        self.assertIn("  %00%00%00%20  PackedARGB", lines)

    def test_one_code(self):
        self.assertEqual(self.done("formats", "ai52").out.decode().splitlines(), [
            "code        ai52 (0x61693532)",
            "name        AVC-Intra Class 50, 1080p25/50",
            "equivalent  ai52",
            "category    ai5%20",
            "canonical   h264",
            "video       AVCIntra50_1080p25",
            "audio       -",
        ])

    def test_one_code_as_a_document(self):
        self.assertEqual(self.done("formats", "--json", "AVC1").json, {
            "code": 0x41564331, "text": "AVC1", "name": "AVC", "equivalent": 0x61766331, "category": 0,
            "canonical": 0x61766331, "video": [], "audio": []})

    def test_a_code_with_several_constants(self):
        document = self.done("formats", "--json", "ulaw").json
        self.assertEqual(document["audio"], ["muLaw", "uLaw"])
        self.assertIsNone(document["name"])

    def test_escaped_codes(self):
        self.assertIn(b"PackedRGB\n", self.done("formats", "%00%00%00%18").out)
        self.assertEqual(self.done("formats", "dv%20%20").out, self.done("formats", "dv  ").out)

    def test_codes_that_are_none(self):
        for bad in ("", "dv", "avc12", "%zz12", "\u00e9abc"):
            outcome = self.zel("formats", "--", bad)
            self.assertEqual(outcome.code, 2, bad)
            self.assertIn("it takes four characters", outcome.err)

    def test_unknown_code(self):
        self.fails("formats", "zzzz", message="formats: there is no format with the code zzzz")


class Keys(ZelTest):
    CLASSES = {"SourceProperty": 10, "CodeBookProperty": 117, "ContainerProperty": 68,
               "ContainerReaderProperty": 15, "ContainerWriterProperty": 56, "MediaProperty": 2}

    def test_document_has_every_class(self):
        document = self.done("keys", "--json").json
        self.assertEqual({name: len(keys) for name, keys in document.items()}, self.CLASSES)
        self.assertEqual(next(iter(document["SourceProperty"].items())), ("AjaFifoSize", "aja.fifo.size"))

    def test_pattern_keeps_every_class_in_the_document(self):
        document = self.done("keys", "--json", "TIMECODE").json
        self.assertEqual(set(document), set(self.CLASSES))
        self.assertEqual(document["ContainerProperty"]["TimeCode"], "timecode")
        self.assertEqual(document["MediaProperty"], {})

    def test_pattern_by_text_and_by_shell_pattern(self):
        self.assertEqual(self.done("keys", "aja.*").out, b"SourceProperty:\n  AjaFifoSize  aja.fifo.size\n")
        self.assertEqual(self.done("keys", "ajafifo").out, b"SourceProperty:\n  AjaFifoSize  aja.fifo.size\n")
        self.fails("keys", "fifo*", message='keys: no key matches "fifo*"')

    def test_no_match(self):
        self.fails("keys", "nonsense", message='keys: no key matches "nonsense"')


class Streams(ZelTest):
    def test_a_reader_that_has_seen_enough_is_no_failure(self):
        for arguments in (["formats"], ["formats", "--json"], ["keys"]):
            with subprocess.Popen([ZEL, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
                process.stdout.read(1)
                process.stdout.close()
                self.assertEqual(process.stderr.read(), b"")
                self.assertEqual(process.wait(), 0)

    def test_a_full_disk_is_a_failure(self):
        for arguments in (["formats"], ["keys", "--json"], ["--help"], ["--version"]):
            with open("/dev/full", "wb") as full:
                outcome = self.zel(*arguments, stdout=full)
            self.assertEqual(outcome.code, 1)
            self.assertIn("standard output: No space left on device\n", outcome.err)

    def test_documents_are_utf8_without_surprises(self):
        for arguments in (["formats", "--json"], ["keys", "--json"]):
            out = self.done(*arguments).out
            self.assertTrue(out.endswith(b"}\n"))
            json.loads(out.decode("ascii"))


if __name__ == "__main__":
    unittest.main()
