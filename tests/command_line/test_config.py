"""zel config check, keys and print."""

import unittest

from zel_command import ZelTest


class Config(ZelTest):
    def write(self, text):
        self.put("mux.cfg", text.encode())
        return "mux.cfg"

    def test_a_sound_file_has_no_faults(self):
        name = self.write("Transport*\nRate = 8000000\n")
        self.assertEqual(self.done("config", "check", name).out.decode(), "mux.cfg: no faults\n")
        self.assertEqual(self.done("config", "check", "--json", name).json, {"messages": [], "errors": 0})

    def test_faults_are_told_with_their_codes(self):
        name = self.write("Transport*\nRate = fast\nSpeed = 1\n")
        outcome = self.zel("config", "check", name)
        self.assertEqual(outcome.code, 1)
        self.assertEqual(outcome.out.decode().splitlines(), [
            "mux.cfg: error 3: Unrecognized parameter seen in line:'Speed = 1'",
            "mux.cfg: error 4: Error parsing parameter value in line:'Rate = fast'"])

    def test_print_puts_keys_in_order_and_leaves_defaults_out(self):
        name = self.write("Transport*\nVBR = yes\nrate = 5\nPktSize = 188\nProgram1*\n")
        self.assertEqual(self.done("config", "print", name).out.decode(),
                         "Transport*\nRate = 5.000\nVBR = yes\n\nProgram1*\nProgramNumber = 0x2\n"
                         "PMTPID = 0x20\nPMTvsn = 0x0\n")

    def test_what_is_no_configuration_fails(self):
        name = self.write("nothing\n")
        self.assertEqual(self.zel("config", "print", name).code, 1)
        self.assertEqual(self.zel("config", "check", "missing.cfg").code, 1)

    def test_keys(self):
        document = self.done("config", "keys", "--json").json
        self.assertEqual(list(document)[:3], ["Transport", "Program", "Video"])
        self.assertEqual(len(document), 10)
        self.assertEqual(document["Transport"]["StopOnAV"],
                         {"type": "choice", "default": "No", "choices": ["No", "First", "Last"]})
        self.assertIn("PktTSBytes", self.done("config", "keys", "pktts*").out.decode())
        self.assertEqual(self.zel("config", "keys", "nosuchkey").code, 1)


if __name__ == "__main__":
    unittest.main()
