#!/usr/bin/python3
"""Velmora resource generator.

Turns the readable resource sources of the tree into the byte formats that the
library reads at run time:

  resgen.py source --strings S --messages M --out OUT.cpp
      A C++ source file with the built-in resources (compact string blocks,
      type 262, and the message table, type 10 id 1), all in language 1033,
      as the table kResourceEntries declared in src/frame/resource_data.h.

  resgen.py language --strings S --language 0x0407 --language-version 187 --out F
      A language module data file (vlmr%04x.lang) carrying the string blocks
      of S. Its layout is described in src/frame/language_file.h.

Strings file: "<id> TAB <text>" per line, '#' comments and blank lines
ignored; escapes \\\\ \\n \\r \\t \\xHH \\NNN (octal); texts are Latin-1.
Messages file: "<code> TAB <string id>" per line, code decimal or 0x-hex.

Every problem in the sources stops the build with file and line named.
Only the Python standard library is used.
"""

import argparse
import struct
import sys

RESOURCE_TYPE_RAW_DATA = 10
RESOURCE_TYPE_COMPACT_STRING = 262
MESSAGE_TABLE_ID = 1
EXTENSION_TABLE_ID = 42
BUILT_IN_LANGUAGE = 1033
STRINGS_PER_BLOCK = 16
MAX_STRING_LENGTH = 32767        # the two-byte length form holds 15 bits
FIRST_UNTRANSLATED_ID = 10000    # ids from here up never come from a language

LANGUAGE_MAGIC = b"VLMRLANG"
LANGUAGE_FORMAT_VERSION = 1
LANGUAGE_HEADER_SIZE = 20
LANGUAGE_ENTRY_SIZE = 12


class SourceError(Exception):
    pass


def fail_at(path, line_no, message):
    raise SourceError("%s:%d: %s" % (path, line_no, message))


def unescape(text, path, line_no):
    """Decodes the escapes of a strings-file text into a list of code points."""
    out = []
    i = 0
    while i < len(text):
        c = text[i]
        if c != "\\":
            out.append(ord(c))
            i += 1
            continue
        if i + 1 >= len(text):
            fail_at(path, line_no, "text ends with a lone backslash")
        e = text[i + 1]
        simple = {"\\": 0x5C, "n": 0x0A, "r": 0x0D, "t": 0x09}
        if e in simple:
            out.append(simple[e])
            i += 2
        elif e == "x":
            digits = text[i + 2:i + 4]
            if len(digits) != 2 or any(d not in "0123456789abcdefABCDEF" for d in digits):
                fail_at(path, line_no, "\\x needs exactly two hexadecimal digits")
            out.append(int(digits, 16))
            i += 4
        elif e in "01234567":
            digits = text[i + 1:i + 4]
            if len(digits) != 3 or any(d not in "01234567" for d in digits):
                fail_at(path, line_no, "an octal escape needs exactly three digits")
            value = int(digits, 8)
            if value > 255:
                fail_at(path, line_no, "octal escape \\%s is above 255" % digits)
            out.append(value)
            i += 4
        else:
            fail_at(path, line_no, "unknown escape \\%s" % e)
    return out


def parse_number(token, path, line_no, what, limit):
    try:
        value = int(token, 16) if token.lower().startswith("0x") else int(token, 10)
    except ValueError:
        fail_at(path, line_no, "%s %r is not a number" % (what, token))
    if value < 0 or value > limit:
        fail_at(path, line_no, "%s %s is out of range (0 to %d)" % (what, token, limit))
    return value


def read_lines(path):
    with open(path, "r", encoding="utf-8", newline="") as f:
        for line_no, raw in enumerate(f.read().split("\n"), 1):
            line = raw[:-1] if raw.endswith("\r") else raw
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            yield line_no, line


