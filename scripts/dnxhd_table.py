#!/usr/bin/env python3
"""Sets the DNxHD codec beside FFmpeg's, id by id, and prints three tables in Markdown.

    scripts/dnxhd_table.py [--build build/release] [--ids 1235,1237] [PICTURES...]

PICTURES are files that FFmpeg reads, NAME=FILE[@FRAME]; the test patterns motion and noise of
`zel testsrc` come before them. The first table tells what each decoder makes of the other
encoder's frames, the second what both encoders make of the pictures, the third the means of their
differences. docs/dnxhd-table.md has what was printed last. It takes `zel` and `dnxhd_frames` of the build, and ffmpeg.
"""
import argparse
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

# What FFmpeg's encoder takes for each id: nothing for those that it doesn't write.
RATES = {1235: "185M", 1237: "120M", 1238: "185M", 1241: "185M", 1242: "120M", 1243: "185M",
         1244: "120M", 1250: "90M", 1251: "90M", 1252: "60M", 1253: "36M", 1258: "42M",
         1259: "84M"}
UNREADABLE = {1254, 1257}  # by FFmpeg's decoder
PATTERNS = ["motion", "noise"]
# Macroblock decisions. The best one tries all steps for each macroblock, of which the coarse ones are of no use but for
# noise, and cost minutes a frame: noise goes without.
DEFAULT = ["-mbd", "simple"]
BEST = ["-mbd", "rd", "-qmax", "64"]


def run(*command):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"dnxhd_table: {' '.join(map(str, command))}:\n{result.stderr}")
    return result


def ffmpeg(*arguments):
    return run("ffmpeg", "-nostdin", "-hide_banner", "-y", *arguments)


class Id:
    def __init__(self, row):
        self.id = row["id"]
        self.row = row
        self.size = f"{row['codedWidth']}x{row['height']}"
        self.interlaced = row["scan"] == "interlaced"
        self.chroma = "444" if row["sampling"] == "4:4:4" else "422"
        self.pixels = f"yuv{self.chroma}p" + ("10le" if row["depth"] == 10 else "")
        self.raw = ["-f", "rawvideo", "-s", self.size, "-pix_fmt", self.pixels]


class Codec:
    """Both codecs, on files of a folder."""

    def __init__(self, build, folder):
        self.zel = build / "tools/zel/zel"
        self.frames = build / "bench/dnxhd/dnxhd_frames"
        self.folder = folder

    def file(self, name):
        return self.folder / name

    def source(self, one, picture, count):
        """The picture in the id's raster: as Y4M, and its planes."""
        y4m, planes = self.file("source.y4m"), self.file("source.raw")
        if picture in PATTERNS:
            scan = ["--interlaced", "tff"] if one.interlaced else []
            run(self.zel, "testsrc", "--pattern", picture, "--size", one.size, "--chroma", one.chroma, "--depth",
                one.row["depth"], "--rate", "25/1", "--frames", count, "--quiet", "-o", y4m, *scan)
        else:
            file, _, first = picture.partition("=")[2].partition("@")
            chosen = f"select=gte(n\\,{first or 0}),scale=" + one.size.replace("x", ":")
            ffmpeg("-v", "error", "-i", file, "-vf", chosen, "-pix_fmt", one.pixels, "-frames:v", count, "-strict", "-1", "-f", "yuv4mpegpipe", y4m)
        ffmpeg("-v", "error", "-i", y4m, *one.raw, planes)
        return y4m, planes

    def encode(self, one, y4m):
        out = self.file("ours.dnxhd")
        run(self.zel, "dnxhd", "encode", y4m, "--id", one.id, "--threads", 1, "--quiet", "-o", out)
        return out

    def their_encode(self, one, planes, decision):
        out = self.file("theirs.dnxhd")
        scan = ["-flags", "+ildct"] if one.interlaced else []
        ffmpeg("-v", "error", *one.raw, "-r", "25", "-i", planes, "-c:v", "dnxhd", "-b:v", RATES[one.id], *decision,
               *scan, "-f", "rawvideo", out)
        return out

    def decode(self, one, frames, rule="own"):
        out = self.file(f"decoded-{rule}.raw")
        run(self.frames, "decode", one.id, frames, out, 1, 1, rule)
        return out

    def their_decode(self, one, frames):
        out = self.file("decoded-theirs.raw")
        told = ffmpeg("-v", "error", "-f", "dnxhd", "-i", frames, "-f", "rawvideo", out).stderr
        if told:
            sys.exit(f"dnxhd_table: FFmpeg says of frames of {one.id}: {told}")
        return out

    def measure(self, one, first, second):
        """PSNR in dB, SSIM and the largest difference between planes of two files."""
        graph = ("[0:v]split=3[a][b][c];[1:v]split=3[d][e][f];[a][d]psnr[o];[b][e]ssim[p];"
                 "[c][f]blend=all_mode=difference,signalstats,metadata=print:file=-[q]")
        told = ffmpeg(*one.raw, "-i", first, *one.raw, "-i", second, "-lavfi", graph, "-map", "[o]", "-map", "[p]",
                      "-map", "[q]", "-f", "null", "-")
        psnr = re.search(r"PSNR .*average:(\S+)", told.stderr).group(1)
        ssim = re.search(r"SSIM .*All:(\S+)", told.stderr).group(1)
        largest = max(int(float(value)) for value in re.findall(r"signalstats\.[YUV]MAX=(\S+)", told.stdout))
        return float(psnr), float(ssim), largest


