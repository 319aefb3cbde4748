"""zel hevc encode: inputs, options, outputs."""

import csv
import io
import re
import unittest

from zel_command import HEIGHT, WIDTH, ZelTest, picture, raw, y4m

# Presets beyond this take time and test nothing of the tool.
FAST = ["--preset", "ultrafast"]


def x265_options(stream):
    """What x265 was told, by the information message (user data SEI) that it puts into the headers."""
    # Emulation prevention (ITU-T H.265, 7.4.2) can't occur in text.
    match = re.search(rb"options: ([ -~]+)", stream)
    return set(match.group(1).decode().split(" "))


class EncodeTest(ZelTest):
    def encode(self, *options, frames=4, stream=None):
        self.put("in.y4m", stream if stream is not None else y4m(frames))
        return self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", *FAST, *options)

    def refused(self, message, *options, stream=None, code=1):
        self.put("in.y4m", stream if stream is not None else y4m(2))
        self.fails("hevc", "encode", "in.y4m", "-o", "out.hevc", *options, code=code,
                   message="hevc encode: " + message)
        self.assertFalse(self.has("out.hevc"))

    def wrong(self, message, *options):
        self.refused(message, *options, code=2)


class Inputs(EncodeTest):
    def test_y4m_and_raw_give_the_same_stream(self):
        self.encode(frames=5)
        self.put("in.yuv", raw(5))
        self.done("hevc", "encode", "in.yuv", "--size", f"{WIDTH}x{HEIGHT}", "--rate", "25", "-o", "raw.hevc",
                  *FAST)
        self.assertEqual(self.get("raw.hevc"), self.get("out.hevc"))

    def test_standard_input_gives_the_same_stream(self):
        self.encode(frames=5)
        for name, stream, options in (("a.hevc", y4m(5), []),
                                      ("b.hevc", raw(5), ["--size", f"{WIDTH}x{HEIGHT}", "--rate", "25/1"])):
            self.done("hevc", "encode", "-", "-o", name, *FAST, *options, stdin=stream)
            self.assertEqual(self.get(name), self.get("out.hevc"))

    def test_every_spelling_of_420(self):
        for chroma in ("C420", "C420jpeg", "C420mpeg2", "C420paldv"):
            self.encode(frames=1, stream=y4m(1, "F25:1 " + chroma))

    def test_other_sampling_is_refused_by_name(self):
        for chroma, name in (("422", "4:2:2 8-bit"), ("444", "4:4:4 8-bit"), ("420p10", "4:2:0 10-bit"),
                             ("mono", "luma only, 8-bit"), ("411", "4:1:1 8-bit")):
            self.refused(f"in.y4m is {name} (C{chroma}); the encoder takes 4:2:0 8-bit",
                         stream=y4m(1, "F25:1 C" + chroma))

    def test_odd_sizes_are_refused(self):
        self.refused("in.y4m is 95x64; the encoder takes even widths and heights only",
                     stream=b"YUV4MPEG2 W95 H64 F25:1\n")

    def test_nothing_to_encode(self):
        self.refused("in.y4m is empty", stream=b"")
        self.refused("in.y4m has no frames", stream=y4m(0))
        self.fails("hevc", "encode", "-", "-o", "out.hevc", message="hevc encode: standard input is empty")
        self.fails("hevc", "encode", "-", "--size", "16x16", "--rate", "25", "-o", "out.hevc",
                   message="hevc encode: standard input is empty")
        self.fails("hevc", "encode", "none.y4m", "-o", "out.hevc",
                   message="hevc encode: none.y4m: cannot open: No such file or directory")
        self.fails("hevc", "encode", ".", "-o", "out.hevc", message="hevc encode: .: cannot read: Is a directory")

    def test_garbage_headers(self):
        for header in (b"RIFF", b"YUV4MPEG", b"YUV4MPEG2\n", b"YUV4MPEG2 W0 H0 F25:1\n", b"YUV4MPEG2 W96 F25:1\n",
                       b"YUV4MPEG2 W96 H-64 F25:1\n", b"YUV4MPEG2 W96 H64 F25\n", b"YUV4MPEG2 W96 H64 C999 F25:1\n",
                       b"YUV4MPEG2 W99999999999 H64\n", b"YUV4MPEG2 W96 H64 " + b"X" * 9999, b"\n", b"\0" * 64):
            self.put("in.y4m", header)
            outcome = self.zel("hevc", "encode", "in.y4m", "-o", "out.hevc")
            self.assertEqual(outcome.code, 1, header)
            self.assertEqual(len(outcome.error_lines), 1, outcome.err)
            self.assertRegex(outcome.err, r"^zel: hevc encode: in\.y4m: [ -~]+\n$")
            self.assertFalse(self.has("out.hevc"))

    def test_garbage_between_frames_removes_the_output(self):
        self.refused('in.y4m: header of frame 2 should begin with FRAME; found "J"',
                     stream=y4m(2) + b"JUNK" * 4000)

    def test_a_cut_last_frame_is_a_warning(self):
        self.put("in.y4m", y4m(4)[:-100])
        arguments = ["hevc", "encode", "in.y4m", "-o", "out.hevc", *FAST, "--quiet"]
        outcome = self.done(*arguments)
        warning = "in.y4m ends in the midst of frame 4; the 3 before it are encoded"
        self.assertEqual(outcome.err, f"zel: hevc encode: warning: {warning}\n")
        outcome = self.zel(*arguments, "--report-warnings", "--json")
        self.assertEqual(outcome.code, 3)
        self.assertEqual(outcome.json["frames"], 3)
        self.assertEqual(outcome.json["warnings"], [warning])
        self.assertTrue(self.has("out.hevc"))

    def test_a_cut_first_frame_is_a_failure(self):
        self.refused("in.y4m ends in the midst of its first frame, which takes 9216 bytes", stream=y4m(1)[:-1])

    def test_interlaced_pictures_are_warned_of(self):
        for field, name in (("t", "interlaced, top field first"), ("b", "interlaced, bottom field first"),
                            ("m", "partly interlaced")):
            outcome = self.encode("--quiet", frames=1, stream=y4m(1, f"F25:1 I{field}"))
            self.assertEqual(outcome.err, f"zel: hevc encode: warning: in.y4m is {name}; "
                                          "its pictures are encoded as progressive frames\n")
        self.assertEqual(self.encode("--quiet", stream=y4m(1, "F25:1 Ip")).err, "")

    def test_the_header_tells_the_stream_what_it_knows(self):
        self.encode(stream=y4m(1, "F30000:1001 A128:117 C420paldv XCOLORRANGE=FULL"))
        options = x265_options(self.get("out.hevc"))
        self.assertLessEqual({"fps=30000/1001", "chromaloc-top=2", "range=1", "sar-height=128:117"}, options)
        self.encode(stream=y4m(1, "F25:1 A0:0 C420jpeg"))
        self.assertLessEqual({"fps=25/1", "chromaloc=0", "sar=0"}, x265_options(self.get("out.hevc")))

    def test_no_frame_rate(self):
        self.refused("in.y4m doesn't tell its frame rate; give it by --rate", stream=y4m(1, "F0:0"))
        self.encode("--rate", "24000/1001", stream=y4m(1, "F0:0"))
        self.assertIn("fps=24000/1001", x265_options(self.get("out.hevc")))

    def test_rate_overrides_the_header(self):
        self.encode("--rate", "50", frames=1)
        self.assertIn("fps=50/1", x265_options(self.get("out.hevc")))

    def test_size_and_its_companions(self):
        self.wrong("--size needs --rate too: raw pictures don't say how many make a second", "--size", "96x64")
        self.wrong("in.y4m is a Y4M stream, which tells its size itself; leave out --size", "--size", "96x64",
                   "--rate", "25")
        self.wrong('--size is "96"; it takes a width and a height, such as 1920x1080', "--size", "96")
        self.wrong('--rate is "fast"; it takes frames a second, such as 25, 30000/1001 or 29.97', "--rate", "fast")


