#!/usr/bin/env python3
"""The velmora program on files made by the peers: `info --json` describes
every page as libtiff does (orientations as tiffinfo reports them), `render`
writes a bitmap Pillow reads back with the page's pixels, `despeckle` writes
a TIFF and a bitmap that agree, JPEG files (alone and in TIFF pages) decode
as djpeg decodes them, BMP, PNG, GIF and PCX files as Pillow reads them, and
every compression `convert` writes reads back in Pillow, recognised text
(tesseract's or attached words) reaches a PDF's text layer where pdftotext
finds it, the sample document becomes a PDF/A file that qpdf accepts and
poppler renders and searches as the TIFF reads, and `annotations --json`
reports every annotation of a page with its source."""
import calendar
import json
import os
import pty
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time

import numpy as np
from PIL import Image, ImageChops, ImageStat, TiffImagePlugin


def run(*args):
    return subprocess.run(args, check=True, capture_output=True, text=True).stdout


def check_image_files(velmora, tmp, colour):
    """BMP (a 24-bit one from Pillow, an RLE8 one from ImageMagick), PNG, GIF
    and PCX files are described and rendered as Pillow reads them."""
    failures = 0
    rgb = lambda path: Image.open(colour).convert("RGB").save(path)
    for kind, name, write in (
            ("BMP", "pillow.bmp", rgb),
            ("BMP", "rle8.bmp", lambda path: run("/usr/bin/convert", colour, "-colors", "64", "-compress", "RLE",
                                                 "bmp3:" + path)),
            ("PNG", "colour.png", rgb),
            ("GIF", "colour.gif", lambda path: Image.open(colour).convert("RGB").quantize(200).save(path)),
            ("PCX", "colour.pcx", rgb)):
        path, out = os.path.join(tmp, name), os.path.join(tmp, "rendered-" + name + ".bmp")
        write(path)
        # Converted into a TIFF page, the file's pixels stay as they are.
        converted = path + ".tif"
        run(velmora, "convert", path, converted, "--compression", "lzw")
        if ImageChops.difference(Image.open(converted).convert("RGB"),
                                 Image.open(path).convert("RGB")).getbbox() is not None:
            print("the %s file %s converted to TIFF differs" % (kind, name))
            failures += 1
        info = json.loads(run(velmora, "info", path, "--json"))
        run(velmora, "render", path, "-o", out)
        theirs = Image.open(path).convert("RGB")
        if (info["type"], info["pages"][0]["width"], info["pages"][0]["length"]) != (kind,) + theirs.size or \
                ImageChops.difference(Image.open(out).convert("RGB"), theirs).getbbox() is not None:
            print("the %s file %s:" % (kind, name), info)
            failures += 1
    # Every frame of an animated GIF becomes a page; a TIFF page written as a
    # JPEG file reads in Pillow near its source.
    frames = [Image.open(colour).convert("RGB").rotate(angle).quantize(64) for angle in (0, 90, 180)]
    animated, pages = os.path.join(tmp, "animated.gif"), os.path.join(tmp, "animated.tif")
    frames[0].save(animated, save_all=True, append_images=frames[1:])
    run(velmora, "convert", animated, pages, "--pages", "2-3")
    tiff = Image.open(pages)
    for index, frame in enumerate(frames[1:]):
        tiff.seek(index)
        if ImageChops.difference(tiff.convert("RGB"), frame.convert("RGB")).getbbox() is not None:
            print("frame %d of the GIF converted to TIFF differs" % (index + 2))
            failures += 1
    jpeg = os.path.join(tmp, "colour-page.jpg")
    run(velmora, "convert", colour, jpeg, "--quality", "95")
    if max(ImageStat.Stat(ImageChops.difference(Image.open(jpeg).convert("RGB"),
                                                Image.open(colour).convert("RGB"))).mean) > 8:
        print("the TIFF page saved as JPEG differs")
        failures += 1
    return failures


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
    run("djpeg", "-dct", "int", "-outfile", reference, jpeg)
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


# tiffinfo's words for the eight TIFF orientations, by value.
TIFFINFO_ORIENTATIONS = {
    "row 0 top, col 0 lhs": 1, "row 0 top, col 0 rhs": 2, "row 0 bottom, col 0 rhs": 3,
    "row 0 bottom, col 0 lhs": 4, "row 0 lhs, col 0 top": 5, "row 0 rhs, col 0 top": 6,
    "row 0 rhs, col 0 bottom": 7, "row 0 lhs, col 0 bottom": 8,
}
ORIENTATION_NAMES = ["top-left", "top-right", "bottom-right", "bottom-left", "left-top", "right-top",
                     "right-bottom", "left-bottom"]


