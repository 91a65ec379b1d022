#!/usr/bin/env python3
"""Tests of the raw_can example and of its log generator, from the outside.

usage: raw_can_test.py RAW_CAN MAKE_LOG
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

RAW_CAN, MAKE_LOG = sys.argv[1:3]
HEADER = "channel    identifier       sent   received       lost         rate"


class RawCanTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.log = self.directory / "test.log"
        self.lines = self.directory / "lines.txt"

    def run_raw_can(self, *arguments):
        return subprocess.run([RAW_CAN, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=100, check=False)

    def replay(self, text):
        self.log.write_text(text, newline="")
        return self.run_raw_can("--log", str(self.log), "--lines", str(self.lines))

    def assert_refused(self, run, complaint):
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stdout, "")
        self.assertEqual([line for line in run.stderr.splitlines() if line.startswith("raw_can:")],
                         ["raw_can: " + complaint])

    def test_every_kind_of_frame_arrives(self):
        run = self.replay("(1.000000) a 123#01\n(1.000001) a 00000123#02\n(1.000002) a 124##0" + "AB" * 64 +
                          "\n(1.000003) a 1FFFFFFF##1\n")
        self.assertEqual(run.returncode, 0, run.stderr)
        rows = [re.sub(r" +\d+/s$", "", line).split() for line in run.stdout.splitlines()[1:5]]
        self.assertEqual(rows, [["0", "->", "1", identifier, "1", "1", "0"]
                                for identifier in ("123", "124", "00000123", "1FFFFFFF")])

    def test_library_lines_go_to_the_file_and_the_table_alone_to_standard_output(self):
        run = self.replay("(1.000000) a 123#01\n")
        self.assertEqual(run.stdout.splitlines()[0], HEADER)
        self.assertNotIn("[", run.stdout)
        self.assertIn("[INFO] MsgRxHandler::setOnline() START\n", self.lines.read_text())

    def test_without_a_file_the_table_comes_last(self):
        self.log.write_text("(1.000000) a 123#01\n")
        run = self.run_raw_can("--log", str(self.log))
        self.assertEqual(run.returncode, 0)
        self.assertIn("[INFO] MsgRxHandler::setOnline() START", run.stdout.splitlines())
        self.assertIn(HEADER, run.stdout.splitlines())

    def test_remote_and_error_frames_are_counted_as_skipped(self):
        run = self.replay("(1.000000) a 123#R\n(1.0) a 123#R2\n(1.0) a 20000004#0000000000000000\n(1.0) a 123#\n")
        self.assertEqual(run.returncode, 0)
        self.assertEqual(run.stdout.splitlines()[-1], "skipped: 2 remote frames, 1 error frames")

    def test_interfaces_take_channel_pairs_in_the_order_of_appearance(self):
        run = self.replay("(1.0) zeta 001#\n(1.0) alpha 002#\n(1.0) zeta 003#\n")
        self.assertEqual([line.split()[:4] for line in run.stdout.splitlines()[1:4]],
                         [["0", "->", "1", "001"], ["0", "->", "1", "003"], ["2", "->", "3", "002"]])

    def test_seven_interfaces_fit_on_a_plain_board(self):
        self.assertEqual(self.replay("".join(f"(1.0) can{n} 123#\n" for n in range(7))).returncode, 0)

    def test_eighth_interface_is_refused_with_the_limit(self):
        self.assert_refused(self.replay("".join(f"(1.0) can{n} 123#\n" for n in range(8))),
                            f"{self.log} has 8 interfaces; the limit of this board is 7, one pair of its 14 channels "
                            "each. Leave some out, or use a board with more channels.")

    def test_malformed_line_is_refused_with_its_number(self):
        self.assert_refused(self.replay("(1.0) can0 123#\n\nnonsense\n"),
                            f"{self.log}: line 3: the line does not begin with a time stamp in parentheses. Each line "
                            "has to read (seconds.micros) interface id#data, as candump -L writes it.")

    def test_missing_log_is_named(self):
        self.assert_refused(self.run_raw_can("--log", str(self.log)),
                            f"cannot open {self.log}: No such file or directory")

    def test_log_without_data_frames_is_refused(self):
        self.assert_refused(self.replay("(1.0) can0 123#R\n"), f"{self.log} holds no data frame to send")

    def test_lines_file_that_cannot_be_written_is_named(self):
        self.log.write_text("(1.0) can0 123#\n")
        self.assert_refused(self.run_raw_can("--log", str(self.log), "--lines", "/nowhere/lines"),
                            "cannot write /nowhere/lines: No such file or directory")

    def test_help_explains_and_succeeds(self):
        run = self.run_raw_can("--help")
        self.assertEqual(run.returncode, 0)
        self.assertIn("--log FILE", run.stdout)
        self.assertIn("Exit codes: 0 every frame arrived", run.stdout)

    def test_wrong_usage_ends_with_2(self):
        self.assertEqual(self.run_raw_can().returncode, 2)
        self.assertEqual(self.run_raw_can("--bogus").returncode, 2)

    def test_generated_log_arrives_whole(self):
        self.log.write_text(subprocess.run([MAKE_LOG, "--frames", "5000", "--interfaces", "7"], capture_output=True,
                                           text=True, check=True).stdout)
        run = self.run_raw_can("--log", str(self.log), "--lines", str(self.lines))
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(run.stdout.splitlines()[-2].split()[1:4], ["4998", "4998", "0"])
        self.assertEqual(run.stdout.splitlines()[-1], "skipped: 1 remote frames, 1 error frames")

    def test_generated_log_is_the_same_for_the_same_seed(self):
        logs = [subprocess.run([MAKE_LOG, "--frames", "300", "--seed", seed], capture_output=True, check=True).stdout
                for seed in ("7", "7", "8")]
        self.assertEqual(logs[0], logs[1])
        self.assertNotEqual(logs[0], logs[2])
        self.assertEqual(logs[0].count(b"\n"), 300)


if __name__ == "__main__":
    os.environ["VLOGGER"] = "embedded"
    unittest.main(argv=sys.argv[:1])
