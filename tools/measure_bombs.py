#!/usr/bin/env python3
"""Measures what small documents cost that ask for as much as they can: usage measure_bombs.py [FOLDER].

Builds native-release, makes the documents (or takes those of FOLDER), decodes each twice, as a client does and from
its layers, and prints milliseconds of CPU and the largest resident size beside what is allowed:
2 s for up to a mebibyte, or 20 ms and 60 ns for each byte and each pixel of layers and masks with data and of the
canvas when that is more; 64 MiB, 12 bytes for each pixel of the canvas, 8 for each of layers with data and 2 for each
of masks with data, 96 MiB at most for up to 64 KiB. For time, and for memory of larger files, the canvas counts as far
as a thousandfold expansion of the file fills it. Fails when a document takes more. TIMES_AS_SLOW says how many times
as much time a slow machine is allowed.
"""
import os
import pathlib
import struct
import subprocess
import sys

MIB = 1 << 20


def sizes_with_data(data):
    """Yields whether it is a mask, and its pixels, for all with more than a compression code that can be found."""
    at = 26
    try:
        for _ in range(2):
            at += 4 + struct.unpack_from(">I", data, at)[0]
        count, at = abs(struct.unpack_from(">h", data, at + 8)[0]), at + 10
        for _ in range(count):
            bounds = struct.unpack_from(">4i", data, at)
            channels = struct.unpack_from(">H", data, at + 16)[0]
            fields = struct.unpack_from(">" + "hI" * channels, data, at + 18)
            lengths = dict(zip(fields[::2], fields[1::2]))
            at += 18 + 6 * channels + 12
            extra, mask_size = struct.unpack_from(">2I", data, at)
            # The user mask is the only one, or lies before the real one, which has channel -3.
            masks = [at + 8, at + 28][: {20: 1, 36: 2}.get(mask_size, 0)]
            sides = [(False, max((n for i, n in lengths.items() if i not in (-2, -3)), default=0), bounds)]
            for channel, place in zip((-2, -3), masks):
                sides.append((True, lengths.get(channel, 0), struct.unpack_from(">4i", data, place)))
            for is_mask, length, (top, left, bottom, right) in sides:
                if length > 2:
                    yield is_mask, min(max(bottom - top, 0) * max(right - left, 0), 1000 * length)
            at += 4 + extra
    except struct.error:
        pass


def layer_pixels(data):
    return sum(pixels for is_mask, pixels in sizes_with_data(data) if not is_mask)


def mask_pixels(data):
    return sum(pixels for is_mask, pixels in sizes_with_data(data) if is_mask)


def run(program, arguments):
    child = subprocess.Popen([program, *arguments], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    if status & 127:
        raise SystemExit(f"{program} {' '.join(map(str, arguments))} ended by signal {status & 127}")
    return (usage.ru_utime + usage.ru_stime) * 1000, usage.ru_maxrss / 1024, status >> 8


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
    print(f"{'document':24} {'KiB':>6} {'merged: ms':>10} {'MiB':>6} {'layers: ms':>10} {'MiB':>6} {'allowed: ms':>11} MiB")
    paths = sorted(folder.glob("*.psd"))
    for path in paths:
        data = path.read_bytes()
        height, width = struct.unpack_from(">II", data, 14)
        canvas = min(width * height, 1000 * len(data))
        layers, masks = layer_pixels(data), mask_pixels(data)
        allowed_ms = slowness * max(2000 * (len(data) <= MIB), 20 + 60e-6 * (len(data) + canvas + layers + masks))
        allowed = 64 + (12 * canvas + 8 * layers + 2 * masks) / MIB
        if len(data) <= 65536:
            allowed = min(64 + (12 * width * height + 8 * layers + 2 * masks) / MIB, 96)
        results = [run(build / "psdrender", [*options, path, build / "bomb.bgra"]) for options in ([], ["--layers"])]
        over = any(ms > allowed_ms or mib > allowed for ms, mib, _ in results)
        worst |= over
        cells = " ".join(f"{ms:10.0f} {mib:6.0f}" for ms, mib, _ in results)
        print(f"{path.stem:24} {len(data) // 1024:6} {cells} {allowed_ms:11.0f} {allowed:3.0f} {'TOO MUCH' if over else ''}")
    return worst or not paths


sys.exit(main(*sys.argv[1:]))
