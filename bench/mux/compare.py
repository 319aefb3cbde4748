#!/usr/bin/env python3
"""Multiplexes the same streams with zel mux, ffmpeg and GStreamer's mpegtsmux, in turn.

One MPEG-2 video and two audio streams for each program, at a constant rate. zel mux parses the elementary
streams, makes the time stamps and simulates the decoders' buffers; the other two get the same streams in a
Matroska file with ready-made time stamps, since an elementary stream with B pictures gives them none.
Processor time is that of the whole process, user and system. A run is set against the others' of the same turn,
since a machine's speed changes by the minute, and the median of those ratios counts. With --discard what comes
out goes to the null device, so that the file system's work, which is the same for all, isn't in the figures.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ZEL = "@CMAKE_BINARY_DIR@/tools/zel/zel"
PIECE = 4  # seconds that are encoded; the rest repeats them


def run(command):
    """Seconds of wall clock, of processor time, and of that the user's; and KiB of memory."""
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    error = process.stderr.read().decode("utf-8", "replace")
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"bench_mux: {command[0]} ended with {process.returncode}\n{error}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime, usage.ru_utime, usage.ru_maxrss


def ffmpeg(*arguments):
    subprocess.run(["ffmpeg", "-v", "error", "-y", *arguments], check=True, stdin=subprocess.DEVNULL)


def make_streams(folder, rate, seconds):
    """A Matroska file, and the elementary streams in it."""
    path = lambda name: os.path.join(folder, name)
    size = "1280x720" if rate > 6000000 else "480x270"
    video = rate * 9 // 10 - 400000
    ffmpeg("-f", "lavfi", "-i", f"testsrc2=size={size}:rate=25,noise=alls=30:allf=t",
           "-f", "lavfi", "-i", "sine=sample_rate=48000", "-t", str(PIECE),
           "-map", "0", "-map", "1", "-map", "1", "-pix_fmt", "yuv420p",
           "-c:v", "mpeg2video", "-b:v", str(video), "-maxrate", str(video), "-bufsize", str(video // 4),
           "-bf", "2", "-g", "12", "-c:a:0", "mp2", "-b:a:0", "192k", "-c:a:1", "ac3", "-b:a:1", "192k",
           path("piece.mkv"))
    ffmpeg("-stream_loop", str(max(seconds // PIECE - 1, 0)), "-i", path("piece.mkv"), "-map", "0",
           "-c", "copy", path("all.mkv"))
    names = {"v:0": "mpeg2video", "a:0": "mp2", "a:1": "ac3"}
    for stream, form in names.items():
        ffmpeg("-i", path("all.mkv"), "-map", f"0:{stream}", "-c", "copy", "-f", form, path(form))
    return path("all.mkv"), [path(form) for form in names.values()]


def commands(options, folder, matroska, streams):
    out = {name: os.devnull if options.discard else os.path.join(folder, name + ".ts")
           for name in ("zel", "ffmpeg", "gstreamer")}
    zel = [ZEL, "mux", "--quiet", "--rate", str(options.rate), "-o", out["zel"]]
    for program in range(1, options.programs + 1):
        zel += ["--program", str(program), *streams]
    result = {"zel": zel}
    if shutil.which("ffmpeg"):
        command = ["ffmpeg", "-v", "error", "-y", "-nostdin"] + ["-i", matroska] * options.programs
        for program in range(options.programs):
            command += ["-map", str(program)]
        for program in range(options.programs):
            command += ["-program", ":".join(f"st={program * 3 + each}" for each in range(3))]
        result["ffmpeg"] = command + ["-c", "copy", "-f", "mpegts", "-muxrate", str(options.rate), out["ffmpeg"]]
    if shutil.which("gst-launch-1.0") and options.programs == 1:
        result["gstreamer"] = [
            "gst-launch-1.0", "-q", "mpegtsmux", "name=m", f"bitrate={options.rate}", "!", "filesink",
            "location=" + out["gstreamer"], "filesrc", "location=" + matroska, "!", "matroskademux", "name=d",
            "d.video_0", "!", "queue", "!", "mpegvideoparse", "!", "m.", "d.audio_0", "!", "queue", "!",
            "mpegaudioparse", "!", "m.", "d.audio_1", "!", "queue", "!", "ac3parse", "!", "m."]
    return result, out


def compare(options, folder):
    matroska, streams = make_streams(folder, options.rate // options.programs, options.seconds)
    rivals, out = commands(options, folder, matroska, streams)
    figures = {name: [] for name in rivals}
    for turn in range(options.runs + 1):
        for name, command in rivals.items():
            if not options.discard and os.path.exists(out[name]):
                os.remove(out[name])  # what a file held before takes time to free
            figure = run(command)
            if turn > 0:  # the first turn warms the caches
                figures[name].append(figure)
    print(f"{options.seconds} s at {options.rate / 1e6:g} Mbit/s, {options.programs} "
          f"program{'s' if options.programs > 1 else ''} of one video and two audio streams, "
          f"{options.runs} runs each")
    for name, runs in figures.items():
        wall, cpu, user, memory = (statistics.median(column) for column in zip(*runs))
        print(f"{name:10s} processor {cpu:6.3f} s ({min(r[1] for r in runs):.3f} to {max(r[1] for r in runs):.3f}), "
              f"user {user:6.3f} s, wall {wall:6.3f} s, {memory / 1024:5.1f} MiB"
              + ("" if options.discard else f", {os.path.getsize(out[name]) / 1e6:6.1f} MB"))
    ratios = {name: statistics.median(mine[1] / other[1] for mine, other in zip(figures["zel"], runs))
              for name, runs in figures.items() if name != "zel"}
    for name, ratio in ratios.items():
        print(f"zel / {name}: {ratio:.2f}")
    return options.limit is None or "ffmpeg" not in ratios or ratios["ffmpeg"] <= options.limit


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--seconds", type=int, default=96, help="96 at 20 Mbit/s are 240 MB")
    parser.add_argument("--rate", type=int, default=20000000, help="of the transport stream, bit/s")
    parser.add_argument("--programs", type=int, default=1)
    parser.add_argument("--runs", type=int, default=5, help="of each")
    parser.add_argument("--discard", action="store_true", help="keep the file system out of the figures")
    parser.add_argument("--limit", type=float, help="fail when processor time against ffmpeg's is above this")
    options = parser.parse_args()
    if shutil.which("ffmpeg") is None:
        print("bench_mux: skipped, ffmpeg is not installed; it makes the streams too")
        return 0
    with tempfile.TemporaryDirectory() as folder:
        return 0 if compare(options, folder) else 1


sys.exit(main())
