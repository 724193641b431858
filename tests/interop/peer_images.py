"""What the corpus scripts share: running ImageMagick and the two peers'
decodings of a file as rows of red, green, blue from the top."""
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
