"""Runs the examples of the help texts, as they stand, in a shell."""

import os
import pathlib
import subprocess

import help_text
from zel_command import ZEL, ZelTest, hd_y4m, mp2, raw, y4m


def all_examples():
    return [example for page in help_text.pages(ZEL) for example in page.examples]


def programs_of(example):
    """The programs that an example calls: the first word of each command of its pipeline."""
    return {command.split()[0] for command in example.split(" | ")}


class ExampleTest(ZelTest):
    def run_example(self, example):
        environment = dict(os.environ, PATH=f"{pathlib.Path(ZEL).resolve().parent}:{os.environ['PATH']}")
        process = subprocess.run(["bash", "-c", "set -o pipefail; " + example], cwd=self.folder, env=environment,
                                 stdin=subprocess.DEVNULL, capture_output=True, timeout=300)
        self.assertEqual(process.returncode, 0, f"{example}\n{process.stderr.decode()}")

    def run_examples(self, wanted):
        """Runs the examples whose programs `wanted` accepts; they find a clip, as Y4M and raw,
        one in HD, the sound of the first, and a multiplexer configuration."""
        self.put("clip.y4m", y4m(10, "F25:1", 320, 180))
        self.put("hd.y4m", hd_y4m(4))
        self.put("clip.yuv", raw(10, 320, 180))
        self.put("clip.mp2", mp2(20))
        self.put("mux.cfg", b"Transport*\nRate = 8000000\nProgram1*\n")
        examples = [example for example in all_examples() if wanted(programs_of(example))]
        for example in examples:
            with self.subTest(example=example):
                self.run_example(example)
        return len(examples)
