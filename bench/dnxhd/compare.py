#!/usr/bin/env python3
"""The encoder beside FFmpeg's, at the same compression ids and on the same frames.

Quality: PSNR (luma, all planes) and SSIM against the source, as FFmpeg's filters tell them, of our
frames and of its own in its default macroblock decision mode, both decoded by our decoder. Speed:
frames a second of processor time, one thread. Reading and writing files is in neither figure: ours
keeps frames in memory, and from FFmpeg's time that of a run which doesn't encode is taken off.
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile

DNXHD_FRAMES = "@CMAKE_CURRENT_BINARY_DIR@/dnxhd_frames"

# What makes the other encoder take an id: bit rate, samples, size, interlaced.
IDS = {
    1235: ("185M", "yuv422p10le", "1920x1080", False),
    1237: ("120M", "yuv422p", "1920x1080", False),
    1238: ("185M", "yuv422p", "1920x1080", False),
    1241: ("185M", "yuv422p10le", "1920x1080", True),
    1242: ("120M", "yuv422p", "1920x1080", True),
    1243: ("185M", "yuv422p", "1920x1080", True),
    1250: ("90M", "yuv422p10le", "1280x720", False),
    1251: ("90M", "yuv422p", "1280x720", False),
    1252: ("60M", "yuv422p", "1280x720", False),
    1253: ("36M", "yuv422p", "1920x1080", False),
}

PICTURES = {
    "test": ["-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=25", "-vf", "noise=alls=8:allf=t"],
    "motion": ["-f", "lavfi", "-i", "testsrc=size=1920x1080:rate=25", "-vf", "rotate=0.1*t"],
    "noise": ["-f", "lavfi", "-i", "nullsrc=size=1920x1080:rate=25", "-vf",
              "geq=lum=random(1)*255:cb=128:cr=128"],
    "fractal": ["-f", "lavfi", "-i", "mandelbrot=size=1920x1080:rate=25:start_scale=0.01"],
}


def run(command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"compare: {' '.join(command)}: {result.stderr}")
    return result


def make_source(name, pixels, size, frames, file):
    command = ["ffmpeg", "-nostdin", "-v", "error", "-y"] + list(PICTURES.get(name, ["-i", name]))
    scale = "scale=" + size.replace("x", ":")
    if "-vf" in command:
        command[command.index("-vf") + 1] += "," + scale
    else:
        command += ["-vf", scale]
    run(command + ["-pix_fmt", pixels, "-frames:v", str(frames), "-f", "rawvideo", file])


def quality(source, decoded, pixels, size):
    raw = ["-f", "rawvideo", "-s", size, "-pix_fmt", pixels, "-i"]
    graph = "[0:v]split[a][b];[1:v]split[c][d];[a][c]psnr[o];[b][d]ssim[p]"
    told = run(["ffmpeg", "-nostdin", "-hide_banner"] + raw + [source] + raw + [decoded] +
               ["-lavfi", graph, "-map", "[o]", "-map", "[p]", "-f", "null", "-"]).stderr
    psnr = re.search(r"PSNR y:(\S+) .*average:(\S+)", told)
    ssim = re.search(r"SSIM .*All:(\S+)", told)
    return float(psnr.group(1)), float(psnr.group(2)), float(ssim.group(1))


def decoded(identity, frames, out):
    run([DNXHD_FRAMES, "decode", str(identity), frames, out, "1", "1", "own"])
    return out


def seconds(command):
    told = run(command).stderr
    times = re.search(r"bench: utime=([\d.]+)s stime=([\d.]+)s", told)
    return float(times.group(1)) + float(times.group(2))


def speeds(identity, source, frames, passes, folder):
    rate, pixels, size, interlaced = IDS[identity]
    ours = json.loads(run([DNXHD_FRAMES, "encode", str(identity), source,
                           os.path.join(folder, "speed.dnxhd"), "1", str(passes)]).stdout)
    read = ["ffmpeg", "-nostdin", "-hide_banner", "-benchmark", "-y", "-f", "rawvideo", "-s", size,
            "-pix_fmt", pixels, "-r", "25", "-stream_loop", str(passes - 1), "-i", source]
    encode = ["-c:v", "dnxhd", "-b:v", rate, "-threads", "1"]
    if interlaced:
        encode += ["-flags", "+ildct"]
    theirs = seconds(read + encode + ["-f", "null", "-"])
    theirs -= seconds(read + ["-f", "null", "-"])
    return ours["frames"] / ours["cpu"], frames * passes / max(theirs, 1e-6)


def compare(identity, name, options, folder):
    rate, pixels, size, interlaced = IDS[identity]
    source, ours, theirs, out = (os.path.join(folder, file)
                                 for file in ("in.raw", "o.dnxhd", "f.dnxhd", "out.raw"))
    make_source(name, pixels, size, options.frames, source)
    run([DNXHD_FRAMES, "encode", str(identity), source, ours, "1", "1"])
    mine = quality(source, decoded(identity, ours, out), pixels, size)
    command = ["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "rawvideo", "-s", size, "-pix_fmt",
               pixels, "-r", "25", "-i", source, "-c:v", "dnxhd", "-b:v", rate, "-mbd",
               options.decision]
    if interlaced:
        command += ["-flags", "+ildct"]
    run(command + ["-f", "rawvideo", theirs])
    other = quality(source, decoded(identity, theirs, out), pixels, size)
    line = (f"{identity} {os.path.basename(name):>12}  PSNR Y {mine[0]:6.2f} {other[0]:6.2f}  all "
            f"{mine[1]:6.2f} {other[1]:6.2f} dB  SSIM {mine[2]:.5f} {other[2]:.5f}")
    if options.passes > 0:
        fast, slow = speeds(identity, source, options.frames, options.passes, folder)
        line += f"  {fast:6.1f} {slow:6.1f} frames/s, {fast / slow:.2f} times"
    print(line, flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--ids", default=",".join(map(str, IDS)))
    parser.add_argument("--pictures", default=",".join(PICTURES),
                        help="names of patterns, or files that FFmpeg reads")
    parser.add_argument("--frames", type=int, default=4)
    parser.add_argument("--passes", type=int, default=8, help="for the speed; 0 leaves it out")
    parser.add_argument("--decision", default="simple", help="FFmpeg's -mbd")
    options = parser.parse_args()
    print("ours first, FFmpeg's second")
    for identity in map(int, options.ids.split(",")):
        for name in options.pictures.split(","):
            with tempfile.TemporaryDirectory() as folder:
                compare(identity, name, options, folder)


if __name__ == "__main__":
    main()
