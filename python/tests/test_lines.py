"""Lines that are dithered and rows that are resized one by one are those of whole bitmaps."""

import concurrent.futures
import gc
import pickle
import weakref

import numpy as np
import pytest
import tarn
from hypothesis import given, settings
from hypothesis import strategies as st
from tarn import Bitmap, Dither, Ditherer, Order, Palette, ResizedRows, ResizeMethod, RowResizer, Storage

DEPTHS = [1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64, "gray 16", "gray 32", "table"]


def noise(shape, dtype="uint8", seed=1):
    return np.random.default_rng(seed).integers(0, np.iinfo(dtype).max + 1, shape, dtype=dtype)


def picture(depth, height, width, seed=1):
    if isinstance(depth, int):
        return Bitmap.from_array(noise((height, width, 3), seed=seed)).converted(depth)
    bitmap = Bitmap.from_array(noise((height, width), "uint32" if depth == "gray 32" else "uint16", seed))
    if depth == "table":
        bitmap.lookup_table = noise((65536, 3), seed=seed)
    return bitmap


def palette(colors, seed=1):
    return Palette([tuple(color) for color in noise((colors, 3), seed=seed).tolist()])


def rows_of(bitmap):
    return [bitmap.row(row) for row in range(bitmap.height)]


# ---- Dithering -------------------------------------------------------------------------------------------------------


@given(
    depth=st.sampled_from(DEPTHS), method=st.sampled_from(list(Dither)), bits=st.integers(1, 8),
    fixed=st.booleans(), height=st.integers(1, 12), width=st.integers(1, 40), seed=st.integers(0, 999),
)
@settings(max_examples=80, deadline=None)
def test_lines_are_those_of_the_whole_bitmap(depth, method, bits, fixed, height, width, seed):
    bitmap = picture(depth, height, width, seed)
    colors = Palette.fixed(bits) if fixed else palette((1 << bits) - (bits > 1), seed)
    whole = bitmap.converted(bits, palette=colors, dither=method)
    with Ditherer.like(bitmap, colors, method=method) as ditherer:
        assert (ditherer.width, ditherer.index_bits, ditherer.palette) == (width, bits, colors)
        lines = [ditherer.line(row) for row in rows_of(bitmap)]
        assert lines[0].dtype == np.uint8 and np.array_equal(lines, whole.unpacked())
    packed = Ditherer.like(bitmap, colors, method=method)
    into = Bitmap(width, height, bits, palette=colors)
    for row in range(height):
        into.put_row(row, packed.packed_line(bitmap.row(row)))
    assert into.unpacked().tolist() == whole.unpacked().tolist()
    at_once = Ditherer.like(bitmap, colors, method=method).lines(bitmap.rows(0, height))
    assert np.array_equal(at_once, whole.unpacked())


@pytest.mark.parametrize(
    "dtype, channels, bits, order",
    [("uint8", 1, 8, Order.RGB), ("uint16", 1, 16, Order.GRAY), ("uint32", 1, 32, Order.GRAY),
     ("uint8", 3, 24, Order.RGB), ("uint8", 3, 24, Order.BGR), ("uint8", 4, 32, Order.RGB),
     ("uint16", 3, 48, Order.BGR), ("uint16", 4, 64, Order.RGB)],
)
def test_arrays_of_samples_need_no_bitmap(dtype, channels, bits, order):
    samples = noise((7, 21) if channels == 1 else (7, 21, channels), dtype)
    bitmap = Bitmap.from_array(samples, order=order if channels > 1 else None)
    ramp = bitmap.palette if bits == 8 else None
    colors = palette(11)

    def ditherer():
        return Ditherer(21, bits, colors, method=Dither.SIERRA, order=order, source_palette=ramp)

    expected = bitmap.converted(4, palette=colors, dither=Dither.SIERRA).unpacked()
    one, other, third = ditherer(), ditherer(), ditherer()
    assert np.array_equal([one.line(line) for line in samples], expected)
    assert np.array_equal(other.lines(np.asarray(bitmap)), expected)  # rows of a view are padded
    assert np.array_equal(third.lines(samples.repeat(2, 1)[:, ::2]), expected)
    with pytest.raises(TypeError):
        one.line(samples[0].astype("float64"))
    assert one.lines(samples[:0]).shape == (0, 21)


def test_what_is_not_said_is_the_threads_default():
    bitmap = picture(24, 9, 30)
    before = tarn.default_dithering()
    assert before == Dither.ORDERED
    tarn.set_default_dithering(Dither.JARVIS)
    try:
        assert tarn.default_dithering() is Dither.JARVIS
        indices = Ditherer.like(bitmap).lines(bitmap.rows(0, 9))
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            assert pool.submit(tarn.default_dithering).result() == Dither.ORDERED
    finally:
        tarn.set_default_dithering(before)
    fixed = bitmap.converted(8, palette=Palette.fixed(8), dither=Dither.JARVIS)
    assert np.array_equal(indices, fixed.unpacked())
    assert Ditherer(5, 24, palette(3)).index_bits == 2 and Ditherer(5, 24, palette(3), index_bits=6).index_bits == 6
    assert Ditherer(5, 24, index_bits=3).palette == Palette.fixed(3)
    with pytest.raises(ValueError):
        tarn.set_default_dithering(9)