def tiffinfo_orientations(path):
    """The orientation of every directory as tiffinfo reports it (1 when it reports none)."""
    orientations = []
    for line in run("tiffinfo", path).splitlines():
        if line.startswith("TIFF Directory at offset"):
            orientations.append(1)
        elif line.strip().startswith("Orientation:"):
            orientations[-1] = TIFFINFO_ORIENTATIONS[line.split(":", 1)[1].strip().rstrip(".")]
    return orientations


def check_orientations(velmora, tmp):
    """Pages in the eight orientations made by ImageMagick, one page without
    the tag and one given it by tiffset, in one file made by tiffcp."""
    pages = []
    for value, name in enumerate(["TopLeft", "TopRight", "BottomRight", "BottomLeft", "LeftTop", "RightTop",
                                  "RightBottom", "LeftBottom"], 1):
        page = os.path.join(tmp, "orient%d.tif" % value)
        run("/usr/bin/convert", "-size", "%dx%d" % (30 + value, 20), "gradient:", "-depth", "8", "-orient", name, page)
        pages.append(page)
    for name, value in (("plain.tif", None), ("tagged.tif", "7")):
        page = os.path.join(tmp, name)
        Image.new("L", (23, 11), 128).save(page)
        if value:
            run("tiffset", "-s", "274", value, page)
        pages.append(page)
    document = os.path.join(tmp, "orientations.tif")
    run("tiffcp", *pages, document)
    theirs = tiffinfo_orientations(document)
    ours = [p["orientation"] for p in json.loads(run(velmora, "info", document, "--json"))["pages"]]
    text = run(velmora, "info", document).splitlines()[1:]
    named = [line.rsplit("orientation ", 1)[1] for line in text]
    if ours != theirs or theirs != [1, 2, 3, 4, 5, 6, 7, 8, 1, 7] or \
            named != [ORIENTATION_NAMES[value - 1] for value in theirs]:
        print("orientations: ours", ours, named, "tiffinfo", theirs)
        return 1
    return 0


def check_annotations(velmora, tmp, document):
    """A highlighted, bordered text box added with `annotate` is listed by
    `annotations`, kept as an annotation by `burn --redactions-only` and drawn
    by `burn` and `render --burn`: its border red, the inside of its fill
    no lighter than before and yellowed where the page was white."""
    failures = 0
    annotated, burned, kept = (os.path.join(tmp, n) for n in ("annotated.tif", "burned.tif", "kept.tif"))
    run(velmora, "annotate", document, annotated, "--page", "2", "--rect", "20,10,120,60", "--text", "Velmora",
        "--border", "FF0000", "--fill", "FFFF00", "--highlight")
    pages = json.loads(run(velmora, "annotations", annotated, "--json"))["pages"]
    marks = [len(p["annotations"]) for p in pages]
    box = pages[1]["annotations"][0] if marks == [0, 1] else {}
    if box.get("family") != "rectangle" or not box.get("highlighter") or box.get("border", {}).get("style") != 1:
        print("annotations of the annotated file:", pages)
        failures += 1
    run(velmora, "burn", annotated, kept, "--redactions-only")
    run(velmora, "burn", annotated, burned)
    rendered = os.path.join(tmp, "burned-page.bmp")
    run(velmora, "render", annotated, "--page", "2", "--burn", "-o", rendered)
    before = Image.open(document)
    before.seek(1)
    before = before.convert("RGB")
    after = Image.open(burned)
    after.seek(1)
    after = after.convert("RGB")
    inside = (30, 20, 110, 50)
    darker = ImageChops.subtract(after.crop(inside), before.crop(inside)).getbbox()
    border = after.getpixel((20, 30))
    blue = ImageStat.Stat(after.crop(inside)).mean[2] < ImageStat.Stat(before.crop(inside)).mean[2]
    if json.loads(run(velmora, "annotations", kept, "--json"))["pages"][1]["annotations"] == [] or \
            darker is not None or border[0] < 200 or border[1] > 60 or not blue or \
            ImageChops.difference(after, Image.open(rendered).convert("RGB")).getbbox() is not None:
        print("burned annotation: border", border, "lighter inside", darker, "blue fell", blue)
        failures += 1
    # The annotated file as an image PDF that qpdf accepts, its annotation burned in.
    pdf = os.path.join(tmp, "annotated.pdf")
    run(velmora, "convert", annotated, pdf)
    page = os.path.join(tmp, "pdf-page")
    if shutil.which("qpdf") and shutil.which("pdftoppm"):
        run("qpdf", "--check", pdf)
        run("pdftoppm", "-f", "2", "-l", "2", "-r", "72", "-singlefile", pdf, page)
        if Image.open(page + ".ppm").size != after.size:
            print("PDF page size:", Image.open(page + ".ppm").size, "for", after.size)
            failures += 1
    return failures


