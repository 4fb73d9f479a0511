#!/usr/bin/env python3
"""Draws the four 16x16 status icons of the report and writes them as base64
PNG data into html/StatusIcons.cpp.

The report's style sheet has fixed-length data URLs, so each PNG is packed to
an exact byte count: the image data is deflated up to a split point and the
rest goes into one stored (uncompressed) block; the split point, filter and
zlib settings are searched until the IDAT chunk has the wanted size.

Usage: tools/make-status-icons.py [output.cpp]   (default html/StatusIcons.cpp)
Needs only the Python standard library.
"""

import base64
import math
import os
import struct
import sys
import zlib

SIZE = 16
SUBSAMPLES = 4  # per axis, for anti-aliased edges

# The first icon keeps a text chunk its data URL has always started with.
NORMAL_TEXT_CHUNK = (b"tEXt", b"Software\x00Adobe ImageReady")

# (name, wanted base64 length, IDAT payload size, extra chunk)
# Sizes: signature 8 + IHDR 25 + IEND 12 (+ text chunk 37) + IDAT 12 + payload
# bytes, chosen as a multiple of 3 so the base64 has no padding.
ICONS = [
    ("Normal", 724, 449, NORMAL_TEXT_CHUNK),
    ("Warning", 536, 345, None),
    ("Error", 596, 390, None),
    ("NotPresent", 1068, 744, None),
]


# ---------------------------------------------------------------- drawing

def circle(cx, cy, r):
    return lambda x, y: (x - cx) ** 2 + (y - cy) ** 2 <= r * r


def stroke(points, width):
    """A polyline with round joins and caps."""
    half = width / 2.0

    def inside(x, y):
        for (ax, ay), (bx, by) in zip(points, points[1:]):
            dx, dy = bx - ax, by - ay
            t = ((x - ax) * dx + (y - ay) * dy) / float(dx * dx + dy * dy)
            t = max(0.0, min(1.0, t))
            px, py = ax + t * dx, ay + t * dy
            if (x - px) ** 2 + (y - py) ** 2 <= half * half:
                return True
        return False

    return inside


def polygon(points):
    def inside(x, y):
        crossings = False
        for (ax, ay), (bx, by) in zip(points, points[1:] + points[:1]):
            if (ay > y) != (by > y):
                if x < ax + (y - ay) * (bx - ax) / (by - ay):
                    crossings = not crossings
        return crossings

    return inside


def inset(points, amount):
    """Shrinks a convex polygon towards its centroid (good enough for a border)."""
    cx = sum(p[0] for p in points) / len(points)
    cy = sum(p[1] for p in points) / len(points)
    out = []
    for x, y in points:
        d = math.hypot(x - cx, y - cy)
        out.append((x + (cx - x) * amount / d, y + (cy - y) * amount / d))
    return out


def render(layers):
    """layers: [(inside(x, y), (r, g, b, a))], later layers on top. Returns
    rows of RGBA bytes, anti-aliased by supersampling."""
    rows = []
    n = SUBSAMPLES
    for py in range(SIZE):
        row = bytearray()
        for px in range(SIZE):
            acc = [0.0, 0.0, 0.0, 0.0]
            for sy in range(n):
                for sx in range(n):
                    x = px + (sx + 0.5) / n
                    y = py + (sy + 0.5) / n
                    colour = (0, 0, 0, 0)
                    for inside, c in layers:
                        if inside(x, y):
                            colour = c
                    a = colour[3] / 255.0
                    acc[0] += colour[0] * a
                    acc[1] += colour[1] * a
                    acc[2] += colour[2] * a
                    acc[3] += a
            alpha = acc[3] / (n * n)
            if alpha == 0:
                row += bytes(4)
            else:
                row += bytes(int(round(acc[i] / acc[3])) for i in range(3))
                row.append(int(round(alpha * 255)))
        rows.append(bytes(row))
    return rows


def draw_normal():  # green disc, white check mark
    return render([
        (circle(8, 8, 7.6), (30, 120, 40, 255)),
        (circle(8, 8, 6.6), (60, 170, 70, 255)),
        (stroke([(4.6, 8.4), (7.0, 10.8), (11.6, 5.4)], 2.0), (255, 255, 255, 255)),
    ])


def draw_warning():  # amber triangle, dark exclamation mark
    outer = [(8.0, 0.6), (15.6, 14.6), (0.4, 14.6)]
    return render([
        (polygon(outer), (170, 120, 0, 255)),
        (polygon(inset(outer, 1.3)), (250, 200, 30, 255)),
        (stroke([(8.0, 5.4), (8.0, 9.6)], 1.8), (40, 30, 0, 255)),
        (circle(8.0, 12.1, 1.0), (40, 30, 0, 255)),
    ])


