#!/usr/bin/env python3
"""Draws the pictures of the README anew: picture.png is a sample, samples.png several side by side on white.

Run from anywhere; needs the build "native-release" with its samples.
"""
import pathlib
import struct
import subprocess
import tempfile
import zlib

DOCS = pathlib.Path(__file__).resolve().parent
BUILD = DOCS.parent / "build" / "native-release"
SIDES, COLUMNS, GAP = (160, 120), 4, 8
SHOWN = ["effect-shadow", "effect-inner-shadow", "effect-glow", "effect-inner-glow",
         "effect-bevel", "effect-satin", "effect-overlay", "effect-gradient-overlay",
         "effect-pattern-overlay", "effect-stroke", "masks", "groups",
         "adjustment-curves", "adjustment-gradient-map", "cmyk", "lab"]


def pixels(name, folder):
    raw = folder / "raw.bgra"
    subprocess.check_call([BUILD / "psdrender", BUILD / "samples" / f"{name}.psd", raw])
    data = raw.read_bytes()
    return [bytes((data[i + c] * data[i + 3] + 255 * (255 - data[i + 3]) + 127) // 255 for c in (2, 1, 0))
            for i in range(0, len(data), 4)]


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def main():
    subprocess.check_call([BUILD / "psdrender", BUILD / "samples" / "picture.psd", DOCS / "picture.png"])
    width, height = (COLUMNS * (SIDES[0] + GAP) - GAP, -(-len(SHOWN) // COLUMNS) * (SIDES[1] + GAP) - GAP)
    rows = [bytearray(b"\xff" * 3 * width) for _ in range(height)]
    with tempfile.TemporaryDirectory() as folder:
        for index, name in enumerate(SHOWN):
            picture = pixels(name, pathlib.Path(folder))
            left, top = index % COLUMNS * (SIDES[0] + GAP), index // COLUMNS * (SIDES[1] + GAP)
            for y in range(SIDES[1]):
                row = b"".join(picture[y * SIDES[0]:(y + 1) * SIDES[0]])
                rows[top + y][3 * left:3 * (left + SIDES[0])] = row
    data = zlib.compress(b"".join(b"\0" + row for row in rows), 9)
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    (DOCS / "samples.png").write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", data) +
                                       chunk(b"IEND", b""))


main()