def parse_strings(path):
    """Returns {id: bytes} from a strings file."""
    strings = {}
    where = {}
    for line_no, line in read_lines(path):
        if "\t" not in line:
            fail_at(path, line_no, "expected <id> TAB <text>")
        token, text = line.split("\t", 1)
        string_id = parse_number(token.strip(), path, line_no, "string id", 0xFFFF)
        if string_id in strings:
            fail_at(path, line_no, "duplicate string id %d (first on line %d)"
                    % (string_id, where[string_id]))
        codes = unescape(text, path, line_no)
        bad = [c for c in codes if c > 255]
        if bad:
            fail_at(path, line_no, "character U+%04X is not one byte (Latin-1)" % bad[0])
        if len(codes) > MAX_STRING_LENGTH:
            fail_at(path, line_no, "string %d is %d bytes long, the limit is %d"
                    % (string_id, len(codes), MAX_STRING_LENGTH))
        strings[string_id] = bytes(codes)
        where[string_id] = line_no
    return strings


def parse_messages(path, strings):
    """Returns [(code, string id)] in file order."""
    rows = []
    for line_no, line in read_lines(path):
        fields = line.split()
        if len(fields) != 2:
            fail_at(path, line_no, "expected <code> TAB <string id>")
        code = parse_number(fields[0], path, line_no, "code", 0xFFFFFFFF)
        string_id = parse_number(fields[1], path, line_no, "string id", 0xFFFF)
        if code == 0:
            fail_at(path, line_no, "code 0 is reserved for the end of the table")
        if string_id not in strings:
            fail_at(path, line_no, "string id %d is not in the strings file" % string_id)
        rows.append((code, string_id))
    return rows


