"""zel testsrc: what it makes, where it goes, what it refuses."""

import struct
import unittest

from zel_command import ZelTest

SMALL = ["--size", "64x48", "--rate", "25"]


class Pictures(ZelTest):
    def header(self, *options):
        stream = self.done("testsrc", "-o", "-", "--frames", "1", *options).out
        return stream.split(b"\n", 1)[0].decode()

    def test_header_says_what_was_asked_for(self):
        self.assertEqual(self.header(),
                         "YUV4MPEG2 W1280 H720 F30000:1001 Ip A1:1 C420mpeg2 XYSCSS=420MPEG2 XCOLORRANGE=LIMITED")
        self.assertEqual(self.header(*SMALL, "--chroma", "422", "--depth", "10", "--interlaced", "tff"),
                         "YUV4MPEG2 W64 H48 F25:1 It A1:1 C422p10 XYSCSS=422P10 XCOLORRANGE=LIMITED")
        self.assertEqual(self.header(*SMALL, "--chroma", "444", "--interlaced", "bff", "--pattern", "noise"),
                         "YUV4MPEG2 W64 H48 F25:1 Ib A1:1 C444 XYSCSS=444 XCOLORRANGE=FULL")

    def test_length_in_frames_and_seconds(self):
        size = 64 * 48 * 3 // 2 + len("FRAME\n")
        for options, frames in ((["--frames", "3"], 3), (["--seconds", "2"], 50), (["--seconds", "0.1"], 3),
                                (["--seconds", "0.12"], 3), (["--seconds", "0"], 1), ([], 250),
                                (["--seconds", "10", "--rate", "29.97"], 300)):
            stream = self.done("testsrc", "-o", "-", "--pattern", "noise", *SMALL, *options).out
            self.assertEqual(len(stream.split(b"\n", 1)[1]), frames * size, options)

    def test_same_options_same_bytes_and_the_seed_counts(self):
        made = [self.done("testsrc", "-o", "-", "--frames", "2", *SMALL, *options).out
                for options in ([], [], ["--seed", "1"], ["--seed", "2"], ["--no-mark"])]
        self.assertEqual(made[0], made[1])
        self.assertEqual(made[0], made[2])
        self.assertNotEqual(made[0], made[3])
        self.assertNotEqual(made[0], made[4])

    def test_feeds_the_encoder(self):
        self.done("testsrc", "-o", "in.y4m", "--frames", "5", "--size", "128x96", "--rate", "25")
        outcome = self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", "--preset", "ultrafast", "--json")
        self.assertEqual(outcome.json["frames"], 5)


class Sound(ZelTest):
    def test_file_and_pipe_are_the_same_and_sizes_right(self):
        self.done("testsrc", "--audio", "a.wav", "--seconds", "1", "--rate", "25", "--channels", "3")
        file = self.get("a.wav")
        pipe = self.done("testsrc", "--audio", "-", "--seconds", "1", "--rate", "25", "--channels", "3").out
        self.assertEqual(file, pipe)
        self.assertEqual(struct.unpack("<I", file[4:8])[0], len(file) - 8)
        self.assertEqual(struct.unpack("<I", file[64:68])[0], 48000 * 3 * 3)

    def test_options(self):
        file = self.done("testsrc", "--audio", "-", "--frames", "25", "--rate", "25", "--channels", "1", "--audio-bits",
                         "16", "--audio-rate", "44100", "--tone-level", "-18").out
        code, channels, rate = struct.unpack("<HHI", file[20:28])
        self.assertEqual((channels, rate), (1, 44100))
        # The loudest sample of a tenth of a second of tone, 18 dB below full scale.
        offset = len(file) - 44100 * 2
        samples = struct.unpack("<44100h", file[offset:])
        self.assertAlmostEqual(max(samples[4410:8820]), 32767 * 10 ** (-18 / 20), delta=20)

    def test_both_at_once(self):
        outcome = self.done("testsrc", "-o", "v.y4m", "--audio", "a.wav", "--frames", "30", "--size", "64x48", "--json")
        self.assertEqual(outcome.json["frames"], 30)
        self.assertEqual(outcome.json["pictures"]["bytes"], len(self.get("v.y4m")))
        self.assertEqual(outcome.json["sound"]["bytes"], len(self.get("a.wav")))
        self.assertEqual(outcome.json["sound"]["samples"], 48048)
        self.assertAlmostEqual(outcome.json["seconds"], 1.001)


class Refusals(ZelTest):
    def wrong(self, message, *options):
        self.misused("testsrc", *options, message="testsrc: " + message)
        self.assertEqual(self.files(), [])

    def test_wrong_usage_makes_no_file(self):
        self.wrong("nothing to make: --output FILE takes pictures, --audio FILE sound")
        self.wrong("--frames and --seconds both say how long; give one of them",
                   "-o", "v.y4m", "--frames", "1", "--seconds", "1")
        self.wrong("only one of --output -, --audio - and --json can have standard output",
                   "-o", "-", "--audio", "-")
        self.wrong("only one of --output -, --audio - and --json can have standard output", "-o", "-", "--json")
        self.wrong("size 31x720 is not within 32x32 to 8192x8192", "-o", "v.y4m", "--size", "31x720")
        self.wrong('--pattern is "snow"; it takes one of bars, zone, motion, noise, text',
                   "-o", "v.y4m", "--pattern", "snow")
        self.wrong('--interlaced is "progressive"; it takes one of tff, bff', "-o", "v.y4m", "--interlaced", "progressive")
        self.wrong('--channels is "17"; it takes a whole number from 1 to 16', "--audio", "a.wav", "--channels", "17")
        self.wrong("frame rate 2000 is not within 1 to 1000", "-o", "v.y4m", "--rate", "2000")

    def test_one_file_for_both_is_refused(self):
        self.misused("testsrc", "-o", "x", "--audio", "x",
                     message="testsrc: x is the --output file itself, which it would overwrite; name another file")
        self.assertEqual(self.files(), [])

    def test_a_full_disk_is_told(self):
        self.fails("testsrc", "-o", "/dev/full", "--frames", "3",
                   message="testsrc: /dev/full: No space left on device")


if __name__ == "__main__":
    unittest.main()
