#!/usr/bin/env python3
"""Runs the diagnostics example: the ECU, the tester beside it, and the tester behind the gateway.

usage: run.py DIRECTORY_OF_THE_PROGRAMS [DIRECTORY_FOR_THE_LIBRARY'S_LINES]

Exit code 0 if every answer was right and every program ended as it should, else 1.
"""
import contextlib
import os
import pathlib
import select
import signal
import subprocess
import sys
import tempfile

PATIENCE_S = 60


@contextlib.contextmanager
def running(command, environment, lines_file):
    """Starts a program, waits until it says that it is ready, and ends it."""
    name = pathlib.Path(command[0]).name
    with subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          text=True) as program:
        try:
            while (line := next_line(program, name)) != f"{name}: ready":
                lines_file.write(line + "\n")
            print(line, flush=True)
            yield
        finally:
            program.send_signal(signal.SIGTERM)
            lines_file.write(program.communicate(timeout=PATIENCE_S)[0])
    if program.returncode != 0:
        sys.exit(f"{name} ended with exit code {program.returncode}")


def next_line(program, name):
    if not select.select([program.stdout], [], [], PATIENCE_S)[0]:
        sys.exit(f"{name} is not ready after {PATIENCE_S} s")
    line = program.stdout.readline()
    if not line:
        sys.exit(f"{name} ended before it was ready")
    return line.rstrip("\n")


def test(programs, channel, environment, directory):
    command = [programs / "tester", "--channel", str(channel), "--lines", directory / f"tester{channel}-lines.txt"]
    run = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, timeout=PATIENCE_S, check=False)
    if run.returncode != 0:
        sys.exit(f"tester on channel {channel} ended with exit code {run.returncode}")


def main():
    programs = pathlib.Path(sys.argv[1])
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else name)
        socket = pathlib.Path(name) / "bench" / "socket"
        environment = dict(os.environ, VLOGGER=str(socket))
        with open(directory / "gateway-lines.txt", "w", encoding="utf-8") as lines:
            with running([programs / "ecu", socket], environment, lines):
                print("tester on channel 0, wired to the ECU's channel 1", flush=True)
                test(programs, 0, environment, directory)
                with running([programs / "gateway"], environment, lines):
                    print("tester on channel 2, wired to the gateway's channel 3", flush=True)
                    test(programs, 2, environment, directory)
    print("every answer was right")


if __name__ == "__main__":
    main()
