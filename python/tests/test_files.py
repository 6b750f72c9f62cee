"""Files, with Pillow as the referee."""

import io
import os

import numpy as np
import pytest
import tarn
from PIL import Image, ImageCms
from tarn import Bitmap, BitmapList, Order, Storage


def noise(shape, dtype="uint8", seed=1):
    return np.random.default_rng(seed).integers(0, np.iinfo(dtype).max + 1, shape, dtype=dtype)


def as_rgb(bitmap):
    """Red, green, blue as Pillow has them."""
    array = bitmap.converted(24).unpacked()
    return array[..., ::-1]


@pytest.mark.parametrize("suffix", ["png", "tif", "bmp"])
@pytest.mark.parametrize("mode", ["1", "L", "P", "RGB", "RGBA"])
def test_what_pillow_writes_is_read_and_written_again(tmp_path, mode, suffix):
    source, target = tmp_path / f"a.{suffix}", tmp_path / f"b.{suffix}"
    picture = Image.fromarray(noise((21, 37, 3))).convert(mode)
    picture.save(source, dpi=(300, 300))
    with tarn.open(source) as bitmap:
        assert (bitmap.width, bitmap.height) == (37, 21)
        assert bitmap.resolution == (300, 300)
        upright = bitmap.clone()
        upright.change_perspective(1)
        if mode != "RGBA":
            assert np.array_equal(as_rgb(upright), np.asarray(Image.open(source).convert("RGB")))
        tarn.save(target, bitmap)
    again = Image.open(target)
    assert np.array_equal(np.asarray(again.convert("RGBA")), np.asarray(Image.open(source).convert("RGBA")))
    assert round(again.info["dpi"][0]) == 300


def test_sixteen_bits_and_jpeg(tmp_path):
    gray = noise((9, 13), "uint16")
    tarn.save(tmp_path / "g.png", Bitmap.from_array(gray))
    assert np.array_equal(np.asarray(Image.open(tmp_path / "g.png")), gray)
    wide = noise((9, 13, 3), "uint16")
    tarn.save(tmp_path / "w.tif", Bitmap.from_array(wide))
    assert np.array_equal(tarn.open(tmp_path / "w.tif").unpacked()[..., ::-1], wide)
    smooth = np.fromfunction(lambda y, x, c: (x * 3 + y + c * 40) % 256, (64, 80, 3)).astype("uint8")
    sizes = []
    for quality in (95, 30):
        tarn.save(tmp_path / "s.jpg", Bitmap.from_array(smooth), quality=quality)
        sizes.append(os.path.getsize(tmp_path / "s.jpg"))
        expected = np.asarray(Image.open(tmp_path / "s.jpg"))
        assert np.array_equal(tarn.open(tmp_path / "s.jpg").unpacked()[..., ::-1], expected)
    assert sizes[0] > sizes[1]


@pytest.mark.parametrize("orientation", range(1, 9))
@pytest.mark.parametrize("suffix", ["jpg", "tif", "png"])
def test_orientation_goes_along(tmp_path, orientation, suffix):
    from PIL import ImageOps

    picture = Image.fromarray(noise((16, 24, 3)))
    exif = Image.Exif()
    exif[0x0112] = orientation
    picture.save(tmp_path / f"a.{suffix}", exif=exif)
    bitmap = tarn.open(tmp_path / f"a.{suffix}")
    assert bitmap.view_perspective == orientation
    tarn.save(tmp_path / f"b.{suffix}", bitmap)
    assert tarn.Reader(tmp_path / f"b.{suffix}").info().orientation == orientation
    if suffix == "tif":  # those Pillow turns by itself, and not all of them right
        picture.save(tmp_path / "a.png", exif=exif)
    expected = ImageOps.exif_transpose(Image.open(tmp_path / ("a.jpg" if suffix == "jpg" else "a.png")))
    bitmap.change_perspective(1)
    assert np.array_equal(as_rgb(bitmap), np.asarray(expected))


def test_profiles_go_along_with_pixels_that_they_are_for(tmp_path):
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    Image.fromarray(noise((8, 8, 3))).save(tmp_path / "a.png", icc_profile=profile)
    bitmap = tarn.open(tmp_path / "a.png")
    assert bitmap.icc_profile == profile == tarn.Reader(tmp_path / "a.png").info().icc_profile
    for suffix in ("png", "tif", "jpg"):
        tarn.save(tmp_path / f"b.{suffix}", bitmap.copy_rect(0, 0, 5, 5))
        assert Image.open(tmp_path / f"b.{suffix}").info["icc_profile"] == profile
        tarn.save(tmp_path / f"c.{suffix}", bitmap.gray())
        assert "icc_profile" not in Image.open(tmp_path / f"c.{suffix}").info


