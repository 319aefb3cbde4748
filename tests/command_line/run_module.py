#!/usr/bin/env python3
"""Runs the tests of one module: run_module.py MODULE. Exits 77 when all of them were skipped."""

import sys
import unittest


def main():
    suite = unittest.defaultTestLoader.loadTestsFromName(sys.argv[1])
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    if not result.wasSuccessful():
        return 1
    if result.skipped and result.testsRun <= len(result.skipped):
        return 77
    return 0 if result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main())
