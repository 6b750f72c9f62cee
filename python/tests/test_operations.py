"""Operations through the binding: their arguments arrive, their failures come back as exceptions."""

import copy
import subprocess
import sys

import numpy as np
import pytest
import tarn
from hypothesis import given, settings
from hypothesis import strategies as st
from PIL import Image, ImageChops
from tarn import (
    Bitmap, BitmapList, Color, Combine, Dither, Invert, Order, OverlayBits, Palette, PaletteKind, ResizeMethod,
    RotateMethod, ShearAxis, Storage, Turn, WarpMethod,
)


def noise(shape, dtype="uint8", seed=1):
    return np.random.default_rng(seed).integers(0, np.iinfo(dtype).max + 1, shape, dtype=dtype)


def colour(height=20, width=30, seed=1):
    return Bitmap.from_array(noise((height, width, 3), seed=seed))


@given(height=st.integers(1, 30), width=st.integers(1, 30), seed=st.integers(0, 999))
@settings(max_examples=30, deadline=None)
def test_turns_and_rectangles_are_numpys(height, width, seed):
    pixels = noise((height, width, 3), seed=seed)
    for change, expected in (
        (lambda b: b.flip(), pixels[::-1]), (lambda b: b.reverse(), pixels[:, ::-1]),
        (lambda b: b.rotate_quarter(), np.rot90(pixels, -1)),
        (lambda b: b.rotate_quarter(Turn.COUNTER_CLOCKWISE), np.rot90(pixels)),
        (lambda b: b.rotate(180), pixels[::-1, ::-1]), (lambda b: b.rotate(90), np.rot90(pixels, -1)),
        (lambda b: b.crop(0, 0, width // 2 + 1, height), pixels[:, : width // 2 + 1]),
        (lambda b: b.set_height(height + 2), np.pad(pixels, ((0, 2), (0, 0), (0, 0)))),
    ):
        bitmap = Bitmap.from_array(pixels)
        change(bitmap)
        bitmap.change_perspective(1)
        assert np.array_equal(bitmap.unpacked(), expected)
    beyond = Bitmap.from_array(pixels).copy_rect(-1, -2, width + 1, height + 2)
    assert np.array_equal(beyond.unpacked(), np.pad(pixels, ((2, 0), (1, 0), (0, 0))))
    nearest = Bitmap.from_array(pixels)
    nearest.resize(2 * width, 2 * height, method=ResizeMethod.NEAREST)
    assert np.array_equal(nearest.unpacked(), pixels.repeat(2, 0).repeat(2, 1))


def test_sizes_and_angles():
    bitmap = colour(40, 60)
    bitmap.resize(30)  # the height follows
    assert (bitmap.width, bitmap.height) == (30, 20)
    target = Bitmap(15, 10, 24)
    bitmap.resize_into(target, method=ResizeMethod.AREA)
    expected = np.asarray(bitmap).reshape(10, 2, 15, 2, 3).mean((1, 3))
    assert np.abs(np.asarray(target) - expected).max() <= 1
    grown, kept = bitmap.clone(), bitmap.clone()
    grown.rotate(30, method=RotateMethod.NEAREST, fill="#ff0000")
    kept.rotate(30, resize=False)
    assert grown.width > 30 and (kept.width, kept.height) == (30, 20)
    assert grown.pixel(0, 0) == (255, 0, 0)
    about = bitmap.clone()
    about.rotate(30, center=(3.5, 2.0))
    assert about.width >= 30
    slanted = bitmap.clone()
    slanted.shear(45, fill=(9, 9, 9))
    assert slanted.width == pytest.approx(50, abs=2) and slanted.pixel(19, slanted.width - 1) == (9, 9, 9)
    slanted.shear(10, axis=ShearAxis.COLUMNS)
    for change in (lambda: bitmap.shear(90), lambda: bitmap.rotate(float("nan")), lambda: bitmap.resize(0, 0),
                   lambda: bitmap.crop(90, 0, 1, 1), lambda: bitmap.resize_into(bitmap)):
        with pytest.raises(ValueError):
            change()


def test_depths_palettes_and_dithering():
    bitmap = Bitmap.from_array(np.fromfunction(lambda y, x, c: (x * 4 + y * c) % 256, (64, 64, 3)).astype("uint8"))
    assert bitmap.count_colors() == len(np.unique(np.asarray(bitmap).reshape(-1, 3), axis=0))
    mine = Palette([(0, 0, 0), "#ffffff", Color(255, 0, 0), [0, 0, 255]])
    plain, dithered = bitmap.converted(2, palette=mine), bitmap.converted(2, palette=mine, dither=Dither.STUCKI)
    assert plain.palette == mine == dithered.palette and not plain.same_pixels(dithered)
    assert bitmap.converted(8, palette_kind=PaletteKind.FIXED).palette == Palette.fixed(8)
    assert bitmap.converted(8, colors=5).count_colors() <= 5
    best = bitmap.optimized_palette(16)
    assert len(best) == 16 and bitmap.bits == 24
    bitmap.convert(4, palette=best)
    assert bitmap.bits == 4 and bitmap.palette == best
    for bits in (1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64):
        assert colour().converted(bits).bits == bits
    with pytest.raises(tarn.Error):
        bitmap.convert(9)
    pages = BitmapList([colour(seed=1), colour(seed=2)])
    common = pages.optimized_palette(8)
    twins = pages.clones()
    pages.convert(3, palette=common)
    assert pages[0].palette == pages[1].palette == common and twins[0].bits == 24
    with pytest.raises(ValueError):
        tarn.BitmapList([pages[0], pages[0]]).convert(8)
    with pytest.raises(TypeError):
        tarn.BitmapList([pages[0], "page"]).convert(8)  # type: ignore[list-item]
    assert BitmapList([]).clones() == []


def test_gray_and_alpha():
    bitmap = colour()
    gray = bitmap.gray()
    red, green, blue = np.asarray(bitmap).astype(int).transpose(2, 0, 1)
    assert np.array_equal(np.asarray(gray), (5 * green + 2 * red + blue + 4) >> 3)
    assert (bitmap.gray_class, gray.gray_class) == (0, 1)
    deep = bitmap.gray(32)
    low, high = deep.sample_limits
    assert (low, high) == (np.asarray(deep).min(), np.asarray(deep).max())
    deep.narrow_gray(16)
    assert deep.bits == 16 and np.asarray(deep).max() == 65535
    bitmap.set_alpha(gray)
    assert bitmap.bits == 32 and bitmap.alpha().same_pixels(gray)


@pytest.mark.parametrize("operation, referee", [
    (Combine.ADD, ImageChops.add), (Combine.SUBTRACT, ImageChops.subtract), (Combine.MINIMUM, ImageChops.darker),
    (Combine.MAXIMUM, ImageChops.lighter), (Combine.COPY, lambda a, b: b),
])
def test_combining_is_pillows(operation, referee):
    a, b = colour(seed=1), colour(seed=2)
    expected = referee(Image.fromarray(np.asarray(a)), Image.fromarray(np.asarray(b)))
    part = a.clone()
    part.combine(b, 5, 6, area=(1, 2, 3, 4), operation=operation)
    assert np.any(np.asarray(part) != np.asarray(a), axis=2).sum() <= 12
    a.combine(b, operation=operation)
    assert np.array_equal(np.asarray(a), np.asarray(expected))


def test_inverting_warping_scrambling():
    a = colour()
    before = a.clone()
    a.combine(a, operation=Combine.COPY, invert=Invert.SOURCE)
    assert np.array_equal(np.asarray(a), 255 - np.asarray(before))
    a.warp(before, [(0, 0), (30, 0), (30, 20), (0, 20)], method=WarpMethod.NEAREST)
    assert a.same_pixels(before)
    a.warp(before, [(15, 0), (30, 10), (15, 20), (0.5, 10)], area=(1, 1, 5, 5))
    assert np.array_equal(np.asarray(a)[0, :10], np.asarray(before)[0, :10])
    for bad in ([(0, 0)] * 3, [(0, 0)] * 4, [(0, 0), (1e9, 0), (1, 1), (0, 1)]):
        with pytest.raises(ValueError):
            a.warp(before, bad)
    a = before.clone()
    a.scramble(1234, area=(2, 3, 20, 10))
    assert not a.same_pixels(before) and a.row(0) == before.row(0)
    a.scramble(1234, area=(2, 3, 20, 10), restore=True)
    assert a.same_pixels(before)


def test_rows_and_pixels():
    pixels = noise((6, 7, 3))
    bitmap = Bitmap.from_array(pixels)
    assert bitmap.row(2) == pixels[2].tobytes() and bitmap.rows(1, 3) == pixels[1:4].tobytes()
    target = bytearray(42)
    bitmap.read_rows_into(4, target)
    assert target == pixels[4:].tobytes()
    bitmap.put_rows(0, pixels[::-1].copy())
    assert np.array_equal(bitmap.unpacked(), pixels[::-1])
    bitmap.put_row(0, pixels[0].tobytes())
    bitmap.put_row_segments(1, bytes(21), [(1, 3), (5, 6)])
    assert [int(p.any()) for p in np.asarray(bitmap)[1]] == [1, 0, 0, 1, 1, 0, 1]
    assert bitmap.pixel(0, 3) == tuple(pixels[0, 3])
    bitmap.put_pixel(0, 3, "#0a0b0c")
    assert bitmap.pixel_data(0, 3) == b"\n\x0b\x0c" == bitmap.color_to_pixel((10, 11, 12))
    bitmap.put_pixel_data(0, 4, b"abc")
    assert str(bitmap.pixel(0, 4)) == "#616263"
    for call in (lambda: bitmap.row(6), lambda: bitmap.row(-1), lambda: bitmap.rows(3, 4), lambda: bitmap.pixel(0, 7),
                 lambda: bitmap.put_pixel(6, 0, "#000000"), lambda: bitmap.put_rows(5, bytes(42)),
                 lambda: bitmap.rows(2**31 - 1, 1), lambda: bitmap.pixel_data(0, -1)):
        with pytest.raises(IndexError):
            call()
    for call in (lambda: bitmap.put_row(0, bytes(42)), lambda: bitmap.put_rows(0, bytes(20)),
                 lambda: bitmap.put_pixel_data(0, 0, b"ab"), lambda: bitmap.put_pixel(0, 0, "red"),
                 lambda: bitmap.fill((1, 2, 256)), lambda: Color.gray(65536)):
        with pytest.raises(ValueError):
            call()
    with pytest.raises(TypeError):
        bitmap.fill(5)  # type: ignore[arg-type]


def test_runs():
    bits = noise((5, 100)) // 128
    page = Bitmap.from_array(bits, bits=1, storage=Storage.COMPRESSED)
    assert page.storage.kind == Storage.COMPRESSED and np.array_equal(page.unpacked(), bits)
    runs = page.compressed_rows(0, 5)
    other = Bitmap(100, 5, 1)
    other.put_compressed_rows(0, runs)
    assert np.array_equal(other.unpacked(), bits)
    for damaged in (runs[:-1], runs[:2], b"\xff\xff\xff\xff"):
        with pytest.raises(ValueError):
            other.put_compressed_rows(0, damaged)
    with pytest.raises(IndexError):
        other.put_compressed_rows(1, runs)


def test_overlays():
    bitmap = Bitmap.from_array(noise((9, 9)))
    bitmap.set_overlay(0, Bitmap.from_array(np.eye(9, dtype=bool)))
    bitmap.set_overlay_attributes(0, left=0, color="#ff0000", visible=False, bit=0)
    assert bitmap.overlay_attributes(0)[2:] == (Color(255), False, 0)
    bitmap.set_overlay_attributes(0, top=0)
    bitmap.move_overlay_bits(0, OverlayBits.TO_BITMAP)
    assert np.array_equal(np.asarray(bitmap) & 1, np.eye(9, dtype="uint8"))
    assert copy.deepcopy(bitmap).overlay(0).same_pixels(bitmap.overlay(0)) and bitmap.overlay_count == 1
    bitmap.remove_overlay(0)
    with pytest.raises(tarn.ParameterError) as refused:
        bitmap.overlay(0)
    assert refused.value.name == "ERR_OVERLAY_INDEX"


def test_views_of_rows_and_device_independent_bitmaps():
    bitmap = colour()
    again = Bitmap.from_dib(bitmap.to_dib())
    assert again.view_perspective == 4 and again.order == Order.BGR
    again.change_perspective(1)
    assert np.array_equal(np.asarray(again)[..., ::-1], np.asarray(bitmap))
    with pytest.raises(tarn.FormatError):
        Bitmap.from_dib(bytes(200))
    bitmap.rotate_view(90)
    assert bitmap.view_perspective == 6
    assert bitmap.point_from_bitmap(*bitmap.point_to_bitmap(3, 4)) == (3, 4)
    bitmap.flip_view()
    bitmap.reverse_view()
    with pytest.raises(ValueError):
        bitmap.view_perspective = 9


def test_storage():
    bitmap = colour(50, 50)
    before = bitmap.clone()
    for kind in (Storage.DISK, Storage.SUPER_COMPRESSED, Storage.TILED, Storage.MEMORY):
        bitmap.move_to(kind, tile_size=1600 if kind == Storage.TILED else 0)
        assert bitmap.storage.kind == kind and bitmap.same_pixels(before) and bitmap.clone().same_pixels(before)
    bitmap.compress(Storage.SUPER_COMPRESSED)
    bitmap.compact()
    bitmap.compress(Storage.MEMORY)
    assert np.array_equal(np.asarray(bitmap), np.asarray(before))
    with pytest.raises(tarn.Error):
        bitmap.compress(Storage.COMPRESSED)


def test_values():
    assert Color(1, 2, 3) == (1, 2, 3) == Color.of("#010203").rgb and Color.gray(65535).level == 65535
    assert len({Color(1, 2, 3), Color.of([1, 2, 3]), Color.index(1), Color.index(1)}) == 2
    ramp = Palette.gray(4)
    assert len(ramp) == 16 and ramp[-1] == (255, 255, 255) and ramp.gray_class == 1 and list(ramp)[0] == (0, 0, 0)
    assert Palette.web().nearest((254, 1, 1)) == list(Palette.web()).index(Color(255, 0, 0))
    assert copy.copy(ramp) == ramp and hash(copy.deepcopy(ramp)) == hash(ramp) and Palette(list(ramp)) == ramp
    for bad in ([(0, 0, 0)] * 257, [Color.gray(3)]):
        with pytest.raises(ValueError):
            Palette(bad)
    with pytest.raises(IndexError):
        ramp[16]
    short = Bitmap(3, 3, 4, palette=["#ff0000"])
    assert short.palette[0] == (255, 0, 0) and short.palette[15] == (0, 0, 0)


def test_failures_carry_their_status():
    import errno
    import pickle

    cases = [
        (lambda: Bitmap(2**30, 2**30, 24), ValueError, "ERR_IMAGE_TOO_LARGE", -3),
        (lambda: Bitmap(5, 0, 8), ValueError, "ERR_EMPTY_AREA", -11),
        (lambda: Bitmap(5, 5, 10), ValueError, "ERR_BAD_BITS_PER_PIXEL", -27),
        (lambda: Bitmap(5, 5, 8, storage=Storage.COMPRESSED), ValueError, "ERR_INVALID_PARAMETER", -13),
    ]
    for call, kind, name, number in cases:
        with pytest.raises(kind) as refused:
            call()
        assert isinstance(refused.value, tarn.Error) and (refused.value.name, refused.value.number) == (name, number)
        again = pickle.loads(pickle.dumps(refused.value))
        assert (again.name, str(again)) == (name, str(refused.value))
    from tarn._errors import of_status

    assert isinstance(of_status(-1, "ERR_NO_MEMORY", ""), MemoryError)
    assert of_status(-295, "ERR_DISK_FULL", "").errno == errno.ENOSPC
    with Bitmap(5, 5, 8) as bitmap:
        pass
    assert bitmap.closed and "closed" in repr(bitmap)
    for call in (bitmap.flip, bitmap.clone, bitmap.unpacked, lambda: bitmap.row(0), lambda: bitmap.convert(8)):
        with pytest.raises(tarn.Error):
            call()
    bitmap.close()


def test_without_memory():
    """The exception is Python's own as well, and the bitmap is as it was; in a process that may have no more."""
    code = """if True:
        import numpy, resource, tarn
        page = tarn.Bitmap(4000, 4000, 24)
        page.put_pixel(5, 5, (1, 2, 3))
        now = int(open("/proc/self/statm").read().split()[0]) * 4096
        resource.setrlimit(resource.RLIMIT_AS, (now + (10 << 20), -1))
        for call in (page.to_dib, page.unpacked, lambda: page.rows(0, 4000)):
            try:
                call()
            except MemoryError:
                pass
            else:
                raise SystemExit("there was memory")
        assert page.pixel(5, 5) == (1, 2, 3) and page.views == 0
        page.flip()
    """
    run = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    assert run.returncode == 0, run.stderr


def test_lines_of_other_formats():
    pixels = noise((1, 9, 3))
    line = tarn.convert_line(pixels, 9, 24, 48, to_order=Order.BGR)
    assert np.array_equal(np.frombuffer(line, "uint16").reshape(9, 3), pixels[0, :, ::-1].astype("uint16") * 257)
    assert tarn.convert_line(line, 9, 48, 24, from_order=Order.BGR) == pixels.tobytes()
    assert tarn.convert_line(b"\xa0", 3, 1, 24, from_palette=["#010203", "#ffffff"])[3:6] == b"\1\2\3"
    assert tarn.convert_line(bytes(3), 1, 24, 32, opaque=True) == b"\0\0\0\xff"
    for arguments in ((bytes(2), 1, 24, 8), (bytes(9), 0, 8, 8), (bytes(9), 1, 9, 8), (bytes(9), 1, 8, 65)):
        with pytest.raises(ValueError):
            tarn.convert_line(*arguments)


def test_settings_are_the_threads(tmp_path):
    before = tarn.thresholds(), tarn.temp_directory(), tarn.default_resolution()
    try:
        tarn.set_thresholds(tile_size=4096, largest_block=10000)
        tarn.set_temp_directory(str(tmp_path))
        tarn.set_default_resolution(72, 96)
        assert tarn.thresholds().tile_size == 4096 and tarn.temp_directory().startswith(str(tmp_path))
        large = Bitmap(200, 200, 8)
        assert large.storage.kind == Storage.TILED and large.resolution == (72, 96)
        with pytest.raises(ValueError):
            tarn.set_temp_directory("/no/such/folder")
    finally:
        tarn.set_thresholds(**before[0]._asdict())
        tarn.set_temp_directory(before[1])
        tarn.set_default_resolution(*before[2])
