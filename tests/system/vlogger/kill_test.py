#!/usr/bin/env python3
"""Any party of a bench is killed."""

import os
import signal
import subprocess

from bench import LIMIT_S, VLOGGER, Bench, generated_log, main


class KillTest(Bench):
    def crossed(self, buses):
        """Frames that have crossed this bus, "can0 can1"."""
        return sum(bus["in"] for bus in self.stages("bus") if bus["name"] == buses)

    def test_killed_clients_leave_nothing_behind(self):
        self.serve()
        log = self.write("in.log", generated_log(3000))
        # Each with the sign that it takes part by now.
        parties = ((lambda: self.receiver(1, 0x123, 10 ** 9), lambda: self.stages("stream")),
                   (lambda: self.sender(8, 0x123, 10 ** 9), lambda: self.crossed("can8 can9")),
                   (lambda: self.start(VLOGGER, "dump"), lambda: self.stages("monitor")),
                   (lambda: self.record(self.path("out.pcapng")), lambda: self.stages("monitor")),
                   (lambda: self.start(VLOGGER, "replay", log, "--map", "can0=10", "--loop", "0", "--speed", "max"),
                    lambda: self.crossed("can10 can11")))
        for begin, takes_part in parties:
            child = begin()
            while not takes_part():
                pass
            before = self.crossed("can0 can1")
            busy = self.start(VLOGGER, "replay", log, "--loop", "20", "--speed", "max")
            while self.crossed("can0 can1") == before:
                pass
            child.kill()
            self.assertEqual(child.wait(), -signal.SIGKILL)
            _, err = busy.communicate(timeout=LIMIT_S)
            self.assertEqual(busy.returncode, 0, err)
            while self.stages("monitor") or self.stages("stream"):
                pass
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))

    def test_receiver_has_the_frames_that_a_killed_replay_had_sent(self):
        frames = 1000
        self.serve()
        receiver = self.receiver(1, 0x7FF, frames)
        log = self.write("in.log", "(1.000000) can0 7FF#AA\n" * 100)
        replay = self.start(VLOGGER, "replay", log, "--loop", "0", "--speed", "max")
        while self.crossed("can0 can1") < frames:
            pass
        replay.kill()
        self.await_line(receiver, "done")
        self.assertEqual(receiver.wait(LIMIT_S), 0)

    def test_recording_that_is_killed_under_load_has_the_first_frames_without_a_gap(self):
        self.serve()
        log = self.write("in.log", generated_log(30000))
        sent = [line.split()[2] for line in self.read("in.log").splitlines()]
        for name in ("out.log", "out.pcapng"):
            recorder = self.record(self.path(name), "can0")
            replay = self.start(VLOGGER, "replay", log, "--map", "can2=0", "--map", "can4=0", "--loop", "0", "--speed",
                                "max", stderr=subprocess.DEVNULL)
            while os.path.getsize(self.path(name)) < 10 ** 6:
                pass
            self.assertIsNone(replay.poll())
            recorder.kill()
            recorder.wait()
            replay.kill()
            replay.wait()
            self.assert_first_of(sent, self.path(name))

    def assert_first_of(self, sent, capture):
        """The capture holds what was sent, from the first on, over and over; its last frame may be torn."""
        done = subprocess.run((VLOGGER, "convert", capture, "-", "--format", "log"), capture_output=True, text=True,
                              timeout=LIMIT_S, check=False)
        frames = [line.split()[2] for line in done.stdout.splitlines()]
        self.assertGreater(len(frames), 10000)
        self.assert_same_lines(frames, [sent[place % len(sent)] for place in range(len(frames))])
        torn = [line for line in done.stderr.splitlines() if line.startswith(f"vlogger: {capture}: ")]
        self.assertEqual((done.returncode, len(torn)), (3, 1) if torn else (0, 0), done.stderr)
        self.assertEqual(done.stderr.splitlines()[-1], f"vlogger: {len(frames)} frames converted")

    def test_recording_has_what_came_before_the_virtual_logger_was_killed(self):
        logger = self.serve()
        recorder = self.record(self.path("out.log"))
        self.run_tool("send", "can0", "123#AA")
        while self.read("out.log").count("\n") < 2:
            pass  # sent is not yet handed to the recorder
        logger.kill()
        _, err = recorder.communicate(timeout=LIMIT_S)
        self.assertEqual(err, "vlogger: 2 frames recorded; the virtual logger has gone\n")
        self.assertEqual(recorder.returncode, 1)
        self.assertEqual(len(self.read("out.log").splitlines()), 2)

    def test_every_tool_says_that_a_killed_virtual_logger_has_gone(self):
        logger = self.serve()
        dump = self.start(VLOGGER, "dump")
        while not self.stages("monitor"):
            pass
        watch = self.start(VLOGGER, "stat", "--watch", "--every", "0.05")
        replay = self.start(VLOGGER, "replay", self.write("in.log", generated_log(30)), "--loop", "0")
        watch.stdout.readline()
        dump.stdout.readline()
        logger.kill()
        for child in (dump, watch, replay):
            _, err = child.communicate(timeout=LIMIT_S)
            self.assertEqual((child.returncode, err), (1, "vlogger: the virtual logger has gone\n"))

    def test_applications_outlive_a_killed_virtual_logger_and_the_next_one_serves(self):
        logger = self.serve()
        receiver = self.receiver(1, 0x123, 10 ** 9)
        sender = self.sender(0, 0x123, 10 ** 9)
        while not self.crossed("can0 can1"):
            pass
        logger.kill()
        logger.wait()
        self.assertEqual(sender.wait(LIMIT_S), 1, "a failed send is told to the application and no signal")
        self.assertIsNone(receiver.poll())
        self.serve()
        third = self.receiver(1, 0x456, 1)
        self.run_tool("send", "can0", "456#AA")
        self.assertEqual(third.wait(LIMIT_S), 0)
        self.assertIsNone(receiver.poll())


if __name__ == "__main__":
    main()
