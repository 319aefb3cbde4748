"""groff has nothing to object to in the manual pages."""

import re
import subprocess
import unittest

import make_man
from zel_command import ZEL, ZelTest, have


def setUpModule():
    if not have("groff"):
        raise unittest.SkipTest("groff is not installed")


class ManualFormat(ZelTest):
    def test_pages_format_without_warnings(self):
        subprocess.run([make_man.__file__, ZEL, "."], cwd=self.folder, check=True)
        names = self.files()
        self.assertIn("zel-hevc-encode.1", names)
        for name in names:
            process = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-rLL=78n", name], cwd=self.folder,
                                     capture_output=True, text=True)
            self.assertEqual((process.returncode, process.stderr), (0, ""), name)
            # Bold is a letter struck over itself.
            self.assertIn("EXAMPLES", re.sub(".\b", "", process.stdout))


if __name__ == "__main__":
    unittest.main()
