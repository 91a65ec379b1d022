#!/usr/bin/env python3
"""The program vlogger in several processes: bench, tools, captures that other tools read.

usage: vlogger_test.py VLOGGER PEER_PROGRAM [TEST...]

A recorded log that BUSINTERFACES_LOG names is replayed, recorded and converted back; without it that test is
skipped. So are tests whose foreign tool is missing.
"""

import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

VLOGGER, PEER = sys.argv[1:3]
LIMIT_S = 100  # generous: only a failing test ever waits this long
FRAMES = 1000000


def generated_log(frames):
    """A log of standard, extended and FD frames on three interfaces."""
    lines = []
    for i in range(frames):
        time = f"({1700000000 + i // 10000}.{i % 10000 * 100:06d})"
        lines.append((f"{time} can0 {i % 0x800:03X}#{i:016X}",
                      f"{time} can2 {0x18FEF100 + i % 256:08X}#{i & 0xFFFF:04X}",
                      f"{time} can4 {i % 0x800:03X}##0{i:08X}" + "5A" * 12)[i % 3])
    return "\n".join(lines) + "\n"


class Bench(unittest.TestCase):
    """A directory of its own and a virtual logger in it."""

    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="vlogger-test-")
        self.addCleanup(shutil.rmtree, self.directory, True)
        self.socket = os.path.join(self.directory, "bench", "socket")
        self.environment = dict(os.environ, VLOGGER=self.socket)
        self.children = []
        self.addCleanup(self.end_children)

    def end_children(self):
        for child in self.children:
            if child.poll() is None:
                child.kill()
            child.communicate()

    def path(self, name):
        return os.path.join(self.directory, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def start(self, *command, **options):
        child = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 stdin=subprocess.PIPE, text=True, **options)
        self.children.append(child)
        return child

    def run_tool(self, *arguments, code=0, **options):
        done = subprocess.run((VLOGGER, *arguments), env=self.environment, capture_output=True, text=True,
                              timeout=LIMIT_S, check=False, **options)
        self.assertEqual(done.returncode, code, done.stderr)
        return done

    def serve(self, *arguments):
        child = self.start(VLOGGER, "serve", *arguments)
        self.assertEqual(child.stdout.readline(), f"vlogger: ready at {self.socket}\n")
        return child

    def stages(self, stage):
        report = json.loads(self.run_tool("stat", "--json").stdout)
        return [one for one in report["stages"] if one["stage"] == stage]

    def record(self, *arguments):
        """Starts a recording and waits until it has its monitor."""
        child = self.start(VLOGGER, "record", *arguments)
        self.assertEqual(child.stderr.readline(), f"vlogger: recording to {arguments[0]}\n")
        return child

    def stop(self, child):
        child.send_signal(signal.SIGINT)
        out, err = child.communicate(timeout=LIMIT_S)
        return child.returncode, out, err

    def receiver(self, channel, identifier, count):
        child = self.start(PEER, "receive", str(channel), str(identifier), str(count))
        for line in child.stdout:
            if line == "online\n":
                return child
        self.fail("the receiver did not come online: " + child.stderr.read())


class ServeTest(Bench):
    def test_stops_cleanly_on_both_signals(self):
        for stop in (signal.SIGINT, signal.SIGTERM):
            child = self.serve()
            child.send_signal(stop)
            self.assertEqual(child.communicate(timeout=LIMIT_S), ("", ""))
            self.assertEqual(child.returncode, 0)

    def test_second_one_on_a_socket_is_refused(self):
        self.serve()
        second = self.run_tool("serve", code=1)
        self.assertEqual(second.stdout, "")
        self.assertIn("Address already in use", second.stderr)
        self.run_tool("stat")

    def test_of_two_started_at_once_one_serves(self):
        both = [self.start(VLOGGER, "serve") for _ in range(2)]
        lines = sorted(child.stdout.readline() for child in both)
        self.assertEqual(lines, ["", f"vlogger: ready at {self.socket}\n"])
        self.run_tool("stat")

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


