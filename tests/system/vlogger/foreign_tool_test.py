#!/usr/bin/env python3
"""Captures that other tools read."""

import shutil
import subprocess

from bench import LIMIT_S, Bench, generated_log, main


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

    def test_tshark_puts_a_transport_message_together(self):
        tshark = self.tool("tshark")
        data = bytes(range(0x22, 0x22 + 100))
        frames = [f"7E0#1064{data[:6].hex()}"]
        for number in range(14):
            frames.append(f"7E0#{0x20 | (number + 1) & 0xF:02X}{data[6 + 7 * number:13 + 7 * number].hex()}")
        self.serve()
        recorder = self.record(self.path("out.pcapng"), "can3")
        self.run_tool("send", "--as-channel", "can2", *frames)
        while self.stages("monitor")[0]["in"] < len(frames):
            pass
        self.assertEqual(self.stop(recorder)[0], 0)
        fields = [part for name in ("iso15765.reassembled.length", "uds.sid") for part in ("-e", name)]
        lines = self.output(tshark, "-r", self.path("out.pcapng"), "-d", "can.subdissector,iso15765",
                            "-d", "iso15765.subdissector,uds", "-T", "fields", *fields).splitlines()
        self.assertEqual(len(lines), len(frames))
        self.assertEqual(lines[-1], "100\t0x22")

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
                                                 "can4 0x20 False True 00000002" + "5a" * 12])


if __name__ == "__main__":
    main()