def test_pages(tmp_path):
    pages = BitmapList(Bitmap.from_array(noise((10 + i, 20), seed=i)) for i in range(3))
    pages.append(Bitmap(33, 7, 1))
    tarn.save(tmp_path / "p.tif", pages, compression="lzw")
    assert Image.open(tmp_path / "p.tif").n_frames == 4
    with tarn.Reader(tmp_path / "p.tif") as reader:
        assert len(reader) == 4 and reader.info(2).height == 12 and "LZW" in reader.info(1).format
        for page in (3, 0, 0, -2):  # in any order, and twice
            assert reader.read(page).same_pixels(pages[page])
        with pytest.raises(IndexError):
            reader.read(4)
    with pytest.raises(ValueError):
        reader.read(0)
    assert all(a.same_pixels(b) for a, b in zip(tarn.open_pages(tmp_path / "p.tif"), pages, strict=True))
    single = tmp_path / "one.png"
    tarn.save(single, pages[0])
    reader = tarn.Reader(single)
    assert reader.read().same_pixels(reader.read())
    one, many = pages[0], pages
    with pytest.raises(tarn.FormatError):
        tarn.save(tmp_path / "p.png", many)
    with pytest.raises(ValueError):
        tarn.save(tmp_path / "p.tif", [])
    assert Image.open(tmp_path / "p.tif").n_frames == 4 and one.height == 10


@pytest.mark.parametrize("storage", [Storage.DISK, Storage.TILED, Storage.SUPER_COMPRESSED, Storage.COMPRESSED])
def test_storage_that_is_asked_for(tmp_path, storage):
    bits = 1 if storage == Storage.COMPRESSED else 8
    original = Bitmap.from_array(noise((200, 300)) // 128 if bits == 1 else noise((200, 300)), bits=bits)
    tarn.save(tmp_path / "a.png", original)
    bitmap = tarn.open(tmp_path / "a.png", storage=storage, tile_size=10000 if storage == Storage.TILED else 0)
    assert bitmap.storage.kind == storage and bitmap.same_pixels(original)
    tarn.save(tmp_path / "b.png", bitmap)
    assert tarn.open(tmp_path / "b.png").same_pixels(original)
    limited = tarn.open(tmp_path / "a.png", max_memory=20000)
    assert bits == 1 or limited.storage.kind == Storage.TILED
    with pytest.raises(tarn.ParameterError, match="max_pixels=60000"):
        tarn.open(tmp_path / "a.png", max_pixels=59999)


def test_depths_that_files_lack_become_what_they_have(tmp_path):
    levels = noise((6, 9)) // 2**5
    tarn.save(tmp_path / "a.png", Bitmap.from_array(levels, bits=3))
    assert np.array_equal(tarn.open(tmp_path / "a.png").unpacked(), levels.astype(int) * 255 // 7)
    with pytest.raises(tarn.FormatError) as refused:
        tarn.save(tmp_path / "a.jpg", Bitmap(5, 5, 48))
    assert refused.value.name == "ERR_BAD_BITS_PER_PIXEL" and not (tmp_path / "a.jpg").exists()
    with pytest.raises(tarn.FormatError):
        tarn.save(tmp_path / "a.png", Bitmap.from_array(np.array([[-1]], "int16")))


def test_failures_are_what_python_programs_expect(tmp_path):
    with pytest.raises(FileNotFoundError):
        tarn.open(tmp_path / "none.png")
    with pytest.raises(OSError):
        tarn.open(tmp_path)
    (tmp_path / "text.png").write_text("no picture")
    with pytest.raises(tarn.FormatError, match="text.png"):
        tarn.open(tmp_path / "text.png")
    buffer = io.BytesIO()
    Image.fromarray(noise((50, 50, 3))).save(buffer, "PNG")
    (tmp_path / "cut.png").write_bytes(buffer.getvalue()[:-1000])
    with pytest.raises(tarn.FormatError, match="damaged"):
        tarn.open(tmp_path / "cut.png")
    with pytest.raises(tarn.StorageError) as refused:
        tarn.save(tmp_path / "no folder" / "a.png", Bitmap(5, 5, 8))
    assert isinstance(refused.value, OSError) and refused.value.number == -5
    for keywords in ({"quality": 50}, {"compression": "lzw"}, {"compression": "zip"}, {"quality": 0}):
        with pytest.raises(ValueError):
            tarn.save(tmp_path / "a.png", Bitmap(5, 5, 8), **keywords)
    with pytest.raises(ValueError):
        tarn.save(tmp_path / "a.gif", Bitmap(5, 5, 8))
    assert not list(tmp_path.glob("a.*"))


def test_reading_and_writing_can_be_stopped(tmp_path):
    path = tmp_path / "a.tif"
    pages = [Bitmap(50, 50, 24), Bitmap(50, 50, 24)]
    told = []
    with tarn.progress(told.append):
        tarn.save(path, pages)
    assert told == sorted(told) and told[-1] == 100
    before = path.read_bytes()
    with tarn.progress(lambda percent: percent < 60), pytest.raises(tarn.Cancelled):
        tarn.save(path, pages)
    assert path.read_bytes() == before and os.listdir(tmp_path) == ["a.tif"]

    def fail(percent):
        raise LookupError(percent)

    with tarn.progress(fail), pytest.raises(LookupError):
        tarn.open(path)
    assert tarn.open(path).order == Order.BGR
