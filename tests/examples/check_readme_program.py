#!/usr/bin/env python3
"""Checks that each program that a README shows is, line by line, part of the file that it names.

usage: check_readme_program.py SOURCE_TREE README...
"""
import pathlib
import re
import sys

PROGRAM = re.compile(r"<!-- program: (\S+) -->\n```cpp\n(.*?)```\n", re.DOTALL)


def main():
    tree = pathlib.Path(sys.argv[1])
    shown = [(path, text) for readme in sys.argv[2:] for path, text in PROGRAM.findall((tree / readme).read_text())]
    wrong = [path for path, text in shown if text not in (tree / path).read_text()]
    for path in wrong:
        print(f"what the README shows is not in {path}")
    if not shown:
        print("no program is shown")
    sys.exit(1 if wrong or not shown else 0)


if __name__ == "__main__":
    main()