def test_a_ditherer_keeps_its_own_of_what_the_bitmap_has():
    bitmap = picture("table", 6, 20)
    ditherer = Ditherer.like(bitmap, palette(9), method=Dither.STUCKI)
    expected, lines = bitmap.converted(4, palette=palette(9), dither=Dither.STUCKI).unpacked(), rows_of(bitmap)
    bitmap.lookup_table = None
    bitmap.close()
    gc.collect()
    assert np.array_equal([ditherer.line(line) for line in lines], expected)


def test_misuse_of_ditherers_is_told():
    line = bytes(30)
    ditherer = Ditherer(10, 24, palette(4))
    for wrong in (bytes(29), bytes(60), noise((3, 10)), noise((1, 10, 3)), noise((5, 6)), np.uint8(1)):
        with pytest.raises(ValueError):
            ditherer.line(wrong)
    for wrong in (bytes(31), noise((3, 10, 2)), noise((10, 3)), noise((2, 3, 10))):
        with pytest.raises(ValueError):
            ditherer.lines(wrong)
    for wrong in (noise((10, 3), "int8"), noise((10, 3), "uint16"), 7, "text", [1, 2]):
        with pytest.raises(TypeError):
            ditherer.line(wrong)
    for make in (
        lambda: Ditherer(0, 24), lambda: Ditherer(-1, 24), lambda: Ditherer(10, 24, method=9),
        lambda: Ditherer(10, 9), lambda: Ditherer(10, 24, palette(5), index_bits=2),
        lambda: Ditherer(10, 24, index_bits=9), lambda: Ditherer(10, 24, order=3),
        lambda: Ditherer(10, 64, order=Order.WIDE),
    ):
        with pytest.raises(ValueError):
            make()
    with pytest.raises(tarn.Error, match="signed"):
        Ditherer.like(Bitmap.from_array(noise((3, 3), "int16")))
    closed = Bitmap(3, 3, 8)
    closed.close()
    with pytest.raises(tarn.Error):
        Ditherer.like(closed)
    with pytest.raises(TypeError):
        pickle.dumps(ditherer)
    first = ditherer.line(line)
    ditherer.close()
    ditherer.close()
    for use in (ditherer.line, ditherer.lines, ditherer.packed_line):
        with pytest.raises(tarn.ParameterError, match="closed"):
            use(line)
    assert first.shape == (10,)


# ---- Rows in another size --------------------------------------------------------------------------------------------


@given(
    depth=st.sampled_from(DEPTHS), kind=st.sampled_from([None, Storage.TILED, Storage.DISK]),
    method=st.sampled_from([ResizeMethod.NEAREST, ResizeMethod.AREA, ResizeMethod.SMOOTH]),
    sizes=st.tuples(*[st.integers(1, 40)] * 4), seed=st.integers(0, 999),
)
@settings(max_examples=80, deadline=None)
def test_streamed_rows_are_those_of_resize(depth, kind, method, sizes, seed):
    height, width, new_height, new_width = sizes
    bitmap = picture(depth, height, width, seed)
    bitmap = bitmap if kind is None else bitmap.clone(storage=kind)
    rows = bitmap.resized_rows(new_width, new_height, method=method)
    assert isinstance(rows, ResizedRows) and (rows.width, rows.height) == (new_width, new_height)
    streamed = list(rows)
    bitmap.resize(new_width, new_height, method=method)
    assert streamed == rows_of(bitmap)


@pytest.mark.parametrize("kind, bits", [(Storage.COMPRESSED, 1), *[(Storage.SUPER_COMPRESSED, b) for b in (1, 8, 24)]])
def test_compressed_rows_stream_too(kind, bits):
    bitmap = picture(bits, 50, 70)
    whole = bitmap.clone()
    bitmap.compress(kind)
    whole.resize(0, 31)
    assert list(bitmap.resized_rows(0, 31)) == rows_of(whole) and bitmap.storage.kind == kind


def test_pixels_stay_in_place_while_rows_are_made():
    bitmap = picture(24, 8, 8)
    before, moves = bitmap.clone(), (lambda: bitmap.resize(3), lambda: bitmap.convert(8), bitmap.close,
                                     lambda: bitmap.move_to(Storage.DISK))

    def held():
        for move in moves:
            with pytest.raises(BufferError, match="resized_rows"):
                move()
        return bitmap.same_pixels(before)

    rows, others = bitmap.resized_rows(4), bitmap.resized_rows(16, 3)
    assert next(rows) and held() and rows.__length_hint__() == 3
    assert len(list(rows)) == 3 and held()  # of the others
    others.close()
    others.close()
    assert next(others, None) is None and others.__length_hint__() == 0
    bitmap.set_height(9)
    with bitmap.resized_rows(4) as rows:
        next(rows)
    bitmap.set_height(10)
    rows = bitmap.resized_rows(4)
    del rows
    bitmap.set_height(8)
    source = before.clone()
    rows, alive = source.resized_rows(5), weakref.ref(source)
    del source
    assert len(list(rows)) == 5
    assert alive() is None  # kept as long as it is read


