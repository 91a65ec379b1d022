#!/usr/bin/env python3
"""What the command convert does to its files when it cannot end well."""

import fcntl
import struct
import subprocess

from bench import LIMIT_S, VLOGGER, Bench, generated_log, main

ETHERNET = 1


def pcapng_of_another_network():
    """A capture with one packet of an Ethernet interface and nothing else."""
    def block(kind, body):
        size = struct.pack("<I", 12 + len(body))
        return struct.pack("<I", kind) + size + body + size
    return (block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)) +
            block(1, struct.pack("<HHI", ETHERNET, 0, 0)) +
            block(6, struct.pack("<IIIII", 0, 0, 0, 4, 4) + b"\1\2\3\4"))


class ConvertTest(Bench):
    def convert_through(self, redirections, *arguments):
        """Converts with the shell's redirections; returns exit code and standard error."""
        done = subprocess.run(("sh", "-c", f'exec "$@" {redirections}', "sh", VLOGGER, "convert", *arguments),
                              cwd=self.directory, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                              timeout=LIMIT_S, check=False)
        return done.returncode, done.stderr

    def test_output_that_is_standard_input_is_refused_and_stays(self):
        self.write("c.log", generated_log(3))
        self.assertEqual(self.convert_through("< c.log", "-", "c.log"),
                         (2, 'vlogger: "c.log" is the file that is read; it would be lost\n'))
        self.assertEqual(self.read("c.log"), generated_log(3))

    def test_output_of_the_same_name_is_refused_and_stays(self):
        self.write("c.log", generated_log(3))
        self.assertEqual(self.convert_through("", "c.log", "./c.log"),
                         (2, 'vlogger: "./c.log" is the file that is read; it would be lost\n'))
        self.assertEqual(self.read("c.log"), generated_log(3))

    def test_standard_output_that_goes_into_the_input_is_refused(self):
        self.write("c.log", generated_log(3))
        # The limit ends a command that would read for ever what it writes.
        for arguments, redirections in ((("c.log", "-"), ">> c.log"), (("-", "-"), "< c.log >> c.log")):
            done = subprocess.run(("sh", "-c", f'ulimit -f 64; exec "$@" {redirections}', "sh", VLOGGER, "convert",
                                   *arguments), cwd=self.directory, stderr=subprocess.PIPE, text=True, timeout=LIMIT_S,
                                  check=False)
            self.assertEqual((done.returncode, done.stderr),
                             (2, "vlogger: standard output goes into the file that is read; that would never end\n"))
            self.assertEqual(self.read("c.log"), generated_log(3))

    def test_one_device_may_be_input_and_output(self):
        self.assertEqual(self.convert_through("> /dev/null", "-", "-"), (0, "vlogger: 0 frames converted\n"))

    def test_full_disk_ends_a_conversion_with_a_readable_file_and_its_count(self):
        self.write("in.log", generated_log(3000))
        done = subprocess.run(("sh", "-c", f"ulimit -f 8; exec {VLOGGER} convert in.log out.pcapng"),
                              cwd=self.directory, capture_output=True, text=True, timeout=LIMIT_S, check=False)
        self.assertEqual(done.returncode, 1)
        self.run_tool("convert", self.path("out.pcapng"), self.path("out.log"))
        frames = len(self.read("out.log").splitlines())
        self.assertGreater(frames, 10)
        self.assertEqual(done.stderr, f"vlogger: converting ends after {frames} frames, which can be read: "
                                      "out.pcapng: File too large\n")

    def test_capture_of_another_network_leaves_the_output_as_it_is(self):
        self.write("out.log", "precious\n")
        with open(self.path("in.pcapng"), "wb") as file:
            file.write(pcapng_of_another_network())
        done = self.run_tool("convert", self.path("in.pcapng"), self.path("out.log"), code=1)
        name = self.path("in.pcapng")
        self.assertEqual(done.stderr, f"vlogger: {name}: no CAN frame is in it\n"
                                      f"vlogger: {name}: 1 packet of an interface other than CAN was skipped\n")
        self.assertEqual(self.read("out.log"), "precious\n")

    def test_empty_capture_becomes_an_empty_one(self):
        self.write("out.log", "old\n")
        done = self.run_tool("convert", self.write("in.log", ""), self.path("out.log"))
        self.assertEqual(done.stderr, "vlogger: 0 frames converted\n")
        self.assertEqual(self.read("out.log"), "")

    def test_one_frame_is_said_in_the_singular(self):
        log = self.write("in.log", "(1.000000) can0 123#01\n")
        self.assertEqual(self.run_tool("convert", log, self.path("out.log")).stderr, "vlogger: 1 frame converted\n")

    def test_output_that_another_program_writes_is_refused_and_stays(self):
        log = self.write("in.log", generated_log(3))
        with open(self.write("out.log", "precious\n"), encoding="utf-8") as writer:
            fcntl.flock(writer, fcntl.LOCK_EX)
            done = self.run_tool("convert", log, self.path("out.log"), code=1)
        self.assertEqual(done.stderr, f"vlogger: another program is writing {self.path('out.log')}; "
                                      "give another file name\n")
        self.assertEqual(self.read("out.log"), "precious\n")


if __name__ == "__main__":
    main()
