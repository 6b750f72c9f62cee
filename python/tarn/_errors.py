"""Exceptions that carry a status of the library."""

from __future__ import annotations

import errno
from typing import Any

__all__ = ["Cancelled", "Error", "FormatError", "NoMemoryError", "ParameterError", "StorageError"]


class Error(Exception):
    """An operation failed; what it was to change is as it was before.

    ``number`` is the library's status, ``name`` its name: ``-1``, ``"ERR_NO_MEMORY"``.
    """

    def __init__(self, number: int, name: str, text: str = "") -> None:
        super().__init__(f"{text} [{name}]" if text else f"{name} ({number})")
        self.number = number
        self.name = name
        self.text = text

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.number, self.name, self.text)


class Cancelled(Error):
    """A progress callable returned False."""


class NoMemoryError(Error, MemoryError):
    """There is no memory for the operation."""


class StorageError(Error, OSError):
    """A file, or temporary storage, cannot be read or written; ``errno`` is ENOSPC when the disk is full."""

    def __init__(self, number: int, name: str, text: str = "") -> None:
        super().__init__(number, name, text)
        self.errno = errno.ENOSPC if number == -295 else errno.EIO


class ParameterError(Error, ValueError):
    """An argument is out of range, or does not fit the bitmap."""


class FormatError(Error, ValueError):
    """A file is damaged or not supported, or a format cannot hold such pixels."""


_CLASSES: dict[int, type[Error]] = {
    2: Cancelled,
    -1: NoMemoryError,
    -3: ParameterError,  # too large
    -4: StorageError,
    -5: StorageError,
    -7: StorageError,
    -11: ParameterError,  # no pixels
    -13: ParameterError,
    -16: FormatError,
    -27: FormatError,  # depth
    -295: StorageError,
    -816: ParameterError,  # overlay
    -1486: ParameterError,  # entries of a lookup table
}


def of_status(number: int, name: str, text: str) -> Error:
    """The exception of a status."""
    return _CLASSES.get(number, Error)(number, name, text)
