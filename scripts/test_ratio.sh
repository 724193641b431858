#!/usr/bin/env bash
# Test code against product code: non-blank, non-comment lines of the C, C++
# and Python sources in tests/ and fuzz/ (seed files aside) against those in
# src/, include/ and tools/. Prints both counts and their ratio.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
count() {
  find "$@" -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' -o -name '*.py' \) -not -path '*/seeds/*' -print0 |
    xargs -0 /usr/bin/python3 -c '
import re, sys
total = 0
for path in sys.argv[1:]:
    text = open(path, encoding="utf-8", errors="replace").read()
    if path.endswith(".py"):
        lines = [l for l in text.splitlines() if l.strip() and not l.strip().startswith("#")]
    else:
        text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
        lines = [l for l in text.splitlines() if l.strip() and not l.strip().startswith("//")]
    total += len(lines)
print(total)'
}
cd "$root"
tests=$(count tests fuzz)
code=$(count src include tools)
echo "test code: $tests lines; product code: $code lines; ratio $(/usr/bin/python3 -c "print(round($tests / $code, 3))")"
