#!/usr/bin/env python3
"""Small trees with one wrong include each: scripts/check_includes.py has to see it, and no more."""

import importlib.util
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/check_includes.py"
SPEC = importlib.util.spec_from_file_location("check_includes", SCRIPT)
check_includes = importlib.util.module_from_spec(SPEC)
SPEC.loader.exec_module(check_includes)

# A house in order: each entry is a file, and what it includes.
HOUSE = {
    "zel/base/bits.h": [],
    "zel/platform/event.h": ['"zel/base/bits.h"'],
    "zel/syntax/nal.h": ['"zel/base/bits.h"'],
    "zel/runtime/object.h": ["<atomic>"],
    "zel/runtime/private.h": ['"zel/runtime/object.h"', '"zel/platform/event.h"'],
    "zel/encoder/api.h": ['"zel/runtime/object.h"'],
    "zel/mux/engine/clock.h": ['"zel/syntax/nal.h"', '"zel/platform/event.h"'],
    "zel/mux/api.cpp": ['"zel/mux/engine/clock.h"', '"zel/runtime/private.h"', '"zel/mux_formats/demux/etv.h"'],
    "zel/mux_formats/demux/etv.h": ['"zel/base/bits.h"'],
    "zel/decoder/hevc/slice.h": ['"zel/syntax/nal.h"'],
    "zel/decoder/frame_parallel/pool.h": ['"zel/decoder/hevc/slice.h"'],
    "tools/zel/main.cpp": ['"zel/runtime/object.h"', '"tools/zel/console.h"'],
}
PUBLIC = ["zel/runtime/object.h", "zel/encoder/api.h"]


def faults_with(changes=None, public=None):
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for name, includes in {**HOUSE, **(changes or {})}.items():
            path = root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            once = "#pragma once\n" if path.suffix == ".h" else "\n"
            path.write_text(once + "".join(f"#include {target}\n" for target in includes))
        (root / "cmake").mkdir()
        lines = "".join(f"  {name}\n" for name in (public or PUBLIC))
        (root / "cmake/public_headers.cmake").write_text(f"set(ZEL_PUBLIC_HEADERS\n{lines})\n")
        return check_includes.faults_of_tree(root)[0]


class CheckIncludes(unittest.TestCase):
    def refuses(self, name, target, text):
        with self.subTest(name=name, target=target):
            faults = faults_with({name: [*HOUSE.get(name, []), target]})
            self.assertEqual(len(faults), 1, faults)
            line = 2 + len(HOUSE.get(name, []))
            self.assertEqual(faults[0], f"{name}:{line}: {text}")

    def test_a_house_in_order_has_no_fault(self):
        self.assertEqual(faults_with(), [])

    def test_the_ground_knows_nothing_above(self):
        self.refuses("zel/base/bits.h", '"zel/platform/event.h"', "zel/base may not include zel/platform")
        self.refuses("zel/platform/event.h", '"zel/runtime/object.h"', "zel/platform may not include zel/runtime")
        self.refuses("zel/syntax/nal.h", '"zel/platform/event.h"', "zel/syntax may not include zel/platform")

    def test_engines_do_not_know_the_runtime(self):
        for name in ("zel/mux/engine/clock.h", "zel/mux_formats/demux/etv.h", "zel/decoder/hevc/slice.h",
                     "zel/dnxhd/jobs/queue.h", "zel/aja/card/register.h"):
            folder = check_includes.rule_of(name.rpartition("/")[0].removeprefix("zel/"))
            self.refuses(name, '"zel/runtime/object.h"', f"zel/{folder} may not include zel/runtime")

    def test_angle_brackets_do_not_hide_an_include(self):
        self.refuses("zel/mux/engine/clock.h", "<zel/runtime/object.h>", "zel/mux/engine may not include zel/runtime")

    def test_front_ends_do_not_know_each_other(self):
        self.refuses("zel/mux/api.cpp", '"zel/encoder/api.h"', "zel/mux may not include zel/encoder")
        self.refuses("zel/encoder/api.cpp", '"zel/mux/engine/clock.h"', "zel/encoder may not include zel/mux/engine")

    def test_the_runtime_does_not_know_front_ends(self):
        self.refuses("zel/runtime/object.h", '"zel/encoder/api.h"', "zel/runtime may not include zel/encoder")

    def test_a_decoder_body_does_not_know_the_other(self):
        self.refuses("zel/decoder/slice_tile/row.h", '"zel/decoder/frame_parallel/pool.h"',
                     "zel/decoder/slice_tile may not include zel/decoder/frame_parallel")

    def test_the_tool_lives_on_public_headers(self):
        self.refuses("tools/zel/main.cpp", '"zel/runtime/private.h"', '"zel/runtime/private.h" is not a public header')

    def test_public_headers_include_public_ones(self):
        self.refuses("zel/runtime/object.h", '"zel/platform/event.h"',
                     'a public header includes "zel/platform/event.h", which is not installed')

    def test_includes_are_by_full_path(self):
        for target in ('"object.h"', '"../base/bits.h"', '"zel/base/missing.h"'):
            self.refuses("zel/runtime/object.cpp", target,
                         f"{target} is not named by its full path from the include root")

    def test_every_folder_has_a_rule(self):
        self.assertEqual(faults_with({"zel/helpers/misc.h": []}),
                         ["zel/helpers/misc.h:1: zel/helpers has no rule in scripts/check_includes.py"])

    def test_public_headers_exist(self):
        self.assertEqual(faults_with(public=[*PUBLIC, "zel/runtime/gone.h"]),
                         ["zel/runtime/gone.h: listed as public, but not there"])

    def test_headers_say_pragma_once(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "zel/base").mkdir(parents=True)
            (root / "zel/base/bits.h").write_text("int x;\n")
            (root / "cmake").mkdir()
            (root / "cmake/public_headers.cmake").write_text("")
            self.assertEqual(check_includes.faults_of_tree(root)[0],
                             ["zel/base/bits.h:1: a header without #pragma once"])

    def test_the_exit_code_tells(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "cmake").mkdir()
            (root / "cmake/public_headers.cmake").write_text("")
            run = subprocess.run([sys.executable, SCRIPT, root], capture_output=True, text=True, check=False)
            self.assertEqual((run.returncode, run.stderr), (1, "check_includes: no source files found\n"))
            (root / "zel/base").mkdir(parents=True)
            (root / "zel/base/bits.h").write_text("#pragma once\n")
            self.assertEqual(subprocess.run([sys.executable, SCRIPT, root], check=False).returncode, 0)
            (root / "zel/base/bits.h").write_text('#pragma once\n#include "bits.h"\n')
            run = subprocess.run([sys.executable, SCRIPT, root], capture_output=True, text=True, check=False)
            self.assertEqual(run.returncode, 1)
            self.assertIn("zel/base/bits.h:2:", run.stderr)


if __name__ == "__main__":
    unittest.main()
