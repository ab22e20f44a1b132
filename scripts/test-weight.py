#!/usr/bin/env python3
"""Weighs the test code against the rest: non-blank lines that are not comment-only, of
the C, C++ and Python files git tracks.  Test code is every file under a `tests/` or
`fuzz/` folder; the conformance vectors' copy (tests/conformance) is data and counts on
neither side.  The project keeps tests at most 33% of the rest.

    scripts/test-weight.py [-v]      (-v: every test file's count)
Exit status 1 when the tests weigh more than that.
"""
import os
import re
import subprocess
import sys

C_LIKE = {".c", ".cc", ".cpp", ".h", ".hpp"}
LIMIT = 0.33


def counted_lines(path):
    ext = os.path.splitext(path)[1]
    with open(path, encoding="utf-8", errors="replace") as f:
        src = f.read()
    if ext in C_LIKE:
        src = re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group(0).count("\n"), src, flags=re.S)
        comment = "//"
    elif ext == ".py":
        comment = "#"
    else:
        return None
    return sum(1 for line in src.split("\n") if line.strip() and not line.strip().startswith(comment))


def main():
    root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    os.chdir(root)
    files = subprocess.check_output(["git", "ls-files"], text=True).split()
    tests, rest, per_file = 0, 0, {}
    for path in files:
        if path.startswith("tests/conformance/") or not os.path.isfile(path):
            continue
        n = counted_lines(path)
        if n is None:
            continue
        if {"tests", "fuzz"} & set(path.split("/")[:-1]):
            tests += n
            per_file[path] = n
        else:
            rest += n
    if "-v" in sys.argv:
        for path, n in sorted(per_file.items(), key=lambda kv: -kv[1]):
            print(f"{n:6d}  {path}")
    print(f"tests {tests} lines, the rest {rest} lines: {tests / rest:.1%} (at most {LIMIT:.0%})")
    return 0 if tests <= LIMIT * rest else 1


if __name__ == "__main__":
    sys.exit(main())
