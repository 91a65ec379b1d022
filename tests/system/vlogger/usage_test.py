#!/usr/bin/env python3
"""Input, output and arguments of every command that are not what they should be."""

import os
import subprocess

from bench import LIMIT_S, VLOGGER, Bench, generated_log, main


class UsageTest(Bench):
    def complaint(self, *arguments, code=2):
        """The first line on standard error of a command that fails."""
        return self.run_tool(*arguments, code=code).stderr.splitlines()[0]

    def test_missing_command_is_wrong_usage(self):
        for command in ((), ("config",), ("--option",)):
            self.assertEqual(self.complaint(*command), "A subcommand is required")

    def test_command_that_is_none_is_told_with_the_nearest_one(self):
        for command, wrong, nearest in ((("snd", "can0", "123#"), "snd", "send"),
                                        (("--socket", self.socket, "conf", "show"), "conf", "config"),
                                        (("config", "chekc", "bench.toml"), "chekc", "check")):
            self.assertEqual(self.complaint(*command),
                             f'vlogger: unknown command "{wrong}"; the nearest known name is "{nearest}"')

    def test_empty_name_is_refused(self):
        for command in (("serve", "--socket", ""), ("--socket", "", "stat")):
            self.assertEqual(self.complaint(*command), "--socket: the name is empty")
        self.assertEqual(self.complaint("record", ""), "FILE: the name is empty")

    def test_channel_that_the_board_lacks_is_refused(self):
        self.serve()
        log = self.write("in.log", "(1.000000) can0 001#\n")
        recording = self.path("out.log")
        lacking = "this board has no channel 98; the channels from 14 on need [board] device_code = 4"
        for command in (("send", "can98", "123#"), ("send", "--as-channel", "98", "123#"), ("dump", "can0", "can98"),
                        ("dump", "any", "98,123:7FF"), ("record", recording, "can98")):
            self.assertEqual(self.complaint(*command), "vlogger: " + lacking)
        self.assertFalse(os.path.exists(recording))
        self.assertEqual(self.complaint("replay", log, "--map", "can0=98"), f'vlogger: map "can0=98": {lacking}')
        self.assertEqual(self.stages("bus"), [])

    def test_last_channel_of_a_board_is_none_too_many(self):
        for board, channel in (("", "can13"), ("device_code = 4", "can255"), ("type = 112", "can255")):
            server = self.serve("--config", self.write("bench.toml", f"[board]\n{board}\n"))
            dump = self.start(VLOGGER, "dump", "-n", "1", channel)
            while not self.stages("monitor"):
                pass
            self.run_tool("send", channel, "123#")
            self.assertEqual(dump.communicate(timeout=LIMIT_S)[0].split(), [channel, "123", "[0]"])
            self.stop(server)

    def test_missing_argument_is_wrong_usage(self):
        for command in ("send", "replay", "record", "convert", "run"):
            self.assertRegex(self.complaint(command), "^[A-Z]+ is required$")

    def test_negative_and_huge_counts_are_refused(self):
        for count in ("-1", "0", "1.5", "99999999999999999999", "x"):
            for command in (("dump",), ("record", self.path("out.log"))):
                self.assertEqual(self.complaint(*command, "-n", count),
                                 f'--count: "{count}" is not a whole number from 1 to 18446744073709551615')

    def test_times_that_cannot_be_are_refused(self):
        for time in ("-1", "nan", "inf", "1e300", "x"):
            self.assertEqual(self.complaint("replay", self.path("in.log"), "--from", time),
                             f'--from: "{time}" is not a number of seconds from 0 to 1000000000')
        self.assertEqual(self.complaint("record", self.path("out.log"), "--seconds", "0"),
                         '--seconds: "0" is not a number of seconds above 0, up to 1000000000')

    def test_end_before_the_beginning_is_refused(self):
        self.serve()
        self.assertEqual(self.complaint("replay", self.write("in.log", ""), "--from", "2", "--to", "1"),
                         "vlogger: --to lies before --from")

    def test_part_without_a_frame_is_told(self):
        self.serve()
        log = self.write("in.log", "(5.000000) can0 001#\n(7.500000) can0 002#\n")
        for part in (("--from", "3"), ("--from", "1", "--to", "2")):
            done = self.run_tool("replay", log, *part)
            self.assertEqual(done.stderr.splitlines()[1:],
                             ["vlogger: no frame lies between --from and --to; the last one is 2.500 s behind the "
                              "beginning"])

    def test_map_of_an_interface_that_is_not_there_is_told(self):
        self.serve()
        log = self.write("in.log", "(5.000000) can0 001#\n")
        done = self.run_tool("replay", log, "--map", "vcan0=3", "--map", "can0=1")
        self.assertEqual(done.stderr.splitlines()[1], "vlogger: --map names vcan0, of which no frame was sent")

    def test_map_that_cannot_be_is_refused(self):
        self.serve()
        log = self.write("in.log", "(5.000000) body 001#\n")
        self.assertEqual(self.complaint("replay", log, "--map", "body"),
                         'vlogger: map "body": it is not interface=channel, for example can0=3')
        self.assertEqual(self.complaint("replay", log, "--map", "body=3", "--map", "body=4"),
                         'vlogger: map "body=4": its interface has a channel already')

    def test_replay_ends_with_its_report_at_an_interface_without_a_channel(self):
        self.serve()
        for name, reason in (("eth", ' stands for no channel; say which: --map eth=0'),
                             ("can98", ": this board has no channel 98; the channels from 14 on need [board] "
                                       "device_code = 4")):
            log = self.write("in.log", f"(1.000000) can0 001#\n(1.000000) {name} 002#\n(1.000000) can0 003#\n")
            for options in ((), ("--speed", "max"), ("--loop", "0")):
                done = self.run_tool("replay", log, *options, code=1)
                first, report = done.stderr.splitlines()[:2]
                self.assertEqual(first, f'vlogger: the capture\'s interface "{name}"{reason}')
                self.assertTrue(report.startswith("vlogger: 1 frame sent in "), report)
        self.assertEqual([one["in"] for one in self.stages("bus")], [6])

    def test_replay_without_any_channel_says_that_alone(self):
        self.serve()
        done = self.run_tool("replay", self.write("in.log", "(1.000000) eth 001#\n"), code=1)
        first, report = done.stderr.splitlines()
        self.assertEqual(first,
                         'vlogger: the capture\'s interface "eth" stands for no channel; say which: --map eth=0')
        self.assertTrue(report.startswith("vlogger: 0 frames sent in "), report)

    def test_speeds_that_cannot_be_are_refused(self):
        for speed in ("0", "-1", "nan", "inf", "1e7", "fast", "1x", "0x10", " 2", "+2"):
            self.assertEqual(self.complaint("replay", self.path("in.log"), "--speed", speed),
                             f'--speed: "{speed}" is neither a factor from 0.000001 to 1000000 nor max')

    def test_intervals_that_cannot_be_are_refused(self):
        for time in ("nan", "0x1", "0.01", "3601"):
            self.assertEqual(self.complaint("stat", "--watch", "--every", time),
                             f'--every: "{time}" is not a number of seconds from 0.05 to 3600')

    def test_leading_zeros_do_not_make_a_count_octal(self):
        self.serve()
        log = self.write("in.log", "(1.000000) can0 001#\n")
        done = self.run_tool("replay", log, "--loop", "010", "--speed", "max")
        self.assertIn("vlogger: 10 frames sent in ", done.stderr)

    def test_count_of_looks_needs_watching(self):
        self.assertEqual(self.complaint("stat", "-n", "3"), "--count requires --watch")
        self.assertEqual(self.complaint("stat", "--every", "3"), "--every requires --watch")

    def test_empty_frame_is_refused(self):
        self.assertEqual(self.complaint("send", "can0", ""),
                         "vlogger: a frame is empty; it is, for example, 123#DEADBEEF")

    def test_fd_frame_of_a_length_that_no_bus_can_carry_is_not_sent(self):
        self.assertEqual(self.complaint("send", "can0", "123##0112233445566778899"),
                         'vlogger: frame "123##0112233445566778899": a CAN FD frame has 0 to 8, 12, 16, 20, 24, 32, 48 '
                         'or 64 bytes, not 9')

    def test_directory_is_named_where_a_file_is_wanted(self):
        self.serve()
        for command in (("replay", self.directory), ("convert", self.directory, "-"),
                        ("record", self.directory), ("config", "check", self.directory)):
            self.assertEqual(self.complaint(*command, code=1), f"vlogger: {self.directory}: Is a directory")

    def test_missing_file_is_named(self):
        self.serve()
        missing = self.path("none")
        for command in (("replay", missing), ("convert", missing, "-"), ("record", missing + "/x"),
                        ("config", "show", missing), ("serve", "--config", missing)):
            self.assertIn("No such file or directory", self.complaint(*command, code=1))

    def test_file_that_is_read_is_never_overwritten(self):
        log = self.write("in.log", generated_log(3))
        link = self.path("link.log")
        os.symlink(log, link)
        for output in (log, link):
            self.assertEqual(self.complaint("convert", log, output),
                             f'vlogger: "{output}" is the file that is read; it would be lost')
        self.assertEqual(self.read("in.log"), generated_log(3))

    def test_format_that_is_not_written_is_refused_by_its_name(self):
        self.serve()
        log = self.write("in.log", generated_log(3))
        for name in ("out.asc", "out.pcap", "out.log.gz"):
            path = self.path(name)
            for command in (("convert", log, path), ("record", path)):
                self.assertEqual(self.complaint(*command),
                                 f'vlogger: "{path}": this format is not written; name it .log or .pcapng, or give '
                                 "--format")
            self.assertFalse(os.path.exists(path))
        self.run_tool("convert", "--format", "log", log, self.path("out.csv"))
        self.assertEqual(self.read("out.csv"), generated_log(3))

    def test_file_that_is_no_capture_leaves_the_output_as_it_was(self):
        text = self.write("in.txt", "nothing\nof the kind\n")
        old = self.write("out.log", generated_log(3))
        done = self.run_tool("convert", text, old, code=1)
        self.assertEqual(done.stderr.splitlines()[-1],
                         f"vlogger: {text}: no frame in it can be read; pcapng files, candump logs, and what candump "
                         "shows can")
        self.assertEqual(self.read("out.log"), generated_log(3))

    def test_older_recording_stays_where_nothing_can_be_recorded(self):
        older = self.write("out.log", generated_log(3))
        self.complaint("record", older, code=1)
        self.assertEqual(self.read("out.log"), generated_log(3))

    def test_standard_input_is_read_once_only(self):
        self.serve()
        self.assertEqual(self.complaint("replay", "-", "--loop", "2"),
                         "vlogger: --loop needs a file; standard input can be read once only")
        self.assertIn("3 frames sent", self.run_tool("replay", "-", input=generated_log(3)).stderr)

    def test_endless_replay_of_nothing_ends(self):
        self.serve()
        for text in ("", "(1.000000) can0 20000004#0000000000000000\n"):
            done = self.run_tool("replay", self.write("in.log", text), "--loop", "0", "--speed", "max")
            self.assertIn("0 frames sent", done.stderr)

    def test_replay_that_waits_for_years_ends_at_once(self):
        self.serve()
        log = self.write("in.log", "(1.000000) can0 001#\n(99999999999.000000) can0 002#\n")
        dump = self.start(VLOGGER, "dump", "can0")
        while not self.stages("monitor"):
            pass
        for speed in ("1", "0.000001"):
            child = self.start(VLOGGER, "replay", log, "--speed", speed)
            self.assertEqual(dump.stdout.readline(), "  can0  001   [0]\n")
            self.assertRegex(child.stderr.readline(), r"^vlogger: the next frame is due in \d{9,} s\n$")
            code, _, err = self.stop(child)
            self.assertEqual(code, 0)
            self.assertIn("1 frame sent", err)

    def test_last_line_without_its_end_and_foreign_line_ends_are_read(self):
        for text in ("(1.000000) can0 001#\n(2.000000) can0 002#", "(1.000000) can0 001#\r\n(2.000000) can0 002#\r\n"):
            done = self.run_tool("convert", "-", "-", input=text)
            self.assertEqual(done.stdout, "(1.000000) can0 001#\n(2.000000) can0 002#\n")

    def test_empty_capture_is_converted_to_an_empty_one(self):
        self.run_tool("convert", self.write("in.log", ""), self.path("out.pcapng"))
        done = self.run_tool("convert", self.path("out.pcapng"), "-")
        self.assertEqual((done.stdout, done.stderr), ("", "vlogger: 0 frames converted\n"))


