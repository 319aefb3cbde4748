"""The examples of every help text run, as they stand."""

import unittest

from example_runner import ExampleTest, all_examples, programs_of


class Examples(ExampleTest):
    def test_with_nothing_but_the_tool(self):
        self.assertGreater(self.run_examples(lambda programs: programs <= {"zel", "cat"}), 8)

    # test_judges.py runs those with a program that need not be installed.
    def test_each_is_run_somewhere(self):
        for example in all_examples():
            self.assertTrue(programs_of(example) <= {"zel", "cat"} or programs_of(example) & {"ffprobe", "ffmpeg"},
                            example)


if __name__ == "__main__":
    unittest.main()
