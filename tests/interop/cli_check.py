#!/usr/bin/env python3
"""The velmora program on files made by the peers: `info --json` describes
every page as libtiff does, `render` writes a bitmap Pillow reads back with
the page's pixels, and JPEG files (alone and in TIFF pages) decode as djpeg
decodes them."""
import json
import os
import shutil
import subprocess
import sys
import tempfile

from PIL import Image, ImageChops


def run(*args):
    return subprocess.run(args, check=True, capture_output=True, text=True).stdout


def check_jpeg(velmora, tmp, colour):
    """A progressive JPEG file and a JPEG-compressed TIFF page."""
    failures = 0
    ppm = os.path.join(tmp, "colour.ppm")
    Image.open(colour).convert("RGB").save(ppm)
    jpeg = os.path.join(tmp, "colour.jpg")
    run("cjpeg", "-progressive", "-sample", "2x1", "-outfile", jpeg, ppm)
    info = json.loads(run(velmora, "info", jpeg, "--json"))
    page = info["pages"][0]
    if (info["type"], page["width"], page["length"], page["compression"], page["sampling"]) != \
            ("JPEG", 180, 97, "JPEG (Progressive DCT, Huffman coding)", "2x1"):
        print("info:", info)
        failures += 1
    out = os.path.join(tmp, "jpeg.bmp")
    reference = os.path.join(tmp, "jpeg.ppm")
    run(velmora, "render", jpeg, "-o", out)
    run("djpeg", "-dct", "int", "-nosmooth", "-outfile", reference, jpeg)
    if ImageChops.difference(Image.open(out).convert("RGB"), Image.open(reference)).getbbox() is not None:
        print("render of the JPEG file differs from djpeg")
        failures += 1
    page = os.path.join(tmp, "jpeg.tif")
    run("tiffcp", "-c", "jpeg:r", "-r", "32", colour, page)
    info = json.loads(run(velmora, "info", page, "--json"))
    run(velmora, "render", page, "-o", out)
    theirs = Image.open(page).convert("RGB")
    if info["pages"][0]["compression"] != "JPEG" or \
            ImageChops.difference(Image.open(out).convert("RGB"), theirs).getbbox() is not None:
        print("the JPEG page differs from Pillow's decoding:", info)
        failures += 1
    return failures


def main():
    velmora = sys.argv[1]
    if not shutil.which("tiffcp") or not os.path.exists("/usr/bin/convert"):
        print("skipped: tiffcp or ImageMagick missing")
        return 0
    failures = 0
    with tempfile.TemporaryDirectory() as tmp:
        grey = os.path.join(tmp, "grey.tif")
        colour = os.path.join(tmp, "colour.tif")
        run("/usr/bin/convert", "-size", "257x131", "plasma:fractal", "-seed", "3", "-colorspace", "gray",
            "-depth", "8", grey)
        run("/usr/bin/convert", "-size", "180x97", "plasma:fractal", "-seed", "4", "-depth", "8", colour)
        document = os.path.join(tmp, "document.tif")
        run("tiffcp", "-c", "lzw:2", "-r", "16", grey, colour, document)
        bilevel = os.path.join(tmp, "fax.tif")
        run("/usr/bin/convert", grey, "-threshold", "50%", "-depth", "1", "-type", "bilevel",
            "-compress", "Group4", bilevel)

        info = json.loads(run(velmora, "info", document, "--json"))
        expected = [(257, 131, "LZW"), (180, 97, "LZW")]
        got = [(p["width"], p["length"], p["compression"]) for p in info["pages"]]
        if info["type"] != "TIFF" or got != expected:
            print("info:", info)
            failures += 1
        for page, source in ((1, grey), (2, colour)):
            out = os.path.join(tmp, "page%d.bmp" % page)
            run(velmora, "render", document, "--page", str(page), "-o", out)
            ours = Image.open(out).convert("RGB")
            theirs = Image.open(source).convert("RGB")
            if ours.size != theirs.size or ImageChops.difference(ours, theirs).getbbox() is not None:
                print("render page %d differs from the source" % page)
                failures += 1
        out = os.path.join(tmp, "fax.bmp")
        run(velmora, "render", bilevel, "-o", out)
        if ImageChops.difference(Image.open(out).convert("L"), Image.open(bilevel).convert("L")).getbbox():
            print("render of the Group 4 page differs")
            failures += 1
        text = run(velmora, "info", bilevel)
        if "CCITT Group 4" not in text or "1 page" not in text:
            print("info:", text)
            failures += 1
        missing = subprocess.run([velmora, "render", document, "--page", "3", "-o", out], capture_output=True,
                                 text=True)
        if missing.returncode == 0 or "IFD not found." not in missing.stderr:
            print("render of a missing page:", missing.returncode, missing.stderr)
            failures += 1
        sample = os.path.join(tmp, "sample.tif")
        run(velmora, "sample", sample)
        info = json.loads(run(velmora, "info", sample, "--json"))
        out = os.path.join(tmp, "sample.bmp")
        run(velmora, "render", sample, "--page", "2", "-o", out)
        theirs = Image.open(sample)
        theirs.seek(1)
        if [(p["width"], p["length"], p["bits"]) for p in info["pages"]] != [(320, 200, 8), (320, 200, 24)] or \
                ImageChops.difference(Image.open(out).convert("RGB"), theirs.convert("RGB")).getbbox() is not None:
            print("the sample document:", info)
            failures += 1
        if shutil.which("cjpeg") and shutil.which("djpeg"):
            failures += check_jpeg(velmora, tmp, colour)
    print("%d passed, %d failed" % (10 - failures, failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
