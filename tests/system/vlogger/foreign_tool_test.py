#!/usr/bin/env python3
"""Captures that other tools read."""

import shutil
import struct
import subprocess

from bench import LIMIT_S, Bench, main

LONGEST = "DEADBEEF" + "5A" * 60
# Every kind of frame that a log can hold, on several channels.
EVERY_KIND = (
    "(1700000000.000001) can0 123#DEADBEEF\n"
    "(1700000000.000002) can1 1F334455#1122334455667788\n"
    "(1700000000.000003) can0 7FF#\n"
    "(1700000000.000004) can2 123#R\n"
    "(1700000000.000005) can2 00000123#R8\n"
    "(1700000000.000006) can3 123##0AA\n"
    "(1700000000.000007) can3 123##1\n"
    "(1700000000.000008) can3 1FFFFFFF##2AABB\n"
    f"(1700000000.000009) can3 001##3{LONGEST}\n"
    "(1700000000.000010) can0 20000004#0008000000000000\n")
PYTHON = "/usr/bin/python3"  # for which the distribution packages python3-can


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

    def converted(self, text, *names):
        """A log after a way through files of these names."""
        path = self.write("in.log", text)
        for name in names:
            self.run_tool("convert", path, self.path(name))
            path = self.path(name)
        return path

    def columns(self, capture, *names, options=()):
        """What tshark shows in these fields, one tuple per frame."""
        fields = [part for name in names for part in ("-e", name)]
        lines = self.output(self.tool("tshark"), "-r", capture, *options, "-T", "fields", *fields).splitlines()
        return [tuple(line.split("\t")) for line in lines]

    def test_tshark_reads_every_kind_of_frame(self):
        rows = self.columns(self.converted(EVERY_KIND, "out.pcapng"), "frame.interface_name", "frame.time_epoch",
                            "can.id", "can.flags.xtd", "can.flags.rtr", "can.flags.err", "can.len",
                            "canfd.flags.brs", "canfd.flags.esi", "data.data")
        time = "1700000000.0000"
        self.assertEqual(rows, [
            ("can0", time + "01000", str(0x123), "0", "0", "0", "4", "", "", "deadbeef"),
            ("can1", time + "02000", str(0x1F334455), "1", "0", "0", "8", "", "", "1122334455667788"),
            ("can0", time + "03000", str(0x7FF), "0", "0", "0", "0", "", "", ""),
            ("can2", time + "04000", str(0x123), "0", "1", "0", "0", "", "", ""),
            ("can2", time + "05000", str(0x123), "1", "1", "0", "8", "", "", ""),
            ("can3", time + "06000", str(0x123), "0", "", "", "1", "0", "0", "aa"),
            ("can3", time + "07000", str(0x123), "0", "", "", "0", "1", "0", ""),
            ("can3", time + "08000", str(0x1FFFFFFF), "1", "", "", "2", "0", "1", "aabb"),
            ("can3", time + "09000", str(1), "0", "", "", "64", "1", "1", LONGEST.lower()),
            ("can0", time + "10000", "", "", "", "1", "8", "", "", "")])

    def test_tshark_reads_names_directions_and_nanoseconds(self):
        text = ("(1700000000.000000007) body 123#AA R\n(1700000000.999999999) vcan12 123#AA T\n"
                "(1700000001.5) body 123#AA\n")
        rows = self.columns(self.converted(text, "out.pcapng"), "frame.interface_name", "frame.interface_id",
                            "frame.time_epoch", "frame.packet_flags_direction")
        self.assertEqual([row[:3] for row in rows], [("body", "0", "1700000000.000000007"),
                                                     ("vcan12", "1", "1700000000.999999999"),
                                                     ("body", "0", "1700000001.500000000")])
        self.assertEqual([int(row[3], 0) if row[3] else 0 for row in rows], [1, 2, 0])

    def test_tshark_reads_counts_of_lost_frames(self):
        capture = self.path("in.pcapng")
        with open(capture, "wb") as file:
            file.write(pcapng_with_losses((0, 5, 2 ** 40)))
        self.run_tool("convert", capture, self.path("out.pcapng"))
        self.assertEqual(self.columns(self.path("out.pcapng"), "frame.drop_count"), [("",), ("5",), (str(2 ** 40),)])

    def test_captures_that_editcap_writes_are_read(self):
        editcap = self.tool("editcap")
        self.output(editcap, "-F", "pcapng", self.converted(EVERY_KIND, "in.pcapng"), self.path("edited.pcapng"))
        self.assertEqual(self.run_tool("convert", self.path("edited.pcapng"), "-").stdout, EVERY_KIND)

    def test_classic_pcap_file_is_named_and_read_once_editcap_has_made_it_pcapng(self):
        editcap = self.tool("editcap")
        text = EVERY_KIND.replace("can1", "can0").replace("can2", "can0").replace("can3", "can0")
        pcap = self.path("old.pcap")
        self.output(editcap, "-F", "nsecpcap", self.converted(text, "in.pcapng"), pcap)
        done = self.run_tool("convert", pcap, "-", code=1)
        self.assertEqual(done.stderr, f"vlogger: {pcap}: this is a classic pcap file; editcap -F pcapng makes a pcapng "
                                      "file of it\n")
        self.output(editcap, "-F", "pcapng", pcap, self.path("new.pcapng"))
        self.assertEqual(self.run_tool("convert", self.path("new.pcapng"), "-").stdout, text)

    def test_log2asc_reads_every_kind_of_frame(self):
        log = self.converted(EVERY_KIND, "out.pcapng", "out.log")
        lines = self.output(self.tool("log2asc"), "-I", log, "can0", "can1", "can2", "can3").splitlines()[3:]
        expected = ["1 123 Rx d 4 DE AD BE EF", "2 1F334455x Rx d 8 11 22 33 44 55 66 77 88", "1 7FF Rx d 0",
                    "3 123 Rx r 0", "3 123x Rx r 8", "CANFD 4 Rx 123 0 0 1 1 AA", "CANFD 4 Rx 123 1 0 0 0",
                    "CANFD 4 Rx 1FFFFFFFx 0 1 2 2 AA BB", "CANFD 4 Rx 1 1 1 f 64 DE AD BE EF", "1 ErrorFrame"]
        self.assertEqual(len(lines), len(expected))
        for line, beginning in zip(lines, expected):
            self.assertEqual((" ".join(line.split()[1:]) + " ")[:len(beginning) + 1], beginning + " ")

    def test_frames_come_back_from_log2asc_and_asc2log(self):
        classic = "".join(line + "\n" for line in EVERY_KIND.splitlines() if "##" not in line and "#R" not in line
                          and " 2000" not in line)
        self.output(self.tool("log2asc"), "-I", self.converted(classic, "out.pcapng", "out.log"), "-O",
                    self.path("out.asc"), "can0", "can1")
        done = self.run_tool("convert", self.path("out.asc"), "-", code=1)
        self.assertIn("this is a log in ASC format; asc2log of can-utils makes a candump log of it", done.stderr)
        self.output(self.tool("asc2log"), "-I", self.path("out.asc"), "-O", self.path("back.log"))
        back = self.run_tool("convert", self.path("back.log"), "-").stdout
        self.assertEqual([line.split(" ", 1)[1] for line in back.splitlines()],
                         [line.split(" ", 1)[1] for line in classic.splitlines()])

    def test_terminal_form_of_log2long_is_read(self):
        text = self.output(self.tool("log2long"), input=EVERY_KIND)
        done = self.run_tool("convert", "-", "-", input=text)
        # The form does not show the flags of CAN FD frames.
        expected = EVERY_KIND
        for flags in ("1", "2", "3"):
            expected = expected.replace("##" + flags, "##0")
        self.assertEqual(done.stdout, expected)

    def python_can(self, script, *arguments):
        if subprocess.run((PYTHON, "-c", "import can"), capture_output=True, check=False).returncode:
            self.skipTest("python3-can is missing")
        return self.output(PYTHON, "-c", script, *arguments).splitlines()

    def test_python_can_reads_every_kind_of_frame(self):
        script = ("import sys, can\n"
                  "for m in can.CanutilsLogReader(sys.argv[1]):\n"
                  "    print(f'{m.timestamp:.6f}', m.channel, hex(m.arbitration_id), *(int(flag) for flag in (\n"
                  "        m.is_extended_id, m.is_remote_frame, m.is_fd, m.bitrate_switch,\n"
                  "        m.error_state_indicator)), m.dlc, m.data.hex())\n")
        lines = self.python_can(script, self.converted(EVERY_KIND, "out.pcapng", "out.log"))
        time = "1700000000.0000"
        # Flags: 29 bits, remote, CAN FD, bit-rate switch, error state.
        self.assertEqual(lines[:-1], [
            time + "01 can0 0x123 0 0 0 0 0 4 deadbeef",
            time + "02 can1 0x1f334455 1 0 0 0 0 8 1122334455667788",
            time + "03 can0 0x7ff 0 0 0 0 0 0 ",
            time + "04 can2 0x123 0 1 0 0 0 0 ",
            time + "05 can2 0x123 1 1 0 0 0 8 ",
            time + "06 can3 0x123 0 0 1 0 0 1 aa",
            time + "07 can3 0x123 0 0 1 1 0 0 ",
            time + "08 can3 0x1fffffff 1 0 1 0 1 2 aabb",
            time + f"09 can3 0x1 0 0 1 1 1 64 {LONGEST.lower()}"])
        # Versions differ in what they make of an error frame; it is there, with its bytes.
        self.assertRegex(lines[-1], f"^{time}10 can0 .* 0008000000000000$")

    def test_log_of_python_can_is_read(self):
        script = ("import sys, can\n"
                  "log = can.CanutilsLogWriter(sys.argv[1])\n"
                  "for number, fields in enumerate((\n"
                  "        dict(arbitration_id=0x123, is_extended_id=False, data=b'\\xDE\\xAD', channel='can0'),\n"
                  "        dict(arbitration_id=0x123, data=b'', channel='can1'),\n"
                  "        dict(arbitration_id=0x123, is_extended_id=False, is_remote_frame=True, channel='can0'),\n"
                  "        dict(arbitration_id=0x7FF, is_extended_id=False, is_fd=True, data=b'Z' * 64),\n"
                  "        dict(arbitration_id=0x7FF, is_extended_id=False, is_fd=True, bitrate_switch=True),\n"
                  "        dict(arbitration_id=1, is_fd=True, bitrate_switch=True, error_state_indicator=True,\n"
                  "             data=b'Z', channel='can2'),\n"
                  "        dict(is_error_frame=True, channel='can0'),\n"
                  "        dict(arbitration_id=0x1FFFFFFF, data=bytes(8), channel='can0', is_rx=False))):\n"
                  "    log.on_message_received(can.Message(timestamp=1700000000 + number / 4, **fields))\n"
                  "log.stop()\n")
        self.python_can(script, self.path("in.log"))
        self.run_tool("convert", self.path("in.log"), self.path("out.pcapng"))
        lines = self.run_tool("convert", self.path("out.pcapng"), "-").stdout.splitlines()
        self.assertEqual([line.split(" ", 2)[2] for line in lines],
                         ["123#DEAD", "00000123#", "123#R", "7FF##0" + "5A" * 64, "7FF##1", "00000001##35A",
                          "20000080#", "1FFFFFFF#0000000000000000"])
        self.assertEqual([float(line[1:line.index(")")]) - 1700000000 for line in lines],
                         [number / 4 for number in range(len(lines))])


def pcapng_with_losses(losses):
    """A pcapng file with one frame per count of frames lost before it."""
    def block(kind, body):
        size = struct.pack("<I", len(body) + 12)
        return struct.pack("<I", kind) + size + body + size
    frame = b"\0\0\x01\x23\x01\0\0\0\xAA\0\0\0"
    parts = [block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)), block(1, struct.pack("<HHI", 227, 0, 0))]
    parts += [block(6, struct.pack("<IIIII", 0, 0, number, 9, 9) + frame + struct.pack("<HHQI", 4, 8, lost, 0))
              for number, lost in enumerate(losses)]
    return b"".join(parts)


if __name__ == "__main__":
    main()
