"""Writes the compile-time record layout checks of the i686 build from the
list in record_layouts.txt (one check a line; see its head)."""
import sys

HEAD = """/* Generated from record_layouts.txt by layoutgen.py. */
#include <stddef.h>
#include <stdint.h>
#include "velmora/velmora.h"

#define AT(T, f, n) _Static_assert(offsetof(T, f) == (n), #T "." #f " offset")
#define FIELD(T, f, n, w) AT(T, f, n); _Static_assert(sizeof(((T *)0)->f) == (w), #T "." #f " width")
#define POINTER(T, f) _Static_assert(sizeof(((T *)0)->f) == sizeof(void *), #T "." #f " is pointer-sized")
#define SIZE(T, n) _Static_assert(sizeof(T) == (n), "sizeof " #T)
#define EQ(c, n) _Static_assert((c) == (n), #c)
"""


def check(words):
    kind = words[0]
    if kind == "EQ":
        return "EQ(%s, %s);" % (" ".join(words[1:-1]), words[-1])
    arity = {"FIELD": 4, "AT": 3, "POINTER": 2, "SIZE": 2}.get(kind)
    if arity is None or len(words) != arity + 1:
        raise ValueError("bad check: " + " ".join(words))
    return "%s(%s);" % (kind, ", ".join(words[1:]))


def main(source, target):
    lines = [HEAD]
    for number, line in enumerate(open(source, encoding="utf-8"), 1):
        words = line.split()
        if not words or words[0].startswith("#"):
            continue
        try:
            lines.append(check(words))
        except ValueError as error:
            sys.exit("%s:%d: %s" % (source, number, error))
    open(target, "w", encoding="utf-8").write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
