"""Lookup tables of gray bitmaps, against NumPy's indexing; what records carry along with pixels."""

import copy
import pickle

import numpy as np
import pytest
import tarn
from hypothesis import given, settings
from hypothesis import strategies as st
from tarn import Bitmap, Color, Order, Palette, Playback, Storage


def noise(shape, dtype="uint8", seed=1, most=None):
    most = np.iinfo(dtype).max if most is None else most
    return np.random.default_rng(seed).integers(0, most + 1, shape, dtype=dtype)


def tabled(bits=12, height=9, width=14, seed=1):
    """Samples, a table, and a bitmap of both."""
    samples, table = noise((height, width), "uint16", seed, (1 << bits) - 1), noise((1 << bits, 3), seed=seed + 1)
    bitmap = Bitmap.from_array(samples, bits=bits)
    bitmap.lookup_table = table
    return samples, table, bitmap


@given(bits=st.sampled_from([12, 16]), height=st.integers(1, 12), width=st.integers(1, 12), seed=st.integers(0, 999))
@settings(max_examples=20, deadline=None)
def test_samples_are_numbers_of_entries(bits, height, width, seed):
    samples, table, bitmap = tabled(bits, height, width, seed)
    assert bitmap.uses_lookup_table and np.array_equal(bitmap.lookup_table, table)
    assert np.array_equal(bitmap.unpacked(), samples)
    assert np.array_equal(bitmap.converted(24).unpacked()[..., ::-1], table[samples])
    assert bitmap.pixel(height - 1, width - 1) == tuple(table[samples[-1, -1]].tolist())
    bitmap.uses_lookup_table = False
    assert bitmap.gray_class == 1 and bitmap.pixel(0, 0).level == samples[0, 0] * 65535 // ((1 << bits) - 1)
    bitmap.uses_lookup_table = True
    assert bitmap.gray_class == 0
    bitmap.lookup_table = table[:, :1].repeat(3, 1)
    assert bitmap.gray_class > 0 and np.array_equal(bitmap.gray().unpacked(), table[samples, 0])
    bitmap.lookup_table = None
    assert bitmap.lookup_table is None and not bitmap.uses_lookup_table and bitmap.pixel(0, 0).level is not None


def test_signed_samples_begin_with_the_smallest():
    samples, table = noise((5, 6), "int16", seed=3), noise((65536, 3), seed=4)
    bitmap = Bitmap.from_array(samples)
    bitmap.lookup_table = table
    assert bitmap.signed and np.array_equal(bitmap.converted(24).unpacked()[..., ::-1], table[samples + 32768])


def test_tables_are_arrays_levels_palettes_or_colours():
    bitmap = Bitmap(3, 2, 12, order=Order.GRAY)
    table = noise((4096, 6))
    levels = table[:, 0]
    for given_, expected in (
        (table[::-1, ::2], table[::-1, ::2]), (levels, levels[:, None].repeat(3, 1)),
        (levels.tobytes(), levels[:, None].repeat(3, 1)), ([Color(1, 2, 3), "#040506"] * 2048, None),
    ):
        bitmap.lookup_table = given_
        read = bitmap.lookup_table
        assert np.array_equal(read, np.tile([[1, 2, 3], [4, 5, 6]], (2048, 1)) if expected is None else expected)
        read[:] = 0  # an array of its own
        assert bitmap.lookup_table.any()
    before = bitmap.lookup_table
    for wrong, error in (
        (table[:256, :3], tarn.ParameterError), (levels[:-1], ValueError), (table, ValueError), (b"", ValueError),
        (table[:, :3].astype("uint16"), TypeError), (noise((65537, 3)), ValueError), (7, TypeError),
        ("#010203", TypeError), (Palette.fixed(8), tarn.ParameterError), ([Color.gray(3)] * 4096, ValueError),
        (np.uint8(3), ValueError),
    ):
        with pytest.raises(error):
            bitmap.lookup_table = wrong
    assert bitmap.uses_lookup_table and np.array_equal(bitmap.lookup_table, before)
    for other in (Bitmap(3, 3, 8), Bitmap(3, 3, 16), Bitmap(3, 3, 24), Bitmap(3, 3, 32, order=Order.GRAY)):
        with pytest.raises(tarn.FormatError):
            other.lookup_table = levels
        with pytest.raises(ValueError):
            other.uses_lookup_table = True
        other.lookup_table = None
        other.uses_lookup_table = False
    bitmap.close()
    with pytest.raises(tarn.Error):
        bitmap.lookup_table = levels
    assert bitmap.lookup_table is None


@pytest.mark.parametrize("bits", [12, 16])
def test_copies_and_changes_keep_the_table(bits):
    for make in (
        lambda b: b.clone(), copy.copy, copy.deepcopy, lambda b: pickle.loads(pickle.dumps(b)),
        lambda b: b.clone(storage=Storage.DISK), lambda b: b.copy_rect(1, 1, 4, 4),
    ):
        samples, table, bitmap = tabled(bits)
        for in_use in (True, False):
            bitmap.uses_lookup_table = in_use
            made = make(bitmap)
            assert np.array_equal(made.lookup_table, table) and made.uses_lookup_table == in_use
            bitmap.lookup_table = table  # and have one of their own
            bitmap.lookup_table = None
            assert np.array_equal(made.lookup_table, table)
            bitmap.lookup_table = table
    samples, table, bitmap = tabled(bits)
    for change in (
        lambda: bitmap.flip(), lambda: bitmap.rotate_quarter(), lambda: bitmap.rotate(20),
        lambda: bitmap.move_to(Storage.DISK), lambda: bitmap.resize(20, 20), lambda: bitmap.crop(0, 0, 9, 9),
        lambda: bitmap.set_height(4), lambda: bitmap.move_to(Storage.MEMORY),
    ):
        change()
        assert bitmap.uses_lookup_table and np.array_equal(bitmap.lookup_table, table)
    bitmap.convert(24)
    assert bitmap.lookup_table is None


def test_tables_in_use_are_compared_as_palettes_are():
    _, table, a = tabled()
    b = a.clone()
    assert a.same_pixels(b)
    b.lookup_table = table ^ 1
    assert not a.same_pixels(b)
    a.uses_lookup_table = b.uses_lookup_table = False
    assert a.same_pixels(b)


def test_playback_goes_along():
    bitmap = Bitmap(4, 4, 8)
    assert bitmap.playback == Playback(0, 0, 0, Color(), Color(), 0)
    playback = Playback(-3, 7, 40, Color(1, 2, 3), Color.index(9), 2)
    bitmap.playback = playback
    bitmap.rotate_quarter()
    for made in (bitmap, bitmap.clone(), bitmap.converted(24), pickle.loads(pickle.dumps(bitmap))):
        assert made.playback == playback and made.playback.delay == 40
    bitmap.playback = playback._replace(background="#ffffff")
    assert bitmap.playback.background == (255, 255, 255)
    for wrong in ((1, 2), playback._replace(delay=-1), playback._replace(background=3)):
        with pytest.raises(TypeError):
            bitmap.playback = wrong
    assert bitmap.playback.left == -3
