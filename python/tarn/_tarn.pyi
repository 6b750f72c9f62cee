"""The part of the package that is compiled."""

from collections.abc import Callable, Iterator, Sequence
from types import TracebackType
from typing import Any, Union

from ._types import (
    Combine, Dither, Invert, Order, OverlayAttributes, OverlayBits, PageInfo, PaletteKind, Playback, ResizeMethod,
    RotateMethod, ShearAxis, Storage, StorageInfo, Thresholds, Turn, WarpMethod,
)

_ColorLike = Union["Color", Sequence[int], str]
_PaletteLike = Union["Palette", Sequence[_ColorLike]]
_Area = Sequence[int]

class Color:
    """A colour: red, green and blue, a gray level of 16 bits, or an index into a bitmap's palette."""

    def __init__(self, red: int = 0, green: int = 0, blue: int = 0) -> None: ...
    @staticmethod
    def of(color: _ColorLike) -> Color:
        """A colour of three numbers of 0 to 255, or of "#rrggbb"."""
    @staticmethod
    def gray(level: int) -> Color:
        """A gray level of 0, black, to 65535."""
    @staticmethod
    def index(entry: int) -> Color:
        """An entry of the palette of whatever bitmap it is given to."""
    @staticmethod
    def of_value(value: int) -> Color:
        """0x00BBGGRR, 0x0400gggg a gray level, 0x0100nnnn an index."""
    @property
    def value(self) -> int: ...
    @property
    def red(self) -> int: ...
    @property
    def green(self) -> int: ...
    @property
    def blue(self) -> int: ...
    @property
    def rgb(self) -> tuple[int, int, int]:
        """Red, green and blue; of a gray level its upper byte."""
    @property
    def level(self) -> int | None:
        """The gray level; None for what is none."""
    def __eq__(self, other: object) -> bool: ...
    def __hash__(self) -> int: ...

class Palette:
    """Up to 256 colours."""

    def __init__(self, colors: _PaletteLike | None = None) -> None: ...
    @staticmethod
    def fixed(bits: int) -> Palette:
        """The library's table of 1 << bits colours, for 1 to 8 bits."""
    @staticmethod
    def gray(bits: int) -> Palette:
        """A ramp of 1 << bits grays from black to white."""
    @staticmethod
    def web() -> Palette:
        """216 colours: six levels of red, green and blue."""
    def nearest(self, color: _ColorLike) -> int:
        """The position of the nearest colour, by the library's one rule."""
    @property
    def gray_class(self) -> int:
        """0 not gray, 1 a ramp upwards, 2 downwards, 3 other grays."""
    def __len__(self) -> int: ...
    def __getitem__(self, index: int) -> Color: ...
    def __iter__(self) -> Iterator[Color]: ...
    def __eq__(self, other: object) -> bool: ...
    def __hash__(self) -> int: ...

