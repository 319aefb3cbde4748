"""An independent decoder judges the streams."""

import json
import subprocess
import unittest

from example_runner import ExampleTest
from zel_command import HEIGHT, WIDTH, ZelTest, have, raw, y4m


def setUpModule():
    if not (have("ffmpeg") and have("ffprobe")):
        raise unittest.SkipTest("ffmpeg is not installed")


class Judges(ZelTest):
    def decoded(self, name):
        """All pictures of a stream, in the order of display."""
        return subprocess.run(["ffmpeg", "-v", "error", "-i", name, "-f", "rawvideo", "-pix_fmt", "yuv420p",
                               "-vsync", "passthrough", "-"], cwd=self.folder, check=True, capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=120).stdout

    def probed(self, name):
        out = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-show_streams", "-of", "json", name],
                             cwd=self.folder, check=True, capture_output=True, timeout=120).stdout
        return json.loads(out)["streams"][0]

    def test_lossless_pictures_come_back_bit_for_bit(self):
        self.put("in.y4m", y4m(13))
        for bframes in ("0", "3"):
            self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", "--preset", "fast", "--bframes", bframes,
                      "--command-line", "--lossless")
            self.assertEqual(self.decoded("out.hevc"), raw(13))

    def test_every_frame_is_there_at_any_thread_count(self):
        self.put("in.y4m", y4m(23))
        for threads in ("0", "1", "3", "8"):
            self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", "--preset", "ultrafast", "--threads", threads)
            self.assertEqual(self.probed("out.hevc")["nb_read_frames"], "23")

    def test_one_frame_is_enough(self):
        self.put("in.y4m", y4m(1))
        self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", "--command-line", "--lossless")
        self.assertEqual(self.decoded("out.hevc"), raw(1))

    def test_the_stream_tells_what_the_input_told(self):
        self.put("in.y4m", y4m(3, "F30000:1001 A128:117 C420mpeg2 XCOLORRANGE=FULL"))
        self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", "--preset", "ultrafast", "--colorprim", "bt709",
                  "--transfer", "bt709", "--colormatrix", "bt709", "--level", "4.1", "--profile", "main")
        stream = self.probed("out.hevc")
        self.assertEqual((stream["codec_name"], stream["profile"], stream["level"]), ("hevc", "Main", 123))
        self.assertEqual((stream["width"], stream["height"]), (WIDTH, HEIGHT))
        self.assertEqual(stream["r_frame_rate"], "30000/1001")
        self.assertEqual(stream["sample_aspect_ratio"], "128:117")
        self.assertEqual(stream["color_range"], "pc")
        self.assertEqual(stream["color_primaries"], "bt709")
        self.assertEqual(stream["chroma_location"], "left")

    def test_key_pictures_come_as_asked(self):
        self.put("in.y4m", y4m(20))
        self.done("hevc", "encode", "in.y4m", "-o", "out.hevc", "--preset", "ultrafast", "--keyint", "5",
                  "--open-gop", "off", "--command-line", "--min-keyint 5 --no-scenecut", "--timing", "out.csv")
        shown = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "frame=key_frame", "-of", "csv=p=0",
                                "out.hevc"], cwd=self.folder, check=True, capture_output=True, text=True).stdout
        keys = [line.strip(",\n ") for line in shown.splitlines() if line.strip()]
        self.assertEqual(keys, ["1", "0", "0", "0", "0"] * 4)
        self.assertEqual(self.get("out.csv").count(b",IDR,"), 4)


class Examples(ExampleTest):
    def test_with_a_judge(self):
        self.assertGreater(self.run_examples(lambda programs: programs & {"ffprobe", "ffmpeg"}), 0)


if __name__ == "__main__":
    unittest.main()
