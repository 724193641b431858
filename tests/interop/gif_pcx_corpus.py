"""Writes GIF and PCX files with Pillow and ImageMagick into a directory, and
lists every GIF frame and PCX image with Pillow's reading of it.

A GIF frame is the frame's own rectangle; Pillow's pixels are taken from that
rectangle of its frame, which for the frames here (no transparency after the
first) are the frame's own colours. Each GIF also lists the frame past its
last one.
"""
import sys

import numpy as np
from PIL import Image

from peer_images import Cases, magick, pillow_rgb

out = sys.argv[1]
rng = np.random.default_rng(20261125)
cases = Cases(out)


def palette_image(width, height, colours):
    image = Image.fromarray(rng.integers(0, colours, (height, width), dtype=np.uint8), "P")
    image.putpalette([int(v) for v in rng.integers(0, 256, 3 * colours)])
    return image


def banded(width, height, colours):
    """Runs of equal pixels as well as noise, so that LZW strings grow long."""
    a = (np.add.outer(np.arange(height) // 3, np.arange(width) // 5) % colours).astype(np.uint8)
    noise = rng.random((height, width)) < 0.2
    a[noise] = rng.integers(0, colours, int(noise.sum()), dtype=np.uint8)
    image = Image.fromarray(a, "P")
    image.putpalette([int(v) for v in rng.integers(0, 256, 3 * colours)])
    return image


def expect_gif(name, version=None, interlaced=None):
    path = f"{out}/{name}.gif"
    image = Image.open(path)
    if version is not None:
        assert image.info["version"] == version, (name, image.info["version"])
    frames = getattr(image, "n_frames", 1)
    for index in range(frames):
        image.seek(index)
        box = image.tile[0][1]
        if interlaced is not None:
            assert bool(image.tile[0][3][1]) == interlaced, name
        image.load()
        cases.add(path, np.asarray(image.convert("RGB").crop(box)), 8, page=index + 1)
    cases.past_the_end(path, frames + 1)


def expect_pcx(name, bitcount):
    cases.add(f"{out}/{name}.pcx", pillow_rgb(f"{out}/{name}.pcx"), bitcount, resolution=(0, 0))


# GIF: every table size, 87a and 89a, odd sizes, both writers.
palette_image(1, 1, 2).save(f"{out}/tiny87.gif")
expect_gif("tiny87", b"GIF87a")
for bits in range(1, 9):
    colours = 1 << bits
    banded(3 + 11 * bits, 2 + 5 * bits, colours).save(f"{out}/table{colours}.gif", interlace=False)
    expect_gif(f"table{colours}", b"GIF87a", False)
# Large 256-colour images fill the LZW table many times over.
palette_image(211, 97, 256).save(f"{out}/noise256.gif", interlace=False)
expect_gif("noise256")
banded(300, 120, 256).save(f"{out}/bands256_interlaced.gif", interlace=True)
expect_gif("bands256_interlaced", interlaced=True)
palette_image(37, 29, 16).save(f"{out}/interlaced16.gif", interlace=True, comment=b"interlaced, 89a")
expect_gif("interlaced16", b"GIF89a", True)
# A transparent index reads as its table colour.
palette_image(19, 23, 8).save(f"{out}/transparent.gif", transparency=3)
expect_gif("transparent", b"GIF89a")
# Animations: frames of their own sizes and places, local tables, comments,
# the looping application extension.
frames = [palette_image(41, 31, 64), palette_image(41, 31, 4), banded(41, 31, 32), palette_image(41, 31, 256)]
frames[0].save(f"{out}/pillow_anim.gif", save_all=True, append_images=frames[1:], duration=[40, 80, 120, 160],
               loop=0, disposal=1, comment=b"animated by Pillow", optimize=False)
expect_gif("pillow_anim", b"GIF89a")
for i, (colours, w, h) in enumerate([(256, 23, 17), (4, 7, 5), (2, 11, 3), (32, 16, 16)]):
    banded(w, h, colours).save(f"{out}/part{i}.gif", interlace=False)
magick(f"{out}/part0.gif", "(", f"{out}/part1.gif", "-repage", "+3+4", ")",
       "(", f"{out}/part2.gif", "-repage", "+9+12", ")", "(", f"{out}/part3.gif", "-repage", "+1+1", ")",
       "-set", "comment", "frame comment", "-set", "dispose", "none", "-loop", "0", f"{out}/magick_anim.gif")
expect_gif("magick_anim", b"GIF89a")
magick(f"{out}/part0.gif", "(", f"{out}/part3.gif", "-repage", "+5+0", ")", "-interlace", "GIF",
       f"{out}/magick_interlaced.gif")
expect_gif("magick_interlaced", interlaced=True)
magick("-size", "33x9", "plasma:fractal", "-colors", "7", f"{out}/magick_plasma.gif")
expect_gif("magick_plasma")

# PCX written by Pillow: 1 bit (version 2), 8-bit grey and palette with the
# trailing table, 24 bits in three planes; odd widths throughout.
for name, mode, size in [("bilevel13", "1", (13, 7)), ("bilevel33", "1", (33, 3)), ("bilevel1", "1", (1, 1)),
                         ("grey", "L", (17, 9)), ("palette", "P", (29, 11)), ("rgb7", "RGB", (7, 5)),
                         ("rgb31", "RGB", (31, 12))]:
    noise = Image.fromarray(rng.integers(0, 256, (size[1], size[0], 3), dtype=np.uint8), "RGB")
    noise.convert(mode).save(f"{out}/{name}.pcx")
    expect_pcx(name, {"1": 1, "L": 8, "P": 8, "RGB": 24}[mode])
# PCX written by ImageMagick: one 8-bit plane with odd bytes per line (big
# enough for the reader's smallest file with a trailing table), and 24 bits.
magick("-size", "31x13", "plasma:fractal", "-type", "palette", f"{out}/magick_palette.pcx")
expect_pcx("magick_palette", 8)
magick("-size", "21x6", "plasma:fractal", "-type", "truecolor", f"{out}/magick_rgb.pcx")
expect_pcx("magick_rgb", 24)


def rle(data):
    coded = bytearray()
    i = 0
    while i < len(data):
        run = 1
        while i + run < len(data) and run < 63 and data[i + run] == data[i]:
            run += 1
        if run > 1 or data[i] >= 0xC0:
            coded += bytes([0xC0 | run, data[i]])
        else:
            coded.append(data[i])
        i += run
    return bytes(coded)


# Neither writer makes four planes of one bit, the 16-colour layout: it is
# written here and Pillow is the reader. Pillow takes each plane to be exactly
# the bytes its pixels fill, so the planes are written without padding.
def planar16(name, width, height):
    pixels = rng.integers(0, 16, (height, width), dtype=np.uint8)
    pixels[:, : width // 3] = 5  # runs
    per_line = (width + 7) // 8
    palette = bytes(int(v) for v in rng.integers(0, 256, 48))
    header = bytearray(128)
    header[0:4] = bytes([10, 5, 1, 1])
    header[8:10] = (width - 1).to_bytes(2, "little")
    header[10:12] = (height - 1).to_bytes(2, "little")
    header[16:64] = palette
    header[65] = 4
    header[66:68] = per_line.to_bytes(2, "little")
    body = bytearray()
    for row in pixels:
        for plane in range(4):
            bits = np.zeros(per_line * 8, dtype=np.uint8)
            bits[:width] = (row >> plane) & 1
            body += rle(np.packbits(bits).tobytes())
    with open(f"{out}/{name}.pcx", "wb") as f:
        f.write(bytes(header) + bytes(body))
    expect_pcx(name, 4)


planar16("planar16", 37, 9)
planar16("planar16_narrow", 3, 4)

cases.write()