class Bitmap:
    """A picture of 1 to 64 bits a pixel and its storage.

    Rows are rows of storage; view_perspective says how they lie in the picture. A method that changes the bitmap gives
    None; after a failure the bitmap is as it was. Objects may be used by any thread: while one works on a bitmap, the
    others wait.
    """

    def __init__(
        self, width: int, height: int, bits: int, *, order: Order | int = Order.RGB,
        storage: Storage | int = Storage.AUTOMATIC, palette: _PaletteLike | None = None, view_perspective: int = 1,
    ) -> None:
        """A bitmap of zeros. Up to 8 bits it has a palette, the fixed one unless given."""
    @staticmethod
    def over(
        buffer: Any, width: int, height: int, bits: int, *, order: Order | int = Order.RGB,
        palette: _PaletteLike | None = None, view_perspective: int = 1,
    ) -> Bitmap:
        """A bitmap whose pixels are the bytes of a writable buffer, every row padded to 4 bytes."""
    @staticmethod
    def from_array(
        array: Any, *, bits: int | None = None, order: Order | int | None = None, palette: _PaletteLike | None = None,
        copy: bool = True, storage: Storage | int = Storage.AUTOMATIC,
    ) -> Bitmap:
        """A bitmap of an array of samples: rows x columns, or rows x columns x 3 or 4 channels.

        uint8, uint16 and uint32 become 8, 16 and 32 bits of gray, int16 and int32 signed gray, bool 1 bit; three
        channels 24 or 48, four 32 or 64 bits in the order given. bits packs: 1 to 7 and 12 bits of one sample a pixel,
        16 of channels of five bits (0 to 31, a fourth one of one bit). copy=False wraps the array's memory.
        """
    @staticmethod
    def from_dib(data: Any) -> Bitmap:
        """A bitmap of a device-independent bitmap: what a BMP file has behind its first 14 bytes."""
    def to_dib(self) -> bytes: ...
    def clone(self, *, storage: Storage | int | None = None) -> Bitmap:
        """A copy with pixels, palette and overlays, in storage of the same kind or as asked for."""
    def copy_rect(
        self, left: int, top: int, width: int, height: int, *, storage: Storage | int | None = None
    ) -> Bitmap:
        """What lies in a rectangle; zeros where it reaches beyond the bitmap."""
    def close(self) -> None:
        """Frees the pixels now. BufferError while they are viewed."""
    def __enter__(self) -> Bitmap: ...
    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None, /
    ) -> None: ...
    def __copy__(self) -> Bitmap: ...
    def __deepcopy__(self, memo: Any) -> Bitmap: ...
    def __reduce__(self) -> tuple[Any, ...]: ...
    def same_pixels(self, other: Bitmap) -> bool:
        """Whether size, depth, order (up to 8 bits the palette), lookup table in use and every pixel are equal, wherever
        they are kept."""

    @property
    def closed(self) -> bool: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def bits(self) -> int:
        """Bits a pixel: 1 to 8, 12, 16, 24, 32, 48 or 64."""
    @property
    def order(self) -> Order: ...
    @property
    def row_bytes(self) -> int:
        """Bytes of a row with its padding."""
    @property
    def pixel_bytes(self) -> int:
        """Bytes of the pixels of a row: what row() gives and put_row() takes."""
    @property
    def views(self) -> int:
        """Arrays and memoryviews that show the pixels; while there are any the pixels cannot move."""
    @property
    def signed(self) -> bool: ...
    @property
    def significant_bits(self) -> tuple[int, int]:
        """Lowest and highest significant bit of a sample."""
    @property
    def sample_limits(self) -> tuple[int, int]:
        """Smallest and largest sample that to_gray(32) found."""
    @property
    def view_perspective(self) -> int:
        """1 to 8, how stored rows lie in the picture; setting it moves no pixel."""
    @view_perspective.setter
    def view_perspective(self, perspective: int, /) -> None: ...
    @property
    def resolution(self) -> tuple[int, int]:
        """Dots per inch, across and down."""
    @resolution.setter
    def resolution(self, dots: tuple[int, int], /) -> None: ...
    @property
    def icc_profile(self) -> bytes | None:
        """The colour profile of the file that the bitmap was read from; copies have it too, and save writes it."""
    @icc_profile.setter
    def icc_profile(self, profile: bytes | None, /) -> None: ...
    @property
    def palette(self) -> Palette:
        """The palette, empty above 8 bits. Setting one replaces as many entries as it has."""
    @palette.setter
    def palette(self, colors: _PaletteLike, /) -> None: ...
    def put_palette(self, colors: _PaletteLike, *, first: int = 0) -> None:
        """Replaces palette entries from first on."""
    @property
    def lookup_table(self) -> Any:
        """What samples of 12- or 16-bit gray stand for: a new array of entries x 3, red, green, blue; None without.

        An array of uint8, entries x 3 or a gray level an entry, or colours can be set, and are in use from then on:
        as many as samples have values. Entries of signed samples begin with that of the smallest one. None removes it.
        """
    @lookup_table.setter
    def lookup_table(self, table: Any, /) -> None: ...
    @property
    def uses_lookup_table(self) -> bool:
        """Whether the table is in use; without, samples are levels."""
    @uses_lookup_table.setter
    def uses_lookup_table(self, use: bool, /) -> None: ...
    @property
    def playback(self) -> Playback:
        """The picture's place in an animation. Copies have it too; no operation and no file format looks at it."""
    @playback.setter
    def playback(self, playback: tuple[int, int, int, _ColorLike, _ColorLike, int], /) -> None: ...

    @property
    def storage(self) -> StorageInfo: ...
    def move_to(self, storage: Storage | int, *, tile_size: int = 0) -> None:
        """Moves the pixels to another storage. AUTOMATIC leaves tiles and files where they are not needed."""
    def set_tiles(
        self, *, tile_size: int | None = None, memory_tiles: int | None = None, mapped_tiles: int | None = None
    ) -> None:
        """Changes how a bitmap is cut into tiles, how many of them stay in memory, how many are mapped at a time."""
    def set_height(self, height: int) -> None:
        """Adds rows of zeros at the end, or takes rows away."""
    def compress(self, storage: Storage | int) -> None:
        """To COMPRESSED or SUPER_COMPRESSED storage, or with MEMORY out of it."""
    def compact(self) -> None:
        """Compresses what a super-compressed bitmap holds expanded."""

    def __array__(self, dtype: Any = None, copy: bool | None = None) -> Any: ...
    @property
    def __array_interface__(self) -> dict[str, Any]: ...
    def unpacked(self) -> Any:
        """A new array of the samples, of any storage; packed pixels get a sample each, 5-5-5 ones four channels."""
    def row(self, row: int) -> bytes: ...
    def rows(self, first: int, count: int) -> bytes: ...
    def read_rows_into(self, first: int, buffer: Any) -> None:
        """Fills a writable buffer with whole rows, without their padding."""
    def put_row(self, row: int, data: Any) -> None: ...
    def put_rows(self, first: int, data: Any) -> None: ...
    def put_row_segments(
        self, row: int, data: Any, segments: Sequence[tuple[int, int]], *, column_offset: int = 0,
        preserve_alpha: bool = False,
    ) -> None:
        """Writes the pixels start to end, end excluded, of each segment of a row of data."""
    def compressed_rows(self, first: int, count: int) -> bytes:
        """Rows of one bit a pixel as records: a 32-bit count and that many 16-bit runs, zeros first."""
    def put_compressed_rows(self, first: int, data: Any) -> None: ...
    def pixel(self, row: int, column: int) -> Color: ...
    def put_pixel(self, row: int, column: int, color: _ColorLike) -> None: ...
    def pixel_data(self, row: int, column: int) -> bytes:
        """The whole bytes that a pixel has bits in."""
    def put_pixel_data(self, row: int, column: int, data: bytes) -> None: ...
    def color_to_pixel(self, color: _ColorLike) -> bytes:
        """The pixel that a colour is in this bitmap."""

    def convert(
        self, bits: int, *, palette: _PaletteLike | None = None, palette_kind: PaletteKind | int | None = None,
        dither: Dither | int = Dither.NONE, colors: int = 0,
    ) -> None:
        """To another depth. A palette that is given is used; without one, up to 8 bits, the best one is made."""
    def converted(
        self, bits: int, *, palette: _PaletteLike | None = None, palette_kind: PaletteKind | int | None = None,
        dither: Dither | int = Dither.NONE, colors: int = 0,
    ) -> Bitmap: ...
    def optimized_palette(self, colors: int = 256) -> Palette: ...
    def count_colors(self) -> int: ...
    @property
    def gray_class(self) -> int:
        """0 colours, 1 gray from black, 2 gray from white, 3 other grays."""
    def to_gray(self, bits: int = 8) -> None:
        """To gray of 8, 12, 16 or 32 bits."""
    def gray(self, bits: int = 8) -> Bitmap: ...
    def narrow_gray(self, bits: int) -> None:
        """Gray of 32 bits to 16 or 8 by its sample_limits."""
    def alpha(self) -> Bitmap:
        """Opacity as a gray bitmap."""
    def set_alpha(self, alpha: Bitmap) -> None: ...
    def fill(self, color: _ColorLike) -> None: ...
    def clear(self) -> None: ...

    def crop(self, left: int, top: int, width: int, height: int) -> None:
        """Cuts down to the part of a rectangle that lies inside."""
    def resize(self, width: int, height: int = 0, *, method: ResizeMethod | int = ResizeMethod.SMOOTH) -> None:
        """To another size; one side may be 0 and follows from the other."""
    def resize_into(self, target: Bitmap, *, method: ResizeMethod | int = ResizeMethod.SMOOTH) -> None:
        """Into a bitmap of the same depth and order, which has the size wanted."""
    def resized_rows(
        self, width: int, height: int = 0, *, method: ResizeMethod | int = ResizeMethod.SMOOTH
    ) -> ResizedRows:
        """The rows that resize() would make, one after another, by NEAREST, AREA or SMOOTH. The bitmap stays."""
    def rotate(
        self, degrees: float, *, method: RotateMethod | int = RotateMethod.BILINEAR, resize: bool = True,
        center: tuple[float, float] | None = None, fill: _ColorLike = (0, 0, 0),
    ) -> None:
        """Clockwise, in steps of a hundredth of a degree."""
    def rotate_quarter(self, turn: Turn | int = Turn.CLOCKWISE) -> None: ...
    def shear(
        self, degrees: float, *, axis: ShearAxis | int = ShearAxis.ROWS, fill: _ColorLike = (0, 0, 0)
    ) -> None: ...
    def flip(self) -> None:
        """Upside down."""
    def reverse(self) -> None:
        """Left to right."""
    def change_perspective(self, view_perspective: int) -> None:
        """Moves pixels so that the same picture has another view perspective."""
    def flip_view(self) -> None: ...
    def reverse_view(self) -> None: ...
    def rotate_view(self, degrees: int) -> None:
        """Changes how rows are seen, by a multiple of 90 degrees clockwise, and moves no pixel."""
    def point_to_bitmap(self, x: int, y: int, *, view_perspective: int = 1) -> tuple[int, int]: ...
    def point_from_bitmap(self, x: int, y: int, *, view_perspective: int = 1) -> tuple[int, int]: ...

    def combine(
        self, source: Bitmap, left: int = 0, top: int = 0, *, area: _Area | None = None,
        operation: Combine | int = Combine.COPY, invert: Invert | int = Invert.NOTHING,
    ) -> None:
        """Combines an area of a source, (left, top, width, height) or all of it, with what is at (left, top)."""
    def warp(
        self, source: Bitmap, corners: Sequence[tuple[float, float]], *, area: _Area | None = None,
        method: WarpMethod | int = WarpMethod.BILINEAR,
    ) -> None:
        """Maps an area of a source onto a quadrilateral: where its upper left, upper right, lower right and lower left
        corner go, (x, y) in pixels."""
    def scramble(self, key: int, *, area: _Area | None = None, restore: bool = False) -> None:
        """Hides what an area shows, or restores it. Obfuscation, not protection."""

    @property
    def overlay_count(self) -> int: ...
    def overlay(self, index: int) -> Bitmap:
        """A copy of an overlay."""
    def set_overlay(self, index: int, overlay: Bitmap) -> None:
        """Puts a copy of a bitmap into a place; overlay_count appends."""
    def remove_overlay(self, index: int) -> None: ...
    def overlay_attributes(self, index: int) -> OverlayAttributes: ...
    def set_overlay_attributes(
        self, index: int, *, left: int | None = None, top: int | None = None, color: _ColorLike | None = None,
        visible: bool | None = None, bit: int | None = None,
    ) -> None: ...
    def move_overlay_bits(self, index: int, direction: OverlayBits | int) -> None: ...

