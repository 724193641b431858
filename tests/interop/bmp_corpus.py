#!/usr/bin/env python3
"""Writes BMP files of every kind the library reads into a directory, with
Pillow, ImageMagick and (for what neither writes) a few lines of struct, and
lists each with the pixels Pillow decodes (ImageMagick for RLE4) and the
depth the library's DIB must have: 32-bit files become 24-bit DIBs, and
16-bit files 5-5-5 DIBs, whose expected colours are then their 5-bit fields
widened.

With --decode DIRECTORY FILE..., lists the library's saved files as Pillow
decodes them in saved.txt, after checking that they hold the pixels of the
corpus files they were saved from (and, for RLE4, that ImageMagick agrees)."""
import os
import struct
import sys

import numpy as np
from PIL import Image

from peer_images import Cases, magick, magick_rgb, pillow_rgb

out = sys.argv[-1] if sys.argv[1] != "--decode" else sys.argv[2]
cases = Cases(out)
rng = np.random.default_rng(20261125)


def picture(width, height):
    """Noise on the left, flat bands on the right: runs for the run-length
    coders and every value for the others."""
    rgb = rng.integers(0, 256, (height, width, 3), dtype=np.uint8)
    for y in range(height):
        rgb[y, width // 2:] = rng.integers(0, 256, 3, dtype=np.uint8)
    return rgb


def path(name):
    return os.path.join(out, name + ".bmp")


def header_facts(name):
    data = open(path(name), "rb").read()
    size = struct.unpack_from("<I", data, 14)[0]
    if size == 12:
        return size, struct.unpack_from("<H", data, 24)[0], 0, 1
    _, height, _, bits, compression = struct.unpack_from("<iiHHI", data, 18)
    return size, bits, compression, -1 if height < 0 else 1


def expect(name, bits, header=None, depth=None, compression=None, top_down=False, reduce=None, peer=pillow_rgb):
    """Lists NAME.bmp with the peer's pixels, after checking that the file is
    what the case says it is."""
    size, file_bits, file_compression, direction = header_facts(name)
    assert header is None or size == header, (name, size)
    assert depth is None or file_bits == depth, (name, file_bits)
    assert compression is None or file_compression == compression, (name, file_compression)
    assert (direction < 0) == top_down, name
    rgb = peer(path(name)).astype(np.uint32)
    if reduce is not None:
        rgb = reduce(rgb) * 255 // 31
    cases.add(path(name), rgb, bits)


def fields555(rgb):
    # 5-bit fields keep the top bits of 8, however a reader widens them.
    return rgb >> 3


def fields565(rgb):
    # Red and blue as 5-5-5; green's 6 bits scaled to 5, truncating.
    reduced = rgb >> 3
    reduced[..., 1] = (rgb[..., 1] >> 2) * 31 // 63
    return reduced


def magick_bmp(source, name, form, *arguments):
    """ImageMagick's `form` ("bmp", "bmp3", "bmp2") of the source."""
    magick(source, *arguments, form + ":" + path(name))


def pixel_offset(data):
    return struct.unpack_from("<I", data, 10)[0]


def write(name, header, table, pixels):
    at = 14 + len(header) + len(table)
    with open(path(name), "wb") as f:
        f.write(b"BM" + struct.pack("<IHHI", at + len(pixels), 0, 0, at) + header + table + pixels)


def info(width, height, bits, compression, image_size=0, colors=0, size=40):
    return struct.pack("<IiiHHIIiiII", size, width, height, 1, bits, compression, image_size, 2835, 2835, colors, 0)


def rows(data, width, height, bits):
    """The stored rows of a file's uncompressed pixels, bottom row first."""
    stride = (bits * width + 31) // 32 * 4
    at = pixel_offset(data)
    return [data[at + stride * y: at + stride * (y + 1)] for y in range(height)]


def top_down(source, name):
    """The same file with its rows in top-down order and a negative height."""
    data = open(path(source), "rb").read()
    width, height, _, bits = struct.unpack_from("<iiHH", data, 18)
    stored = rows(data, width, height, bits)
    head = bytearray(data[:pixel_offset(data)])
    struct.pack_into("<i", head, 22, -height)
    with open(path(name), "wb") as f:
        f.write(bytes(head) + b"".join(reversed(stored)))


def larger_header(source, name, masks=None):
    """The file with a 108-byte header (the 40 bytes, the four masks, a colour
    space and end points), the pixels unchanged."""
    data = open(path(source), "rb").read()
    width, height, _, bits = struct.unpack_from("<iiHH", data, 18)
    compression = 0 if masks is None else 3
    header = info(width, height, bits, compression, size=108)
    header += struct.pack("<IIII", *(masks or (0, 0, 0, 0))) + b"BGRs" + bytes(36) + bytes(12)
    table = data[54:pixel_offset(data)]
    write(name, header, table, b"".join(rows(data, width, height, bits)))


def masks_after_header(source, name):
    """A bit-field file with the 40-byte header and the masks after it."""
    data = open(path(source), "rb").read()
    width, height, _, bits = struct.unpack_from("<iiHH", data, 18)
    masks = data[54:66]
    write(name, info(width, height, bits, 3), masks, b"".join(rows(data, width, height, bits)))


def rle4(name, width, height):
    """Random RLE4 data, which neither peer writes: runs of alternating pixel
    pairs, absolute stretches of odd and even length padded to 16 bits, a
    delta and rows ended early, whose skipped pixels stay at index 0."""
    coded = bytearray()
    for y in range(height):
        x = 0
        if y == 2:
            coded += bytes([0, 2, 5, 0])
            x = 5
        end = width - 3 if y == 4 else width
        while x < end:
            n = int(rng.integers(1, min(end - x, 14) + 1))
            nibbles = rng.integers(0, 16, n + 1)
            if n >= 3 and rng.random() < 0.5:
                packed = bytes(int(a) << 4 | int(b) for a, b in zip(nibbles[0:n:2], nibbles[1:n + 1:2]))
                coded += bytes([0, n]) + packed + bytes(len(packed) % 2)
            else:
                coded += bytes([n, int(nibbles[0]) << 4 | int(nibbles[1])])
            x += n
        coded += bytes([0, 0])
    coded[-1] = 1
    table = bytes(int(v) for v in rng.integers(0, 256, 64))
    write(name, info(width, height, 4, 2, len(coded), 16), table, bytes(coded))


def high_colour(name, rgb):
    """16-bit pixels without bit fields: 5-5-5, bits 10-14 red."""
    height, width = rgb.shape[:2]
    stride = (16 * width + 31) // 32 * 4
    pixels = bytearray()
    for y in range(height - 1, -1, -1):
        r, g, b = (rgb[y, :, i].astype(np.uint16) >> 3 for i in range(3))
        row = (r << 10 | g << 5 | b).astype("<u2").tobytes()
        pixels += row + bytes(stride - len(row))
    write(name, info(width, height, 16, 0), b"", bytes(pixels))


def main():
    source = os.path.join(out, "source.png")
    alpha = os.path.join(out, "alpha.png")
    rgb = picture(37, 11)
    Image.fromarray(rgb, "RGB").save(source)
    rgba = np.dstack([picture(19, 6), rng.integers(0, 256, (6, 19), dtype=np.uint8)])
    Image.fromarray(rgba, "RGBA").save(alpha)
    image = Image.fromarray(rgb, "RGB")

    # Pillow: 1, 8 (grey and palette), 24 and 32 bits.
    image.convert("1").save(path("pillow_1bit"))
    expect("pillow_1bit", 1, header=40, depth=1)
    image.convert("L").crop((0, 0, 13, 7)).save(path("pillow_grey"))
    expect("pillow_grey", 8, depth=8)
    image.convert("P", palette=Image.ADAPTIVE, colors=200).crop((0, 0, 31, 5)).save(path("pillow_palette"))
    expect("pillow_palette", 8, depth=8)
    image.crop((0, 0, 9, 4)).save(path("pillow_rgb"))
    expect("pillow_rgb", 24, depth=24)
    Image.fromarray(rgba, "RGBA").save(path("pillow_rgbx"))
    expect("pillow_rgbx", 24, depth=32, compression=0)

    # ImageMagick: every palette depth, RLE8, bit fields, the core header
    # and the 124-byte header.
    magick_bmp(source, "magick_1bit", "bmp3", "-type", "bilevel")
    magick_bmp(source, "magick_4bit", "bmp3", "-colors", "16", "-type", "palette")
    magick_bmp(source, "magick_8bit", "bmp3", "-colors", "200", "-type", "palette", "-compress", "None")
    magick_bmp(source, "magick_rle8", "bmp3", "-colors", "40", "-compress", "RLE")
    magick_bmp(source, "magick_24", "bmp3", "-type", "truecolor")
    magick_bmp(source, "magick_565", "bmp", "-define", "bmp:subtype=RGB565")
    magick_bmp(source, "magick_555", "bmp", "-define", "bmp:subtype=RGB555")
    magick_bmp(alpha, "magick_argb", "bmp")
    magick_bmp(source, "core_1bit", "bmp2", "-type", "bilevel")
    magick_bmp(source, "core_4bit", "bmp2", "-colors", "16", "-type", "palette")
    magick_bmp(source, "core_8bit", "bmp2", "-colors", "200", "-type", "palette")
    magick_bmp(source, "core_24", "bmp2", "-type", "truecolor")
    for name in ("magick_1bit", "magick_4bit", "magick_8bit"):
        expect(name, int(name.split("_")[1][0]), header=40, compression=0)
    expect("magick_rle8", 8, depth=8, compression=1)
    expect("magick_24", 24, header=40, depth=24)
    expect("magick_565", 16, header=124, depth=16, compression=3, reduce=fields565)
    expect("magick_555", 16, header=124, depth=16, compression=3, reduce=fields555)
    expect("magick_argb", 24, header=124, depth=32, compression=3)
    for name, bits in (("core_1bit", 1), ("core_4bit", 4), ("core_8bit", 8), ("core_24", 24)):
        expect(name, bits, header=12, depth=bits)

    # What neither writes: 5-5-5 without bit fields, top-down rows, a
    # 108-byte header (with its own masks), masks after a 40-byte header.
    # RLE4 as ImageMagick reads it (Pillow drops pixels after an absolute
    # stretch of odd length); the library's own RLE4 files are read back by
    # both peers in the test.
    high_colour("plain_555", rgb[:, :17])
    expect("plain_555", 16, depth=16, compression=0, reduce=fields555)
    top_down("pillow_rgb", "top_down_24")
    expect("top_down_24", 24, depth=24, top_down=True)
    top_down("pillow_palette", "top_down_8")
    expect("top_down_8", 8, depth=8, top_down=True)
    top_down("magick_4bit", "top_down_4")
    expect("top_down_4", 4, depth=4, top_down=True)
    larger_header("pillow_rgb", "header108_24")
    expect("header108_24", 24, header=108, depth=24)
    larger_header("pillow_rgbx", "header108_32", masks=(0xFF0000, 0xFF00, 0xFF, 0))
    expect("header108_32", 24, header=108, depth=32, compression=3)
    masks_after_header("magick_565", "header40_565")
    expect("header40_565", 16, header=40, depth=16, compression=3, reduce=fields565)
    rle4("script_rle4", 29, 9)
    expect("script_rle4", 4, header=40, depth=4, compression=2, peer=magick_rgb)
    os.remove(source)
    os.remove(alpha)


def decode(paths):
    for saved in paths:
        rgb = pillow_rgb(saved)
        source = os.path.basename(saved).split(".")[0] + ".bmp.p1.rgb"
        assert (rgb.reshape(-1) == np.fromfile(os.path.join(out, source), np.uint8)).all(), saved
        if struct.unpack_from("<I", open(saved, "rb").read(), 30)[0] == 2:
            assert (magick_rgb(saved) == rgb).all(), saved + ": ImageMagick reads the RLE4 file otherwise"
        cases.add(saved, rgb, 0)


if sys.argv[1] == "--decode":
    cases.listing = "saved.txt"
    decode(sys.argv[3:])
else:
    main()
cases.write()
