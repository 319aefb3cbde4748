"""zel dnxhd: encode, decode, check, info, metadata, ids."""

import hashlib
import unittest

from zel_command import ZelTest, hd_frame, hd_y4m

FRAME_1252 = 303104
PIXELS = 1280 * 720


def y4m_frames(stream):
    """The header line of a Y4M stream of plain frames, and the frames."""
    header, _, rest = stream.partition(b"\n")
    frames = rest.split(b"FRAME\n")
    return header.decode(), frames[1:]


def mean_square(a, b):
    """Of every 97th byte: enough of a picture, and quick."""
    pairs = list(zip(a[::97], b[::97]))
    return sum((x - y) ** 2 for x, y in pairs) / len(pairs)


class DnxhdTest(ZelTest):
    def clip(self, frames=3, *options, id=1252, name="clip.dnxhd"):
        self.put("in.y4m", hd_y4m(frames))
        return self.done("dnxhd", "encode", "in.y4m", "--id", str(id), "-o", name, *options)


class Encode(DnxhdTest):
    def test_every_frame_has_the_bytes_of_its_id(self):
        outcome = self.clip(3, "--json").json
        self.assertEqual(len(self.get("clip.dnxhd")), 3 * FRAME_1252)
        self.assertEqual((outcome["frames"], outcome["bytes"], outcome["id"], outcome["format"]),
                         (3, 3 * FRAME_1252, 1252, "yuv422p"))

    def test_parts_joined_are_the_whole(self):
        self.clip(4)
        for name, frames in (("a", ":1"), ("b", "1:3"), ("c", "3:"), ("d", "3:99")):
            self.done("dnxhd", "encode", "in.y4m", "--id", "1252", "--frames", frames, "-o", name)
        self.assertEqual(self.get("a") + self.get("b") + self.get("c"), self.get("clip.dnxhd"))
        self.assertEqual(self.get("d"), self.get("c"))

    def test_raw_standard_input_and_y4m_give_the_same(self):
        self.clip(2)
        raw = b"".join(hd_frame(i) for i in range(2))
        self.done("dnxhd", "encode", "-", "--format", "yuv422p", "--size", "1280x720", "--id", "1252", "-o", "b",
                  stdin=raw)
        self.assertEqual(self.get("b"), self.get("clip.dnxhd"))
        written = self.done("dnxhd", "encode", "in.y4m", "--id", "1252", "-o", "-").out
        self.assertEqual(written, self.get("clip.dnxhd"))

    def test_packed_forms_of_the_same_samples_give_the_same(self):
        self.clip(1)
        self.done("dnxhd", "decode", "clip.dnxhd", "-o", "a.y4m")
        self.done("dnxhd", "encode", "a.y4m", "--id", "1252", "-o", "a.dnxhd")
        for form in ("uyvy", "uyvy10", "v210", "uyvy2+8"):
            self.done("dnxhd", "decode", "clip.dnxhd", "--format", form, "-o", "raw")
            self.done("dnxhd", "encode", "raw", "--format", form, "--size", "1280x720", "--id", "1252", "-o", "b")
            self.assertEqual(self.get("b"), self.get("a.dnxhd"), form)

    def test_ten_bits_and_rgb(self):
        self.put("in.y4m", hd_y4m(1, parameters="F25:1 Ip C422p10", depth=10))
        self.done("dnxhd", "encode", "in.y4m", "--id", "1250", "-o", "a.dnxhd")
        self.done("dnxhd", "decode", "a.dnxhd", "-o", "out.y4m")
        header, frames = y4m_frames(self.get("out.y4m"))
        self.assertIn("C422p10", header)
        self.assertLess(mean_square(frames[0][1::2], y4m_frames(self.get("in.y4m"))[1][0][1::2]), 1)
        for form, pixel in (("rgb24", 3), ("rgba", 4), ("bgra", 4), ("argb64", 8), ("rgba64", 8), ("rgba10", 8),
                            ("rgba2.14", 8)):
            self.done("dnxhd", "decode", "a.dnxhd", "--format", form, "-o", "rgb")
            self.assertEqual(len(self.get("rgb")), PIXELS * pixel, form)
            self.done("dnxhd", "encode", "rgb", "--format", form, "--size", "1280x720", "--id", "1250", "-o", "b")
            self.done("dnxhd", "decode", "b", "-o", "again.y4m")
            again = y4m_frames(self.get("again.y4m"))[1][0]
            high = [bytes((c[i] | c[i + 1] << 8) >> 2 for i in range(0, 2 * PIXELS, 2)) for c in (again, frames[0])]
            self.assertLess(mean_square(*high), 6, form)

    def test_444(self):
        # Red, in 4:4:4 codes: what chroma of half the width could hold too, so that the bound is tight.
        size = 1920 * 1080
        planes = bytes([63]) * size + bytes([102]) * size + bytes([240]) * size
        self.put("in.y4m", b"YUV4MPEG2 W1920 H1080 F25:1 Ip C444\nFRAME\n" + planes)
        self.done("dnxhd", "encode", "in.y4m", "--id", "1256", "-o", "a.dnxhd")
        self.done("dnxhd", "decode", "a.dnxhd", "--format", "yuv444p", "-o", "out")
        out = self.get("out")
        for plane in range(3):
            wanted = planes[plane * size]
            self.assertTrue(all(abs(value - wanted) <= 1 for value in out[plane * size:(plane + 1) * size:101]), plane)
        self.put("hd.y4m", hd_y4m(1, 1920, 1080))
        self.fails("dnxhd", "encode", "hd.y4m", "--id", "1256", "-o", "b", message="dnxhd encode: hd.y4m is 4:2:2; "
                   "id 1256 takes 4:4:4 and RGB")

    def test_interlaced_and_thin_rasters(self):
        for id, size in ((1243, 917504), (1260, 417792)):
            self.put("in.y4m", hd_y4m(1, 1920, 1080, "F25:1 It C422"))
            outcome = self.done("dnxhd", "encode", "in.y4m", "--id", str(id), "-o", "a.dnxhd", "--report-warnings")
            self.assertEqual(len(self.get("a.dnxhd")), size)
            self.done("dnxhd", "decode", "a.dnxhd", "-o", "out.y4m")
            header, frames = y4m_frames(self.get("out.y4m"))
            self.assertIn(" W1920 H1080 ", header)
            self.assertIn(" It ", header)
            self.assertLess(mean_square(frames[0], y4m_frames(self.get("in.y4m"))[1][0]), 8, id)
        self.done("dnxhd", "decode", "a.dnxhd", "--thin", "-o", "thin.y4m")
        header, frames = y4m_frames(self.get("thin.y4m"))
        self.assertIn(" W1440 H1080 ", header)
        self.assertIn(" A4:3 ", header)
        self.done("dnxhd", "encode", "thin.y4m", "--id", "1260", "-o", "b.dnxhd")
        self.done("dnxhd", "decode", "b.dnxhd", "--thin", "-o", "again.y4m")
        self.assertLess(mean_square(y4m_frames(self.get("again.y4m"))[1][0], frames[0]), 2)

    def test_scan_that_does_not_fit_is_told(self):
        self.put("in.y4m", hd_y4m(1, parameters="F25:1 It C422"))
        outcome = self.zel("dnxhd", "encode", "in.y4m", "--id", "1252", "-o", "a", "--report-warnings")
        self.assertEqual(outcome.code, 3)
        self.assertIn("in.y4m is interlaced; id 1252 codes its frames as progressive ones", outcome.err)

    def test_what_can_not_be_encoded(self):
        self.put("in.y4m", hd_y4m(1))
        encode = ["dnxhd", "encode", "in.y4m", "-o", "out"]
        self.fails(*encode, "--id", "1237",
                   message="dnxhd encode: in.y4m is 1280x720; frames of id 1237 are 1920x1080")
        self.fails(*encode, "--id", "1259",
                   message="dnxhd encode: in.y4m is 1280x720; frames of id 1259 are 1920x1080 or 1440x1080")
        self.misused(*encode, "--id", "1233",
                     message="dnxhd encode: --id 1233 can't be encoded; zel dnxhd ids lists those that can")
        self.misused(*encode, "--id", "1252", "--format", "uyvy",
                     message="dnxhd encode: --format and --size go together: raw frames need both, Y4M needs neither")
        self.fails(*encode, "--id", "1252", "--frames", "1:2", message="dnxhd encode: in.y4m has none of the frames")
        self.assertFalse(self.has("out"))
        for frames in ("1", "3:2", "a:b", ":", "-1:2", "1:1"):
            self.misused(*encode, "--id", "1252", "--frames=" + frames,
                         message=f'dnxhd encode: --frames is "{frames}"; it takes A:B, the first frame and the one '
                         "behind the last")
        self.put("in.y4m", b"YUV4MPEG2 W1280 H720 F25:1 C420\n")
        self.fails(*encode, "--id", "1252", message="dnxhd encode: in.y4m is 4:2:0 8-bit (C420); the codec takes "
                   "4:2:2 and 4:4:4 of 8 and 10 bits")
        self.put("in.y4m", b"")
        self.fails(*encode, "--id", "1252", message="dnxhd encode: in.y4m is empty")

    def test_an_input_that_ends_in_a_frame(self):
        self.put("in.y4m", hd_y4m(2)[:-1000])
        outcome = self.zel("dnxhd", "encode", "in.y4m", "--id", "1252", "-o", "a", "--report-warnings")
        self.assertEqual(outcome.code, 3)
        self.assertIn("in.y4m ends in the midst of frame 1", outcome.err)
        self.assertEqual(len(self.get("a")), FRAME_1252)


