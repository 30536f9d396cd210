#!/usr/bin/env python3
"""Loads a saved thermal image, prints its spot temperatures and writes it as a coloured PNG.

    PYTHONPATH=build/python python3 examples/python/spots.py out/IR000001.RIX [out.png]

The PNG is written with the palette the image was taken with, scaled to its spots, as an 8-bit
RGB PNG written with the standard library alone (zlib), no imaging package needed.
"""

import struct
import sys
import zlib

import nordalib


def write_png(path, rgb):
    """A minimal RGB PNG: signature, header, one zlib-compressed image chunk, end."""
    height, width, _ = rgb.shape
    rows = b"".join(b"\0" + rgb[y].tobytes() for y in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n")
        f.write(chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)))
        f.write(chunk(b"IDAT", zlib.compress(rows, 6)))
        f.write(chunk(b"IEND", b""))


def describe(value):
    mark = "" if value.valid else " (%s)" % {1: "outside tolerance", 3: "under range", 5: "over range"}.get(
        value.mark, "mark %d" % value.mark)
    if isinstance(value, nordalib.Relation):
        return "%.1f %% surface humidity%s" % (value.percent, mark)
    return "%.2f °C%s" % (value, mark)


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    rix = nordalib.Rix.load(sys.argv[1])
    height, width = rix.shape
    print("%s: %d x %d, taken %s, emissivity %.2f, reflected %.1f °C" % (
        sys.argv[1], width, height, rix.time.strftime("%Y-%m-%d %H:%M:%S UTC"), rix.emissivity, rix.reflected))

    meta = rix.metadata
    for key, point in sorted(meta.items()):
        if isinstance(point, nordalib.MeasPoint) and point.value is not None:
            name = key.split(".")[1]  # MeasPoints.<name>.MeasPoint
            print("  %-12s (%3d, %3d)  %s" % (name, point.x, point.y, describe(point.value)))
    print("  %-12s (%3d, %3d)  %s" % ("minimum", rix.min.x, rix.min.y, describe(rix.min.value)))
    print("  %-12s (%3d, %3d)  %s" % ("maximum", rix.max.x, rix.max.y, describe(rix.max.value)))
    print("  mean of the image %.2f °C" % rix.temperatures.mean())

    out = sys.argv[2] if len(sys.argv) == 3 else sys.argv[1].rsplit(".", 1)[0] + ".png"
    palette = meta.get("Palette.ActivePalette", "iron")
    write_png(out, nordalib.colorize(rix.temperatures, palette, limits=(rix.min.value, rix.max.value)))
    print("wrote %s (%s palette, %.1f .. %.1f °C)" % (out, palette, rix.min.value, rix.max.value))


if __name__ == "__main__":
    main()
