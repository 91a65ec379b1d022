#!/usr/bin/env python3
"""Checks the links of every Markdown file of the tree: files exist, headings exist.

usage: check_links.py SOURCE_TREE
"""
import pathlib
import re
import sys

LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+\s+(.*?)\s*#*$")


def anchor(heading):
    """The name under which a heading can be reached."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def lines_outside_code(file):
    inside = False
    for number, line in enumerate(file.read_text().splitlines(), 1):
        if line.lstrip().startswith("```"):
            inside = not inside
        elif not inside:
            yield number, line


def anchors(file):
    return {anchor(match[1]) for _, line in lines_outside_code(file) if (match := HEADING.match(line))}


def broken_links(tree):
    files = sorted(file for file in tree.rglob("*.md") if "build" not in file.relative_to(tree).parts)
    for file in files:
        for number, line in lines_outside_code(file):
            for target in LINK.findall(line):
                if re.match(r"[a-z]+:", target):
                    continue
                path, _, heading = target.partition("#")
                where = f"{file.relative_to(tree)}:{number}"
                linked = file if not path else (file.parent / path)
                if not linked.exists():
                    yield f"{where}: {path} does not exist"
                elif heading and heading not in anchors(linked):
                    yield f"{where}: {path} has no heading #{heading}"
    if not files:
        yield "there is no document at all"


def main():
    found = list(broken_links(pathlib.Path(sys.argv[1]).resolve()))
    print("\n".join(found) or "every link leads somewhere")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
