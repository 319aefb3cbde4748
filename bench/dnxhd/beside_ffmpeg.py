#!/usr/bin/env python3
"""The DNxHD codec beside FFmpeg's: frames a processor second, and quality, on one clip in one run.

    bench_dnxhd [--frames N] [--ids 1235,1237] [--passes N] [--threads 1,2] [--rounds N]

The clip is zel testsrc's moving scenes. Both codecs run in turns on the same frames, with every count of threads
in each round; the medians of the rounds' rates are shown, and of the ratios within a round, since a machine's speed
changes by the minute. FFmpeg's times are its own account (-benchmark) less that of a run that only reads the same
input; ours begin with frames in memory and end with frames in memory. Processor time is what counts on a machine
that others use too; our rate by the clock stands beside it, and how many times the first count of threads that is.
Quality is of the luma of the decoded frames, by FFmpeg's decoder for both.
"""

import argparse
import json
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

ZEL = "@PROJECT_BINARY_DIR@/tools/zel/zel"
CODEC = "@PROJECT_BINARY_DIR@/bench/dnxhd/codec_clip"

# id: size, depth, interlaced, FFmpeg's bit rate at 25 frames a second, by which it picks the id
IDS = {1235: ("1920x1080", 10, False, "185M"), 1237: ("1920x1080", 8, False, "120M"),
       1238: ("1920x1080", 8, False, "185M"), 1241: ("1920x1080", 10, True, "185M"),
       1242: ("1920x1080", 8, True, "120M"), 1243: ("1920x1080", 8, True, "185M"),
       1250: ("1280x720", 10, False, "90M"), 1251: ("1280x720", 8, False, "90M"),
       1252: ("1280x720", 8, False, "60M"), 1253: ("1920x1080", 8, False, "36M")}


def run(*command):
    process = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if process.returncode != 0:
        sys.exit(f"bench_dnxhd: {' '.join(map(str, command))}: {process.stderr.strip()[-400:]}")
    return process.stdout + process.stderr


def ffmpeg_seconds(*arguments):
    """Processor seconds and wall seconds of a run."""
    text = run("ffmpeg", "-hide_banner", "-nostdin", "-benchmark", "-y", *arguments)
    user, system, wall = map(float, re.findall(r"utime=([\d.]+)s stime=([\d.]+)s rtime=([\d.]+)s", text)[-1])
    return user + system, wall


class Clip:
    def __init__(self, folder, number, frames):
        self.folder, self.frames = folder, frames
        self.size, self.depth, self.interlaced, self.rate = IDS[number]
        self.pixels = "yuv422p" if self.depth == 8 else "yuv422p10le"
        self.fields = ["-flags", "+ildct+ilme", "-top", "1"] if self.interlaced else []  # of FFmpeg's encoder
        self.raw = folder / "clip.yuv"
        options = ["--interlaced", "tff"] if self.interlaced else []
        run(ZEL, "testsrc", "--size", self.size, "--rate", "25", "--chroma", "422", "--depth", self.depth, "--frames",
            frames, *options, "-o", folder / "clip.y4m")
        run("ffmpeg", "-v", "error", "-nostdin", "-y", "-i", folder / "clip.y4m", "-f", "rawvideo", self.raw)

    def raw_input(self):
        return ["-f", "rawvideo", "-s", self.size, "-r", "25", "-pix_fmt", self.pixels, "-i", self.raw]


def quality(clip, frames):
    decoded = ["-f", "dnxhd", "-r", "25", "-i", frames]
    text = run("ffmpeg", "-hide_banner", "-nostdin", *decoded, *clip.raw_input(), "-lavfi",
               "[0:v]format=%s,split[a][b];[1:v]split[c][d];[a][c]psnr[p];[b][d]ssim[s]" % clip.pixels, "-map", "[p]",
               "-map", "[s]", "-f", "null", "-")
    return float(re.search(r"PSNR y:([\d.]+|inf)", text).group(1)), float(re.search(r"SSIM Y:([\d.]+)", text).group(1))


