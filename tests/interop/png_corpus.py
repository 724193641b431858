"""Writes a corpus of PNG files and lists each with the pixels a DIB read of
it must hold.

Usage: png_corpus.py DIRECTORY

Some files are written by Pillow itself, the rest by the small writer below,
which covers what Pillow cannot write (2- and 4-bit grey, 16-bit colour,
Adam7 interlacing, every filter type, split image data, bKGD, aspect-only
pHYs). The expected colours always come from Pillow's decoding of the file,
reduced as the DIB reader reduces them: 16-bit samples keep the high byte,
alpha is dropped; the resolution is pHYs's, negated for an aspect ratio.
"""
import random
import struct
import sys
import zlib

import numpy as np
from PIL import Image

from peer_images import Cases

OUT = sys.argv[1]
rng = random.Random(4606)
nrng = np.random.default_rng(4606)
cases = Cases(OUT)

ADAM7 = [(0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2)]
CHANNELS = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)


def pack_row(samples, depth):
    """samples: 1-D array of one row's samples (all channels interleaved)."""
    if depth == 16:
        return samples.astype(">u2").tobytes()
    if depth == 8:
        return samples.astype(np.uint8).tobytes()
    bits = (samples.astype(np.int64)[:, None] >> np.arange(depth - 1, -1, -1)) & 1
    return np.packbits(bits.astype(np.uint8).reshape(-1)).tobytes()


def paeth(a, b, c):
    p = a + b - c
    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
    if pa <= pb and pa <= pc:
        return a
    return b if pb <= pc else c


def filter_row(kind, row, prior, unit):
    out = bytearray(len(row))
    for i, x in enumerate(row):
        a = row[i - unit] if i >= unit else 0
        b = prior[i]
        c = prior[i - unit] if i >= unit else 0
        pred = [0, a, b, (a + b) // 2, paeth(a, b, c)][kind]
        out[i] = (x - pred) & 0xFF
    return bytes([kind]) + bytes(out)


def image_data(samples, depth, colortype, interlace, filters):
    """samples: height x width x channels array. Returns the raw filtered stream."""
    h, w, ch = samples.shape
    unit = max(1, ch * depth // 8)
    passes = ADAM7 if interlace else [(0, 0, 1, 1)]
    raw = bytearray()
    for x0, y0, dx, dy in passes:
        sub = samples[y0::dy, x0::dx]
        if sub.shape[0] == 0 or sub.shape[1] == 0:
            continue
        prior = bytes(len(pack_row(sub[0].reshape(-1), depth)))
        for r in range(sub.shape[0]):
            row = pack_row(sub[r].reshape(-1), depth)
            raw += filter_row(filters(r), row, prior, unit)
            prior = row
    return bytes(raw)


def write_png(path, samples, depth, colortype, interlace=0, level=6, palette=None, extra_before=(),
              extra_after=(), idat_piece=0, filters=None):
    h, w, _ = samples.shape
    if filters is None:
        filters = lambda r: r % 5
    data = zlib.compress(image_data(samples, depth, colortype, interlace, filters), level)
    out = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, depth, colortype, 0, 0, interlace))
    # Chunks that refer to the palette follow it.
    for kind, body in extra_before:
        if kind not in (b"bKGD", b"tRNS"):
            out += chunk(kind, body)
    if palette is not None:
        out += chunk(b"PLTE", bytes(np.array(palette, dtype=np.uint8).reshape(-1)))
    for kind, body in extra_before:
        if kind in (b"bKGD", b"tRNS"):
            out += chunk(kind, body)
    piece = idat_piece or len(data) or 1
    for i in range(0, max(len(data), 1), piece):
        out += chunk(b"IDAT", data[i:i + piece])
    for kind, body in extra_after:
        out += chunk(kind, body)
    out += chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(out)


def ihdr_and_phys(path):
    data = open(path, "rb").read()
    w, h, depth, colortype = struct.unpack(">IIBB", data[16:26])
    xres = yres = 0
    pos = 8
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        if kind == b"pHYs":
            x, y, unit = struct.unpack(">IIB", data[pos + 8:pos + 17])
            xres, yres = (x, y) if unit == 1 else (-x, -y)
        pos += 12 + length
    return w, h, depth, colortype, xres, yres


def expect(name):
    path = f"{OUT}/{name}.png"
    w, h, depth, colortype, xres, yres = ihdr_and_phys(path)
    with Image.open(path) as im:
        if im.mode.startswith("I"):
            grey = (np.asarray(im).astype(np.uint32) >> 8).astype(np.uint8)
            rgb = np.dstack([grey] * 3)
        else:
            rgb = np.asarray(im.convert("RGB"))
    bits = 24 if colortype in (2, 6) else 8 if colortype == 4 or depth >= 8 else 1 if depth == 1 else 4
    cases.add(path, rgb, bits, resolution=(xres, yres))


