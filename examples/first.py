"""A scanned page, made in NumPy, brought to black and white and written as a fax has it."""

import os
import tempfile

import numpy as np
import tarn

page = tarn.Bitmap(1240, 1754, 8, palette=tarn.Palette.gray(8))  # A4 at 150 dots per inch
with memoryview(page):  # while somebody looks, pixels stay where they are
    pixels = np.asarray(page)  # no copy: what is written here is the page
    pixels[:] = 230
    pixels[100:1600:40, 120:1100] = 20
    del pixels

page.rotate(1.5, resize=False, fill=(230, 230, 230))
fax = page.converted(1, palette=[(0, 0, 0), (255, 255, 255)])
fax.compress(tarn.Storage.COMPRESSED)  # run lengths in memory, and in the file

folder = tempfile.mkdtemp()
path = os.path.join(folder, "fax.tif")
tarn.save(path, fax, compression="g4")
with tarn.open(path) as again:
    assert again.same_pixels(fax)
    print(again, again.resolution, os.path.getsize(path), "bytes")
os.remove(path)
os.rmdir(folder)
