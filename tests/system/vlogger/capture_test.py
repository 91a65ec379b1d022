#!/usr/bin/env python3
"""The commands record, replay and convert."""

import gzip
import os
import signal
import socket
import subprocess
import sys

from bench import LIMIT_S, VLOGGER, Bench, generated_log, main


class CaptureTest(Bench):
    def replay_and_record(self, log, channels):
        """Replays a log to an application and a recording; returns the recorded lines, without times."""
        self.serve()
        with open(log, encoding="utf-8") as file:
            frames = [" ".join(line.split()[1:3]) for line in file if line.strip()]
        application = self.receiver_of(frames)
        recorder = self.record(self.path("out.pcapng"), *channels)
        replayed = self.run_tool("replay", log, "--speed", "max")
        out, _ = application.communicate(timeout=LIMIT_S)
        self.assert_same_lines([line for line in out.splitlines() if line.startswith("can")], frames)
        code, _, err = self.stop(recorder)
        self.assertEqual(code, 0, err)
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))
        return [line.split(" ", 1)[1] for line in self.read("out.log").splitlines()], replayed.stderr

    def test_generated_log_comes_back_frame_by_frame(self):
        log = self.write("in.log", generated_log(30000))
        lines, _ = self.replay_and_record(log, ("can0", "can2", "can4"))
        self.assert_same_lines(lines, [line.split(" ", 1)[1] for line in self.read("in.log").splitlines()])

    def test_recorded_log_comes_back_frame_by_frame(self):
        log = os.environ.get("BUSINTERFACES_LOG")
        if not log:
            self.skipTest("BUSINTERFACES_LOG names no log")
        with open(log, encoding="utf-8") as file:
            expected = [line.split()[2] for line in file if line.strip()]
        lines, report = self.replay_and_record(log, ("can0",))
        self.assert_same_lines([line.split()[1] for line in lines], expected)
        print(f"recorded log: {len(lines)} frames came back; {report.strip()}", file=sys.stderr)

    def test_times_are_kept_and_lateness_is_said(self):
        log = self.write("in.log", "(5.000000) can0 001#\n(5.200000) can0 002#\n(5.300000) can0 003#\n")
        self.serve()
        recorder = self.record(self.path("out.log"), "can7")
        done = self.run_tool("replay", log, "--map", "can0=7", "--from", "0.1", "--speed", "2")
        self.assertIn("2 frames sent", done.stderr)
        self.assertIn("lateness mean", done.stderr)
        self.stop(recorder)
        times = [float(line[1:line.index(")")]) for line in self.read("out.log").splitlines()]
        self.assertEqual(len(times), 2)
        self.assertGreater(times[1] - times[0], 0.02)

    def test_second_recording_to_a_file_is_refused_and_the_first_keeps_its_frames(self):
        self.serve()
        out = self.path("out.log")
        first = self.record(out, "can0")
        self.assertEqual(self.run_tool("record", out, "-n", "1", "--seconds", "1", code=1).stderr,
                         f"vlogger: another program is writing {out}; give another file name\n")
        self.run_tool("send", "can0", "123#01")
        self.assertEqual(self.stop(first), (0, "", "vlogger: 1 frame recorded\n"))
        self.assertEqual([line.split()[2] for line in self.read("out.log").splitlines()], ["123#01"])
        self.run_tool("record", out, "--seconds", "0.1")

    def test_full_disk_ends_a_recording_with_a_readable_file(self):
        self.serve()
        limited = self.start("sh", "-c", f'ulimit -f 8; exec {VLOGGER} record {self.path("out.pcapng")}')
        limited.stderr.readline()
        self.run_tool("replay", self.write("in.log", generated_log(3000)), "--speed", "max")
        _, err = limited.communicate(timeout=LIMIT_S)
        self.assertEqual(limited.returncode, 1)
        self.assertRegex(err, r"^vlogger: recording ends after \d+ frames, which can be read: .*File too large\n$")
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))
        self.assertIn(f"after {len(self.read('out.log').splitlines())} frames", err)

    def test_disk_without_room_ends_a_recording_with_a_readable_file(self):
        disk = self.path("disk")
        os.mkdir(disk)
        mounted = os.getuid() == 0 and subprocess.run(("mount", "-t", "tmpfs", "-o", "size=64k", "none", disk),
                                                      capture_output=True, check=False).returncode == 0
        if not mounted:
            self.skipTest("only root can make a small disk")
        self.addCleanup(subprocess.run, ("umount", "-l", disk), check=True)
        self.serve()
        recorder = self.record(os.path.join(disk, "out.pcapng"))
        self.run_tool("replay", self.write("in.log", generated_log(3000)), "--speed", "max")
        _, err = recorder.communicate(timeout=LIMIT_S)
        self.assertEqual(recorder.returncode, 1)
        self.assertRegex(err, r"^vlogger: recording ends after \d+ frames, which can be read: "
                              r".*: No space left on device\n$")
        self.run_tool("convert", os.path.join(disk, "out.pcapng"), self.path("out.log"))
        self.assertIn(f"after {len(self.read('out.log').splitlines())} frames", err)

    def test_killed_recording_has_every_frame_of_a_quiet_bus(self):
        self.serve()
        recorder = self.record(self.path("out.pcapng"), "can0")
        self.run_tool("replay", self.write("in.log", generated_log(3000)), "--map", "can2=0", "--map", "can4=0",
                      "--speed", "max")
        while self.stages("monitor")[0]["waiting"]:
            pass
        self.run_tool("send", "can0", "7FF#")
        last = b"\x00\x00\x07\xFF\0\0\0\0"  # no other frame of this recording has these bytes
        while last not in self.read_bytes("out.pcapng"):
            pass
        recorder.kill()
        recorder.wait()
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))
        self.assertEqual(len(self.read("out.log").splitlines()), 3001)

    def test_frame_that_two_channels_have_recorded_is_replayed_once_by_direction(self):
        self.serve()
        recorder = self.record(self.path("both.pcapng"))
        self.run_tool("send", "--as-channel", "can0", "123#01", "123#02")
        while self.stages("monitor")[0]["in"] < 4:
            pass
        self.stop(recorder)
        hint = ("vlogger: the capture has frames as sent and as received; one that two channels of a bus have recorded "
                "went out twice (--direction rx or tx: once)")
        for options, frames in (((), 4), (("--direction", "rx"), 2), (("--direction", "tx", "--as-channel"), 2)):
            err = self.run_tool("replay", self.path("both.pcapng"), "--speed", "max", *options).stderr
            self.assertTrue(err.startswith(f"vlogger: {frames} frames sent in "), err)
            self.assertEqual(hint in err.splitlines(), not options)
        log = self.write("in.log", "(1.000000) can0 123#01\n")
        self.assertIn("vlogger: 1 frame sent", self.run_tool("replay", log, "--direction", "rx").stderr)

    def convert(self, text, output="-"):
        """Converts a log to pcapng and that to a log again; returns the log and what both said."""
        first = self.run_tool("convert", self.write("in.log", text), self.path("out.pcapng"))
        second = self.run_tool("convert", self.path("out.pcapng"), output)
        return second.stdout, first.stderr, second.stderr

    def test_log_comes_back_from_pcapng_with_all_it_can_hold(self):
        text = ("(1.000000) can0 123#1122334455667788_F\n(1.000000) can0 123#R8_9\n(1.000000) can0 123#R4\n"
                "(1.000000) can1 18FEF100##BAABB\n(1.000000) can1 20000004#0008000000000000\n")
        self.assertEqual(self.convert(text), (text, "vlogger: 5 frames converted\n", "vlogger: 5 frames converted\n"))

    def test_what_a_format_cannot_hold_is_counted_at_the_end(self):
        log, first, second = self.convert("(1.000000001) can0 123##5AA T\n(2.0) can0 123##1AA\n")
        self.assertEqual(log, "(1.000000) can0 123##1AA\n(2.000000) can0 123##1AA\n")
        self.assertEqual(first, "vlogger: pcapng sets bit 2 of the flags of every CAN FD frame; that 1 frame had it "
                                "in their digit is not kept\nvlogger: 2 frames converted\n")
        self.assertEqual(second, "vlogger: a log has no place for a direction, which 1 frame had\n"
                                 "vlogger: a log has no place for nanoseconds, which 1 frame had\n"
                                 "vlogger: 2 frames converted\n")

    def test_what_dump_shows_is_read_as_a_capture(self):
        self.serve()
        dump = self.start(VLOGGER, "dump", "-t", "a", "-x", "-n", "4", "can0", "can1")
        while not self.stages("monitor"):
            pass
        self.run_tool("send", "can0", "123#DEADBEEF", "1F334455##0")
        shown, _ = dump.communicate(timeout=LIMIT_S)
        done = self.run_tool("convert", "-", "-", input=shown)
        self.assertEqual([line.split(" ", 1)[1] for line in done.stdout.splitlines()],
                         ["can0 123#DEADBEEF", "can1 123#DEADBEEF", "can0 1F334455##0", "can1 1F334455##0"])
        self.assertIn("a direction, which 4 frames had", done.stderr)

    def test_capture_of_another_format_is_named_before_anything_is_written(self):
        self.write("out.log", "precious\n")
        packed = self.path("in.log.gz")
        with gzip.open(packed, "wt", encoding="utf-8") as file:
            file.write(generated_log(3))
        done = self.run_tool("convert", packed, self.path("out.log"), code=1)
        self.assertEqual(done.stderr, f"vlogger: {packed}: this file is compressed with gzip; unpack it first: "
                                      "gunzip -c FILE | vlogger COMMAND -\n")
        self.assertEqual(self.read("out.log"), "precious\n")

    def test_capture_that_comes_byte_by_byte_is_read(self):
        self.run_tool("convert", self.write("in.log", generated_log(3)), self.path("in.pcapng"))
        with open(self.path("in.pcapng"), "rb") as file:
            captures = (file.read(), generated_log(3).encode())
        for capture in captures:
            child = self.start(VLOGGER, "convert", "-", "-", text=False, bufsize=0)
            for place in range(len(capture)):
                child.stdin.write(capture[place:place + 1])
            out, _ = child.communicate(timeout=LIMIT_S)
            self.assertEqual(out.decode(), generated_log(3))

    def test_each_frame_is_written_by_itself_however_many_one_read_brings(self):
        self.serve()
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        ours.settimeout(LIMIT_S)
        with ours, theirs:
            recorder = self.start(VLOGGER, "record", "--format", "log", "-", "can0", stdout=theirs)
            recorder.stderr.readline()
            recorder.send_signal(signal.SIGSTOP)
            os.waitpid(recorder.pid, os.WUNTRACED)
            log = self.write("in.log", generated_log(1000))
            self.run_tool("replay", log, "--map", "can2=0", "--map", "can4=0", "--speed", "max")
            recorder.send_signal(signal.SIGCONT)
            writes = [ours.recv(65536).decode() for _ in range(1000)]
        self.assert_same_lines([" ".join(write.split(" ")[2:]) for write in writes],
                               [line.split()[2] + "\n" for line in self.read("in.log").splitlines()])

    def test_unreadable_places_are_said_and_skipped(self):
        log = self.write("in.log", "(1.000000) can0 001#\nnonsense\n(2.000000) can0 002#AA R\n")
        done = self.run_tool("convert", log, "-", code=3)
        self.assertEqual(done.stdout, "(1.000000) can0 001#\n(2.000000) can0 002#AA\n")
        self.assertEqual(done.stderr, f"vlogger: {log}: line 2: the line does not begin with a time stamp in "
                                      "parentheses\nvlogger: a log has no place for a direction, which 1 frame had\n"
                                      "vlogger: 2 frames converted\n")


if __name__ == "__main__":
    main()
