#!/usr/bin/env python3
"""The command serve, and who gets its socket."""

import json
import os
import shutil
import signal
import subprocess

from bench import LIMIT_S, VLOGGER, Bench, is_awaited, main


class ServeTest(Bench):
    def test_stops_cleanly_on_both_signals(self):
        for stop in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            child = self.serve()
            child.send_signal(stop)
            self.assertEqual(child.communicate(timeout=LIMIT_S), ("", ""))
            self.assertEqual(child.returncode, 0)

    def test_outlives_its_terminal_under_nohup(self):
        child = self.start("nohup", VLOGGER, "serve")
        self.await_line(child, f"vlogger: ready at {self.socket}")
        self.assertFalse(is_awaited(child, signal.SIGHUP))
        child.send_signal(signal.SIGHUP)
        self.run_tool("stat")
        self.assertEqual(self.stop(child)[0], 0)

    def test_ready_line_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            done = subprocess.run((VLOGGER, "serve"), env=self.environment, stdout=full, stderr=subprocess.PIPE,
                                  text=True, timeout=LIMIT_S, check=False)
        self.assertEqual((done.returncode, done.stderr), (1, "vlogger: standard output cannot be written\n"))

    def test_reader_that_has_seen_the_ready_line_is_not_needed_any_more(self):
        child = self.serve()
        child.stdout.close()
        self.run_tool("stat")
        child.send_signal(signal.SIGINT)
        self.assertEqual(child.wait(LIMIT_S), 0)

    def test_second_one_on_a_socket_is_refused(self):
        first = self.serve()
        second = self.run_tool("serve", code=1)
        self.assertEqual(second.stdout, "")
        self.assertEqual(second.stderr, f"vlogger: the virtual logger of process {first.pid} holds "
                                        f"{self.socket}.lock: Address already in use\n")
        self.run_tool("stat")

    def test_of_two_started_at_once_on_the_socket_of_a_dead_one_one_serves(self):
        for _ in range(20):
            dead = self.serve()
            dead.kill()
            dead.wait()
            both = [self.start(VLOGGER, "serve") for _ in range(2)]
            lines = [child.stdout.readline() for child in both]
            self.assertEqual(sorted(lines), ["", f"vlogger: ready at {self.socket}\n"])
            refused, serving = (both[place] for place in (lines.index(""), 1 - lines.index("")))
            place = os.stat(self.socket)
            _, err = refused.communicate(timeout=LIMIT_S)
            # The other one may not yet have said in its lock who it is.
            self.assertIn(err, [f"vlogger: {who} holds {self.socket}.lock: Address already in use\n" for who in
                                (f"the virtual logger of process {serving.pid}", "a virtual logger")])
            self.assertEqual(refused.returncode, 1)
            self.assertEqual(os.stat(self.socket).st_ino, place.st_ino)
            self.run_tool("stat")
            serving.kill()
            serving.wait()

    def test_socket_of_a_killed_one_is_taken_over(self):
        first = self.serve()
        first.kill()
        first.wait()
        self.serve()
        self.run_tool("stat")

    def test_another_user_is_refused(self):
        if os.getuid() != 0:
            self.skipTest("only root can become another user")
        self.serve()
        for directory in (self.directory, os.path.dirname(self.socket)):
            os.chmod(directory, 0o755)
        os.chmod(self.socket, 0o777)
        program = shutil.copy(VLOGGER, self.path("program"))
        done = subprocess.run((program, "stat"), env=self.environment, capture_output=True, text=True,
                              timeout=LIMIT_S, check=False, user=65534, group=65534)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn("Permission denied", done.stderr)

    def test_mistake_in_the_configuration_is_named(self):
        file = self.write("bench.toml", "[board]\ntyp = 1\n")
        mistake = f"{file}:2:1: unknown key \"typ\" in [board]; the nearest known name is \"type\"\n"
        self.assertEqual(self.run_tool("serve", "--config", file, code=1).stderr, mistake)
        self.assertEqual(self.run_tool("config", "check", file, code=1).stderr, mistake)

    def test_mistakes_are_listed_as_json(self):
        file = self.write("bench.toml", "[board]\ntyp = 1\n")
        text = 'unknown key "typ" in [board]; the nearest known name is "type"'
        done = self.run_tool("config", "check", "--json", file, code=1)
        self.assertEqual(json.loads(done.stdout), {"mistakes": [{"line": 2, "column": 1, "text": text}]})
        self.assertEqual(done.stderr, "")
        right = self.run_tool("config", "check", "--json", self.write("bench.toml", ""))
        self.assertEqual(right.stdout, '{"mistakes":[]}\n')


if __name__ == "__main__":
    main()
