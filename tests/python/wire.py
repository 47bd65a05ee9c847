"""Frames laid out by hand: the header, the coded body and both checksums,
built from the frame layout without the library."""

import struct
import zlib

M64 = (1 << 64) - 1


def keystream(n):
    """The body coding's keystream: byte p is byte p % 8 of the word K(p // 8)."""
    out = bytearray()
    for i in range((n + 7) // 8):
        z = (i * 0x9E3779B97F4A7C15 + 0x4B5A4150494E3031) & M64
        z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & M64
        z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & M64
        out += struct.pack("<Q", z ^ (z >> 31))
    return bytes(out[:n])


def frame(flag, code, payload, seq=0):
    """A whole frame as laid out on the wire, for a message header and payload."""
    body = bytes([flag, 17]) + struct.pack("<H", code) + payload + b"\0"
    coded = body[:1] + bytes(a ^ b for a, b in zip(body[1:], keystream(len(body) - 1)))
    head = b"KZ\x01\x00" + struct.pack("<IHI", seq, 0, len(coded))
    head += struct.pack("<I", zlib.crc32(head))
    whole = head + coded
    return whole + struct.pack("<I", zlib.crc32(whole))


def unframe(data):
    """The body of a whole frame: (flag, code, payload), the coding undone."""
    (length,) = struct.unpack_from("<I", data, 10)
    coded = data[18:18 + length]
    body = coded[:1] + bytes(a ^ b for a, b in zip(coded[1:], keystream(len(coded) - 1)))
    (code,) = struct.unpack_from("<H", body, 2)
    return body[0], code, body[4:-1]