class Decode(DnxhdTest):
    def test_comes_back_close_to_what_went_in(self):
        self.clip(2)
        self.done("dnxhd", "decode", "clip.dnxhd", "-o", "out.y4m", "--rate", "30000/1001")
        header, frames = y4m_frames(self.get("out.y4m"))
        self.assertEqual(header, "YUV4MPEG2 W1280 H720 F30000:1001 Ip A1:1 C422 XYSCSS=422 XCOLORRANGE=LIMITED")
        for i, frame in enumerate(frames):
            self.assertLess(mean_square(frame, hd_frame(i)), 2)

    def test_md5_is_that_of_each_frame_whatever_the_threads(self):
        self.clip(3)
        self.done("dnxhd", "decode", "clip.dnxhd", "-o", "out.y4m")
        wanted = [hashlib.md5(frame).hexdigest() for frame in y4m_frames(self.get("out.y4m"))[1]]
        for threads in ("1", "2", "5"):
            outcome = self.done("dnxhd", "decode", "clip.dnxhd", "--md5", "--threads", threads)
            self.assertEqual(outcome.out.decode().split("\n"),
                             [f"{i} {md5}" for i, md5 in enumerate(wanted)] + [""])
        document = self.done("dnxhd", "decode", "clip.dnxhd", "--md5", "--frames", "1:2", "--json").json
        self.assertEqual(document["md5"], [{"frame": 1, "md5": wanted[1]}])

    def test_parts_of_raw_frames_joined_are_the_whole(self):
        self.clip(3)
        for name, frames in (("all", ":"), ("a", ":2"), ("b", "2:")):
            options = [] if frames == ":" else ["--frames", frames]
            self.done("dnxhd", "decode", "clip.dnxhd", "--format", "uyvy", "-o", name, *options)
        self.assertEqual(self.get("a") + self.get("b"), self.get("all"))

    def test_smaller_pictures(self):
        self.clip(1)
        for resolution, factor in (("half", 2), ("quarter", 4)):
            self.done("dnxhd", "decode", "clip.dnxhd", "--resolution", resolution, "-o", "out.y4m")
            header, frames = y4m_frames(self.get("out.y4m"))
            self.assertIn(f" W{1280 // factor} H{720 // factor} ", header)
            # A corner of the ramp, at the middle of its pixels.
            self.assertAlmostEqual(frames[0][100 * 1280 // factor + 50],
                                   hd_frame(0)[100 * factor * 1280 + 50 * factor], delta=6)

    def test_damaged_frames(self):
        self.clip(3)
        clip = bytearray(self.get("clip.dnxhd"))
        clip[FRAME_1252 + 3] ^= 1  # the size of the second frame's header
        self.put("bad.dnxhd", bytes(clip))
        why = "bad.dnxhd: frame 1 can't be decoded: HDCODEC ERROR in BitStream (-3)"
        self.fails("dnxhd", "decode", "bad.dnxhd", "-o", "out.y4m", message="dnxhd decode: " + why)
        self.assertFalse(self.has("out.y4m"))
        outcome = self.zel("dnxhd", "decode", "bad.dnxhd", "-o", "out.y4m", "--keep-going", "--report-warnings")
        self.assertEqual(outcome.code, 3)
        self.assertIn(why, outcome.err)
        self.assertEqual(len(y4m_frames(self.get("out.y4m"))[1]), 2)

    def test_what_is_no_dnxhd(self):
        for contents, message in ((b"", "in is empty"), (b"RIFF" * 20, "in doesn't begin with a DNxHD frame"),
                                  (b"\0\0\2\x80" + bytes(39) + b"\1" + bytes(900),
                                   "in begins with a frame of id 1, which is not known")):
            self.put("in", contents)
            for verb in ("decode", "check", "info", "metadata"):
                options = ["--md5"] if verb == "decode" else []
                self.fails("dnxhd", verb, "in", *options, message=f"dnxhd {verb}: {message}")

    def test_contradictions(self):
        self.clip(1)
        self.misused("dnxhd", "decode", "clip.dnxhd",
                     message="dnxhd decode: there is nothing to do without --output FILE or --md5")
        self.misused("dnxhd", "decode", "clip.dnxhd", "--md5", "-o", "-",
                     message="dnxhd decode: only one of --output -, --md5 and --json can have standard output")
        self.misused("dnxhd", "decode", "clip.dnxhd", "-o", "clip.dnxhd",
                     message="dnxhd decode: clip.dnxhd is the input itself, which it would overwrite; name another file")


class CheckAndInfo(DnxhdTest):
    def test_sound_frames(self):
        self.clip(3)
        self.assertEqual(self.done("dnxhd", "check", "clip.dnxhd").out, b"clip.dnxhd: 3 frames of id 1252, no faults\n")
        self.assertEqual(self.done("dnxhd", "check", "clip.dnxhd", "--json", "--frames", "1:").json,
                         {"input": "clip.dnxhd", "id": 1252, "frames": 2, "faults": []})

    def test_faults_are_found_each(self):
        self.clip(4)
        clip = bytearray(self.get("clip.dnxhd"))
        clip[3] ^= 0  # the first is sound
        clip[FRAME_1252 + 3] ^= 1
        clip[2 * FRAME_1252 + 372:2 * FRAME_1252 + 376] = b"\0\0\0\4"  # the second row begins in the first
        del clip[-5:]
        self.put("bad.dnxhd", bytes(clip))
        outcome = self.zel("dnxhd", "check", "bad.dnxhd")
        self.assertEqual(outcome.code, 1)
        self.assertEqual(outcome.out.decode().splitlines(),
                         ["bad.dnxhd: frame 1: HDCODEC ERROR in BitStream (-3)",
                          "bad.dnxhd: frame 2: HDCODEC ERROR In Macroblock Indices (-27)",
                          f"bad.dnxhd: frame 3: it is cut short: {FRAME_1252 - 5} of {FRAME_1252} bytes"])
        self.assertEqual(outcome.error_lines, ["zel: dnxhd check: bad.dnxhd: 3 of 4 frames are faulty"])

    def test_info_counts_macroblocks(self):
        self.clip(2)
        document = self.done("dnxhd", "info", "clip.dnxhd", "--json").json
        self.assertEqual((document["id"], document["name"], document["width"], document["height"], document["depth"],
                          document["scan"], document["frameBytes"], document["pictures"]),
                         (1252, "SQ 8-bit 720p", 1280, 720, 8, "Progressive", FRAME_1252, 1))
        self.assertEqual([frame["frame"] for frame in document["frames"]], [0, 1])
        for frame in document["frames"]:
            self.assertEqual(sum(step["macroblocks"] for step in frame["quantisers"]), 3600)
            self.assertLessEqual(frame["usedBytes"], FRAME_1252 - 4)
        text = self.done("dnxhd", "info", "clip.dnxhd").out.decode()
        self.assertIn("clip.dnxhd: id 1252 (SQ 8-bit 720p), 1280x720 Progressive, 8 bits", text)
        self.assertIn("frame 1: ", text)

    def test_info_of_a_cut_file(self):
        self.clip(2)
        self.put("cut.dnxhd", self.get("clip.dnxhd")[:-1])
        outcome = self.zel("dnxhd", "info", "cut.dnxhd", "--report-warnings")
        self.assertEqual(outcome.code, 3)
        self.assertIn("cut.dnxhd ends in the midst of frame 1", outcome.err)


class Metadata(DnxhdTest):
    def test_goes_in_and_comes_out(self):
        self.clip(3)
        self.assertEqual(self.done("dnxhd", "metadata", "clip.dnxhd").out, b"")
        self.done("dnxhd", "metadata", "clip.dnxhd", "--insert", "9:0x61:0x01:0a0B", "--insert", "570:97:2:",
                  "--frames", "1:", "-o", "marked.dnxhd")
        lines = self.done("dnxhd", "metadata", "marked.dnxhd").out.decode().splitlines()
        self.assertEqual(lines, [f"frame {i}: {packet}" for i in (1, 2)
                                 for packet in ("9:0x61:0x01:0a0b", "570:0x61:0x02:")])
        document = self.done("dnxhd", "metadata", "marked.dnxhd", "--json").json
        self.assertEqual(document["withMetadata"][0],
                         {"frame": 1, "packets": [{"line": 9, "did": 97, "sdid": 1, "data": [10, 11]},
                                                  {"line": 570, "did": 97, "sdid": 2, "data": []}]})
        # The pictures are the same.
        self.assertEqual(self.done("dnxhd", "decode", "marked.dnxhd", "--md5").out,
                         self.done("dnxhd", "decode", "clip.dnxhd", "--md5").out)
        self.assertEqual(self.get("marked.dnxhd")[:FRAME_1252], self.get("clip.dnxhd")[:FRAME_1252])

    def test_what_is_no_packet(self):
        self.clip(1)
        for packet in ("9:1:1:0", "0:1:1:00", "2048:1:1:00", "9:256:1:00", "9:1:00", "9:1:1:0g", "9:1:1:" + "00" * 249):
            self.misused("dnxhd", "metadata", "clip.dnxhd", "--insert", packet, "-o", "out",
                         message=f'dnxhd metadata: --insert is "{packet}"; it takes a line from 1 to 2047, two '
                         "identifiers from 0 to 255 and up to 248 bytes in hexadecimal, as 9:0x61:0x01:0a0b")
        self.misused("dnxhd", "metadata", "clip.dnxhd", "-o", "out", message="dnxhd metadata: --insert and --output go "
                     "together: both, or neither to list packets")


class Ids(DnxhdTest):
    def test_all_seventeen(self):
        rows = self.done("dnxhd", "ids", "--json").json
        self.assertEqual(len(rows), 17)
        row = next(row for row in rows if row["id"] == 1244)
        self.assertEqual(row, {"id": 1244, "name": "SQ 8-bit TR 1080i", "width": 1920, "height": 1080,
                               "codedWidth": 1440, "scan": "interlaced", "sampling": "4:2:2", "depth": 8,
                               "frameBytes": 606208, "bitRate": 145000000})
        text = self.done("dnxhd", "ids").out.decode().splitlines()
        self.assertEqual(len(text), 18)
        self.assertTrue(text[1].startswith("1235  HQ 10-bit 1080p"))


if __name__ == "__main__":
    unittest.main()