def decibels(value):
    return "the same" if value == float("inf") else f"{value:.2f} dB"


def between(codec, one, frames):
    """How the two decoders' pictures of the frames differ: by one rule, and each by its own."""
    theirs = codec.their_decode(one, frames)
    cells = []
    for rule in ("three-quarters", "own"):
        psnr, _, largest = codec.measure(one, codec.decode(one, frames, rule), theirs)
        cells.append(f"{largest}, {decibels(psnr)}")
    return cells


def interop_row(codec, one):
    y4m, planes = codec.source(one, "motion", 1)
    frames = codec.encode(one, y4m)
    size = frames.stat().st_size
    cells = [str(one.id), one.row["name"], str(size)]
    if size != one.row["frameBytes"]:
        sys.exit(f"dnxhd_table: a frame of {one.id} has {size} bytes")
    cells += ["not known", ""] if one.id in UNREADABLE else between(codec, one, frames)
    cells += between(codec, one, codec.their_encode(one, planes, DEFAULT)) if one.id in RATES else ["not written", ""]
    return cells


def quality(codec, one, picture, count):
    """PSNR and SSIM of our frames, FFmpeg's, and its best; none where it writes none."""
    y4m, planes = codec.source(one, picture, count)
    results = [codec.measure(one, planes, codec.decode(one, codec.encode(one, y4m)))]
    for decision in (DEFAULT, BEST):
        if one.id in RATES and not (decision is BEST and picture == "noise"):
            frames = codec.their_encode(one, planes, decision)
            results.append(codec.measure(one, planes, codec.their_decode(one, frames)))
        else:
            results.append(None)
    return results


def quality_row(one, picture, results):
    cells = [str(one.id), picture.partition("=")[0]]
    cells += [f"{result[0]:.2f}" if result else "" for result in results]
    return cells + [f"{result[1]:.4f}" if result else "" for result in results]


def mean_row(picture, both):
    """What we have over FFmpeg's default, of pairs of an id and results with its own."""
    gains = [(ours[0] - theirs[0], ours[1] - theirs[1]) for _, (ours, theirs, _) in both]
    below = [str(one.id) for (one, _), gain in zip(both, gains) if round(gain[0], 2) < 0]
    means = [sum(gain[i] for gain in gains) / len(gains) for i in range(2)]
    return [picture.partition("=")[0], f"{means[0]:+.2f} dB", f"{means[1]:+.4f}", ", ".join(below) or "none"]


def print_row(cells):
    print("| " + " | ".join(cells) + " |", flush=True)


def print_head(names, right):
    print_row(names)
    print("|" + "|".join("--:" if i in right else "---" for i in range(len(names))) + "|", flush=True)


def main():
    root = Path(__file__).resolve().parent.parent
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=root / "build/release", help="folder of the build")
    parser.add_argument("--ids", help="only these, with commas between (default all)")
    parser.add_argument("--frames", type=int, default=1, help="frames of each picture (default 1)")
    parser.add_argument("pictures", nargs="*", metavar="NAME=FILE[@FRAME]")
    options = parser.parse_args()
    rows = json.loads(run(options.build / "tools/zel/zel", "dnxhd", "ids", "--json").stdout)
    wanted = None if options.ids is None else set(map(int, options.ids.split(",")))
    ids = sorted((Id(row) for row in rows if wanted is None or row["id"] in wanted), key=lambda one: one.id)
    with tempfile.TemporaryDirectory() as folder:
        codec = Codec(options.build.resolve(), Path(folder))
        print_head(["Id", "Name", "Bytes of a frame", "Our frames: same rule", "own rule", "FFmpeg's frames: same rule",
                    "own rule"], {2})
        for one in ids:
            print_row(interop_row(codec, one))
        print()
        print_head(["Id", "Picture", "PSNR, dB", "FFmpeg's", "its best", "SSIM", "FFmpeg's", "its best"],
                   set(range(2, 8)))
        pictures = PATTERNS + options.pictures
        both = {picture: [] for picture in pictures}  # with frames of both encoders
        for one in ids:
            for picture in pictures:
                results = quality(codec, one, picture, options.frames)
                print_row(quality_row(one, picture, results))
                if results[1]:
                    both[picture].append((one, results))
        print()
        print_head(["Picture", "PSNR over FFmpeg's", "SSIM", "Ids below in PSNR"], {1, 2})
        for picture in pictures:
            if both[picture]:
                print_row(mean_row(picture, both[picture]))


if __name__ == "__main__":
    main()