class ToolTest(Bench):
    def test_dump_shows_what_is_sent(self):
        self.serve()
        dump = self.start(VLOGGER, "dump", "-x", "-n", "5", "can0", "any,7E0:7F0")
        while not self.stages("monitor"):
            pass
        self.run_tool("send", "can0", "123#DEADBEEF", "1F334455#11.22", "123##1AB")
        self.run_tool("send", "can9", "123#00", "7E8#00")
        out, _ = dump.communicate(timeout=LIMIT_S)
        self.assertEqual(out, "  can0  RX  123   [4]  DE AD BE EF\n"
                              "  can0  RX  1F334455   [2]  11 22\n"
                              "  can0  RX  123  [01]  AB\n"
                              "  can8  RX  7E8   [1]  00\n"
                              "  can9  RX  7E8   [1]  00\n")
        self.assertEqual(dump.returncode, 0)

    def test_stat_counts_every_stage(self):
        self.serve()
        self.run_tool("send", "can0", "123#00")
        self.assertEqual(self.stages("bus"), [{"stage": "bus", "name": "can0 can1", "in": 1, "out": 2, "waiting": 0,
                                               "dropped": 0}])
        watched = self.run_tool("stat", "--watch", "--every", "0.05", "-n", "2").stdout
        self.assertEqual(watched.count("stage         name"), 2)
        self.assertNotIn("\033", watched)

    def test_wrong_usage_is_told_from_failure(self):
        self.serve()
        self.run_tool("send", "can0", "123", code=2)
        self.run_tool("send", "canx", "123#", code=2)
        self.run_tool("dump", "can0,x", code=2)
        self.run_tool("nonsense", code=2)
        self.run_tool("--socket", self.path("none"), "stat", code=1)
        self.run_tool("--help")
        self.assertEqual(self.run_tool("--version").stdout.split()[0], "vlogger")


class MillionTest(Bench):
    def test_three_applications_and_dump_lose_nothing(self):
        self.serve()
        receivers = [self.receiver(1, 0x123, FRAMES) for _ in range(2)]
        dump = self.start(VLOGGER, "dump", "-L", "-n", str(FRAMES), "can1,123:7FF")
        while not self.stages("monitor"):
            pass
        sender = self.start(PEER, "send", "0", str(0x123), str(FRAMES))
        sender.stdin.close()
        sender.stdin = None
        count = sum(1 for _ in dump.stdout)
        self.assertEqual(count, FRAMES)
        for child in (sender, *receivers):
            child.communicate(timeout=LIMIT_S)
            self.assertEqual(child.returncode, 0)


class KillTest(Bench):
    def test_killed_clients_leave_nothing_behind(self):
        self.serve()
        log = self.write("in.log", generated_log(3000))
        parties = (lambda: self.receiver(1, 0x123, 10 ** 9), lambda: self.record(self.path("out.pcapng")),
                   lambda: self.start(VLOGGER, "replay", log, "--loop", "0", "--speed", "max"))
        for begin in parties:
            child = begin()
            busy = self.start(VLOGGER, "replay", log, "--loop", "20", "--speed", "max")
            child.kill()
            child.wait()
            _, err = busy.communicate(timeout=LIMIT_S)
            self.assertEqual(busy.returncode, 0, err)
            while self.stages("monitor") or self.stages("stream"):
                pass
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))

    def test_tools_say_that_a_killed_virtual_logger_has_gone(self):
        logger = self.serve()
        recorder = self.record(self.path("out.log"))
        self.run_tool("send", "can0", "123#AA")
        logger.kill()
        _, err = recorder.communicate(timeout=LIMIT_S)
        self.assertEqual(err, "vlogger: 2 frames recorded; the virtual logger has gone\n")
        self.assertEqual(recorder.returncode, 0)