def draw_error():  # red disc, white cross
    return render([
        (circle(8, 8, 7.6), (150, 20, 20, 255)),
        (circle(8, 8, 6.6), (215, 45, 40, 255)),
        (stroke([(5.2, 5.2), (10.8, 10.8)], 2.0), (255, 255, 255, 255)),
        (stroke([(10.8, 5.2), (5.2, 10.8)], 2.0), (255, 255, 255, 255)),
    ])


def draw_not_present():  # grey disc, white dash
    return render([
        (circle(8, 8, 7.6), (120, 120, 120, 255)),
        (circle(8, 8, 6.6), (175, 175, 175, 255)),
        (stroke([(4.8, 8.0), (11.2, 8.0)], 2.2), (255, 255, 255, 255)),
    ])


DRAW = {"Normal": draw_normal, "Warning": draw_warning, "Error": draw_error,
        "NotPresent": draw_not_present}


# ---------------------------------------------------------------- PNG packing

def paeth(a, b, c):
    p = a + b - c
    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
    if pa <= pb and pa <= pc:
        return a
    return b if pb <= pc else c


def filter_row(kind, row, prev):
    bpp = 4
    out = bytearray([kind])
    for i, x in enumerate(row):
        a = row[i - bpp] if i >= bpp else 0
        b = prev[i]
        c = prev[i - bpp] if i >= bpp else 0
        predictor = (0, a, b, (a + b) // 2, paeth(a, b, c))[kind]
        out.append((x - predictor) & 0xFF)
    return bytes(out)


def filtered(rows, choice):
    prev = bytes(len(rows[0]))
    data = bytearray()
    for row in rows:
        if choice == "adaptive":  # smallest sum of absolute differences
            candidates = [filter_row(k, row, prev) for k in range(5)]
            data += min(candidates, key=lambda f: sum(min(v, 256 - v) for v in f[1:]))
        else:
            data += filter_row(choice, row, prev)
        prev = row
    return bytes(data)


def zlib_stream(raw, split, level, strategy):
    """raw[:split] deflated and sync-flushed to a byte boundary, raw[split:]
    as the final stored block."""
    body = bytearray(b"\x78\x9c")
    if split == len(raw):
        c = zlib.compressobj(level, zlib.DEFLATED, -15, 9, strategy)
        body += c.compress(raw) + c.flush(zlib.Z_FINISH)
    else:
        if split:
            c = zlib.compressobj(level, zlib.DEFLATED, -15, 9, strategy)
            body += c.compress(raw[:split]) + c.flush(zlib.Z_SYNC_FLUSH)
        tail = raw[split:]
        body += b"\x01" + struct.pack("<HH", len(tail), len(tail) ^ 0xFFFF) + tail
    body += struct.pack(">I", zlib.adler32(raw))
    return bytes(body)


def pack_idat(rows, wanted):
    """The most compressed stream of exactly `wanted` bytes."""
    best = None
    for choice in (0, 1, 2, 3, 4, "adaptive"):
        raw = filtered(rows, choice)
        for strategy in (zlib.Z_DEFAULT_STRATEGY, zlib.Z_FILTERED, zlib.Z_RLE):
            for level in range(1, 10):
                for split in range(len(raw), -1, -1):
                    stream = zlib_stream(raw, split, level, strategy)
                    if len(stream) == wanted:
                        if best is None or split > best[0]:
                            best = (split, stream)
                        break
    if best is None:
        sys.exit("cannot pack an image stream of %d bytes" % wanted)
    return best[1]


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def make_png(rows, idat_size, extra):
    png = b"\x89PNG\r\n\x1a\n"
    png += chunk(b"IHDR", struct.pack(">IIBBBBB", SIZE, SIZE, 8, 6, 0, 0, 0))
    if extra:
        png += chunk(*extra)
    idat = pack_idat(rows, idat_size)
    png += chunk(b"IDAT", idat)
    png += chunk(b"IEND", b"")
    # Self-check: the stream inflates back to the filtered scanlines.
    assert len(zlib.decompress(idat)) == SIZE * (1 + 4 * SIZE)
    return png


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    out_path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "html", "StatusIcons.cpp")
    lines = [
        "// Generated by tools/make-status-icons.py; edit the script, not this file.",
        '#include "html/StatusIcons.h"',
        "",
    ]
    for name, b64_length, idat_size, extra in ICONS:
        text = base64.b64encode(make_png(DRAW[name](), idat_size, extra)).decode("ascii")
        if len(text) != b64_length:
            sys.exit("%s: %d base64 characters, wanted %d" % (name, len(text), b64_length))
        lines.append("const char StatusIcons::k%s[] =" % name)
        for i in range(0, len(text), 96):
            lines.append('    "%s"' % text[i:i + 96])
        lines[-1] += ";"
        lines.append("")
    with open(out_path, "w") as out:
        out.write("\n".join(lines))


if __name__ == "__main__":
    main()
