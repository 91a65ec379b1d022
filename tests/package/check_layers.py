#!/usr/bin/env python3
"""Checks that each layer includes only what stands below it.

usage: check_layers.py SOURCE_TREE
"""
import pathlib
import re
import sys

# Where each layer may find what it includes, in the project. Everything else it names has to be a system header.
LAYERS = {
    "include": ["include", "platform"],
    "platform": ["platform"],
    "src": ["src", "include", "platform"],
    "host": ["host", "host/platform", "platform"],
    "examples": ["include", "platform"],
}
# The replaying example reads the same captures as the tools; the bench of another runs a virtual logger.
ALLOWED_BESIDES = {"examples/raw_can": ["host/capture"], "examples/diagnostics/ecu.cpp": ["host/logger"]}
INCLUDE_ROOTS = ["include", "platform", "src", "host", "host/platform", "tests"]
# The library itself: the standard library and POSIX, nothing else.
PLAIN_SYSTEM_HEADER = re.compile(r"[a-z_]+|((sys|netinet|arpa|net)/)?[a-z_]+\.h")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b.*host", re.IGNORECASE)


def violations(tree):
    for layer, below in LAYERS.items():
        for file in sorted((tree / layer).rglob("*")):
            if file.suffix not in (".h", ".cpp"):
                continue
            name = file.relative_to(tree)
            allowed = [tree / root for root in below]
            besides = [tree / root for part, roots in ALLOWED_BESIDES.items() if name.is_relative_to(part) for root in roots]
            for number, line in enumerate(file.read_text().splitlines(), 1):
                if layer in ("src", "include") and CONDITION.match(line):
                    yield f"{name}:{number}: a condition about the host"
                match = INCLUDE.match(line)
                if not match:
                    continue
                kind, target = match.groups()
                if ".." in pathlib.PurePath(target).parts:
                    yield f"{name}:{number}: a path upwards: {target}"
                    continue
                if kind == '"' and (file.parent / target).is_file():
                    continue
                found = [tree / root / target for root in INCLUDE_ROOTS if (tree / root / target).is_file()]
                if any(hit.is_relative_to(root) for hit in found for root in besides):
                    continue
                if found and not any((root / target).is_file() for root in allowed):
                    yield f"{name}:{number}: {target} is not below {layer}/"
                if not found and layer in ("src", "include", "platform") and not PLAIN_SYSTEM_HEADER.fullmatch(target):
                    yield f"{name}:{number}: {target} is neither standard library nor POSIX"


def main():
    tree = pathlib.Path(sys.argv[1]).resolve()
    if not (tree / "src").is_dir():
        sys.exit(f"{tree} is no source tree")
    found = list(violations(tree))
    print("\n".join(found) or "the layers hold")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
