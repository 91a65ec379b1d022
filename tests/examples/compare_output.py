#!/usr/bin/env python3
"""Runs an example and compares what it prints with the block that its README shows.

usage: compare_output.py README NAME PROGRAM [ARGUMENT...]

The library's diagnostic lines, which begin with a level in brackets, are left out; rates count as equal, and so do
numbers of receptions.
"""
import re
import subprocess
import sys


def expected_block(readme, name):
    with open(readme, encoding="utf-8") as file:
        text = file.read()
    block = re.search(rf"<!-- expected: {re.escape(name)} -->\n```\n(.*?)```\n", text, re.DOTALL)
    if not block:
        sys.exit(f"{readme} shows no output of {name}")
    return block[1]


def comparable(text):
    lines = [line for line in text.splitlines() if not re.match(r"\[(DEBUG|INFO|WARNING|ERROR)\] ", line)]
    return [re.sub(r" \d+ receptions", " N receptions", re.sub(r" +\d+/s", " N/s", line)) for line in lines]


def main():
    readme, name, *command = sys.argv[1:]
    run = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=100, check=False)
    expected, actual = comparable(expected_block(readme, name)), comparable(run.stdout)
    if run.returncode != 0 or expected != actual:
        print(f"exit code {run.returncode}\n-- expected\n" + "\n".join(expected) + "\n-- printed\n" +
              "\n".join(actual) + f"\n-- standard error\n{run.stderr}")
        sys.exit(1)


if __name__ == "__main__":
    main()