def ours(verb, number, source, target, threads, passes):
    return json.loads(run(CODEC, verb, number, source, target, threads, passes))


class Turn:
    """What one round measured with one count of threads: frames a second, of processor time but for `wall`."""

    def __init__(self, mine, frames, theirs):
        self.mine, self.theirs = mine["frames"] / mine["cpu"], frames / theirs
        self.ratio, self.wall = self.mine / self.theirs, mine["frames"] / mine["wall"]


def turns(clip, number, threads, passes, folder):
    """One round's encoding and decoding."""
    mine, total, loop = folder / "ours.dnxhd", clip.frames * passes, ["-stream_loop", passes - 1]
    encode = ours("encode", number, clip.raw, mine, threads, passes)
    coded, _ = ffmpeg_seconds(*loop, *clip.raw_input(), "-threads", threads, "-c:v", "dnxhd", "-b:v", clip.rate,
                              *clip.fields, "-f", "null", "-")
    read, _ = ffmpeg_seconds(*loop, *clip.raw_input(), "-c", "copy", "-f", "null", "-")
    # Each decodes the frames that we made.
    decode = ours("decode", number, mine, "-", threads, passes)
    dnxhd = [*loop, "-f", "dnxhd", "-r", "25"]
    decoded, _ = ffmpeg_seconds("-threads", threads, *dnxhd, "-i", mine, "-f", "null", "-")
    parsed, _ = ffmpeg_seconds(*dnxhd, "-i", mine, "-c", "copy", "-f", "null", "-")
    return Turn(encode, total, coded - read), Turn(decode, total, decoded - parsed)


def qualities(clip, folder):
    theirs = folder / "theirs.dnxhd"
    run("ffmpeg", "-v", "error", "-nostdin", "-y", *clip.raw_input(), "-threads", "1", "-c:v", "dnxhd", "-b:v",
        clip.rate, *clip.fields, "-f", "dnxhd", theirs)
    marks = [quality(clip, frames) for frames in (folder / "ours.dnxhd", theirs)]
    return ", ".join(f"{psnr:.2f} / {ssim:.4f}" for psnr, ssim in marks)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--frames", type=int, default=20)
    parser.add_argument("--passes", type=int, default=4)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--ids", default="1235,1237,1238,1241,1253")
    parser.add_argument("--threads", default="1,2")
    options = parser.parse_args()
    if shutil.which("ffmpeg") is None:
        print("bench_dnxhd: ffmpeg is not installed: nothing to compare with")
        return
    print("frames a processor second; x: our rate over FFmpeg's; wall: our rate by the clock, and its gain by threads")
    title = f"{'ffmpeg':>7} {'x':>5} {'wall':>6} {'gain':>5}"
    print(f"{'id':4} {'thr':>3}  {'encode':>7} {title}  {'decode':>7} {title}  PSNR Y / SSIM Y of ours, FFmpeg's")
    counts = list(map(int, options.threads.split(",")))
    for number in map(int, options.ids.split(",")):
        with tempfile.TemporaryDirectory(prefix="bench-dnxhd-") as scratch:
            folder = pathlib.Path(scratch)
            clip = Clip(folder, number, options.frames)
            rounds = [[turns(clip, number, threads, options.passes, folder) for threads in counts]
                      for _ in range(options.rounds)]
            marks = qualities(clip, folder)
            for place, threads in enumerate(counts):
                columns = []
                for verb in range(2):
                    of = [(each[place][verb], each[0][verb]) for each in rounds]
                    median = lambda take: statistics.median(take(*pair) for pair in of)
                    columns.append(f"{median(lambda turn, _: turn.mine):7.1f} {median(lambda turn, _: turn.theirs):7.1f} "
                                   f"{median(lambda turn, _: turn.ratio):5.2f} {median(lambda turn, _: turn.wall):6.1f} "
                                   f"{median(lambda turn, first: turn.wall / first.wall):5.2f}")
                print(f"{number:4} {threads:3}  {'  '.join(columns)}  {marks}", flush=True)


if __name__ == "__main__":
    main()
