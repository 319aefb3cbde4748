"""What the tests of the zel command share: running it, and making its inputs.

The command under test is named by ZEL_COMMAND.
"""

import json
import os
import pathlib
import subprocess
import tempfile
import unittest

ZEL = os.environ.get("ZEL_COMMAND", "zel")
WIDTH, HEIGHT = 96, 64
FRAME_BYTES = WIDTH * HEIGHT * 3 // 2


def picture(index, width=WIDTH, height=HEIGHT):
    """A planar 4:2:0 picture: a texture that moves to the right over a ramp."""
    luma = bytearray()
    for y in range(height):
        luma += bytes((40 + y + ((x - 2 * index) * (y + 3) // 16) % 120) & 0xFF for x in range(width))
    half = [bytes((110 + (x + y + index) % 40) for y in range(height // 2) for x in range(width // 2)),
            bytes((120 + (x - y - index) % 30) for y in range(height // 2) for x in range(width // 2))]
    return bytes(luma) + half[0] + half[1]


def raw(frames, width=WIDTH, height=HEIGHT):
    return b"".join(picture(i, width, height) for i in range(frames))


def y4m(frames, parameters="F25:1", width=WIDTH, height=HEIGHT):
    header = f"YUV4MPEG2 W{width} H{height} {parameters}\n".encode()
    return header + b"".join(b"FRAME\n" + picture(i, width, height) for i in range(frames))


def mp2(frames):
    """Silence as MPEG audio, layer II: 128 kbit/s at 48 kHz, 24 ms a frame."""
    return (bytes([0xFF, 0xFD, 0x84, 0x00]) + bytes(380)) * frames


def hd_frame(index, width=1280, height=720, depth=8):
    """A planar 4:2:2 frame: a slanted ramp that moves, with little to see in it and quick to make."""
    def plane(columns, base, span):
        row = bytes(base + (x + 3 * index) * span // columns % span for x in range(2 * columns))
        return b"".join(row[y % 64:y % 64 + columns] for y in range(height))
    frame = plane(width, 40, 160) + plane(width // 2, 100, 50) + plane(width // 2, 90, 70)
    return frame if depth == 8 else b"".join(bytes((v << 2 & 0xFF, v >> 6)) for v in frame)


def hd_y4m(frames, width=1280, height=720, parameters="F25:1 Ip C422", depth=8):
    """4:2:2 frames of a raster that broadcast codecs take."""
    header = f"YUV4MPEG2 W{width} H{height} {parameters}\n".encode()
    return header + b"".join(b"FRAME\n" + hd_frame(i, width, height, depth) for i in range(frames))


class Outcome:
    def __init__(self, process):
        self.code = process.returncode
        self.out = process.stdout
        self.err = process.stderr.decode("utf-8", "replace")

    @property
    def json(self):
        return json.loads(self.out)

    @property
    def error_lines(self):
        return self.err.splitlines()


class ZelTest(unittest.TestCase):
    """A test in a folder of its own, which is the command's working directory."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="zel-test-")
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)

    def put(self, name, contents):
        (self.folder / name).write_bytes(contents)
        return name

    def get(self, name):
        return (self.folder / name).read_bytes()

    def has(self, name):
        return (self.folder / name).exists()

    def files(self):
        return sorted(path.name for path in self.folder.iterdir())

    def zel(self, *arguments, stdin=b"", **options):
        source = {"input": stdin} if isinstance(stdin, bytes) else {"stdin": stdin}
        options.setdefault("stdout", subprocess.PIPE)
        process = subprocess.run([ZEL, *arguments], cwd=self.folder, stderr=subprocess.PIPE, timeout=120,
                                 **source, **options)
        outcome = Outcome(process)
        if outcome.out is None:
            outcome.out = b""
        return outcome

    def done(self, *arguments, **options):
        outcome = self.zel(*arguments, **options)
        self.assertEqual(outcome.code, 0, outcome.err)
        return outcome

    def fails(self, *arguments, message, code=1, **options):
        """The command ends with `code`, and the one line that says why is `message`."""
        outcome = self.zel(*arguments, **options)
        self.assertEqual(outcome.code, code, outcome.err)
        self.assertEqual(outcome.out, b"")
        lines = outcome.error_lines
        if code == 2:
            self.assertRegex(lines.pop(), r"^Try 'zel .*--help'\.$")
        self.assertEqual(lines, ["zel: " + message])
        return outcome

    def misused(self, *arguments, message, **options):
        return self.fails(*arguments, message=message, code=2, **options)


def have(program):
    return any(os.access(os.path.join(folder, program), os.X_OK)
               for folder in os.environ.get("PATH", "").split(os.pathsep) if folder)