def wang_block(marks):
    """A Wang/Eastman annotation block (32-bit Intel layout) of marks given as
    (type, inclusive bounds, colour 0xRRGGBB, line size, creation time,
    named blocks {name: bytes})."""
    out = struct.pack("<II", 0, 1)
    for kind, bounds, rgb, size, created, named in marks:
        mark = bytearray(164)
        struct.pack_into("<I4iBBBx4xIII", mark, 0, kind, *bounds, rgb & 0xFF, rgb >> 8 & 0xFF, rgb >> 16, 0, 0, size)
        struct.pack_into("<i12xi8x5s", mark, 48, -12, 400, b"Arial")  # LOGFONT height, weight and face
        struct.pack_into("<II", mark, 112, created, 1)
        out += struct.pack("<II", 5, 164) + mark
        for name, data in named.items():
            out += struct.pack("<II8sI", 6, 12, name, len(data)) + data
    return out


def check_annotation_listing(velmora, tmp):
    """A page holding the library's own block (a box made by `annotate`) and a
    Wang block (a filled rectangle in a group, a text, a line) is listed with
    --json field by field, each annotation with its source; a redaction added
    by `annotate --redact` is then burned by `burn --redactions-only` into
    exactly its rectangle, and leaves the listing."""
    failures = 0
    blank, boxed, mixed, redacted, burned = (os.path.join(tmp, n) for n in (
        "blank.tif", "boxed.tif", "mixed.tif", "redacted.tif", "redacted-burned.tif"))
    Image.new("L", (200, 100), 255).save(blank)
    run(velmora, "annotate", blank, boxed, "--page", "1", "--rect", "20,10,120,60", "--text", "Velmora",
        "--border", "FF0000", "--fill", "FFFF00", "--highlight")
    own = bytes(Image.open(boxed).tag_v2[33938])
    text = struct.pack("<IIII", 0, 0, 0, 11) + b"Hello Wang\0"
    wang = wang_block([(6, (30, 40, 69, 59), 0x112233, 1, 1600000000, {b"OiGroup": b"Reviewers\0"}),
                       (7, (5, 70, 99, 89), 0x445566, 1, 1700000000, {b"OiAnText": text}),
                       (3, (100, 5, 120, 15), 0x0000FF, 3, 1000000000,
                        {b"OiAnoDat": struct.pack("<6I", 0, 2, 0, 0, 20, 10)})])
    tags = TiffImagePlugin.ImageFileDirectory_v2()
    tags[32932], tags.tagtype[32932] = wang, 1
    tags[33938], tags.tagtype[33938] = own, 7
    Image.new("L", (200, 100), 255).save(mixed, tiffinfo=tags)
    listed = json.loads(run(velmora, "annotations", mixed, "--json"))["pages"][0]["annotations"]
    fields = "index source family type rect border fill fill2 highlighter textColor font text flags groups created"
    none = {"style": 0, "width": 0, "color": None}
    no_font = {"face": "", "size": 0}
    expected = [
        (0, "own", "rectangle", 6, [20, 10, 120, 60], {"style": 1, "width": 1, "color": "#FF0000"}, "#FFFF00", None,
         True, "#000000", {"face": "Arial", "size": 12}, "Velmora", [], []),
        (1, "wang", "rectangle", 6, [30, 40, 70, 60], none, "#112233", None, False, None, no_font, "", [],
         ["Reviewers"], "2020-09-13T12:26:40Z"),
        (2, "wang", "rectangle", 6, [5, 70, 100, 90], none, None, None, False, "#445566",
         {"face": "Arial", "size": 12}, "Hello Wang", [], [], "2023-11-14T22:13:20Z"),
        (3, "wang", "line", 3, [100, 5, 121, 16], {"style": 0, "width": 3, "color": "#0000FF"}, None, None, False,
         None, no_font, "", [], [], "2001-09-09T01:46:40Z"),
    ]
    got = [tuple(a.get(k) for k in fields.split()) for a in listed]
    # The box made just now carries its creation time (UTC, to the second).
    created = got[0][-1] if got else None
    recent = created and abs(calendar.timegm(time.strptime(created, "%Y-%m-%dT%H:%M:%SZ")) - time.time()) < 600
    got[:1] = [box[:-1] for box in got[:1]]
    if got != expected or not recent or listed[3].get("points") != [[100, 5], [120, 15]]:
        print("annotations of own and Wang blocks:", got, created, "expected", expected)
        failures += 1
    run(velmora, "annotate", mixed, redacted, "--page", "1", "--rect", "50,20,90,50", "--redact")
    last = json.loads(run(velmora, "annotations", redacted, "--json"))["pages"][0]
    run(velmora, "burn", redacted, burned, "--redactions-only")
    left = json.loads(run(velmora, "annotations", burned, "--json"))["pages"][0]
    expected_page = Image.new("L", (200, 100), 255)
    expected_page.paste(0, (50, 20, 90, 50))
    if [a["flags"] for a in last["annotations"]][-1:] != [["pending", "redaction"]] or not last["redactions"] or \
            last["annotations"][-1]["rect"] != [50, 20, 90, 50] or len(left["annotations"]) != 4 or \
            left["redactions"] or ImageChops.difference(Image.open(burned).convert("L"), expected_page).getbbox():
        print("redaction:", last, left)
        failures += 1
    return failures


