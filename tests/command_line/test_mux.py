"""zel mux: options, configurations, outputs and failures."""

import resource
import subprocess
import unittest

from zel_command import ZEL, ZelTest, mp2

FRAMES = 200  # 4.8 s
PACKET = 188


class Mux(ZelTest):
    def setUp(self):
        super().setUp()
        self.put("a.mp2", mp2(FRAMES))

    def packets_of(self, name, pid):
        """Packets of a PID; every packet begins with the sync byte."""
        stream = self.get(name)
        self.assertEqual(len(stream) % PACKET, 0)
        packets = [stream[i:i + PACKET] for i in range(0, len(stream), PACKET)]
        self.assertEqual({packet[0] for packet in packets}, {0x47})
        return [packet for packet in packets if (packet[1] & 0x1F) << 8 | packet[2] == pid]

    def test_kinds_are_seen_from_content(self):
        outcome = self.done("mux", "a.mp2,PID=0x123", "-o", "a.ts", "--json").json
        stream = outcome["streams"][-1]
        self.assertEqual((stream["pid"], stream["kind"]), (0x123, "MPEG audio layer II"))
        self.assertEqual(len(self.packets_of("a.ts", 0x123)), stream["packets"])
        self.assertEqual(len(self.get("a.ts")), outcome["bytes"])
        self.assertEqual(outcome["packets"] * PACKET, outcome["bytes"])
        self.assertEqual(outcome["warnings"], [])
        self.assertAlmostEqual(outcome["seconds"], 4.8, delta=0.2)
        self.assertGreater(stream["buffer"]["limit"], stream["buffer"]["highest"])
        self.assertGreaterEqual(stream["buffer"]["lowest"], 0)

    def test_the_summary_is_for_people(self):
        outcome = self.done("mux", "a.mp2", "--rate", "1M", "-o", "a.ts")
        self.assertEqual(outcome.out, b"")
        self.assertRegex(outcome.err, r"^a\.ts: 4\.\d\d s at 1,000,000 bit/s, [\d,]+ packets")
        self.assertIn("MPEG audio layer II *", outcome.err)
        self.assertEqual(self.done("mux", "a.mp2", "-o", "a.ts", "--quiet").err, "")

    def test_standard_output_takes_the_stream(self):
        out = self.done("mux", "a.mp2", "--rate", "1M", "-o", "-").out
        self.done("mux", "a.mp2", "--rate", "1M", "-o", "a.ts")
        self.assertEqual(out, self.get("a.ts"))

    def test_a_saved_configuration_gives_the_same_bytes(self):
        options = ["--program", "5,PCRper=40", "--audio", "a.mp2,PID=0x65,Descriptor1=0A 04 64 65 75 00",
                   "--program", "none", "--table", "Table1=4E F0 00,PID=18,Rate=8000", "--rate", "900k",
                   "--set", "PATtsid=9"]
        self.done("mux", *options, "-o", "a.ts", "--save-config", "a.cfg")
        first = self.get("a.ts")
        self.done("mux", *options, "-o", "a.ts")
        self.assertEqual(self.get("a.ts"), first)
        self.done("mux", "--config", "a.cfg", "-o", "b.ts")
        self.assertEqual(self.get("b.ts"), first)
        # The configuration names its own output.
        (self.folder / "a.ts").unlink()
        self.done("mux", "--config", "a.cfg")
        self.assertEqual(self.get("a.ts"), first)
        self.assertIn("no faults", self.done("config", "check", "a.cfg").out.decode())

    def test_options_go_before_the_configuration(self):
        self.done("mux", "a.mp2", "--rate", "900k", "--save-config", "a.cfg")
        self.assertFalse(self.has("a.ts"))
        outcome = self.done("mux", "--config", "a.cfg", "--rate", "700k", "-o", "a.ts", "--json")
        self.assertEqual(outcome.json["rate"], 700000)

    def test_a_trace_has_a_row_a_packet(self):
        outcome = self.done("mux", "a.mp2,PID=0x65", "--rate", "1M", "-o", "a.ts", "--trace", "t.csv", "--json").json
        rows = self.get("t.csv").decode().splitlines()
        self.assertEqual(rows[0], "packet,seconds,pid,kind,pcr,unit_start,level,limit")
        self.assertEqual(len(rows) - 1, outcome["packets"])
        levels = [int(row.split(",")[6]) for row in rows if ",101,audio," in row and not row.endswith(",,")]
        self.assertLess(max(levels), outcome["streams"][-1]["buffer"]["limit"])

    def test_programs_have_their_streams(self):
        streams = self.done("mux", "--program", "7", "a.mp2", "--program", "9", "a.mp2", "--program", "7", "a.mp2",
                            "-o", "a.ts", "--json").json["streams"]
        audio = [stream["program"] for stream in streams if stream["kind"].startswith("MPEG")]
        self.assertEqual(sorted(audio), [7, 7, 9])

    def test_wrong_usage(self):
        self.misused("mux", "-o", "a.ts", message="mux: there is nothing to multiplex: name streams, or a "
                     "configuration by --config")
        self.misused("mux", "a.mp2", message="mux: option --output is missing: the transport stream; - for standard "
                     "output")
        self.misused("mux", "--config", "c", "a.mp2", "-o", "a.ts", message="mux: --config already says what the "
                     "streams are; leave it or the streams away")
        self.misused("mux", "--audio", "a.mp2,PIDD=1", "-o", "a.ts",
                     message="mux: --audio: section Audio has no key PIDD; did you mean \"PID\"?")
        self.misused("mux", "--audio", "a.mp2,PID=many", "-o", "a.ts",
                     message="mux: the options: Error parsing parameter value in line:'PID = many'")
        self.misused("mux", "a.mp2", "-o", "a.mp2",
                     message="mux: a.mp2 is the input itself, which it would overwrite; name another file")
        self.misused("mux", "a.mp2", "--two-pass", "--trace", "t.csv", "-o", "a.ts",
                     message="mux: --trace tells of one pass; leave --two-pass away")
        self.misused("mux", "--program", "x", "a.mp2", "-o", "a.ts",
                     message="mux: --program is \"x\"; it takes a number from 1 to 65535, or none")
        self.assertEqual(self.get("a.mp2"), mp2(FRAMES))
        self.assertEqual(self.files(), ["a.mp2"])

    def test_what_is_not_recognised_is_asked_for(self):
        self.put("noise", bytes((i * i * 7 + i // 3) & 0xFF for i in range(5000)))
        outcome = self.zel("mux", "noise", "-o", "a.ts")
        self.assertEqual(outcome.code, 2)
        self.assertIn("noise holds nothing that is known; give it by the option of its kind", outcome.err)
        self.done("mux", "a.mp2", "-o", "a.ts")
        outcome = self.zel("mux", "a.ts", "-o", "b.ts")
        self.assertEqual(outcome.code, 2)
        self.assertIn("a.ts is a transport stream; name the stream to take out of it", outcome.err)

    def test_missing_files(self):
        self.fails("mux", "-", "-o", "a.ts", message="mux: standard input: streams are read from files")
        self.fails("mux", "b.mp2", "-o", "a.ts", message="mux: b.mp2: cannot open: No such file or directory")
        self.fails("mux", "--audio", "b.mp2", "-o", "a.ts",
                   message="mux: Audio stream input file open error.  Filename = b.mp2")
        self.fails("mux", "--config", "c.cfg", "-o", "a.ts", message="mux: c.cfg: cannot open: No such file or directory")
        self.assertFalse(self.has("a.ts"))

    def test_streams_that_are_none(self):
        noise = bytes((i * 89 >> 3) & 0xFF for i in range(20000))
        for contents, message in ((b"", "Audio never acquired"),
                                  (noise, "Audio file did not start with sync frame.  First byte = 0x00")):
            self.put("bad", contents)
            self.fails("mux", "--audio", "bad", "-o", "a.ts", message="mux: " + message)
            self.assertFalse(self.has("a.ts"))

    def test_a_broken_configuration_stops_before_anything_is_written(self):
        self.put("c.cfg", b"Transport*\nRate = fast\nProgram1*\nAudio1$\nFile = a.mp2\n")
        self.fails("mux", "--config", "c.cfg", "-o", "a.ts",
                   message="mux: c.cfg: Error parsing parameter value in line:'Rate = fast'")
        self.assertFalse(self.has("a.ts"))

    def test_warnings_are_told_once_and_can_make_an_exit_code(self):
        arguments = ["mux", "a.mp2", "--rate", "100k", "-o", "a.ts"]
        outcome = self.zel(*arguments)
        self.assertEqual(outcome.code, 0, outcome.err)
        warnings = [line for line in outcome.error_lines if "warning" in line]
        self.assertTrue(any("Components exceed configured transport rate" in line for line in warnings), warnings)
        self.assertTrue(any("Audio decoder underflow" in line and "times)" in line for line in warnings), warnings)
        self.assertEqual(len(warnings), len(set(warnings)))
        self.assertEqual(self.zel(*arguments, "--report-warnings").code, 3)

    def test_stopping_on_a_warning_keeps_whole_packets(self):
        outcome = self.zel("mux", "a.mp2", "--rate", "100k", "--set", "StopOnWarning=yes", "-o", "a.ts")
        self.assertEqual(outcome.code, 1)
        self.assertIn("Components exceed configured transport rate", outcome.err)
        self.assertFalse(self.has("a.ts") and len(self.get("a.ts")) % PACKET)

    def test_a_full_disk_is_told(self):
        outcome = self.zel("mux", "a.mp2", "--rate", "1M", "-o", "/dev/full")
        self.assertEqual(outcome.code, 1)
        self.assertIn("No space left on device", outcome.err)

    CONFIGURATION = b"Transport*\nFile = a.ts\nRate = 1000000\nProgram1*\nAudio1$\nFile = a.mp2\n"

    def check_whole_packets(self, name, most):
        stream = self.get(name)
        self.assertEqual(len(stream) % PACKET, 0)
        self.assertEqual({byte for byte in stream[::PACKET]}, {0x47})
        self.assertGreater(len(stream), most // 2)
        self.assertLessEqual(len(stream), most)

    def test_a_largest_size_of_files_that_is_reached(self):
        most = 100000  # no multiple of a packet, nor of a block

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (most, most))

        outcome = self.zel("mux", "a.mp2", "--rate", "1M", "-o", "a.ts", preexec_fn=limit)
        self.assertEqual((outcome.code, outcome.err), (1, "zel: mux: a.ts: File too large\n"))
        self.assertFalse(self.has("a.ts"))
        # What the engine writes by itself stays, up to the last whole packet.
        self.put("a.cfg", self.CONFIGURATION)
        outcome = self.zel("mux", "--config", "a.cfg", preexec_fn=limit)
        self.assertEqual(outcome.code, 1)
        self.assertIn("Error writing to output file. No space left on device: Disk Full", outcome.err)
        self.check_whole_packets("a.ts", most)

    def test_a_small_file_system_that_fills(self):
        # In a name space of its own anybody may mount one, where the system allows it.
        (self.folder / "small").mkdir()
        self.put("a.cfg", self.CONFIGURATION.replace(b"a.ts", b"small/a.ts"))
        inside = ("mount -t tmpfs -o size=100k none small || exit 77; "
                  f"{ZEL} mux a.mp2 --rate 1M -o small/b.ts; echo $?; ls small; "
                  f"{ZEL} mux --config a.cfg; echo $?; cp small/a.ts kept.ts")
        process = subprocess.run(["unshare", "--user", "--map-root-user", "--mount", "sh", "-c", inside],
                                 cwd=self.folder, capture_output=True, timeout=60, check=False)
        if process.returncode == 77 or b"unshare" in process.stderr:
            self.skipTest("no file system can be mounted here")
        self.assertEqual(process.stdout.split(), [b"1", b"1"], "b.ts is removed")
        errors = process.stderr.decode().splitlines()
        self.assertEqual(errors[0], "zel: mux: small/b.ts: No space left on device")
        self.assertIn("No space left on device: Disk Full", errors[1])
        self.check_whole_packets("kept.ts", 100 * 1024)


if __name__ == "__main__":
    unittest.main()
