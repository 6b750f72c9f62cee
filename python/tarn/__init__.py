"""Pictures of 1 to 64 bits a pixel: in memory, in tiles, on disk or compressed; NumPy sees them without copies.

    import tarn
    page = tarn.open("scan.tif")
    page.convert(1, dither=tarn.Dither.FLOYD_STEINBERG)
    tarn.save("page.png", page)

docs/python.md has the first ten minutes.
"""

from __future__ import annotations

import os as _os
from collections.abc import Callable, Iterable, Iterator
from types import TracebackType

from . import _tarn
from ._errors import Cancelled, Error, FormatError, NoMemoryError, ParameterError, StorageError
from ._tarn import Bitmap, Color, Ditherer, Palette, ResizedRows, RowResizer
from ._tarn import convert_line, default_dithering, default_resolution, set_default_dithering, set_default_resolution
from ._tarn import set_super_compressed_cache, set_temp_directory, set_thresholds, temp_directory, thresholds, version
from ._pickling import reduce as _reduce
from ._types import (
    Combine, Dither, Invert, Order, OverlayAttributes, OverlayBits, PageInfo, PaletteKind, Playback, ResizeMethod,
    RotateMethod, ShearAxis, Storage, StorageInfo, Thresholds, Turn, WarpMethod,
)

__all__ = [
    "Bitmap", "BitmapList", "Cancelled", "Color", "Combine", "Dither", "Ditherer", "Error", "FormatError", "Invert",
    "NoMemoryError", "Order", "OverlayAttributes", "OverlayBits", "PageInfo", "Palette", "PaletteKind",
    "ParameterError", "Playback", "Reader", "ResizeMethod", "ResizedRows", "RotateMethod", "RowResizer", "ShearAxis",
    "Storage", "StorageError", "StorageInfo", "Thresholds", "Turn", "WarpMethod", "convert_line", "default_dithering",
    "default_resolution", "open", "open_pages", "progress", "save", "set_default_dithering", "set_default_resolution",
    "set_super_compressed_cache", "set_temp_directory", "set_thresholds", "temp_directory", "thresholds", "version",
]

__version__ = version()

setattr(Bitmap, "__reduce__", _reduce)


def _named(path: str | _os.PathLike[str]) -> str:
    """A file of that name, where the tool would take the process's own stream."""
    name = _os.fspath(path)
    return "./-" if name == "-" else name


class Reader:
    """A PNG, JPEG, TIFF or BMP file, recognised by its content, and its pages.

    ``len(reader)`` is the number of pages; iterating reads one after another.
    """

    def __init__(self, path: str | _os.PathLike[str], *, max_memory: int = 0) -> None:
        name = _named(path)
        _os.close(_os.open(name, _os.O_RDONLY | _os.O_CLOEXEC | _os.O_NONBLOCK))  # raises what Python users expect
        self._reader = _tarn.Reader(name, max_memory=max_memory)

    def __len__(self) -> int:
        return len(self._reader)

    def info(self, page: int = 0) -> PageInfo:
        """What the file says about a page, counted from 0; no pixel is read."""
        return self._reader.info(page)

    def read(
        self, page: int = 0, *, storage: Storage = Storage.AUTOMATIC, tile_size: int = 0, max_memory: int = 0,
        max_pixels: int = 0,
    ) -> Bitmap:
        """A page, counted from 0.

        ``max_memory`` bytes of it stay in memory, the rest goes to temporary files. Pictures of more than
        ``max_pixels``, else 2**28, are refused, unless they are to be in tiles or on disk.
        """
        return self._reader.read(
            page, storage=storage, tile_size=tile_size, max_memory=max_memory, max_pixels=max_pixels
        )

    def __getitem__(self, page: int) -> Bitmap:
        return self.read(page)

    def __iter__(self) -> Iterator[Bitmap]:
        return (self.read(page) for page in range(len(self)))

    def close(self) -> None:
        self._reader.close()

    def __enter__(self) -> Reader:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def open(
    path: str | _os.PathLike[str],
    page: int = 0,
    *,
    storage: Storage = Storage.AUTOMATIC,
    tile_size: int = 0,
    max_memory: int = 0,
    max_pixels: int = 0,
) -> Bitmap:
    """Reads a page of a PNG, JPEG, TIFF or BMP file, counted from 0; see Reader.read."""
    with Reader(path, max_memory=max_memory) as reader:
        return reader.read(
            page, storage=storage, tile_size=tile_size, max_memory=max_memory, max_pixels=max_pixels
        )


def open_pages(path: str | _os.PathLike[str], *, storage: Storage = Storage.AUTOMATIC) -> BitmapList:
    """Reads all pages of a file."""
    with Reader(path) as reader:
        return BitmapList(reader.read(page, storage=storage) for page in range(len(reader)))


def save(
    path: str | _os.PathLike[str],
    bitmap: Bitmap | Iterable[Bitmap],
    *,
    quality: int | None = None,
    compression: str | None = None,
) -> None:
    """Writes a .png, .jpg, .tif or .bmp file, whole or not at all; of several bitmaps a TIFF file.

    ``quality`` goes with JPEG, 1 to 100, else 90; ``compression`` with TIFF: none, lzw, deflate, packbits or g4.
    """
    pages = [bitmap] if isinstance(bitmap, Bitmap) else list(bitmap)
    _tarn.save(_named(path), pages, quality=quality, compression=compression)


class BitmapList(list[Bitmap]):
    """A list of bitmaps, with what the library does to several at once."""

    def optimized_palette(self, colors: int = 256) -> Palette:
        """One palette of 1 to 256 colours that suits all of them."""
        return _tarn.list_palette(self, colors)

    def convert(
        self,
        bits: int,
        *,
        palette: Palette | None = None,
        palette_kind: PaletteKind | None = None,
        dither: Dither = Dither.NONE,
        colors: int = 0,
    ) -> None:
        """Brings every bitmap to the same depth with one palette; before a failure some may have been."""
        _tarn.convert_list(self, bits, palette=palette, palette_kind=palette_kind, dither=dither, colors=colors)

    def clones(self) -> BitmapList:
        """Copies of all bitmaps."""
        return BitmapList(bitmap.clone() for bitmap in self)


class progress:
    """Tells a callable how far operations of this thread are, in percent, while the block lasts.

    An operation goes on unless the callable returns False, which raises Cancelled, or raises an exception.
    """

    def __init__(self, callable: Callable[[int], object]) -> None:
        self._callable = callable

    def __enter__(self) -> progress:
        _tarn.push_progress(self._callable)
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        _tarn.pop_progress()