def check_ocr(velmora, tmp):
    """Random words attached with `ocr-attach` come out of the PDF next to
    their boxes; a bad word list or a missing tesseract fails and leaves the
    file as it was; and (with tesseract) `convert --ocr` of a rendered line of
    text gives a PDF whose text holds its words."""
    failures = 0
    page = os.path.join(tmp, "text.tif")
    run("/usr/bin/convert", "-size", "1200x300", "xc:white", "-font", "DejaVu-Sans", "-pointsize", "48",
        "-annotate", "+50+150", "Velmora reads scans", "-type", "Grayscale", "-depth", "8", page)
    rng = random.Random(7)
    words, attached, listing = [], os.path.join(tmp, "attached.tif"), os.path.join(tmp, "words.json")
    for line in range(3):
        left = rng.randrange(0, 200)
        for _ in range(rng.randrange(1, 4)):
            text = "".join(rng.choice("abcdefghijkmnopqrstuvwxyz") for _ in range(rng.randrange(2, 9)))
            box = [left, 20 + 90 * line, left + 20 * len(text) + rng.randrange(0, 40), 60 + 90 * line]
            words.append({"text": text, "box": box})
            left = box[2] + rng.randrange(10, 60)
    with open(listing, "w") as f:
        json.dump(words, f)
    shutil.copy(page, attached)
    run(velmora, "ocr-attach", attached, "--page", "1", listing)
    pdf = os.path.join(tmp, "attached.pdf")
    run(velmora, "convert", attached, pdf)
    found = re.findall(r'xMin="([\d.]+)" yMin="([\d.]+)" xMax="([\d.]+)" yMax="([\d.]+)">(\w+)<',
                       run("pdftotext", "-bbox", pdf, "-"))
    near = [w["text"] for w, f in zip(words, found) if f[4] == w["text"] and
            max(abs(float(a) - b) for a, b in zip(f[:4], w["box"])) <= 2]
    if len(found) != len(words) or len(near) != len(words):
        print("attached words in the PDF:", found, "for", words)
        failures += 1
    with open(attached, "rb") as f:
        before = f.read()
    with open(listing, "w") as f:
        f.write('[{"text": "x", "box": [1, 2, 3]}]')
    bad = subprocess.run([velmora, "ocr-attach", attached, "--page", "1", listing], capture_output=True)
    missing = subprocess.run([velmora, "ocr", attached], capture_output=True, text=True,
                             env=dict(os.environ, PATH=tmp))
    with open(attached, "rb") as f:
        after = f.read()
    if bad.returncode != 2 or missing.returncode != 1 or "tesseract" not in missing.stderr or before != after:
        print("failed OCR commands:", bad.returncode, missing.returncode, missing.stderr, before == after)
        failures += 1
    if not shutil.which("tesseract"):
        print("skipped: tesseract missing")
        return failures
    recognised = os.path.join(tmp, "recognised.pdf")
    run(velmora, "convert", page, recognised, "--ocr")
    text = run("pdftotext", recognised, "-")
    if "Velmora" not in text or "scans" not in text:
        print("text recognised from the rendered page:", text)
        failures += 1
    return failures


