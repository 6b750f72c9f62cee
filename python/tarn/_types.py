"""Enumerations and small records."""

from __future__ import annotations

import enum
from typing import TYPE_CHECKING, NamedTuple

if TYPE_CHECKING:
    from ._tarn import Color, Palette

__all__ = [
    "Combine", "Dither", "Invert", "Order", "OverlayAttributes", "OverlayBits", "PageInfo", "PaletteKind",
    "Playback", "ResizeMethod", "RotateMethod", "ShearAxis", "Storage", "StorageInfo", "Thresholds", "Turn", "WarpMethod",
]


class Order(enum.IntEnum):
    """What comes first in a pixel of more than 8 bits: red, blue; gray samples; the wide-gamut space."""

    RGB = 0
    BGR = 1
    GRAY = 2
    WIDE = 5


class Storage(enum.IntEnum):
    """Where pixels are kept, or are to be kept."""

    MEMORY = 1  #: one block in memory; asked for, it is AUTOMATIC
    AUTOMATIC = 1  #: one block, tiles or a file, as size and memory allow
    TILED = 4  #: tiles, those that memory has no room for in temporary files
    NO_TILES = 8  #: one block or a file
    DISK = 128  #: one temporary file
    NO_DISK = 256  #: one block or tiles
    COMPRESSED = 512  #: run lengths, 1 bit only
    SUPER_COMPRESSED = 1024  #: compressed strips of 1, 8 and 24 bits, without loss


class Dither(enum.IntEnum):
    """How colours that a palette lacks are made of its entries."""

    NONE = 0
    FLOYD_STEINBERG = 1
    STUCKI = 2
    BURKES = 3
    SIERRA = 4
    STEVENSON_ARCE = 5
    JARVIS = 6
    ORDERED = 7
    CLUSTERED = 8


class PaletteKind(enum.IntEnum):
    """Where the palette of a conversion to 1 to 8 bits comes from."""

    OPTIMIZED = 0  #: made of the colours that occur
    FIXED = 1  #: the fixed table of the depth
    GIVEN = 16  #: the one that comes with the call
    WEB = 65  #: 216 colours, 8 bits only


class ResizeMethod(enum.IntEnum):
    """How a bitmap is resized."""

    NEAREST = 0
    INK_COUNT = 1
    AREA = 2
    SMOOTH = 4


class RotateMethod(enum.IntEnum):
    """How a bitmap is sampled when it is rotated."""

    NEAREST = 0
    CORRECT = 2
    BILINEAR = 4


class Turn(enum.IntEnum):
    """Direction of a quarter turn."""

    COUNTER_CLOCKWISE = 0
    CLOCKWISE = 1


class ShearAxis(enum.IntEnum):
    """What a shear moves."""

    COLUMNS = 0
    ROWS = 1


class Combine(enum.IntEnum):
    """What becomes of a pixel and the source's pixel that meets it."""

    COPY = 0
    AND = 1
    OR = 2
    XOR = 3
    ADD = 4
    SUBTRACT = 5
    AVERAGE = 6
    MINIMUM = 7
    MAXIMUM = 8
    MULTIPLY = 9
    ALPHA = 10


class Invert(enum.IntFlag):
    """What is inverted when two bitmaps are combined."""

    NOTHING = 0
    SOURCE = 0x100
    TARGET = 0x200
    RESULT = 0x400


class WarpMethod(enum.IntEnum):
    """How a warp samples."""

    NEAREST = 0
    BILINEAR = 1


class OverlayBits(enum.IntEnum):
    """Direction of Bitmap.move_overlay_bits."""

    FROM_BITMAP = 0
    TO_BITMAP = 1


class StorageInfo(NamedTuple):
    """How a bitmap is kept; tile figures are 0 without tiles."""

    kind: Storage
    tile_size: int
    tile_count: int
    memory_tiles: int
    max_mapped_tiles: int
    mapped_tiles: int


class OverlayAttributes(NamedTuple):
    """Where an overlay lies, and how it is shown."""

    left: int
    top: int
    color: Color
    visible: bool
    bit: int


class Playback(NamedTuple):
    """How a picture is shown in an animation: where, for how many milliseconds, and what happens to it then."""

    left: int
    top: int
    delay: int
    background: Color
    transparency: Color
    disposal: int


class Thresholds(NamedTuple):
    """When pixels go to tiles and files; negative numbers but for tile_size are percentages."""

    keep_free: int
    largest_block: int
    tile_size: int
    memory_tiles: int
    tile_views: int


class PageInfo(NamedTuple):
    """What a file says about a page."""

    format: str
    depth: str
    width: int
    height: int
    bits: int
    resolution: tuple[int, int]
    orientation: int
    palette: Palette | None
    icc_profile: bytes | None