def pattern(h, w, ch, top):
    """Smooth gradients with noise, so that every filter has work to do."""
    y, x = np.mgrid[0:h, 0:w]
    planes = []
    for c in range(ch):
        base = (x * (c + 3) * 7 + y * (c + 5) * 11 + (x * y) // (c + 2)) % (top + 1)
        noise = nrng.integers(0, top + 1, size=(h, w))
        planes.append(np.where(nrng.random((h, w)) < 0.2, noise, base))
    return np.stack(planes, axis=2).astype(np.int64)


SIZES = [(1, 1), (7, 3), (33, 17), (257, 5), (5, 64), (64, 9)]

# Files of the writer below: every colour type and depth, both interlace
# methods, all filters, odd sizes.
FORMATS = [(0, 1), (0, 2), (0, 4), (0, 8), (0, 16), (2, 8), (2, 16), (3, 1), (3, 2), (3, 4), (3, 8),
           (4, 8), (4, 16), (6, 8), (6, 16)]
count = 0
for colortype, depth in FORMATS:
    for interlace in (0, 1):
        for w, h in SIZES:
            ch = CHANNELS[colortype]
            palette = None
            extra = []
            if colortype == 3:
                entries = rng.randint(max(1, (1 << depth) // 2), min(256, 1 << depth))
                palette = nrng.integers(0, 256, size=(entries, 3))
                samples = pattern(h, w, 1, entries - 1)
                extra.append((b"tRNS", bytes(nrng.integers(0, 256, size=min(entries, 3)).astype(np.uint8))))
            else:
                samples = pattern(h, w, ch, (1 << depth) - 1)
            count += 1
            if count % 3 == 0:
                extra.append((b"pHYs", struct.pack(">IIB", 3780 + count, 2835, 1)))
            elif count % 3 == 1:
                extra.append((b"pHYs", struct.pack(">IIB", 1, 2, 0)))
            if count % 2 == 0:
                if colortype == 3:
                    bk = struct.pack(">B", len(palette) - 1)
                elif colortype in (0, 4):
                    bk = struct.pack(">H", (1 << depth) - 1)
                else:
                    bk = struct.pack(">HHH", 1, 2, (1 << depth) - 1)
                extra.append((b"bKGD", bk))
            if colortype in (0, 2) and count % 4 == 0:
                extra.append((b"tRNS", struct.pack(">H", 0) * (1 if colortype == 0 else 3)))
            name = f"w_c{colortype}_d{depth}_i{interlace}_{w}x{h}"
            filters = (lambda r: r % 5) if count % 3 else (lambda r: (r * 7 + 3) % 5)
            write_png(f"{OUT}/{name}.png", samples, depth, colortype, interlace, level=[0, 1, 6, 9][count % 4],
                      palette=palette, extra_before=extra, idat_piece=[0, 7, 100][count % 3], filters=filters,
                      extra_after=[(b"tEXt", b"Comment\x00after the image data")])
            expect(name)

# Pillow's own writer: its filter choices and zlib settings, pHYs from dpi,
# palettes of every size, tRNS from transparency.
for w, h in [(1, 1), (13, 7), (100, 61), (640, 3)]:
    grey = pattern(h, w, 1, 255)[:, :, 0].astype(np.uint8)
    rgb = pattern(h, w, 3, 255).astype(np.uint8)
    rgba = pattern(h, w, 4, 255).astype(np.uint8)
    images = {
        "1": Image.fromarray(grey).convert("1"),
        "L": Image.fromarray(grey),
        "I16": Image.fromarray((pattern(h, w, 1, 65535)[:, :, 0]).astype(np.uint16)),
        "RGB": Image.fromarray(rgb, "RGB"),
        "RGBA": Image.fromarray(rgba, "RGBA"),
        "LA": Image.fromarray(rgba[:, :, :2].copy(), "LA"),
    }
    for colors in (2, 4, 16, 200):
        images[f"P{colors}"] = Image.fromarray(rgb, "RGB").quantize(colors)
    for key, im in images.items():
        for level, opts in ((1, {}), (9, {"dpi": (300, 150)}), (6, {"optimize": True})):
            name = f"p_{key}_{w}x{h}_z{level}"
            if key.startswith("P") and level == 6:
                opts = dict(opts, transparency=0)
            im.save(f"{OUT}/{name}.png", compress_level=level, **opts)
            expect(name)

cases.write()
