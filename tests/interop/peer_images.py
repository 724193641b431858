"""What the corpus scripts share: running ImageMagick, the two peers'
decodings of a file as rows of red, green, blue from the top, and the list of
pages the test reads back (see image_corpus.h for its lines)."""
import os
import subprocess

import numpy as np
from PIL import Image

CONVERT = "/usr/bin/convert"


def magick(*arguments):
    subprocess.run([CONVERT, *arguments], check=True, capture_output=True)


def pillow_rgb(path):
    with Image.open(path) as image:
        return np.asarray(image.convert("RGB"))


def magick_rgb(path):
    size = subprocess.run([CONVERT, path, "-format", "%w %h", "info:"], check=True, capture_output=True).stdout
    width, height = map(int, size.split())
    raw = subprocess.run([CONVERT, path, "-depth", "8", "rgb:-"], check=True, capture_output=True).stdout
    return np.frombuffer(raw, np.uint8).reshape(height, width, 3)


class Cases:
    """The pages of a corpus in DIRECTORY/LISTING, each with its pixels."""

    def __init__(self, directory, listing="cases.txt"):
        self.directory, self.listing, self.lines = directory, listing, []

    def add(self, file, rgb, bits, page=1, resolution=("*", "*")):
        raw = f"{os.path.basename(file)}.p{page}.rgb"
        np.asarray(rgb, dtype=np.uint8).tofile(os.path.join(self.directory, raw))
        height, width = rgb.shape[:2]
        self.lines.append(f"{os.path.basename(file)} {page} {width} {height} {bits} {resolution[0]} {resolution[1]} {raw}")

    def past_the_end(self, file, page):
        self.lines.append(f"{os.path.basename(file)} {page} 0 0 0 * * -")

    def write(self):
        with open(os.path.join(self.directory, self.listing), "w") as f:
            f.write("\n".join(self.lines) + "\n")
