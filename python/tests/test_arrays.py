"""NumPy sees pixels where they lie, and what it sees is what the library has."""

import gc
import pickle

import numpy as np
import pytest
import tarn
from hypothesis import given, settings
from hypothesis import strategies as st
from tarn import Bitmap, Order, Storage

sizes = st.integers(1, 40)
seeds = st.integers(0, 2**32 - 1)


def noise(shape, dtype, seed=1, most=None):
    most = np.iinfo(dtype).max if most is None else most
    return np.random.default_rng(seed).integers(0, most + 1, shape, dtype=dtype)


LAYOUTS = [
    ("uint8", 1, 8, Order.RGB), ("uint16", 1, 16, Order.GRAY), ("int16", 1, 16, Order.GRAY),
    ("uint32", 1, 32, Order.GRAY), ("int32", 1, 32, Order.GRAY), ("uint8", 3, 24, Order.RGB),
    ("uint8", 3, 24, Order.BGR), ("uint8", 4, 32, Order.BGR), ("uint16", 3, 48, Order.RGB),
    ("uint16", 3, 48, Order.WIDE), ("uint16", 4, 64, Order.RGB),
]


@given(layout=st.sampled_from(LAYOUTS), height=sizes, width=sizes, seed=seeds)
@settings(max_examples=60, deadline=None)
def test_views_are_the_pixels(layout, height, width, seed):
    dtype, channels, bits, order = layout
    shape = (height, width) if channels == 1 else (height, width, channels)
    samples = noise(shape, dtype, seed)
    bitmap = Bitmap.from_array(samples, order=order if channels > 1 else None)
    assert (bitmap.bits, bitmap.order) == (bits, order)
    view = np.asarray(bitmap)
    assert view.dtype == samples.dtype and np.array_equal(view, samples)
    assert np.array_equal(bitmap.unpacked(), samples)
    strided = Bitmap.from_array(samples[::-1, ::-1], order=order if channels > 1 else None)
    bitmap.reverse()  # in place: the view shows it
    bitmap.flip()
    assert np.array_equal(view, samples[::-1, ::-1]) and bitmap.same_pixels(strided)
    view[height // 2, width // 2] = 1
    assert not bitmap.same_pixels(strided) or np.all(samples[::-1, ::-1][height // 2, width // 2] == 1)


@given(bits=st.sampled_from([1, 2, 3, 4, 5, 6, 7, 8, 12]), height=sizes, width=sizes, seed=seeds)
@settings(max_examples=60, deadline=None)
def test_packed_pixels_unpack_and_pack(bits, height, width, seed):
    dtype = "uint16" if bits == 12 else "uint8"
    samples = noise((height, width), dtype, seed, (1 << bits) - 1)
    bitmap = Bitmap.from_array(samples, bits=bits)
    assert bitmap.bits == bits and np.array_equal(bitmap.unpacked(), samples)
    if bits <= 8:  # the library's own reading of a pixel; the palette is a ramp
        value = int(samples[-1, -1])
        assert bitmap.pixel(height - 1, width - 1).red == value * 255 // ((1 << bits) - 1)
        if bits == 1:
            assert bitmap.row(0) == np.packbits(samples[0]).tobytes()
    bitmap.flip()
    assert np.array_equal(bitmap.unpacked(), samples[::-1])


@pytest.mark.parametrize("order", [Order.RGB, Order.BGR])
@pytest.mark.parametrize("channels", [3, 4])
def test_five_bits_a_channel(order, channels):
    samples = noise((7, 9, channels), "uint8", most=31)
    if channels == 4:
        samples[..., 3] &= 1
    bitmap = Bitmap.from_array(samples, bits=16, order=order)
    assert np.array_equal(bitmap.unpacked()[..., :channels], samples)
    red = int(samples[3, 4, 0 if order == Order.RGB else 2])
    assert bitmap.pixel(3, 4).red == red << 3 | red >> 2


def test_bool_is_one_bit_and_any_buffer_will_do():
    mask = noise((5, 11), "uint8", most=1).astype(bool)
    assert Bitmap.from_array(mask).bits == 1
    assert np.array_equal(Bitmap.from_array(mask).unpacked(), mask)
    assert Bitmap.from_array(memoryview(bytes(6)).cast("B", (2, 3))).width == 3  # NumPy is not needed for it


@pytest.mark.parametrize("array, error", [
    (np.zeros((3, 3)), TypeError), (np.zeros((3, 3), "int64"), TypeError), (np.zeros((3, 3), ">u2"), TypeError),
    (np.zeros((3, 3, 2), "uint8"), ValueError), (np.zeros(3, "uint8"), ValueError),
    (np.zeros((0, 3), "uint8"), ValueError),
    (np.zeros((3, 3, 3), "uint32"), TypeError), ("text", TypeError),
])
def test_arrays_that_are_no_pictures(array, error):
    with pytest.raises(error):
        Bitmap.from_array(array)


@pytest.mark.parametrize("samples, keywords", [
    (np.full((2, 2), 4, "uint8"), {"bits": 2}), (np.full((2, 2), 4096, "uint16"), {"bits": 12}),
    (np.full((2, 2, 3), 32, "uint8"), {"bits": 16}), (np.zeros((2, 2), "uint16"), {"bits": 8}),
    (np.zeros((2, 2, 3), "uint8"), {"bits": 32}), (np.zeros((2, 2, 3), "uint8"), {"order": Order.GRAY}),
    (np.zeros((2, 2), "uint8"), {"palette": [(0, 0, 0)] * 257}), (np.zeros((2, 2, 3), "uint8"), {"order": 77}),
])
def test_samples_that_do_not_fit(samples, keywords):
    with pytest.raises(ValueError):
        Bitmap.from_array(samples, **keywords)


def test_wrapped_memory_stays_where_it_is():
    memory = noise((6, 8), "uint8")
    bitmap = Bitmap.from_array(memory, copy=False)
    before = memory.copy()
    bitmap.flip()
    assert np.array_equal(memory, before[::-1])
    memory[0, 0] = 77
    assert bitmap.pixel_data(0, 0) == b"\x4d"
    copy = bitmap.clone()
    assert copy.same_pixels(bitmap) and "another object" not in repr(copy)
    bitmap.convert(24)  # the pixels move into memory of the library's
    memory[:] = 0
    assert bitmap.pixel(0, 0).red == 77
    for unfit in (memory[:, :5], memory[::2], noise((3, 5), "uint8"), np.frombuffer(bytes(64), "uint8").reshape(8, 8)):
        with pytest.raises(BufferError):
            Bitmap.from_array(unfit, copy=False)
    flat = bytearray(12 * 3)
    over = Bitmap.over(flat, 3, 3, 24)
    over.fill("#010203")
    assert flat[12:21] == bytes([1, 2, 3] * 3)
    with pytest.raises(BufferError):
        flat.extend(b"1")  # it is lent
    over.close()
    flat.extend(b"1")
    with pytest.raises(ValueError):
        Bitmap.over(bytearray(35), 3, 3, 24)


MOVES = {
    "convert": lambda b: b.convert(1), "to_gray": lambda b: b.to_gray(16), "resize": lambda b: b.resize(3, 3),
    "rotate": lambda b: b.rotate(3), "rotate_quarter": lambda b: b.rotate_quarter(), "shear": lambda b: b.shear(5),
    "crop": lambda b: b.crop(0, 0, 2, 2), "set_height": lambda b: b.set_height(50),
    "move_to": lambda b: b.move_to(Storage.DISK), "change_perspective": lambda b: b.change_perspective(6),
    "set_alpha": lambda b: b.set_alpha(Bitmap(9, 5, 8)), "close": lambda b: b.close(),
    "compress": lambda b: b.compress(Storage.SUPER_COMPRESSED),
    "list": lambda b: tarn.BitmapList([b]).convert(4),
}
STAYS = {
    "fill": lambda b: b.fill("#123456"), "clear": lambda b: b.clear(), "flip": lambda b: b.flip(),
    "reverse": lambda b: b.reverse(), "scramble": lambda b: b.scramble(5),
    "combine": lambda b: b.combine(Bitmap(3, 3, 8), 1, 1), "put_row": lambda b: b.put_row(1, bytes(b.pixel_bytes)),
    "warp": lambda b: b.warp(Bitmap(3, 3, 24), [(0, 0), (8, 0), (8, 4), (1, 4)]),
    "put_pixel": lambda b: b.put_pixel(0, 0, (1, 1, 1)), "combine itself": lambda b: b.combine(b, 1, 0),
    "resize_into": lambda b: Bitmap(20, 20, b.bits).resize_into(b),
    "overlay": lambda b: b.set_overlay(0, Bitmap(2, 2, 1)), "compact": lambda b: b.compact(),
}


@pytest.mark.parametrize("name", MOVES)
def test_no_pixel_moves_under_a_view(name):
    bitmap = Bitmap.from_array(noise((5, 9, 3), "uint8"))
    before = bitmap.clone()
    view = np.asarray(bitmap)
    with pytest.raises(BufferError, match="view"):
        MOVES[name](bitmap)
    assert bitmap.same_pixels(before) and bitmap.views == 1
    del view
    MOVES[name](bitmap)


@pytest.mark.parametrize("name", STAYS)
@pytest.mark.parametrize("bits", [8, 24])
def test_operations_in_place_show_in_a_view(name, bits):
    bitmap = Bitmap(9, 5, bits)
    view = np.asarray(bitmap)
    address = view.__array_interface__["data"]
    with tarn.progress(lambda percent: None):  # rows are kept aside when it may be stopped
        STAYS[name](bitmap)
    assert np.array_equal(view, bitmap.unpacked())
    assert np.asarray(bitmap).__array_interface__["data"] == address


def test_every_way_of_looking_counts():
    bitmap = Bitmap.from_array(noise((4, 5, 3), "uint8"))
    looks = [
        memoryview(bitmap), np.asarray(bitmap), np.array(bitmap, copy=False), np.asarray(bitmap)[1:, ::2],
        type("Interface", (), {"__array_interface__": bitmap.__array_interface__})(),
    ]
    looks.append(np.asarray(looks[-1]))
    assert np.array_equal(looks[-1], looks[1]) and bitmap.views >= 5
    looks.clear()
    gc.collect()
    assert bitmap.views == 0
    array = np.asarray(bitmap)
    del bitmap  # an array keeps the pixels
    gc.collect()
    assert array.sum() > 0
    assert np.array(Bitmap(4, 4, 8), dtype="float32").dtype == np.float32


@pytest.mark.parametrize("bits, storage, advice", [
    (8, Storage.DISK, "move_to"), (8, Storage.SUPER_COMPRESSED, "compress"), (1, Storage.COMPRESSED, "unpacked"),
    (1, Storage.MEMORY, "unpacked"), (12, Storage.MEMORY, "from_array"),
])
def test_what_cannot_be_viewed_says_what_to_do(bits, storage, advice):
    bitmap = Bitmap(30, 20, bits, storage=storage, order=Order.GRAY)
    for look in (memoryview, np.asarray):
        with pytest.raises(BufferError, match=advice):
            look(bitmap)
    assert bitmap.unpacked().shape == (20, 30) and bitmap.views == 0


def test_tiles_cannot_be_viewed_until_they_are_one_block():
    bitmap = Bitmap(100, 100, 8)
    np.asarray(bitmap)[:] = noise((100, 100), "uint8")
    expected = bitmap.unpacked()
    bitmap.move_to(Storage.TILED, tile_size=1000)
    assert bitmap.storage.kind == Storage.TILED and bitmap.storage.tile_count == 10
    with pytest.raises(BufferError, match="tiles"):
        memoryview(bitmap)
    assert np.array_equal(bitmap.unpacked(), expected)
    bitmap.move_to(Storage.NO_TILES)
    assert np.array_equal(np.asarray(bitmap), expected)


def test_one_run_of_bytes_only_without_padding():
    assert len(bytes(Bitmap(4, 3, 8))) == 12
    padded = Bitmap(5, 3, 8)
    assert memoryview(padded).tobytes() == bytes(15)  # row by row
    with pytest.raises(BufferError, match="padded"):
        import hashlib
        hashlib.sha256(padded)


@given(bits=st.sampled_from([1, 4, 8, 12, 16, 24, 32, 48, 64]), storage=st.sampled_from(["MEMORY", "DISK", "TILED"]))
@settings(max_examples=25, deadline=None)
def test_pickles(bits, storage):
    bitmap = Bitmap(23, 17, bits, order=Order.BGR, storage=Storage[storage], view_perspective=4)
    bitmap.put_rows(0, noise(bitmap.pixel_bytes * 17, "uint8").tobytes())
    bitmap.resolution = (300, 200)
    bitmap.icc_profile = b"profile"
    bitmap.set_overlay(0, Bitmap(3, 3, 1))
    bitmap.set_overlay_attributes(0, left=5, bit=2)
    copy = pickle.loads(pickle.dumps(bitmap))
    assert copy.same_pixels(bitmap)
    for name in ("order", "resolution", "view_perspective", "icc_profile", "palette", "storage"):
        assert getattr(copy, name) == getattr(bitmap, name), name
    assert copy.overlay_attributes(0) == bitmap.overlay_attributes(0) and copy.overlay(0).same_pixels(bitmap.overlay(0))
    signed = pickle.loads(pickle.dumps(Bitmap.from_array(np.array([[-5, 7]], "int16"))))
    assert signed.unpacked().tolist() == [[-5, 7]]
