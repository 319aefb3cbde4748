#!/usr/bin/env python3
"""Encodes the same pictures with the encoder front end and with the x265 program, in turn.

Both get the same preset, frame threads, bit rate and frame rate, and x265 takes its pictures from
standard input, so that it doesn't know their number, which a front end that is fed picture by
picture can't know either. Then the streams must be the same to the last byte, information SEI and
all. x265 itself isn't steady when two frame threads share a rate control: now and then a run gives
other bytes than the one before. So each run's stream is kept in mind, and those of the program
among themselves stand beside those of the front end: what both give has to be the same.

Times are those of the whole process, from start to end. A run of the one is set against the run of
the other next to it, since a machine's speed changes by the minute; the median of those ratios
counts.
"""

import argparse
import collections
import hashlib
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ENCODE_STREAM = "@CMAKE_CURRENT_BINARY_DIR@/encode_stream"
PRESETS = ["ultrafast", "superfast", "veryfast", "faster", "fast", "medium"]


def run(command, stdin=None):
    """Seconds of wall clock and of processor time that a command took."""
    start = time.monotonic()
    with open(stdin or os.devnull, "rb") as source:
        process = subprocess.Popen(command, stdin=source)
        _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"bench_encode: {command[0]} ended with {process.returncode}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def spread(values):
    return f"{statistics.median(values):7.3f} s ({min(values):.3f} to {max(values):.3f})"


def compare(options, x265, folder):
    pictures = os.path.join(folder, "in.y4m")
    outputs = [os.path.join(folder, name) for name in ("front_end.hevc", "x265.hevc")]
    subprocess.run([ENCODE_STREAM, "--make", pictures, str(options.width), str(options.height),
                    str(options.count)], check=True)
    front_end = [ENCODE_STREAM, pictures, outputs[0], str(PRESETS.index(options.preset)),
                 str(options.threads), str(options.kbps * 1000)]
    program = [x265, "--y4m", "--input", "-", "--preset", options.preset, "--frame-threads",
               str(options.threads), "--bitrate", str(options.kbps), "--log-level", "none",
               "--no-progress", "--output", outputs[1]]
    print("front end:", " ".join(front_end))
    print("program:  ", " ".join(program))

    wall, cpu = ([], []), ([], [])
    streams = (collections.Counter(), collections.Counter())
    for turn in range(options.runs + 1):
        # Each goes first every other time.
        for which in ((0, 1), (1, 0))[turn % 2]:
            times = run(front_end) if which == 0 else run(program, pictures)
            streams[which][digest(outputs[which])] += 1
            if turn > 0:  # the first turn warms the caches
                wall[which].append(times[0])
                cpu[which].append(times[1])
    usual = [counts.most_common(1)[0] for counts in streams]
    identical = usual[0][0] == usual[1][0]
    print(f"{options.count} pictures of {options.width} x {options.height}, {options.preset}, "
          f"{options.threads} frame threads, {options.kbps} kb/s, {options.runs} runs each")
    print("streams:   ", "the same bytes" if identical else "DIFFERENT",
          f"(in {usual[0][1]} of {options.runs + 1} runs of the front end, {usual[1][1]} of the program)")
    worst = 0.0
    for name, values in (("wall", wall), ("processor", cpu)):
        ratio = statistics.median(mine / other for mine, other in zip(*values))
        worst = max(worst, ratio)
        print(f"{name:10s}  front end {spread(values[0])}, program {spread(values[1])}, "
              f"ratio {ratio:.4f}")
    return identical and (options.limit is None or worst <= options.limit)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--width", type=int, default=1280)
    parser.add_argument("--height", type=int, default=720)
    parser.add_argument("--count", type=int, default=120, help="pictures")
    parser.add_argument("--preset", choices=PRESETS, default="superfast")
    parser.add_argument("--threads", type=int, default=2, help="frame threads")
    parser.add_argument("--kbps", type=int, default=3000)
    parser.add_argument("--runs", type=int, default=9, help="of each")
    parser.add_argument("--limit", type=float, help="fail when a ratio is above this")
    options = parser.parse_args()
    x265 = shutil.which("x265")
    if x265 is None:
        print("bench_encode: skipped, the x265 program is not installed")
        return 0
    with tempfile.TemporaryDirectory() as folder:
        return 0 if compare(options, x265, folder) else 1


sys.exit(main())
