"""Codeplug images: pack values into flat, checksummed, bit-packed images and back."""

import os
from typing import Any, Dict, List, Optional, Union

__version__: str

Buffer = Union[bytes, bytearray, memoryview]
Values = Dict[str, Any]

class Error(Exception):
    """A failure of the library; str() is the whole message."""

    text: str
    """What is wrong, the library's own text."""
    file: Optional[str]
    """The JSON file ('<string>', '<values>' for Python objects), or None."""
    pointer: Optional[str]
    """The JSON pointer of the offending value ('' for the whole document), or None."""
    offset: Optional[int]
    """The byte offset in the image, or None."""

class LayoutError(Error):
    """A layout that is not JSON, breaks a rule of the format or fails verification."""

class ValuesError(Error):
    """Values the layout does not describe or the library can't pack."""

class ImageError(Error):
    """An image the library refuses to unpack."""

class Layout:
    """A codeplug layout loaded from a JSON layout file; safe to share between threads."""

    @staticmethod
    def load(path: Union[str, os.PathLike]) -> Layout:
        """Loads a layout file; raises LayoutError. Verification warnings are UserWarnings."""
    @staticmethod
    def from_json(text_or_dict: Union[str, Dict[str, Any]]) -> Layout:
        """Loads a layout from JSON text or a dict; raises LayoutError."""
    def verify(self) -> List[str]:
        """Runs the verification again; returns its warnings, raises LayoutError on a fault."""
    def tree(self) -> str:
        """The layout's partitions, blocks and fields as an indented text tree."""
    def pack(self, values: Values, *, prefixes: bool = False) -> bytes:
        """Packs a values dict into image bytes; a scaled decimal may be a str or a
        decimal.Decimal. Raises ValuesError. Releases the GIL."""
    def unpack(self, data: Buffer, *, prefixes: bool = False, lenient: bool = False) -> Values:
        """Unpacks image bytes into a values dict as a values file writes it (an enum's name, a
        list of flag names, a scaled decimal as its exact str such as '145.500'). Raises
        ImageError in the layout's words; unless lenient, also for an image that breaks its
        own layout. Releases the GIL."""
    def dump(self, data: Buffer, *, prefixes: bool = False) -> List[Dict[str, Any]]:
        """Every value in image order: dicts of path, block, instance, offset, msb, bits, raw
        (hex digits) and value (as unpack gives it). Raises ImageError. Releases the GIL."""
    @property
    def file(self) -> str:
        """The file the layout was loaded from ('<string>' for from_json)."""
    @property
    def blocks(self) -> List[str]:
        """The block names in image order."""

def inspect(data: Buffer, layout: Optional[Layout] = None, *,
            prefixes: bool = False) -> List[Dict[str, Any]]:
    """One dict per block instance (offset, kov_type, kov_id, size, data_size, stored_crc,
    data_crc, crc_ok; partition with prefixes; block and instance or listlet with a layout),
    then {offset, damage} when the header walk ends early. Never raises for any bytes."""

def crc16(data: Buffer) -> int:
    """CRC-16/XMODEM of data: crc16(b'123456789') == 0x31C3."""