class Options(EncodeTest):
    # An option, and what x265 then says that it was told.
    TOLD = {
        "--preset": (["superfast"], {"subme=1"}),
        "--tune": (["fastdecode"], {"no-sao"}),
        "--profile": (["main"], {"bitdepth=8"}),
        "--level": (["5.1"], {"level-idc=51"}),
        "--aq-strength": (["0.7", "--preset", "fast"], {"aq-strength=0.70"}),
        "--ipratio": (["1.2"], {"ipratio=1.20"}),
        "--keyint": (["7"], {"keyint=7"}),
        "--open-gop": (["off"], {"no-open-gop"}),
        "--scenecut": (["17"], {"scenecut=17"}),
        "--bframes": (["2"], {"bframes=2"}),
        "--b-adapt": (["trellis"], {"b-adapt=2"}),
        "--b-pyramid": (["off"], {"no-b-pyramid"}),
        "--ref": (["2"], {"ref=2"}),
        "--lookahead": (["9"], {"rc-lookahead=9"}),
        "--videoformat": (["pal"], {"videoformat=1"}),
        "--colorprim": (["bt709"], {"colorprim=1"}),
        "--transfer": (["hlg"], {"transfer=18"}),
        "--colormatrix": (["bt2020nc"], {"colormatrix=9"}),
        "--rate-control": (["abr", "--bitrate", "300k"], {"rc=abr", "bitrate=300"}),
        "--bitrate": (["300k"], {"rc=abr", "bitrate=300"}),
        "--qp": (["33"], {"rc=cqp", "qp=33"}),
        "--crf": (["19.5"], {"rc=crf", "crf=19.5"}),
        "--vbv-maxrate": (["500k", "--vbv-bufsize", "400k"], {"vbv-maxrate=500"}),
        "--vbv-bufsize": (["400k", "--vbv-maxrate", "500k"], {"vbv-bufsize=400"}),
        "--vbv-init": (["50", "--vbv-maxrate", "500k", "--vbv-bufsize", "400k"], {"vbv-init=0.5"}),
        "--buffer-delay": (["0.5", "--rate-control", "cbr", "--bitrate", "300k"],
                           {"vbv-maxrate=300", "vbv-bufsize=150", "vbv-init=0.9"}),
        "--hrd": (["--rate-control", "cbr", "--bitrate", "300k"], {"hrd"}),
        "--threads": (["2"], {"frame-threads=2"}),
        "--property": (["X265KeyFrameInt=9", "--property", "x265_compressor.num_b_frames=1"],
                       {"keyint=9", "bframes=1"}),
        "--command-line": (["--no-sao --psy-rd 1.5"], {"no-sao", "psy-rd=1.50"}),
    }
    # Options that tests of other classes have.
    ELSEWHERE = {"--output", "--size", "--rate", "--frames", "--timing", "--json", "--quiet", "--report-warnings",
                 "--help"}

    def test_every_option_is_tested(self):
        text = self.done("hevc", "encode", "--help").out.decode()
        options = set(re.findall(r"^  .{4}(--[a-z-]+)", text, re.MULTILINE))
        self.assertEqual(options, set(self.TOLD) | self.ELSEWHERE)

    def test_every_option_reaches_the_encoder(self):
        self.put("in.y4m", y4m(2))
        for option, (values, told) in self.TOLD.items():
            with self.subTest(option=option):
                preset = [] if option == "--preset" else FAST
                self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", *preset, option, *values)
                options = x265_options(self.get("out.hevc"))
                self.assertLessEqual(told, options)

    def test_a_decoder_buffer_has_rows_coded_in_turn(self):
        # Side by side, the bytes would depend on timing. The picture has rows enough for x265 to want it.
        self.put("in.y4m", y4m(2, width=128, height=256))
        cbr = ["--rate-control", "cbr", "--bitrate", "300k"]
        for options, in_turn in (([], False),
                                 (cbr, True),
                                 (["--vbv-maxrate", "500k", "--vbv-bufsize", "400k"], True),
                                 (["--property", "X265VBVBufferSize=400", "--property", "X265VBVMaxRate=500"], True),
                                 (["--command-line", "--vbv-bufsize 400 --vbv-maxrate 500"], True),
                                 ([*cbr, "--command-line", "--wpp"], False)):
            with self.subTest(options=options):
                self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", *FAST, *options)
                self.assertEqual("no-wpp" in x265_options(self.get("out.hevc")), in_turn)

    def test_what_no_option_says_stays_with_the_preset(self):
        self.put("in.y4m", y4m(2))
        self.done("hevc", "encode", "in.y4m", "-o", "out.hevc")
        self.assertLessEqual({"frame-threads=3", "subme=2", "rd=3", "rc=crf", "crf=28.0"},
                             x265_options(self.get("out.hevc")))

    def test_values_out_of_range(self):
        for option, value, takes in (("--keyint", "x", "a whole number from -1"),
                                     ("--bframes", "17", "a whole number from 0 to 16"),
                                     ("--crf", "52", "a number from 0 to 51"),
                                     ("--qp", "-1", "a whole number from 0 to 51"),
                                     ("--open-gop", "2", "on or off"),
                                     ("--tune", "grain", "one of psnr, ssim, zerolatency, fastdecode"),
                                     ("--rate-control", "vbr", "one of abr, cqp, crf, cbr"),
                                     ("--threads", "17", "a whole number from 0 to 16"),
                                     ("--frames", "0", "a whole number from 1"),
                                     ("--level", "high", "a level such as 4.1"),
                                     ("--bitrate", "5", "a number of bits from 1000, such as 800k or 4.5M")):
            self.wrong(f'{option} is "{value}"; it takes {takes}', option, value)

    def test_options_that_contradict_each_other(self):
        self.wrong("--bitrate, --qp and --crf are three ways of rate control; give one of them",
                   "--qp", "20", "--crf", "20")
        self.wrong("--hrd has no effect with the preset's rate control; it goes with abr or cbr", "--hrd")

    def test_properties_of_other_readers_are_stored_without_effect(self):
        self.encode()
        plain = self.get("out.hevc")
        self.encode("--property", "aja.fifo.size=i32:4", "--property", "my.own=text:hello")
        self.assertEqual(self.get("out.hevc"), plain)

    def test_properties_need_a_type_when_nobody_knows_them(self):
        outcome = self.zel("hevc", "encode", "in.y4m", "-o", "out.hevc", "--property", "my.own=5")
        self.assertEqual(outcome.code, 1)  # the input is not there; it is looked at first
        self.wrong('--property is "my.own=5"; the encoder has no key my.own, so the value needs a type before it, '
                   "my.own=TYPE:VALUE, one of bool, u8, i16, u16, i32, u32, i64, u64, f32, f64, four, text, hex",
                   "--property", "my.own=5")

    def test_a_command_line_that_is_too_long(self):
        outcome = self.zel("hevc", "encode", self.put("in.y4m", y4m(1)), "-o", "out.hevc", "--command-line",
                           "--no-sao " * 250)
        self.assertEqual(outcome.code, 2)
        self.assertRegex(outcome.err, r"--command-line is \d+ bytes too long\n")

    def test_a_refusal_of_the_encoder_has_its_reason(self):
        self.refused("the encoder refuses these settings: max cu size must be 16, 32, or 64", *FAST,
                     "--command-line", "--ctu 7")

    def test_a_warning_of_the_encoder_is_one_of_ours(self):
        outcome = self.encode("--json", "--command-line", "--hrd")
        self.assertEqual(outcome.json["warnings"], ["x265: NAL HRD parameters require VBV parameters, ignored"])