class CaptureTest(Bench):
    def replay_and_record(self, log, channels):
        """Replays a log while an application listens; returns the lines that were recorded, without times."""
        self.serve()
        recorder = self.record(self.path("out.pcapng"), *channels)
        replayed = self.run_tool("replay", log, "--speed", "max")
        code, _, err = self.stop(recorder)
        self.assertEqual(code, 0, err)
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))
        return [line.split(" ", 1)[1] for line in self.read("out.log").splitlines()], replayed.stderr

    def test_generated_log_comes_back_frame_by_frame(self):
        log = self.write("in.log", generated_log(30000))
        lines, _ = self.replay_and_record(log, ("can0", "can2", "can4"))
        self.assertEqual(lines, [line.split(" ", 1)[1] for line in self.read("in.log").splitlines()])

    def test_recorded_log_comes_back_frame_by_frame(self):
        log = os.environ.get("BUSINTERFACES_LOG")
        if not log:
            self.skipTest("BUSINTERFACES_LOG names no log")
        with open(log, encoding="utf-8") as file:
            expected = [line.split()[2] for line in file if line.strip()]
        lines, report = self.replay_and_record(log, ("can0",))
        self.assertEqual([line.split()[1] for line in lines], expected)
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

    def test_killed_recording_has_every_frame_of_a_quiet_bus(self):
        self.serve()
        recorder = self.record(self.path("out.pcapng"), "can0")
        self.run_tool("replay", self.write("in.log", generated_log(3000)), "--map", "can2=0", "--map", "can4=0",
                      "--speed", "max")
        while self.stages("monitor")[0]["waiting"]:
            pass
        self.run_tool("send", "can0", "7FF#")
        size = -1
        while size != os.path.getsize(self.path("out.pcapng")) or size < 3000 * 44:
            size = os.path.getsize(self.path("out.pcapng"))
        recorder.kill()
        recorder.wait()
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))
        self.assertGreaterEqual(len(self.read("out.log").splitlines()), 3000)

    def test_unreadable_places_are_said_and_skipped(self):
        log = self.write("in.log", "(1.000000) can0 001#\nnonsense\n(2.000000) can0 002#AA R\n")
        done = self.run_tool("convert", log, "-", code=3)
        self.assertEqual(done.stdout, "(1.000000) can0 001#\n(2.000000) can0 002#AA\n")
        self.assertEqual(done.stderr, f"vlogger: {log}: line 2: the line does not begin with a time stamp in "
                                      "parentheses\nvlogger: 2 frames converted\n")


class ForeignToolTest(Bench):
    def tool(self, name):
        found = shutil.which(name)
        if not found:
            self.skipTest(f"{name} is missing")
        return found

    def output(self, *command, **options):
        done = subprocess.run(command, capture_output=True, text=True, timeout=LIMIT_S, check=False, **options)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def test_tshark_reads_channels_stamps_directions_and_transport(self):
        tshark = self.tool("tshark")
        self.serve()
        recorder = self.record(self.path("out.pcapng"))
        self.run_tool("send", "--as-channel", "can2", "7E0#100A222222222222", "7E0#2133333333")
        while self.stages("monitor")[0]["in"] < 4:
            pass
        self.assertEqual(self.stop(recorder)[0], 0)
        fields = [part for name in ("frame.interface_name", "frame.time_epoch", "frame.packet_flags_direction",
                                    "can.id", "iso15765.message_type") for part in ("-e", name)]
        lines = self.output(tshark, "-r", self.path("out.pcapng"), "-d", "can.subdissector,iso15765", "-T", "fields",
                            *fields).splitlines()
        rows = [line.split("\t") for line in lines]
        self.assertEqual([row[0] for row in rows], ["can2", "can3", "can2", "can3"])
        self.assertEqual([int(row[2], 0) for row in rows], [2, 1, 2, 1])
        self.assertEqual([int(row[3], 0) for row in rows], [0x7E0] * 4)
        self.assertEqual([int(row[4], 0) for row in rows], [1, 1, 2, 2])
        self.assertTrue(all(len(row[1].split(".")[1]) == 9 for row in rows))

    def test_log_tools_read_our_log(self):
        log2asc = self.tool("log2asc")
        self.serve()
        recorder = self.record(self.path("out.log"), "can0")
        self.run_tool("send", "can0", "123#DEADBEEF", "1F334455#11")
        while self.stages("monitor")[0]["in"] < 2:
            pass
        self.assertEqual(self.stop(recorder)[0], 0)
        text = self.output(log2asc, "-I", self.path("out.log"), "can0")
        self.assertIn("123             Rx   d 4 DE AD BE EF", text)
        self.assertIn("1F334455x       Rx   d 1 11", text)

    def test_python_can_reads_our_log(self):
        script = ("import sys, can\n"
                  "for m in can.CanutilsLogReader(sys.argv[1]):\n"
                  "    print(m.channel, hex(m.arbitration_id), m.is_extended_id, m.is_fd, m.data.hex())\n")
        if subprocess.run(("/usr/bin/python3", "-c", "import can"), capture_output=True, check=False).returncode:
            self.skipTest("python3-can is missing")
        log = self.write("in.log", generated_log(6))
        self.run_tool("convert", log, self.path("out.pcapng"))
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))
        text = self.output("/usr/bin/python3", "-c", script, self.path("out.log"))
        self.assertEqual(text.splitlines()[:3], ["can0 0x0 False False 0000000000000000",
                                                 "can2 0x18fef101 True False 0001",
                                                 "can4 0x2 False True 00000002" + "5a" * 12])


if __name__ == "__main__":
    unittest.main(argv=["vlogger_test.py", *sys.argv[3:]], verbosity=2)