def check_pdf_pages(velmora, tmp, pages):
    """A PDF of the pages asked for, in that order; and on a terminal the
    conversion draws its progress and writes every page."""
    failures = 0
    document, selected, shown = (os.path.join(tmp, name) for name in ("three.tif", "selected.pdf", "shown.pdf"))
    run("tiffcp", *pages, document)
    run(velmora, "convert", document, selected, "--pages", "3,1")
    sizes = re.findall(r"Page +\d+ size: +([\d.]+) x ([\d.]+)", run("pdfinfo", "-f", "1", "-l", "9", selected))
    expected = [Image.open(pages[2]).size, Image.open(pages[0]).size]
    if [(round(float(w)), round(float(h))) for w, h in sizes] != expected:
        print("pages 3,1 as a PDF:", sizes, "for", expected)
        failures += 1
    terminal, child = pty.openpty()
    done = subprocess.run([velmora, "convert", document, shown], stderr=child, stdout=subprocess.DEVNULL)
    os.close(child)
    drawn = os.read(terminal, 65536).decode()
    os.close(terminal)
    if done.returncode != 0 or "100%" not in drawn or "Pages:           3" not in run("pdfinfo", shown):
        print("conversion on a terminal:", done.returncode, repr(drawn[-80:]))
        failures += 1
    return failures


