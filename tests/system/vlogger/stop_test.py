#!/usr/bin/env python3
"""Ctrl-C and SIGTERM."""

import fcntl
import os
import signal
import subprocess
import sys
import termios

from bench import (LIMIT_S, VLOGGER, Bench, generated_log, is_awaited, let_stand_still, main,
                   stop_until_it_ends)

FRAMES = 3000


def bytes_waiting(pipe):
    """What a pipe's reader has not taken yet."""
    return int.from_bytes(fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)), sys.byteorder)


class StopTest(Bench):
    def replay_past(self, child, frames, *signals):
        """Sends frames on can0 while the process stands still, then stops it for good."""
        let_stand_still(child)
        self.run_tool("replay", self.write("in.log", generated_log(frames)), "--map", "can2=0", "--map", "can4=0",
                      "--speed", "max")
        for number in signals or (signal.SIGINT,):
            child.send_signal(number)
        child.send_signal(signal.SIGCONT)
        return child.communicate(timeout=LIMIT_S)

    def assert_second_signal_kills(self, child):
        while not is_awaited(child, signal.SIGINT):
            pass
        stop_until_it_ends(child)
        self.assertEqual(child.returncode, -signal.SIGINT)

    def test_recording_has_every_frame_before_the_signal(self):
        self.serve()
        recorder = self.record(self.path("out.log"), "can0")
        _, err = self.replay_past(recorder, FRAMES)
        self.assertEqual(err, f"vlogger: {FRAMES} frames recorded\n")
        self.assertEqual(recorder.returncode, 0)
        self.assertEqual(len(self.read("out.log").splitlines()), FRAMES)

    def test_dump_shows_every_frame_before_the_signal(self):
        self.serve()
        dump = self.start(VLOGGER, "dump", "can0")
        while not self.stages("monitor"):
            pass
        out, _ = self.replay_past(dump, FRAMES)
        self.assertEqual(dump.returncode, 0)
        self.assertEqual(len(out.splitlines()), FRAMES)

    def test_two_signals_at_once_are_one(self):
        self.serve()
        recorder = self.record(self.path("out.log"), "can0")
        _, err = self.replay_past(recorder, FRAMES, signal.SIGINT, signal.SIGTERM)
        self.assertEqual(err, f"vlogger: {FRAMES} frames recorded\n")
        self.assertEqual(recorder.returncode, 0)

    def test_dump_ends_with_its_time(self):
        self.serve()
        dump = self.start(VLOGGER, "dump", "--seconds", "0.001", "can0")
        out, err = dump.communicate(timeout=LIMIT_S)
        self.assertEqual((dump.returncode, out, err), (0, "", ""))

    def test_loss_before_the_signal_is_said(self):
        self.serve("--config", self.write("bench.toml", "[queues]\nstream_bytes = 4096\nstall_limit_ms = 20\n"))
        recorder = self.record(self.path("out.log"), "can0")
        _, err = self.replay_past(recorder, 10 * FRAMES)  # more than the system keeps
        self.assertRegex(err, r"^vlogger: \d+ frames recorded, \d+ missed\n$")
        self.assertEqual(sum(int(word) for word in err.split() if word.isdigit()), 10 * FRAMES)
        self.assertEqual(recorder.returncode, 3)

    def test_second_signal_kills_a_dump_that_nobody_reads(self):
        self.serve()
        dump = self.start(VLOGGER, "dump")
        while not self.stages("monitor"):
            pass
        self.start(VLOGGER, "replay", self.write("in.log", generated_log(FRAMES)), "--loop", "0", "--speed", "max",
                   stderr=subprocess.DEVNULL)
        # More text than the pipe takes is under way then, and what is under way is shown first.
        while self.stages("monitor")[0]["in"] < 10000:
            pass
        self.assert_second_signal_kills(dump)

    def test_second_signal_kills_a_recording_into_a_pipe_that_nobody_opens(self):
        self.serve()
        os.mkfifo(self.path("pipe"))
        self.assert_second_signal_kills(self.start(VLOGGER, "record", "--format", "log", self.path("pipe")))

    def test_second_signal_kills_a_recording_of_a_virtual_logger_that_stands_still(self):
        logger = self.serve()
        recorder = self.record(self.path("out.log"))
        let_stand_still(logger)
        self.assert_second_signal_kills(recorder)
        logger.send_signal(signal.SIGCONT)

    def test_replay_of_an_idle_standard_input_ends_with_what_came(self):
        self.serve()
        for begin, sent in (("", "0 frames"), ("(1.000000) can0 123#AA\n(1.0000", "1 frame")):
            recorder = self.record("-", "--format", "log", "can0", "-n", "1")
            replay = self.start(VLOGGER, "replay", "-")
            replay.stdin.write(begin)
            replay.stdin.flush()
            if begin:
                self.assertIn("123#AA", recorder.stdout.readline())
            while not is_awaited(replay, signal.SIGINT):
                pass
            replay.send_signal(signal.SIGINT)
            replay.wait(LIMIT_S)
            self.assertEqual(replay.returncode, 0)
            self.assertTrue(replay.stderr.readline().startswith(f"vlogger: {sent} sent in "))
            self.assertNotIn("cannot", replay.stderr.read())

    def test_capture_that_comes_byte_by_byte_is_replayed(self):
        self.serve()
        self.run_tool("convert", self.write("in.log", "(1.000000) can0 123#AA\n"), self.path("in.pcapng"))
        replay = self.start(VLOGGER, "replay", "-")
        with open(self.path("in.pcapng"), "rb") as file:
            for byte in file.read():
                os.write(replay.stdin.fileno(), bytes((byte,)))
                while bytes_waiting(replay.stdin):
                    pass
        _, err = replay.communicate(timeout=LIMIT_S)
        self.assertEqual(replay.returncode, 0, err)
        self.assertTrue(err.startswith("vlogger: 1 frame sent in "), err)


if __name__ == "__main__":
    main()