class ResizedRows:
    """An iterator of rows in another size, as put_row() takes them, which reads the bitmap as it goes.

    Until the last row, or until it is closed, what would move the bitmap's pixels raises BufferError. What changes them
    in place shows in later rows.
    """

    def __iter__(self) -> ResizedRows: ...
    def __next__(self) -> bytes: ...
    def __length_hint__(self) -> int: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    def close(self) -> None: ...
    def __enter__(self) -> ResizedRows: ...
    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None, /
    ) -> None: ...

class RowResizer:
    """Rows that pass by, to another size; each row of the result is one of those that are fed, or none of it."""

    def __init__(self, width: int, height: int, bits: int, new_width: int, new_height: int = 0) -> None:
        """One of the new sides may be 0 and follows from the other."""
    def feed(self, data: Any, *, row: int | None = None) -> Iterator[bytes]:
        """A row, as Bitmap.row() gives it, in its new width, as many times as it is to be written: 0, 1 or more.

        It is the next row below, or the one of that number; rows may come downwards or upwards.
        """
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...

class Ditherer:
    """Lines of pixels to indices of a palette, from the top to the bottom of a picture; errors go from line to line.

    Threads that share one take turns, in no order.
    """

    def __init__(
        self, width: int, bits: int, palette: _PaletteLike | None = None, *, method: Dither | int | None = None,
        index_bits: int = 0, order: Order | int = Order.RGB, source_palette: _PaletteLike | None = None,
    ) -> None:
        """For lines of so many pixels of so many bits, to a palette, else to the fixed one of index_bits, else of 8.

        method is default_dithering() unless given; index_bits, 1 to 8, as few as the palette needs.
        """
    @staticmethod
    def like(
        bitmap: Bitmap, palette: _PaletteLike | None = None, *, method: Dither | int | None = None, index_bits: int = 0
    ) -> Ditherer:
        """For lines as they are in a bitmap, with its palette or lookup table, of which it keeps a copy."""
    def line(self, pixels: Any) -> Any:
        """Indices of the next line, an array of uint8. Pixels are bytes as Bitmap.row() gives them, or an array of
        samples: width, or width x channels."""
    def lines(self, pixels: Any) -> Any:
        """Indices of lines below each other, of an array of lines of samples or of their bytes: lines x width."""
    def packed_line(self, pixels: Any) -> bytes:
        """The next line as put_row() takes it, for a bitmap of index_bits."""
    @property
    def width(self) -> int: ...
    @property
    def palette(self) -> Palette: ...
    @property
    def index_bits(self) -> int: ...
    def close(self) -> None: ...
    def __enter__(self) -> Ditherer: ...
    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None, /
    ) -> None: ...

