"""What happens to output files when things go wrong: full disks, closed pipes, signals, wrong names."""

import os
import pty
import resource
import signal
import subprocess
import time
import unittest

from zel_command import ZEL, ZelTest, picture, y4m

ENCODE = ["hevc", "encode", "in.y4m", "--preset", "ultrafast"]


class OutputFiles(ZelTest):
    def setUp(self):
        super().setUp()
        self.put("in.y4m", y4m(6))

    def start(self, *arguments, **options):
        options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("stdout", subprocess.DEVNULL)
        options.setdefault("stderr", subprocess.PIPE)
        process = subprocess.Popen([ZEL, *arguments], cwd=self.folder, **options)
        self.addCleanup(process.wait)
        self.addCleanup(lambda: process.poll() is None and process.kill())
        for stream in (process.stdin, process.stderr):
            if stream is not None:
                self.addCleanup(stream.close)
        return process

    def wait_for(self, condition):
        deadline = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)

    def test_output_is_never_the_input(self):
        before = self.get("in.y4m")
        os.link(self.folder / "in.y4m", self.folder / "hard")
        os.symlink("in.y4m", self.folder / "soft")
        for name in ("in.y4m", "./in.y4m", "hard", "soft"):
            self.misused(*ENCODE, "-o", name,
                         message=f"hevc encode: {name} is the input itself, which it would overwrite; name another file")
            self.misused(*ENCODE, "-o", "out.hevc", "--timing", name,
                         message=f"hevc encode: {name} is the input itself, which it would overwrite; name another file")
            self.assertEqual(self.get("in.y4m"), before)
        self.assertFalse(self.has("out.hevc"))

    def test_output_is_never_what_standard_input_reads(self):
        before = self.get("in.y4m")
        with open(self.folder / "in.y4m", "rb") as source:
            outcome = self.zel("hevc", "encode", "-", "-o", "in.y4m", stdin=source)
        self.assertEqual(outcome.code, 2)
        with open(self.folder / "in.y4m", "rb") as source, open(self.folder / "in.y4m", "ab") as target:
            outcome = self.zel("hevc", "encode", "-", "-o", "-", stdin=source, stdout=target)
        self.assertEqual(outcome.code, 2)
        self.assertEqual(self.get("in.y4m"), before)

    def test_two_outputs_are_never_one_file(self):
        self.misused(*ENCODE, "-o", "out", "--timing", "./out",
                     message="hevc encode: ./out is the --output file itself, which it would overwrite; "
                             "name another file")
        self.assertFalse(self.has("out"))

    def test_a_full_disk(self):
        self.fails(*ENCODE, "-o", "/dev/full", message="hevc encode: /dev/full: No space left on device")
        self.fails(*ENCODE, "-o", "out.hevc", "--timing", "/dev/full",
                   message="hevc encode: /dev/full: No space left on device")
        self.assertFalse(self.has("out.hevc"))
        with open("/dev/full", "wb") as full:
            outcome = self.zel(*ENCODE, "-o", "-", stdout=full)
        self.assertEqual(outcome.code, 1)
        self.assertEqual(outcome.err, "zel: hevc encode: standard output: No space left on device\n")
        self.assertTrue(os.path.exists("/dev/full"))

    def test_a_file_that_grows_too_large_is_removed(self):
        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000))

        self.fails(*ENCODE, "-o", "out.hevc", "--command-line", "--lossless", preexec_fn=limit,
                   message="hevc encode: out.hevc: File too large")
        self.assertEqual(self.files(), ["in.y4m"])

    def test_a_beginning_that_cannot_be_removed_is_told_of(self):
        self.put("in.y4m", y4m(6) + b"JUNK" * 4000)
        with open(self.folder / "out.hevc", "wb") as target:
            outcome = self.zel(*ENCODE, "-o", "-", "--command-line", "--bframes 0 --rc-lookahead 1", stdout=target)
        self.assertEqual(outcome.code, 1)
        self.assertTrue(outcome.err.endswith("; the file has only the beginning of the stream\n"), outcome.err)

    def test_a_mistake_costs_no_file(self):
        self.put("out.hevc", b"precious")
        for options in (["--crf", "99"], ["--command-line", "--ctu 7"]):
            self.assertNotEqual(self.zel(*ENCODE, "-o", "out.hevc", *options).code, 0)
            self.assertEqual(self.get("out.hevc"), b"precious")

    def test_unreachable_outputs(self):
        self.fails(*ENCODE, "-o", "no/out", message="hevc encode: no/out: No such file or directory")
        self.fails(*ENCODE, "-o", ".", message="hevc encode: .: Is a directory")
        self.fails(*ENCODE, "-o", "out", "--timing", "no/out", message="hevc encode: no/out: No such file or directory")
        self.assertEqual(self.files(), ["in.y4m"])

    def test_a_closed_pipe(self):
        reader, writer = os.pipe()
        os.close(reader)
        process = self.start(*ENCODE, "-o", "-", stdout=writer)
        os.close(writer)
        self.assertEqual(process.stderr.read(), b"zel: hevc encode: standard output was closed by its reader\n")
        self.assertEqual(process.wait(), 1)

    def test_signals_remove_what_is_unfinished(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process = self.start("hevc", "encode", "-", "-o", "out.hevc", "--timing", "out.csv",
                                 stdin=subprocess.PIPE)
            process.stdin.write(b"YUV4MPEG2 W96 H64 F25:1\nFRAME\n" + picture(0))
            process.stdin.flush()
            self.wait_for(lambda: self.has("out.hevc") and self.has("out.csv"))
            process.send_signal(number)
            self.assertEqual(process.wait(60), -number)
            self.assertEqual(self.files(), ["in.y4m"])

    def test_pipes_as_outputs_stay(self):
        os.mkfifo(self.folder / "fifo")
        process = self.start("hevc", "encode", "-", "-o", "fifo", "--preset", "ultrafast", stdin=subprocess.PIPE)
        process.stdin.write(y4m(2) + b"JUNK" * 4000)
        process.stdin.close()
        with open(self.folder / "fifo", "rb") as reader:
            reader.read()
        self.assertEqual(process.wait(60), 1)
        self.assertTrue(self.has("fifo"))

    def test_binary_output_spares_the_terminal(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        process = self.start(*ENCODE, "-o", "-", stdout=slave)
        os.close(slave)
        self.assertIn(b"--output - would fill the terminal with binary data", process.stderr.read())
        self.assertEqual(process.wait(), 2)


class ProgressLine(ZelTest):
    def on_terminal(self, *options):
        """What standard error shows when it is a terminal."""
        master, slave = pty.openpty()
        self.put("in.y4m", y4m(6))
        process = subprocess.Popen([ZEL, *ENCODE, "-o", "out.hevc", *options], cwd=self.folder, stderr=slave,
                                   stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        os.close(slave)
        shown = b""
        while True:
            try:
                part = os.read(master, 4096)
            except OSError:  # the terminal's other end is closed
                break
            if not part:
                break
            shown += part
        os.close(master)
        process.stdout.close()
        self.assertEqual(process.wait(), 0)
        return shown.decode()

    def test_is_one_line_that_is_rewritten_and_taken_away(self):
        shown = self.on_terminal()
        self.assertIn(" of 6 frames (", shown)
        status, _, summary = shown.rpartition("\r\x1b[K")
        self.assertNotIn("\n", status)
        self.assertRegex(summary, r"^6 frames, 96x64, .*\r\n$")

    def test_is_silent_when_asked(self):
        self.assertEqual(self.on_terminal("--quiet"), "")

    def test_is_silent_without_a_terminal(self):
        self.put("in.y4m", y4m(6))
        self.assertNotIn("\x1b", self.done(*ENCODE, "-o", "out.hevc").err)


if __name__ == "__main__":
    unittest.main()
