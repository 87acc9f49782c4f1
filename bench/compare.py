#!/usr/bin/env python3
"""Compares decoding with its floor and with other programs: compare.py BUILD FOLDER [RUNS [NAME...]].

BUILD holds psdrender and floor, FOLDER the documents of make_bench_documents. The programs take turns and times are
medians. ImageMagick and GIMP are timed as whole processes, less their time with a document of one pixel. Peak memory is
psdrender's, less that of the same document.
"""
import os
import pathlib
import re
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile
import time


def run(command):
    """Milliseconds and output; None when the program fails, which GIMP only says, or takes over two minutes."""
    start = time.perf_counter()
    try:
        done = subprocess.run(command, capture_output=True, text=True, errors="replace", timeout=120)
    except subprocess.TimeoutExpired:
        return None
    output = done.stdout + done.stderr
    failed = done.returncode != 0 or "execution error" in output
    return None if failed else (1000 * (time.perf_counter() - start), output)


def printed_time(command):
    done = run(command)
    found = re.search(r"median ([0-9.]+) ms", done[1]) if done else None
    return float(found.group(1)) if found else None


def peak_bytes(psdrender, path):
    child = subprocess.Popen([psdrender, "--time=1", path], stdout=subprocess.DEVNULL)
    return 1024 * os.wait4(child.pid, 0)[2].ru_maxrss


def peers():
    convert = shutil.which("convert-im6.q16") or shutil.which("magick") or shutil.which("convert")
    gimp = shutil.which("gimp-console")
    if convert:
        yield "ImageMagick", lambda path, layered: [convert] + (
            [path, "-delete", "0", "-background", "none", "-flatten"] if layered else [path + "[0]"]) + ["null:"]
    if gimp:
        load = '(let* ((i (car (gimp-file-load RUN-NONINTERACTIVE "%s" "x")))) (gimp-image-flatten i))'
        yield "GIMP", lambda path, layered: [gimp, "-idf", "-b", load % path, "-b", "(gimp-quit 0)"]


def median(values):
    return None if None in values else statistics.median(values)


def main():
    build, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 7
    psdrender, floor = os.path.join(build, "psdrender"), os.path.join(build, "floor")
    others = dict(peers())
    print("| document | floor ms | ours ms | ÷ floor | fastest peer ms | ours ÷ peer | peak ÷ pixels |")
    print("|---|---|---|---|---|---|---|", flush=True)
    with tempfile.TemporaryDirectory() as temporary:
        pixel = os.path.join(temporary, "pixel.psd")
        with open(pixel, "wb") as file:
            file.write(b"8BPS" + struct.pack(">H6xHIIHH", 1, 3, 1, 1, 8, 3) + bytes(12 + 2 + 3))
        starts = {name: median([(run(other(pixel, False)) or [None])[0] for _ in range(3)])
                  for name, other in others.items()}
        base = peak_bytes(psdrender, pixel)
        for path in sorted(folder.glob("*.psd")):
            if sys.argv[4:] and path.stem not in sys.argv[4:]:
                continue
            times = {name: [] for name in ["floor", "ours", *others]}
            for turn in range(runs):
                times["floor"].append(printed_time([floor, str(path), "1"]))
                times["ours"].append(printed_time([psdrender, "--time=1", str(path)]))
                for name, other in others.items():
                    # Far behind: one turn says enough.
                    if turn < 1 or times[name][-1] and times[name][-1] < 4 * times["ours"][-1]:
                        done = run(other(str(path), path.stem.startswith("layers")))
                        times[name].append(done and done[0] - starts[name])
            medians = {name: median(values) for name, values in times.items()}
            ours = medians["ours"]
            best = min(((medians[name], name) for name in others if medians[name]), default=None)
            peer = f"{best[0]:.0f} {best[1]} | {ours / best[0]:.2f}" if best else "- | -"
            height, width = struct.unpack(">II", path.open("rb").read(22)[14:22])
            peak = (peak_bytes(psdrender, str(path)) - base) / (4 * width * height)
            print(f"| {path.stem} | {medians['floor']:.1f} | {ours:.1f} | {ours / medians['floor']:.2f} | {peer} "
                  f"| {peak:.2f} |", flush=True)


if __name__ == "__main__":
    main()
