#!/usr/bin/env python3
"""What the program draws on a terminal."""

import fcntl
import os
import pty
import signal
import struct
import termios

from bench import LIMIT_S, VLOGGER, Bench, generated_log, main


class TerminalTest(Bench):
    def on_terminal(self, *arguments, columns=80, rows=24):
        """Starts a command with its output on a terminal of its own; returns the terminal."""
        terminal, inner = pty.openpty()
        self.addCleanup(os.close, terminal)
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.child = self.start(VLOGGER, *arguments, stdout=inner, stderr=inner)
        os.close(inner)
        return terminal

    def read_until(self, terminal, wanted):
        text = ""
        while wanted not in text:
            text += os.read(terminal, 65536).decode()
        return text

    def test_watched_table_is_drawn_in_place_and_fits(self):
        self.serve()
        self.run_tool("send", "can0", "123#")
        terminal = self.on_terminal("stat", "--watch", "--every", "0.05")
        text = self.read_until(terminal, "\033[J")
        self.assertTrue(text.startswith("\033[2J\033[H"), text)
        lines = text.removeprefix("\033[2J\033[H").replace("\033[K", "").split("\r\n")
        self.assertEqual(lines[0], "stage         name                waiting   dropped  frames/s")
        self.assertEqual(lines[1], "bus           can0 can1                 0         0         0  |         |")
        self.child.send_signal(signal.SIGINT)
        self.assertEqual(self.child.wait(LIMIT_S), 0)

    def test_table_follows_the_size_of_its_window(self):
        self.serve()
        terminal = self.on_terminal("stat", "--watch", "--every", "0.05")
        self.read_until(terminal, "waiting   dropped  frames/s\033[K")
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 120, 0, 0))
        self.read_until(terminal, "in       out   waiting   dropped  frames/s\033[K")

    def test_more_stages_than_rows_are_said(self):
        self.serve()
        for channel in range(0, 12, 2):
            self.run_tool("send", f"can{channel}", "123#")
        terminal = self.on_terminal("stat", "--watch", "--every", "0.05", rows=5)
        text = self.read_until(terminal, "\033[J")
        self.assertIn("more stages than rows; vlogger stat shows them all", text)
        self.assertEqual(text.count("\n"), 3)

    def test_progress_shows_rate_and_remaining_time_and_goes_at_the_end(self):
        self.serve()
        log = self.write("in.log", generated_log(30000))
        terminal = self.on_terminal("replay", log, "--speed", "1")
        text = self.read_until(terminal, " left")
        self.assertRegex(text, r"replaying \d+ frames, \d+/s, \d+ %, \d+:\d\d left$")
        self.child.send_signal(signal.SIGINT)
        text = self.read_until(terminal, "frames sent in")
        self.assertRegex(text, "\r\033\\[Kvlogger: \\d+ frames sent in")
        self.assertEqual(self.child.wait(LIMIT_S), 0)

    def test_progress_stays_in_one_line_of_a_narrow_window(self):
        self.serve()
        terminal = self.on_terminal("record", self.path("out.log"), "--seconds", "1000", columns=20)
        text = self.read_until(terminal, "recording 0 frames,")
        self.child.send_signal(signal.SIGINT)
        text += self.read_until(terminal, "frames recorded")
        lines = [line for line in text.split("\r\033[K") if line.startswith("recording ")]
        self.assertEqual(set(lines), {"recording 0 frames,"})

    def test_recording_with_an_end_says_what_is_left(self):
        self.serve()
        terminal = self.on_terminal("record", self.path("out.log"), "--seconds", "1000")
        self.assertRegex(self.read_until(terminal, " left"), r"recording 0 frames, 0/s, \d+ %, \d+:\d\d left$")


if __name__ == "__main__":
    main()
