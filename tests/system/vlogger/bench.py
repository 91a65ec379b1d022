"""What the tests of the program vlogger share: a virtual logger in a directory of its own, and its clients.

Each test file is a program: FILE VLOGGER PROGRAMS [TEST...]; the directory PROGRAMS holds the applications.
"""

import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

VLOGGER, PROGRAMS = sys.argv[1:3]
PEER, RECEIVER, BUS = (os.path.join(PROGRAMS, name) for name in ("peerProgram", "receiverProgram", "busProgram"))
LIMIT_S = 100  # generous: only a failing test ever waits this long


def main():
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)


def is_awaited(child, number):
    """Whether the process takes the signal by itself instead of ending by it."""
    with open(f"/proc/{child.pid}/status", encoding="utf-8") as file:
        blocked = next(int(line.split()[1], 16) for line in file if line.startswith("SigBlk:"))
    return bool(blocked >> number - 1 & 1)


def let_stand_still(child):
    child.send_signal(signal.SIGSTOP)
    os.waitpid(child.pid, os.WUNTRACED)


def stop_twice_at_once(child):
    """Two signals that wait together, as a terminal and a program in between send them."""
    let_stand_still(child)
    child.send_signal(signal.SIGINT)
    child.send_signal(signal.SIGTERM)
    child.send_signal(signal.SIGCONT)


def stop_until_it_ends(child):
    """Signals, one after the other; what comes right behind the first one counts as the same."""
    while child.poll() is None:
        child.send_signal(signal.SIGINT)
        try:
            child.wait(0.05)
        except subprocess.TimeoutExpired:
            pass


def generated_log(frames):
    """A log of standard, extended and FD frames on three interfaces."""
    lines = []
    for i in range(frames):
        time = f"({1700000000 + i // 10000}.{i % 10000 * 100:06d})"
        lines.append((f"{time} can0 {i % 128 * 16:03X}#{i:016X}",
                      f"{time} can2 {0x18FEF100 + i % 64:08X}#{i & 0xFFFF:04X}",
                      f"{time} can4 {i % 128 * 16:03X}##0{i:08X}" + "5A" * 12)[i % 3])
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

    def assert_same_lines(self, lines, expected):
        """As assertEqual, which takes minutes over long lists that differ."""
        for place, pair in enumerate(zip(lines, expected)):
            self.assertEqual(*pair, f"line {place}")
        self.assertEqual(len(lines), len(expected))

    def path(self, name):
        return os.path.join(self.directory, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def read_bytes(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def start(self, *command, **options):
        streams = {**{name: subprocess.PIPE for name in ("stdin", "stdout", "stderr")}, "text": True}
        child = subprocess.Popen(command, env=self.environment, **{**streams, **options})
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

    def await_line(self, child, wanted):
        for line in child.stdout:
            if line == wanted + "\n":
                return
        self.fail(f"it did not say {wanted}: " + child.stderr.read())

    def receiver(self, channel, identifier, count):
        """An application that receives one identifier and ends after so many frames."""
        child = self.start(PEER, "receive", str(channel), str(identifier), str(count))
        self.await_line(child, "online")
        return child

    def receiver_of(self, frames):
        """An application that receives every identifier of these frames, "can0 123#AA", and prints them all."""
        child = self.start(RECEIVER, str(len(frames)))
        for line in sorted({frame.removeprefix("can").split("#")[0] + ("##" if "##" in frame else "")
                            for frame in frames}):
            child.stdin.write(line + "\n")
        child.stdin.close()
        child.stdin = None
        self.await_line(child, "online")
        return child

    def sender(self, channel, identifier, count):
        child = self.start(PEER, "send", str(channel), str(identifier), str(count))
        child.stdin.close()
        child.stdin = None
        return child
