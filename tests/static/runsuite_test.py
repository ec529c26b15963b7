#!/usr/bin/env python3
"""What failed fails ./test, whatever it does alone; what runs again, and what is said in the end.

Usage: runsuite_test.py ROOT
"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

TOOL = pathlib.Path(sys.argv.pop(1)) / "tools/run-suite"
FIRST_TIME_ONLY = "echo too late; test -e {name}.again || {{ touch {name}.again; exit 1; }}"


class Suite(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = pathlib.Path(folder.name)
        self.tests = ""
        self.names = 0

    def add(self, command, properties=""):
        self.names += 1
        name = f"test{self.names}"
        command = command.format(name=name)
        self.tests += f'add_test({name} "/bin/sh" "-c" "{command}")\n'
        if properties:
            self.tests += f"set_tests_properties({name} PROPERTIES {properties})\n"

    def run_all(self):
        (self.build / "CTestTestfile.cmake").write_text(self.tests)
        notes = self.build / "notes"
        notes.touch()
        done = subprocess.run(
            [TOOL, self.build, notes, "-j4"], capture_output=True, text=True, check=False)
        return done.returncode == 0, done.stdout, notes.read_text()

    def expect_failure(self):
        passed, said, notes = self.run_all()
        self.assertFalse(passed)
        self.assertEqual(notes, "")
        return said

    def expect_no_second_run(self):
        said = self.expect_failure()
        self.assertNotIn("once more", said)
        return said

    def test_all_passed(self):
        self.add("true")
        self.assertEqual(self.run_all()[::2], (True, ""))

    def test_what_passes_alone_fails_all_the_same_and_is_told_with_its_output(self):
        self.add("true")
        self.add(FIRST_TIME_ONLY)
        said = self.expect_failure()
        self.assertTrue(said.endswith("\n== test2 (Failed, passes alone)\ntoo late\n"), said)

    def test_what_fails_alone_is_told_as_such(self):
        self.add("echo oh; exit 1")
        self.add(FIRST_TIME_ONLY)
        said = self.expect_failure()
        self.assertIn("\n== test1 (Failed)\noh\n", said)
        self.assertIn("\n== test2 (Failed, passes alone)\n", said)

    def test_more_than_three_are_no_chance(self):
        for _ in range(4):
            self.add(FIRST_TIME_ONLY)
        said = self.expect_no_second_run()
        self.assertEqual(said.count("== test"), 4)

    def test_a_crash_is_no_chance(self):
        self.add("test -e {name}.again || {{ touch {name}.again; kill -SEGV $$; }}")
        self.assertIn("== test1 (SEGFAULT)", self.expect_no_second_run())

    def test_a_hang_is_no_chance(self):
        self.add("test -e {name}.again || {{ touch {name}.again; sleep 60; }}", "TIMEOUT 1")
        self.assertIn("== test1 (Timeout)", self.expect_no_second_run())

    def test_a_report_or_a_program_that_ended_is_no_chance(self):
        for report in ["==7==ERROR: AddressSanitizer: heap-use-after-free",
                       "==7==ERROR: LeakSanitizer: detected memory leaks",
                       "WARNING: ThreadSanitizer: data race (pid=7)",
                       "ring.cpp:3:4: runtime error: signed integer overflow",
                       "a sanitizer reported:",
                       "the application ended by itself: exit 1",
                       "the board's daemon does not end",
                       "the converter: signal 11"]:
            with self.subTest(report):
                self.tests = ""
                self.add(f'echo \\"{report}\\"; {FIRST_TIME_ONLY}')
                self.assertIn(report, self.expect_no_second_run())

    def test_what_waited_for_it_runs_then_too(self):
        self.add(FIRST_TIME_ONLY, "FIXTURES_SETUP modules")
        self.add("true", "FIXTURES_REQUIRED modules")
        said = self.expect_failure()
        self.assertIn("== once more, alone: test1, test2", said)
        self.assertIn("\n== test1 (Failed, passes alone)\n", said)

    def test_a_program_that_is_missing_fails(self):
        self.tests = 'add_test(gone "/nonexistent")\n'
        self.assertFalse(self.run_all()[0])

    def test_no_tests_fail(self):
        self.assertFalse(self.run_all()[0])

    def test_what_was_not_judged_is_noted(self):
        self.add("echo not judged: away; exit 77", "SKIP_RETURN_CODE 77")
        self.assertEqual(self.run_all()[::2], (True, "test1: not judged: away\n"))


if __name__ == "__main__":
    unittest.main()
