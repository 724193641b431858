#!/usr/bin/python3
# Finds the save time behind a PDF's last /ID: the digest of the UTC time
# (eight little-endian 16-bit fields), the UTF-16LE path, the file size where
# the trailer begins and the information dictionary object 1 as last written.
# Usage: pdf_identifier.py FILE PATH Y M D h m s ms SPAN_MS
# Prints both identifiers and "match" when a millisecond in the span fits.
import datetime, hashlib, re, struct, sys

data = open(sys.argv[1], "rb").read()
path = sys.argv[2].encode("utf-16-le")
start = datetime.datetime(*map(int, sys.argv[3:9]), int(sys.argv[9]) * 1000)
span = int(sys.argv[10])
trailer = data.rindex(b"trailer\r\n")
info = data[data.rindex(b"1 0 obj\r\n") + 9:]
info = info[:info.index(b"\r\nendobj")]
first, second = re.findall(rb"/ID \[<([0-9a-f]{32})> <([0-9a-f]{32})>\]", data[trailer:])[0]
print(first.decode(), second.decode())
for step in range(span + 1):
    t = start + datetime.timedelta(milliseconds=step)
    fields = (t.year, t.month, (t.weekday() + 1) % 7, t.day, t.hour, t.minute, t.second, t.microsecond // 1000)
    digest = hashlib.md5(struct.pack("<8H", *fields) + path + struct.pack("<I", trailer) + info).hexdigest()
    if digest.encode() == second:
        print("match")
        break