@pytest.mark.parametrize("kind", [Storage.MEMORY, Storage.TILED, Storage.DISK, Storage.COMPRESSED,
                                  Storage.SUPER_COMPRESSED])
def test_changes_in_place_show_in_later_rows(kind):
    bitmap = Bitmap(64, 4000, 1)
    bitmap.move_to(kind, tile_size=4096) if kind == Storage.TILED else None
    bitmap = bitmap.clone(storage=kind) if kind in (Storage.DISK, Storage.COMPRESSED) else bitmap
    if kind == Storage.SUPER_COMPRESSED:
        bitmap.compress(kind)
    rows = bitmap.resized_rows(64, 2000, method=ResizeMethod.NEAREST)
    area = bitmap.resized_rows(32, 2000, method=ResizeMethod.AREA)
    assert next(rows) == bytes(8) and next(area) == bytes(4)
    bitmap.flip()
    bitmap.fill("#ffffff")
    for row in range(0, 4000, 3):
        bitmap.put_row(row, noise(8, seed=row))  # runs grow
    bitmap.fill("#ffffff")
    later, averaged = list(rows), list(area)
    assert set(later) == {b"\xff" * 8} and len(later) == 1999
    assert averaged[-1] == b"\xff" * 4 and len(averaged) == 1999


def test_threads_share_rows():
    bitmap = picture(24, 60, 50)
    rows = bitmap.resized_rows(30, 200)
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        parts = list(pool.map(lambda _: list(rows), range(4)))
    bitmap.resize(30, 200)
    assert sorted(row for part in parts for row in part) == sorted(rows_of(bitmap))


def test_misuse_of_rows_is_told():
    bitmap = picture(24, 8, 8)
    for wrong in ((0, 0), (-1, 4), (4, -1)):
        with pytest.raises(ValueError):
            bitmap.resized_rows(*wrong)
    for method in (ResizeMethod.INK_COUNT, 9):
        with pytest.raises(ValueError, match="NEAREST"):
            bitmap.resized_rows(4, method=method)
    with pytest.raises((tarn.ParameterError, MemoryError)):
        bitmap.resized_rows(2**31 - 1, 2)
    with pytest.raises(TypeError):
        pickle.dumps(bitmap.resized_rows(4))
    bitmap.close()
    with pytest.raises(tarn.Error):
        bitmap.resized_rows(4)


# ---- Rows that are fed -----------------------------------------------------------------------------------------------


@given(
    bits=st.sampled_from([1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64]), sizes=st.tuples(*[st.integers(1, 40)] * 4),
    seed=st.integers(0, 999),
)
@settings(max_examples=60, deadline=None)
def test_fed_rows_come_as_often_as_the_heights_say(bits, sizes, seed):
    height, width, new_height, new_width = sizes
    bitmap = picture(bits, height, width, seed)
    resizer = RowResizer(width, height, bits, new_width, new_height)
    assert (resizer.width, resizer.height) == (new_width, new_height)
    made = [list(resizer.feed(row)) for row in rows_of(bitmap)]
    columns = bitmap.clone()
    columns.resize(new_width, height, method=ResizeMethod.NEAREST)
    counts = np.diff(np.arange(height + 1) * new_height // height)
    assert made == [[columns.row(row)] * count for row, count in enumerate(counts)]
    at = seed % height
    again = RowResizer(width, height, bits, new_width, new_height)
    assert list(again.feed(bitmap.row(at), row=at)) == made[at]
    if at + 1 < height:
        assert list(again.feed(bitmap.row(at + 1))) == made[at + 1]


def test_misuse_of_row_resizers_is_told():
    assert RowResizer(10, 20, 8, 5).height == 10
    for wrong in ((0, 1, 8, 1), (1, 0, 8, 1), (1, 1, 9, 1), (1, 1, 8, 0), (1, 1, 8, -1)):
        with pytest.raises(ValueError):
            RowResizer(*wrong)
    resizer = RowResizer(10, 2, 8, 5, 2)
    for data, row, error in ((bytes(9), None, ValueError), (bytes(10), 2, IndexError), (bytes(10), -1, IndexError),
                             (7, None, TypeError)):
        with pytest.raises(error):
            resizer.feed(data, row=row)
    assert [len(list(resizer.feed(bytes(10)))) for _ in range(2)] == [1, 1]
    with pytest.raises(IndexError):
        resizer.feed(bytes(10))
    assert list(resizer.feed(bytes(10), row=0)) == [bytes(5)]
    RowResizer(1, 1, 64, 2**31 - 1)  # memory is taken when there are rows