class StandardOutputTest(Bench):
    COMMANDS = (("config", "show"), ("config", "keys"), ("stat",), ("stat", "--json"), ("--help",), ("--version",))

    def test_full_one_is_a_failure(self):
        self.serve()
        for command in self.COMMANDS:
            with open("/dev/full", "w", encoding="utf-8") as full:
                done = subprocess.run((VLOGGER, *command), env=self.environment, stdout=full, stderr=subprocess.PIPE,
                                      text=True, timeout=LIMIT_S, check=False)
            self.assertEqual((done.returncode, done.stderr), (1, "vlogger: standard output cannot be written\n"))

    def test_closed_one_is_a_failure(self):
        self.serve()
        for command in self.COMMANDS:
            done = subprocess.run(("sh", "-c", 'exec "$@" >&-', "sh", VLOGGER, *command), env=self.environment,
                                  stderr=subprocess.PIPE, text=True, timeout=LIMIT_S, check=False)
            self.assertEqual((done.returncode, done.stderr), (1, "vlogger: standard output cannot be written\n"))

    def test_closed_one_is_a_failure_before_the_first_frame(self):
        self.serve()
        for command in (("dump",), ("record", "--format", "log", "-")):
            done = subprocess.run(("sh", "-c", 'exec "$@" >&-', "sh", VLOGGER, *command), env=self.environment,
                                  stderr=subprocess.PIPE, text=True, timeout=LIMIT_S, check=False)
            self.assertEqual((done.returncode, done.stderr), (1, "vlogger: standard output cannot be written\n"))

    def test_reader_that_goes_ends_a_command_on_a_quiet_bus(self):
        self.serve()
        for command in (("dump",), ("record", "--format", "log", "-")):
            child = self.start(VLOGGER, *command)
            while not self.stages("monitor"):
                pass
            child.stdout.close()
            self.assertEqual(child.wait(LIMIT_S), 0, command)

    def test_reader_that_has_seen_enough_is_no_failure(self):
        self.serve()
        log = self.write("in.log", generated_log(30000))
        for command in (("convert", log, "-"), ("dump",), ("record", "-")):
            child = self.start(VLOGGER, *command)
            if command[0] != "convert":
                while not self.stages("monitor"):
                    pass
                self.run_tool("replay", log, "--speed", "max")
            child.stdout.readline()
            child.stdout.close()
            while child.poll() is None and command[0] != "convert":
                self.run_tool("send", "can0", "123#")
            self.assertEqual(child.wait(LIMIT_S), 0, command)


if __name__ == "__main__":
    main()
