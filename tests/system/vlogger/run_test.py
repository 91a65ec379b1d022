#!/usr/bin/env python3
"""The command run."""

import json

from bench import VLOGGER, Bench, main


class RunTest(Bench):
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

    def test_program_that_cannot_be_started_has_the_usual_codes(self):
        self.run_tool("run", "-q", "--", "/no/such/program", code=127)
        self.run_tool("run", "-q", "--", self.directory, code=126)
        self.run_tool("run", "-q", "--config", self.path("none.toml"), "--", "true", code=125)

    def test_signal_that_ends_the_program_is_in_the_code(self):
        self.run_tool("run", "-q", "--", "sh", "-c", "kill -9 $$", code=137)


if __name__ == "__main__":
    main()
