"""zel mux on damaged input of every kind: a message and whole packets, never a crash or a hang."""

import random
import subprocess
import unittest

from zel_command import ZEL, ZelTest, mp2, y4m

PACKET = 188
SEED = 20120101


def damaged(stream):
    """What can have happened to a stream: by name."""
    chance = random.Random(SEED)
    blocks = [stream[i:i + 512] for i in range(0, len(stream), 512)]
    chance.shuffle(blocks)
    holes = bytearray(stream)
    for _ in range(40):
        holes[chance.randrange(len(holes))] = chance.randrange(256)
    return {
        "empty": b"",
        "one byte": stream[:1],
        "cut in its first header": stream[:9],
        "cut early": stream[:len(stream) // 7],
        "cut late": stream[:-3],
        "without its beginning": stream[100:],
        "shuffled": b"".join(blocks),
        "with wrong bytes": bytes(holes),
        "noise": bytes(chance.randrange(256) for _ in range(30000)),
        "zeros": bytes(30000),
        "ones": b"\xFF" * 30000,
        "twice": stream + stream[37:],
    }


class BadInput(ZelTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        encoded = subprocess.run([ZEL, "hevc", "encode", "-", "-o", "-", "--quiet", "--preset", "ultrafast"],
                                 input=y4m(30, "F25:1", 320, 180), capture_output=True, check=True, timeout=120)
        cls.hevc = encoded.stdout
        wave = (b"RIFF" + (36 + 96000).to_bytes(4, "little") + b"WAVEfmt " +
                bytes([16, 0, 0, 0, 1, 0, 2, 0, 0x80, 0xBB, 0, 0, 0, 0xEE, 2, 0, 4, 0, 16, 0]) + b"data" +
                (96000).to_bytes(4, "little") + bytes(96000))
        cls.streams = {"--video": cls.hevc, "--audio": mp2(60), "--smpte302m": wave, "--lpcm": wave}

    def check_outcome(self, outcome, name):
        """Done, with or without warnings, or one line that says why not; whole packets in any case."""
        self.assertIn(outcome.code, (0, 1), f"{name}: {outcome.err}")
        failures = [line for line in outcome.error_lines if line.startswith("zel: mux: ") and "warning: " not in line]
        self.assertEqual(len(failures), outcome.code, f"{name}: {outcome.err}")
        if self.has("out.ts"):
            stream = self.get("out.ts")
            self.assertEqual(len(stream) % PACKET, 0, name)
            self.assertEqual({byte for byte in stream[::PACKET]} - {0x47}, set(), name)
            (self.folder / "out.ts").unlink()

    def test_every_kind_damaged_in_every_way(self):
        self.put("good.hevc", self.hevc)
        for option, stream in self.streams.items():
            for name, contents in damaged(stream).items():
                with self.subTest(option=option, damage=name):
                    self.put("bad", contents)
                    arguments = [option, "bad", "--rate", "8M", "-o", "out.ts", "--quiet"]
                    if option != "--video":
                        arguments = ["--video", "good.hevc", *arguments]
                    self.check_outcome(self.zel("mux", *arguments), f"{option} {name}")

    def test_every_option_with_every_other_kind(self):
        for option in (*self.streams, "--data", "--table", "--private", "--scte35"):
            for kind, contents in self.streams.items():
                with self.subTest(option=option, kind=kind):
                    self.put("bad", contents)
                    self.check_outcome(self.zel("mux", option, "bad,Rate=100000", "--rate", "8M", "-o", "out.ts",
                                                "--quiet"), f"{option} {kind}")

    def test_a_transport_stream_as_video(self):
        self.put("good.hevc", self.hevc)
        self.done("mux", "good.hevc", "--rate", "4M", "-o", "good.ts", "--quiet")
        self.check_outcome(self.zel("mux", "--video", "good.ts", "-o", "out.ts", "--quiet"), "as it is")
        # By its PID the stream is in there; another PID is in none.
        outcome = self.zel("mux", "--video", "good.ts,SourceTSPID=0x21", "--rate", "4M", "-o", "out.ts", "--quiet")
        self.assertEqual(outcome.code, 0, outcome.err)
        self.check_outcome(outcome, "by its PID")
        self.check_outcome(self.zel("mux", "--video", "good.ts,SourceTSPID=0x99", "-o", "out.ts", "--quiet"),
                           "by no PID")
        cut = self.get("good.ts")
        for name, contents in damaged(cut).items():
            self.put("bad.ts", contents)
            self.check_outcome(self.zel("mux", "--video", "bad.ts,SourceTSPID=0x21", "--rate", "4M", "-o", "out.ts",
                                        "--quiet"), name)

    def test_a_reader_that_goes_away(self):
        self.put("good.hevc", self.hevc)
        self.put("good.mp2", mp2(4000))
        process = subprocess.run(["bash", "-c", f"{ZEL} mux good.mp2 --rate 3M -o - | head -c 18800 | wc -c; "
                                                "exit ${PIPESTATUS[0]}"], cwd=self.folder, capture_output=True,
                                 timeout=60, check=False)
        self.assertEqual(process.stdout.strip(), b"18800")
        self.assertEqual(process.returncode, 1)
        self.assertIn(b"standard output was closed by its reader", process.stderr)


if __name__ == "__main__":
    unittest.main()
