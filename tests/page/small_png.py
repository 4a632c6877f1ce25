"""Makes a screenshot small: a PNG of at most 256 colours, the most frequent ones of the picture."""

import collections
import struct
import zlib

SIGNATURE = b"\x89PNG\r\n\x1a\n"


def chunks(data):
    at = len(SIGNATURE)
    while at < len(data):
        length, kind = struct.unpack_from(">I4s", data, at)
        yield kind, data[at + 8:at + 8 + length]
        at += 12 + length


def chunk(kind, content):
    return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))


def rows_of(packed, width, height, size):
    """The rows of a picture with `size` bytes a pixel, without the filters of the format."""
    raw = zlib.decompress(packed)
    stride = width * size
    above = bytearray(stride)
    for y in range(height):
        start = y * (stride + 1)
        kind, row = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        for i in range(stride if kind else 0):
            left = row[i - size] if i >= size else 0
            if kind == 1:
                guess = left
            elif kind == 2:
                guess = above[i]
            elif kind == 3:
                guess = (left + above[i]) // 2
            else:
                corner = above[i - size] if i >= size else 0
                guess = min(((abs(above[i] - corner), 0, left), (abs(left - corner), 1, above[i]),
                             (abs(left + above[i] - 2 * corner), 2, corner)))[2]
            row[i] = (row[i] + guess) & 255
        above = row
        yield row


def smaller(png):
    """The same picture as `png`, a PNG of 8 bits a channel, transparency apart."""
    parts = list(chunks(png))
    width, height, depth, kind, _, _, interlaced = struct.unpack(">IIBBBBB", parts[0][1])
    if (depth, interlaced) != (8, 0) or kind not in (2, 6):
        raise ValueError("no picture as browsers make them")
    size = 3 if kind == 2 else 4
    packed = b"".join(content for name, content in parts if name == b"IDAT")
    pixels = []
    for row in rows_of(packed, width, height, size):
        pixels.append(list(zip(row[0::size], row[1::size], row[2::size])))
    frequent = [colour for colour, _ in collections.Counter(p for row in pixels for p in row).most_common(256)]
    index = {colour: number for number, colour in enumerate(frequent)}
    out = bytearray()
    for row in pixels:
        out.append(0)
        for pixel in row:
            if pixel not in index:
                index[pixel] = min(range(len(frequent)), key=lambda number: sum(
                    (a - b) ** 2 for a, b in zip(frequent[number], pixel)))
            out.append(index[pixel])
    palette = b"".join(bytes(colour) for colour in frequent)
    return (SIGNATURE + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 3, 0, 0, 0)) + chunk(b"PLTE", palette)
            + chunk(b"IDAT", zlib.compress(bytes(out), 9)) + chunk(b"IEND", b""))