def encode_length(n):
    if n < 128:
        return bytes([n])
    return bytes([128 + n % 128, n // 128])


def compact_blocks(strings):
    """Returns {block id: bytes} for every block holding at least one string."""
    blocks = {}
    for block_id in sorted({sid // STRINGS_PER_BLOCK + 1 for sid in strings}):
        first = (block_id - 1) * STRINGS_PER_BLOCK
        out = bytearray()
        for sid in range(first, first + STRINGS_PER_BLOCK):
            text = strings.get(sid, b"")
            out += encode_length(len(text)) + text
        blocks[block_id] = bytes(out)
    return blocks


def parse_extensions(path, strings):
    """Returns [(string id, document type)] in file order."""
    rows = []
    for line_no, line in read_lines(path):
        fields = line.split()
        if len(fields) != 2:
            fail_at(path, line_no, "expected <string id> TAB <document type>")
        string_id = parse_number(fields[0], path, line_no, "string id", 0xFFFF)
        doc_type = parse_number(fields[1], path, line_no, "document type", 0xFFFF)
        if string_id == 0:
            fail_at(path, line_no, "string id 0 is reserved for the end of the table")
        if string_id not in strings:
            fail_at(path, line_no, "string id %d is not in the strings file" % string_id)
        rows.append((string_id, doc_type))
    return rows


def extension_table(rows):
    out = bytearray()
    for string_id, doc_type in rows + [(0, 0)]:
        out += struct.pack("<HH", string_id, doc_type)
    return bytes(out)


def message_table(rows):
    out = bytearray()
    for code, string_id in rows + [(0, 0)]:
        out += struct.pack("<IH", code, string_id)
    return bytes(out)


def cpp_bytes(data):
    lines = []
    for i in range(0, len(data), 16):
        lines.append("    " + " ".join("0x%02X," % b for b in data[i:i + 16]))
    return "\n".join(lines) if lines else "    0x00,"


def write_source(out_path, strings, rows, extensions):
    resources = [((RESOURCE_TYPE_COMPACT_STRING, block_id), data)
                 for block_id, data in compact_blocks(strings).items()]
    resources.append(((RESOURCE_TYPE_RAW_DATA, MESSAGE_TABLE_ID), message_table(rows)))
    if extensions is not None:
        resources.append(((RESOURCE_TYPE_RAW_DATA, EXTENSION_TABLE_ID), extension_table(extensions)))
    resources.sort(key=lambda r: r[0])

    parts = [
        "// Generated by tools/resgen/resgen.py from src/frame/strings.txt and",
        "// src/frame/messages.txt. Do not edit; edit the sources instead.",
        "",
        '#include "frame/resource_data.h"',
        "",
        "namespace velmora {",
        "namespace {",
        "",
    ]
    names = []
    for (rtype, rid), data in resources:
        name = "kData_%d_%d" % (rtype, rid)
        names.append(name)
        parts.append("const uint8_t %s[] = {" % name)
        parts.append(cpp_bytes(data))
        parts.append("};")
        parts.append("")
    parts.append("}  // namespace")
    parts.append("")
    parts.append("// Sorted by (type, id, language) for binary search.")
    parts.append("const ResourceEntry kResourceEntries[] = {")
    for ((rtype, rid), data), name in zip(resources, names):
        parts.append("    {%d, %d, %d, %d, %s}," % (rtype, rid, BUILT_IN_LANGUAGE, len(data), name))
    parts.append("};")
    parts.append("")
    parts.append("const uint32_t kResourceEntryCount = %d;" % len(resources))
    parts.append("")
    parts.append("}  // namespace velmora")
    parts.append("")
    write_file(out_path, "\n".join(parts).encode("ascii"))


def language_file(strings, language, version):
    resources = sorted(((RESOURCE_TYPE_COMPACT_STRING, block_id), data)
                       for block_id, data in compact_blocks(strings).items())
    header = LANGUAGE_MAGIC + struct.pack("<HHII", LANGUAGE_FORMAT_VERSION, language,
                                          version, len(resources))
    assert len(header) == LANGUAGE_HEADER_SIZE
    offset = LANGUAGE_HEADER_SIZE + LANGUAGE_ENTRY_SIZE * len(resources)
    table = bytearray()
    for (rtype, rid), data in resources:
        table += struct.pack("<HHII", rtype, rid, offset, len(data))
        offset += len(data)
    return header + bytes(table) + b"".join(data for _, data in resources)


def write_file(path, data):
    with open(path, "wb") as f:
        f.write(data)


def main(argv):
    parser = argparse.ArgumentParser(prog="resgen.py", description=__doc__.split("\n")[0])
    sub = parser.add_subparsers(dest="command", required=True)
    src = sub.add_parser("source", help="write the C++ file of built-in resources")
    src.add_argument("--strings", required=True)
    src.add_argument("--messages", required=True)
    src.add_argument("--extensions", help="the extension-to-document-type table")
    src.add_argument("--out", required=True)
    lang = sub.add_parser("language", help="write a language module data file")
    lang.add_argument("--strings", required=True)
    lang.add_argument("--language", required=True)
    lang.add_argument("--language-version", required=True)
    lang.add_argument("--out", required=True)
    args = parser.parse_args(argv)

    try:
        strings = parse_strings(args.strings)
        if args.command == "source":
            rows = parse_messages(args.messages, strings)
            extensions = parse_extensions(args.extensions, strings) if args.extensions else None
            write_source(args.out, strings, rows, extensions)
        else:
            language = parse_number(args.language, "--language", 0, "language id", 0xFFFF)
            version = parse_number(args.language_version, "--language-version", 0,
                                   "language version", 0xFFFFFFFF)
            if language == 0:
                raise SourceError("--language: 0 is not a language")
            untranslated = sorted(s for s in strings if s >= FIRST_UNTRANSLATED_ID)
            if untranslated:
                raise SourceError("%s: string %d: ids from %d up are never taken from a "
                                  "language module" % (args.strings, untranslated[0],
                                                       FIRST_UNTRANSLATED_ID))
            write_file(args.out, language_file(strings, language, version))
    except (SourceError, OSError) as e:
        print("resgen: error: %s" % e, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
