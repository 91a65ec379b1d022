#!/usr/bin/env python3
"""The command run."""

import json
import os
import signal
import sys

from bench import LIMIT_S, VLOGGER, Bench, main, stop_twice_at_once, stop_until_it_ends


# Says "told" at SIGTERM, and ends with 7 at the next line of its input.
PATIENT = """
import signal, sys
signal.signal(signal.SIGINT, signal.SIG_IGN)
signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
print("up", flush=True)
signal.sigwait({signal.SIGTERM})
print("told", flush=True)
sys.stdin.readline()
sys.exit(7)
"""


class RunTest(Bench):
    def run_patient(self, *options):
        child = self.start(VLOGGER, "run", *options, "--", sys.executable, "-c", PATIENT)
        self.await_line(child, "up")
        return child

    def run_until_input(self, *options):
        """Runs a program that says where its virtual logger is and uses it once it gets a line."""
        child = self.start(VLOGGER, "run", *options, "--", "sh", "-c",
                           f'echo "$VLOGGER"; read line; exec {VLOGGER} stat')
        return child, child.stdout.readline().rstrip("\n")

    def test_exit_code_and_channels_of_the_program_are_passed_on(self):
        done = self.run_tool("run", "--json", "--", "sh", "-c", f"{VLOGGER} send can1 123#AA; exit 7", code=7)
        self.assertEqual(json.loads(done.stderr), {"channels": [{"channel": 0, "sent": 0, "received": 1},
                                                                 {"channel": 1, "sent": 0, "received": 1}],
                                                    "dropped": 0})

    def test_summary_is_a_table(self):
        done = self.run_tool("run", "--", VLOGGER, "send", "--as-channel", "can0", "123#AA")
        self.assertEqual(done.stderr, "vlogger: channel        sent    received\n"
                                      "vlogger: can0              1           0\n"
                                      "vlogger: can1              0           1\n")

    def test_summary_has_the_frames_that_a_program_sends_right_before_its_end(self):
        frames = ["123#AA"] * 200
        for _ in range(5):
            done = self.run_tool("run", "--json", "--", VLOGGER, "send", "--as-channel", "can0", *frames)
            self.assertEqual(json.loads(done.stderr)["channels"], [{"channel": 0, "sent": 200, "received": 0},
                                                                   {"channel": 1, "sent": 0, "received": 200}])

    def test_program_that_stays_connected_does_not_keep_its_run(self):
        child, self.environment["VLOGGER"] = self.run_until_input("--json")
        self.sender(0, 0x123, 10 ** 9)
        while not self.stages("bus"):
            pass
        _, err = child.communicate("\n", timeout=LIMIT_S)
        self.assertGreater(json.loads(err)["channels"][0]["sent"], 0)

    def test_program_that_cannot_be_started_has_the_usual_codes(self):
        self.run_tool("run", "-q", "--", "/no/such/program", code=127)
        self.run_tool("run", "-q", "--", self.directory, code=126)
        self.run_tool("run", "-q", "--config", self.path("none.toml"), "--", "true", code=125)

    def test_signal_that_ends_the_program_is_in_the_code(self):
        self.run_tool("run", "-q", "--", "sh", "-c", "kill -9 $$", code=137)

    def test_signal_reaches_the_program_which_ends_in_its_own_way(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            child = self.run_patient("-q")
            child.send_signal(number)
            self.await_line(child, "told")
            self.assertEqual(child.communicate("\n", timeout=LIMIT_S), ("", ""))
            self.assertEqual(child.returncode, 7)

    def test_two_signals_at_once_leave_the_program_its_time(self):
        child = self.run_patient("-q")
        stop_twice_at_once(child)
        self.await_line(child, "told")
        child.communicate("\n", timeout=LIMIT_S)
        self.assertEqual(child.returncode, 7)

    def test_second_signal_kills_a_program_that_does_not_end(self):
        child = self.run_patient()
        stop_until_it_ends(child)
        out, err = child.communicate(timeout=LIMIT_S)
        self.assertEqual((out, err), ("told\n", "vlogger: channel        sent    received\n"
                                                "vlogger: nothing crossed any channel\n"))
        self.assertEqual(child.returncode, 128 + signal.SIGKILL)

    def test_program_is_told_when_its_run_is_killed(self):
        child = self.run_patient()
        child.kill()
        self.await_line(child, "told")

    def test_directory_of_a_killed_one_goes_with_the_next(self):
        child, socket = self.run_until_input("-q")
        child.kill()
        child.wait()
        self.run_tool("run", "-q", "--", "true")
        self.assertFalse(os.path.exists(os.path.dirname(socket)))

    def test_directory_of_a_living_one_stays(self):
        child, socket = self.run_until_input("-q")
        self.run_tool("run", "-q", "--", "true")
        self.assertTrue(os.path.exists(socket))
        _, err = child.communicate("\n", timeout=LIMIT_S)
        self.assertEqual((child.returncode, err), (0, ""))
        self.assertFalse(os.path.exists(os.path.dirname(socket)))


if __name__ == "__main__":
    main()
