#!/usr/bin/env python3
"""Checks, on a 32-bit Windows build, that every listed export takes the
listed number of argument bytes: the stdcall decoration "_Name@N" that the
compiler gives each exported function carries N."""
import argparse
import re
import subprocess
import sys


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--nm", required=True)
    parser.add_argument("--archive", required=True)
    parser.add_argument("--table", required=True, action="append",
                        help="a table of names and argument bytes; may be repeated")
    args = parser.parse_args()

    symbols = subprocess.run([args.nm, "-g", "--defined-only", args.archive],
                             check=True, capture_output=True, text=True).stdout
    decorated = {}
    for match in re.finditer(r"\b_(\w+)@(\d+)$", symbols, re.M):
        decorated[match.group(1)] = int(match.group(2))

    failures = 0
    checked = 0
    for path in args.table:
        with open(path, encoding="ascii") as table:
            for line in table:
                if not line.strip() or line.startswith("#"):
                    continue
                name, expected = line.split()[:2]
                checked += 1
                actual = decorated.get(name)
                if actual != int(expected):
                    print(f"{name}: expected {expected} argument bytes, found {actual}")
                    failures += 1
    print(f"stdcall sizes: {checked - failures} passed, {failures} failed")
    return 1 if failures or checked == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