def check_sample(velmora, tmp):
    """The sample document as a PDF/A file: qpdf accepts it and finds the
    archive objects; every page has its TIFF page's paper size, the fax pages
    keep their Group 4 data and the colour page its JPEG data, and poppler renders each page as velmora renders
    the TIFF page with its annotations burned in; the text layer holds the
    words stored with each page but the redacted one, whose bar is black."""
    failures = 0
    tif, pdf = os.path.join(tmp, "sample.tif"), os.path.join(tmp, "sample.pdf")
    run(velmora, "sample", tif)
    run(velmora, "convert", tif, pdf, "--pdfa")
    run("qpdf", "--check", pdf)
    root = re.search(r"/Root (\d+) 0 R", run("qpdf", "--show-object=trailer", pdf)).group(1)
    if "/GTS_PDFA1" not in run("qpdf", "--show-object=" + root, pdf) or \
            "<pdfaid:part>1</pdfaid:part>" not in run("pdfinfo", "-meta", pdf):
        print("the sample PDF lacks its PDF/A output intent or metadata")
        failures += 1
    pages = json.loads(run(velmora, "info", tif, "--json"))["pages"]
    sizes = [(float(w), float(h)) for w, h in
             re.findall(r"size:\s+([\d.]+) x ([\d.]+) pts", run("pdfinfo", "-f", "1", "-l", "99", pdf))]
    paper = [(p["width"] / p["xResolution"] * 72, p["length"] / p["yResolution"] * 72) for p in pages]
    codings = [line.split()[8] for line in run("pdfimages", "-list", pdf).splitlines()[2:]]
    if len(sizes) != len(pages) or max(abs(a - b) for s, e in zip(sizes, paper) for a, b in zip(s, e)) > 0.01 or \
            codings[:2] + codings[3:4] != ["ccitt", "ccitt", "jpeg"] or sizes[0] != sizes[1]:
        print("sample PDF pages:", sizes, "for", paper, codings)
        failures += 1
    # At four times the image's resolution poppler repeats pixels: one sample
    # from inside each is the image pixel. A JPEG page may differ a little
    # where its colours change sharply (the chroma is interpolated otherwise).
    rendered, wrong = {}, []
    for p in pages:
        n, stem = p["page"], os.path.join(tmp, "sample-%d" % p["page"])
        run(velmora, "render", tif, "--page", str(n), "--burn", "-o", stem + ".bmp")
        run("pdftoppm", "-aa", "no", "-aaVector", "no", "-singlefile", "-rx", str(4 * p["xResolution"]), "-ry",
            str(4 * p["yResolution"]), "-f", str(n), "-l", str(n), pdf, stem)
        ours = np.asarray(Image.open(stem + ".bmp").convert("RGB"), dtype=int)
        rendered[n] = np.asarray(Image.open(stem + ".ppm"))[1::4, 1::4][:ours.shape[0], :ours.shape[1]]
        difference = np.abs(rendered[n] - ours) if rendered[n].shape == ours.shape else np.full(1, 255)
        if (difference.mean() > 1 if p["compression"] == "JPEG" else difference.max() > 0):
            wrong.append(n)
    # The bar: what burning in turns from white to black on the last page.
    plain = os.path.join(tmp, "sample-plain.bmp")
    run(velmora, "render", tif, "--page", str(len(pages)), "-o", plain)
    burned = np.asarray(Image.open(os.path.join(tmp, "sample-%d.bmp" % len(pages))).convert("L"))
    ys, xs = np.nonzero((burned == 0) & (np.asarray(Image.open(plain).convert("L")) == 255))
    if wrong or len(xs) == 0 or rendered[len(pages)][ys.min():ys.max() + 1, xs.min():xs.max() + 1].max() != 0:
        print("sample pages rendered from the PDF differ:", wrong, "or no black bar:", len(xs))
        failures += 1
    missing, extra = set(), set()
    document = Image.open(tif)
    for p in pages:
        document.seek(p["page"] - 1)
        record, stored = document.tag_v2[33944], set()
        for entry in range(struct.unpack_from("<I", record, 24)[0]):
            at = struct.unpack_from("<I", record, 28 + 8 * entry)[0]
            stored.update(record[at:].decode("utf-16-le", "ignore").split("\0")[0].split())
        found = set(run("pdftotext", "-f", str(p["page"]), "-l", str(p["page"]), pdf, "-").split())
        missing, extra = missing | (stored - found), extra | (found - stored)
    if missing != {"4471-2290-8836"} or extra:  # the word the sample redacts
        print("sample PDF text: missing", missing, "extra", extra)
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
        # A black and white and a colour page, uncompressed, at 200 dpi.
        pair = os.path.join(tmp, "pair.tif")
        pictures = [Image.open(grey).resize((320, 200)).convert("1"), Image.open(colour).resize((320, 200))]
        pictures[0].save(pair, save_all=True, append_images=pictures[1:], dpi=(200, 200))
        info = json.loads(run(velmora, "info", pair, "--json"))
        out = os.path.join(tmp, "pair.bmp")
        run(velmora, "render", pair, "--page", "2", "-o", out)
        theirs = Image.open(pair)
        theirs.seek(1)
        if [(p["width"], p["length"], p["bits"]) for p in info["pages"]] != [(320, 200, 1), (320, 200, 24)] or \
                ImageChops.difference(Image.open(out).convert("RGB"), theirs.convert("RGB")).getbbox() is not None:
            print("the two-page document:", info)
            failures += 1
        # The black and white page to Group 4, the colour page to a palette
        # page, appended into one file that Pillow reads as we do.
        g4, palette, joined = (os.path.join(tmp, name) for name in ("g4.tif", "palette.tif", "joined.tif"))
        run(velmora, "convert", pair, g4, "--pages", "1", "--compression", "g4")
        run(velmora, "convert", pair, palette, "--pages", "2", "--color", "pal256")
        run(velmora, "append", joined, g4, palette)
        ours = Image.open(joined)
        original = Image.open(pair)
        rendered = os.path.join(tmp, "joined2.bmp")
        run(velmora, "render", joined, "--page", "2", "-o", rendered)
        ours.seek(1)
        if ImageChops.difference(ours.convert("RGB"), Image.open(rendered).convert("RGB")).getbbox() is not None or \
                ours.mode != "P":
            print("the palette page of the converted pair differs in Pillow")
            failures += 1
        ours.seek(0)
        if ImageChops.difference(ours.convert("L"), original.convert("L")).getbbox() is not None:
            print("the Group 4 page of the converted pair differs in Pillow")
            failures += 1
        # A thumbnail: a reduced image of page 1 after the pages, 64 x 40 (the
        # page is 320 x 200), with the page's physical size.
        run(velmora, "thumbnail", joined, "--max", "64x64")
        pages = json.loads(run(velmora, "pages", joined, "--json"))
        images = [(i["page"], i["class"], i["width"], i["height"]) for i in pages["images"]]
        thumbnail = Image.open(joined)
        thumbnail.seek(2)
        if images != [(1, "page", 320, 200), (2, "page", 320, 200), (1, "reduced", 64, 40)] or \
                round(thumbnail.info["dpi"][0]) != 40 or thumbnail.size != (64, 40):
            print("the thumbnail:", pages, thumbnail.info)
            failures += 1
        # Resizing page 1: doubled by nearest pixel as Pillow doubles it; halved
        # smoothly into a grey bitmap of the page's physical size.
        doubled, halved = os.path.join(tmp, "doubled.tif"), os.path.join(tmp, "halved.bmp")
        run(velmora, "resize", pair, doubled, "--size", "640x400", "--nearest")
        run(velmora, "resize", pair, halved, "--size", "160x100")
        expected = original.convert("L").resize((640, 400), Image.NEAREST)
        small = Image.open(halved)
        if ImageChops.difference(Image.open(doubled).convert("L"), expected).getbbox() is not None or \
                small.size != (160, 100) or round(small.info["dpi"][0]) != round(original.info["dpi"][0] / 2):
            print("the resized page:", Image.open(doubled).size, small.size, small.info)
            failures += 1
        # Every compression velmora convert writes reads in Pillow as the page
        # it came from; JPEG pages (quality 95, colour with 2 x 2 chroma) read
        # in Pillow as velmora renders them, and near the original.
        wrong = []
        for source, names in ((bilevel, ("g4", "g3", "g3-2d", "mh", "lzw", "deflate", "packbits", "none")),
                              (grey, ("lzw", "deflate", "packbits", "none", "jpeg")),
                              (colour, ("lzw", "deflate", "packbits", "none", "jpeg"))):
            for name in names:
                out = os.path.join(tmp, "%s-%s.tif" % (os.path.basename(source), name))
                run(velmora, "convert", source, out, "--compression", name, "--quality", "95")
                ours, theirs = Image.open(out).convert("RGB"), Image.open(source).convert("RGB")
                if ours.size != theirs.size:
                    wrong.append(name)
                    continue
                difference = ImageChops.difference(ours, theirs)
                if name == "jpeg":
                    rendered = out + ".bmp"
                    run(velmora, "render", out, "-o", rendered)
                    ours_rendered = Image.open(rendered).convert("RGB")
                    if max(ImageStat.Stat(difference).mean) > 8 or \
                            max(hi for _, hi in ImageChops.difference(ours, ours_rendered).getextrema()) > 1:
                        wrong.append(name)
                elif difference.getbbox() is not None:
                    wrong.append(name)
        if wrong:
            print("pages converted and read by Pillow differ:", wrong)
            failures += 1
        # Despeckling the Group 4 page: the TIFF and the bitmap written agree,
        # and removing dots only turns black pixels white.
        cleaned_tif, cleaned_bmp = (os.path.join(tmp, "clean." + ext) for ext in ("tif", "bmp"))
        for out in (cleaned_tif, cleaned_bmp):
            run(velmora, "despeckle", bilevel, out, "--max", "40", "--black")
        before, after = Image.open(bilevel).convert("L"), Image.open(cleaned_tif).convert("L")
        added = ImageChops.subtract(before, after).getbbox()  # pixels that got darker
        if added is not None or ImageChops.difference(before, after).getbbox() is None or \
                ImageChops.difference(after, Image.open(cleaned_bmp).convert("L")).getbbox() is not None:
            print("despeckle of the Group 4 page:", added)
            failures += 1
        if shutil.which("tiffset") and shutil.which("tiffinfo"):
            failures += check_orientations(velmora, tmp)
        if shutil.which("cjpeg") and shutil.which("djpeg"):
            failures += check_jpeg(velmora, tmp, colour)
        if os.path.exists("/usr/bin/convert"):
            failures += check_image_files(velmora, tmp, colour)
        failures += check_annotations(velmora, tmp, document)
        failures += check_annotation_listing(velmora, tmp)
        if shutil.which("pdftotext"):
            failures += check_ocr(velmora, tmp)
            failures += check_pdf_pages(velmora, tmp, (bilevel, grey, colour))
        if shutil.which("qpdf") and shutil.which("pdftoppm"):
            failures += check_sample(velmora, tmp)
    print("%d passed, %d failed" % (35 - failures, failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
