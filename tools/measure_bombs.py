#!/usr/bin/env python3
"""Measures what small documents cost that ask for as much as they can: usage measure_bombs.py [FOLDER].

Builds native-release, makes the documents (or takes those of FOLDER), decodes each twice, as a client does and from
its layers, and prints milliseconds of CPU and the largest resident size beside what is allowed: 10 s and 512 MiB for
each started mebibyte of the file. Data that really expands to more has that on top: 250 ns and 4 bytes for each pixel
that comes out of it, of the merged image, of layers and of masks alike. The pixels of a layer or mask are those of
its longest channel. Fails when a document takes more. TIMES_AS_SLOW says how many times as much time a slow machine
is allowed.
"""
import os
import pathlib
import struct
import subprocess
import sys
import zlib

MIB = 1 << 20


def expanded_bytes(data, rows):
    """How many bytes come out of a plane's data."""
    (compression,), data, total = struct.unpack_from(">H", data), data[2:], 0
    if compression == 0:
        return len(data)
    if compression == 1:
        at = 2 * rows
        while at < len(data):
            run = data[at]
            total += 0 if run == 128 else 257 - run if run > 128 else run + 1
            at += 1 if run == 128 else 2 if run > 128 else run + 2
        return total
    unpacker = zlib.decompressobj()
    try:
        while piece := unpacker.decompress(data, MIB):
            total, data = total + len(piece), unpacker.unconsumed_tail
    except zlib.error:
        pass
    return total


def layer_channels(data, at):
    """Yields each channel's layer or mask, the sides of its rectangle, the place and the length of its data."""
    (count,) = struct.unpack_from(">h", data, at)
    at, layers = at + 2, []
    for _ in range(abs(count)):
        bounds = struct.unpack_from(">4i", data, at)
        (channels,) = struct.unpack_from(">H", data, at + 16)
        fields = struct.unpack_from(">" + "hI" * channels, data, at + 18)
        at += 18 + 6 * channels + 12
        extra, mask_size = struct.unpack_from(">2I", data, at)
        # The user mask is the only one, or lies before the real one, which has channel -3.
        places = [at + 8, at + 28][: {20: 1, 36: 2}.get(mask_size, 0)]
        masks = {-2 - i: struct.unpack_from(">4i", data, place) for i, place in enumerate(places)}
        layers.append((bounds, masks, list(zip(fields[::2], fields[1::2]))))
        at += 4 + extra
    for bounds, masks, channels in layers:
        for channel, length in channels:
            top, left, bottom, right = masks.get(channel, bounds)
            owner = id(masks), channel if channel in masks else 0
            yield owner, max(right - left, 0), max(bottom - top, 0), at, length
            at += length


def expanded_pixels(data):
    """How many pixels really come out of the data, as far as it can be found."""
    planes, height, width, depth = struct.unpack_from(">HIIH", data, 12)
    filled = {}

    def fill(owner, columns, rows, at, length, planes=1):
        if length > 2 and at + 2 < len(data):
            samples = expanded_bytes(data[at : at + length], rows * planes) * 8 // max(depth, 1)
            filled[owner] = max(filled.get(owner, 0), min(columns * rows, samples // max(planes, 1)))

    try:
        at = 26
        for _ in range(2):
            at += 4 + struct.unpack_from(">I", data, at)[0]
        merged = at + 4 + struct.unpack_from(">I", data, at)[0]
        fill("merged", width, height, merged, len(data) - merged, planes)
        for channel in layer_channels(data, at + 8):
            fill(*channel)
    except struct.error:
        pass
    return sum(filled.values())


def run(program, arguments):
    child = subprocess.Popen([program, *arguments], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    if status & 127:
        raise SystemExit(f"{program} {' '.join(map(str, arguments))} ended by signal {status & 127}")
    return (usage.ru_utime + usage.ru_stime) * 1000, usage.ru_maxrss / 1024


def main(folder=None):
    folder = folder and pathlib.Path(folder).resolve()
    os.chdir(pathlib.Path(__file__).parent.parent)
    build = pathlib.Path("build/native-release")
    subprocess.check_call(["cmake", "--preset", "native-release"], stdout=subprocess.DEVNULL)
    subprocess.check_call(
        ["cmake", "--build", build, "--target", "psdrender", "make_samples"], stdout=subprocess.DEVNULL)
    if not folder:
        folder = build / "bombs"
        subprocess.check_call([build / "make_samples", folder, "--bombs"])
    worst = 0
    slowness = float(os.environ.get("TIMES_AS_SLOW", 1))
    print(f"{'document':28} {'KiB':>6} {'merged: ms':>10} {'MiB':>6} {'layers: ms':>10} {'MiB':>6} {'allowed: ms':>11} {'MiB':>6}")
    paths = sorted(folder.glob("*.psd"))
    for path in paths:
        data = path.read_bytes()
        pixels, mebibytes = expanded_pixels(data), -(-len(data) // MIB)
        allowed_ms = slowness * (10000 * mebibytes + 250e-6 * pixels)
        allowed = 512 * mebibytes + 4 * pixels / MIB
        results = [run(build / "psdrender", [*options, path, build / "bomb.bgra"]) for options in ([], ["--layers"])]
        over = any(ms > allowed_ms or mib > allowed for ms, mib in results)
        worst |= over
        cells = " ".join(f"{ms:10.0f} {mib:6.0f}" for ms, mib in results)
        print(f"{path.stem:28} {len(data) // 1024:6} {cells} {allowed_ms:11.0f} {allowed:6.0f} {'TOO MUCH' if over else ''}")
    return worst or not paths


sys.exit(main(*sys.argv[1:]))