class Reader:
    def __init__(self, path: str, *, max_memory: int = 0) -> None: ...
    def __len__(self) -> int: ...
    def info(self, page: int = 0) -> PageInfo: ...
    def read(
        self, page: int = 0, *, storage: Storage | int = Storage.AUTOMATIC, tile_size: int = 0, max_memory: int = 0,
        max_pixels: int = 0,
    ) -> Bitmap: ...
    def close(self) -> None: ...

def save(
    path: str, pages: Sequence[Bitmap], *, quality: int | None = None, compression: str | None = None
) -> None: ...
def list_palette(bitmaps: Sequence[Bitmap], colors: int = 256) -> Palette: ...
def convert_list(
    bitmaps: Sequence[Bitmap], bits: int, *, palette: _PaletteLike | None = None,
    palette_kind: PaletteKind | int | None = None, dither: Dither | int = Dither.NONE, colors: int = 0,
) -> None: ...
def version() -> str: ...
def temp_directory() -> str: ...
def set_temp_directory(path: str) -> None: ...
def thresholds() -> Thresholds: ...
def set_thresholds(
    *, keep_free: int | None = None, largest_block: int | None = None, tile_size: int | None = None,
    memory_tiles: int | None = None, tile_views: int | None = None,
) -> None: ...
def default_resolution() -> tuple[int, int]: ...
def set_default_resolution(x: int, y: int) -> None: ...
def default_dithering() -> Dither: ...
def set_default_dithering(method: Dither | int) -> None: ...
def set_super_compressed_cache(bytes: int) -> int: ...
def convert_line(
    data: Any, width: int, from_bits: int, to_bits: int, *, from_order: Order | int = Order.RGB,
    to_order: Order | int = Order.RGB, from_palette: _PaletteLike | None = None,
    to_palette: _PaletteLike | None = None, opaque: bool = False,
) -> bytes:
    """Pixels of one format as those of another: 1 to 8, 12, 16, 24, 32, 48, 64 bits, 0 for bytes of gray."""
def push_progress(callable: Callable[[int], object]) -> None: ...
def pop_progress() -> None: ...