class Outputs(EncodeTest):
    def test_the_same_input_gives_the_same_bytes(self):
        self.encode("--bitrate", "200k", frames=12)
        first = self.get("out.hevc")
        self.encode("--bitrate", "200k", frames=12)
        self.assertEqual(self.get("out.hevc"), first)

    def test_standard_output_has_the_same_bytes(self):
        self.encode()
        outcome = self.done("hevc", "encode", "in.y4m", "-o", "-", *FAST)
        self.assertEqual(outcome.out, self.get("out.hevc"))

    def test_frames_limits_the_input(self):
        self.assertEqual(self.encode("--frames", "3", "--json", frames=5).json["frames"], 3)
        self.assertEqual(self.encode("--frames", "9", "--json", frames=5).json["frames"], 5)

    def test_frames_leaves_the_rest_of_a_broken_input_alone(self):
        self.encode("--frames", "2", stream=y4m(2) + b"JUNK")

    def test_the_document(self):
        outcome = self.encode("--json", frames=10, stream=y4m(10, "F30000:1001 A1:1"))
        document = outcome.json
        self.assertEqual(outcome.err, "")
        self.assertEqual(list(document), ["input", "output", "container", "width", "height", "rate", "aspect",
                                          "frames", "independent", "bytes", "seconds", "bitRate", "elapsedSeconds",
                                          "framesPerSecond", "warnings"])
        self.assertEqual(document["container"], "y4m")
        self.assertEqual((document["width"], document["height"]), (WIDTH, HEIGHT))
        self.assertEqual(document["rate"], {"numerator": 30000, "denominator": 1001})
        self.assertEqual(document["aspect"], {"numerator": 1, "denominator": 1})
        self.assertEqual(document["frames"], 10)
        self.assertGreaterEqual(document["independent"], 1)
        self.assertEqual(document["bytes"], len(self.get("out.hevc")))
        self.assertAlmostEqual(document["seconds"], 10 * 1001 / 30000)
        self.assertAlmostEqual(document["bitRate"], document["bytes"] * 8 / document["seconds"], places=3)
        self.assertGreater(document["framesPerSecond"], 0)
        self.assertEqual(document["warnings"], [])

    def test_the_summary_is_for_people(self):
        outcome = self.encode(frames=1)
        self.assertRegex(outcome.err, r"^1 frame, 96x64, 25 frames/s: \d+ bytes, [\d.]+ kbit/s, .*\n$")
        self.assertEqual(outcome.out, b"")
        self.assertEqual(self.encode("--quiet").err, "")

    def test_timing_has_a_row_per_access_unit(self):
        self.encode("--timing", "out.csv", "--bframes", "3", frames=12, stream=y4m(12, "F30000:1001"))
        rows = list(csv.DictReader(io.StringIO(self.get("out.csv").decode())))
        self.assertEqual([int(row["access_unit"]) for row in rows], list(range(12)))
        self.assertEqual([int(row["decode_time"]) for row in rows], [1001 * i for i in range(12)])
        self.assertEqual(sorted(int(row["presentation_time"]) for row in rows), [1001 * i for i in range(12)])
        self.assertNotEqual([row["decode_time"] for row in rows], [row["presentation_time"] for row in rows])
        self.assertEqual((rows[0]["type"], rows[0]["nal_type"][:4]), ("IDR", "IDR_"))
        self.assertEqual({row["type"] for row in rows}, {"IDR", "reference", "disposable"})
        sizes = sum(int(row["bytes"]) for row in rows)
        headers = len(self.get("out.hevc")) - sizes
        self.assertGreater(headers, 0)
        self.assertEqual(self.get("out.hevc")[:4], b"\0\0\0\1")

    def test_timing_on_standard_output(self):
        outcome = self.encode("--timing", "-", frames=3)
        self.assertEqual(len(outcome.out.splitlines()), 4)

    def test_standard_output_has_room_for_one(self):
        message = "only one of --output -, --timing - and --json can have standard output"
        self.put("in.y4m", y4m(1))
        for options in (["-o", "-", "--json"], ["-o", "-", "--timing", "-"], ["-o", "x", "--timing", "-", "--json"]):
            self.misused("hevc", "encode", "in.y4m", *options, message="hevc encode: " + message)

    def test_long_options_and_short(self):
        self.put("in.y4m", y4m(1))
        self.done("hevc", "encode", "--output=out.hevc", *FAST, "--", "in.y4m")
        self.assertTrue(self.has("out.hevc"))

    def test_awkward_file_names(self):
        name = "a b\n\x1b[1m\u00e9.y4m"
        self.put(name, y4m(1))
        outcome = self.done("hevc", "encode", name, "-o", "-dash", *FAST, "--json")
        self.assertEqual(outcome.json["input"], name)
        self.assertTrue(self.has("-dash"))
        outcome = self.zel("hevc", "encode", name, "-o", "no/where", *FAST)
        self.assertEqual(len(outcome.error_lines), 1)

    def test_first_picture_can_be_seen(self):
        self.encode("--command-line", "--lossless", frames=1)
        self.assertGreater(len(self.get("out.hevc")), len(picture(0)) // 20)


if __name__ == "__main__":
    unittest.main()
