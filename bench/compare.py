#!/usr/bin/env python3
"""Compares decoding with its floor, with other programs and with another build.

BUILD holds psdrender and floor, FOLDER the documents of make_bench_documents; a name that ends in * stands for all that
begin so. The programs take turns. Times are medians of RUNS (7): wall time as psdrender measures it, CPU time of its
process less that of a document of one pixel. Peak memory is psdrender's, less that of the same document. ImageMagick
and GIMP, where they are installed, are timed as whole processes, less their time with that document. OTHER is a build
of another state of this program; the last column then says how many times its CPU time ours is, best by best. With
--whole two more say the same, and how many times as much memory, of reading all layers before the first is drawn.
"""
import argparse
import fnmatch
import os
import pathlib
import re
import shutil
import statistics
import struct
import subprocess
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


def printed(pattern, output):
    found = re.search(pattern, output)
    return float(found.group(1)) if found else None


def printed_time(output):
    return printed(r"median ([0-9.]+) ms", output)


def measure(program, path, *options):
    """What one decoding takes: wall and CPU milliseconds, peak bytes (0: from a build that does not tell)."""
    child = subprocess.Popen([program, *options, "--time=1", path], stdout=subprocess.PIPE, text=True)
    output = child.stdout.read()
    usage = os.wait4(child.pid, 0)[2]
    peak = printed(r"peak ([0-9]+) KiB", output) or 0
    return printed_time(output), 1000 * (usage.ru_utime + usage.ru_stime), 1024 * peak


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
    return None if not values or None in values else statistics.median(values)


class Comparison:
    def __init__(self, build, other, whole, runs):
        self.psdrender, self.floor = os.path.join(build, "psdrender"), os.path.join(build, "floor")
        self.other = other and os.path.join(other, "psdrender")
        self.whole, self.runs, self.peers = whole, runs, dict(peers())
        with tempfile.TemporaryDirectory() as temporary:
            pixel = os.path.join(temporary, "pixel.psd")
            with open(pixel, "wb") as file:
                file.write(b"8BPS" + struct.pack(">H6xHIIHH", 1, 3, 1, 1, 8, 3) + bytes(12 + 2 + 3))
            self.starts = {name: median([(run(peer(pixel, False)) or [None])[0] for _ in range(3)])
                           for name, peer in self.peers.items()}
            _, self.pixel_cpu, self.pixel_peak = measure(self.psdrender, pixel)

    def head(self):
        columns = ["document", "floor ms", "ours ms", "÷ floor", "CPU ms", "fastest peer ms", "ours ÷ peer",
                   "peak ÷ canvas"] + ["CPU ÷ other build"] * bool(self.other)
        columns += ["CPU ÷ whole", "peak ÷ whole"] * self.whole
        return f"| {' | '.join(columns)} |\n|{'---|' * len(columns)}"

    def peer_times(self, path, times, ours):
        for name, peer in self.peers.items():
            # Far behind: one turn says enough.
            if not times[name] or times[name][-1] and times[name][-1] < 4 * ours:
                done = run(peer(str(path), not path.stem.startswith(("rgb", "cmyk", "lab", "flat"))))
                times[name].append(done and done[0] - self.starts[name])

    def row(self, path):
        floors, ours, others, wholes, times = [], [], [], [], {name: [] for name in self.peers}
        for turn in range(self.runs):
            floors.append(printed_time((run([self.floor, str(path), "1"]) or (0, ""))[1]))
            # What runs later finds the system's memory in a better state.
            for of_other in (False, True) if turn % 2 else (True, False):
                if not of_other:
                    ours.append(measure(self.psdrender, path))
                elif self.other:
                    others.append(measure(self.other, path)[1])
            if self.whole:
                wholes.append(measure(self.psdrender, path, "--whole"))
            self.peer_times(path, times, ours[-1][0])
        wall, cpu, peak = (statistics.median(column) for column in zip(*ours))
        best = min(((median(values), name) for name, values in times.items() if median(values)), default=None)
        height, width = struct.unpack(">II", path.open("rb").read(22)[14:22])
        cells = [path.stem, f"{median(floors):.1f}", f"{wall:.1f}", f"{wall / median(floors):.2f}",
                 f"{cpu - self.pixel_cpu:.1f}",
                 *([f"{best[0]:.0f} {best[1]}", f"{wall / best[0]:.2f}"] if best else ["-", "-"]),
                 f"{(peak - self.pixel_peak) / (4 * width * height):.2f}"]
        if self.other:
            cells.append(f"{(min(run[1] for run in ours) - self.pixel_cpu) / (min(others) - self.pixel_cpu):.2f}")
        if self.whole:
            best, least = min(run[1] for run in wholes), statistics.median(run[2] for run in wholes)
            cells.append(f"{(min(run[1] for run in ours) - self.pixel_cpu) / (best - self.pixel_cpu):.2f}")
            cells.append(f"{(peak - self.pixel_peak) / (least - self.pixel_peak):.2f}")
        return f"| {' | '.join(cells)} |"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--against")
    parser.add_argument("--whole", action="store_true")
    parser.add_argument("build")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("runs", nargs="?", type=int, default=7)
    parser.add_argument("names", nargs="*")
    options = parser.parse_args()
    comparison = Comparison(options.build, options.against, options.whole, options.runs)
    print(comparison.head(), flush=True)
    for path in sorted(options.folder.glob("*.psd")):
        if any(fnmatch.fnmatch(path.stem, name) for name in options.names or ["*"]):
            print(comparison.row(path), flush=True)


if __name__ == "__main__":
    main()
