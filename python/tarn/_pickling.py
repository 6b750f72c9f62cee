"""Bitmaps as bytes: for pickle, and so for other processes."""

from __future__ import annotations

from typing import Any

from ._tarn import Bitmap
from ._types import Storage

_Overlay = tuple[int, Any, "Bitmap | None"]


def reduce(bitmap: Bitmap) -> tuple[Any, ...]:
    if bitmap.closed:
        return _closed, ()
    kind = bitmap.storage.kind
    described = (bitmap.width, bitmap.height, bitmap.bits, int(bitmap.order), int(kind), bitmap.view_perspective)
    details = {
        "palette": bitmap.palette,
        "resolution": bitmap.resolution,
        "icc_profile": bitmap.icc_profile,
        "playback": bitmap.playback,
        "_samples": getattr(bitmap, "_samples"),
        "_table": getattr(bitmap, "_table"),
    }
    return _restore, (described, details, bitmap.rows(0, bitmap.height), _overlays(bitmap))


def _overlays(bitmap: Bitmap) -> list[_Overlay]:
    from ._errors import Error

    found: list[_Overlay] = []
    for index in range(bitmap.overlay_count):
        try:
            attributes = bitmap.overlay_attributes(index)
        except Error:
            continue  # a place that is not in use
        try:
            found.append((index, attributes, bitmap.overlay(index)))
        except Error:
            found.append((index, attributes, None))
    return found


def _closed() -> Bitmap:
    bitmap = Bitmap(1, 1, 1)
    bitmap.close()
    return bitmap


def _restore(
    described: tuple[int, ...], details: dict[str, Any], rows: bytes, overlays: list[_Overlay]
) -> Bitmap:
    width, height, bits, order, kind, perspective = described
    bitmap = Bitmap(
        width, height, bits, order=order, storage=Storage(kind), palette=details.pop("palette") or None,
        view_perspective=perspective,
    )
    bitmap.put_rows(0, rows)
    for name, value in details.items():
        setattr(bitmap, name, value)
    unused = []
    for index, attributes, overlay in overlays:
        while bitmap.overlay_count < index:
            unused.append(bitmap.overlay_count)
            bitmap.set_overlay_attributes(bitmap.overlay_count, bit=0)
        if overlay is not None:
            bitmap.set_overlay(index, overlay)
        bitmap.set_overlay_attributes(index, **attributes._asdict())
    for index in unused:
        bitmap.remove_overlay(index)
    return bitmap
