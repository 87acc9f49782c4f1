#!/usr/bin/env python3
"""Opens documents through the DLL under Wine as clients do: usage replay.py [--damage ONE_OF] PATH...

The paths are documents or folders of them. With --damage every ONE_OF-th of all ways to cut a document or to damage
one of its bytes is opened as well. All are opened by a child process that may reserve 6 GB. When it ends at a document,
stands still there for a minute, or has an object left after it, that is a failure: the document is kept in
build/windows/found, and another child goes on behind it. Needs the windows build; ends with 77 when no path exists.
"""
import argparse
import hashlib
import os
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
IN_WINE = ROOT / "cmake/run_in_wine.sh"
PROGRAM = ROOT / "build/windows/codec_test.exe"
FOUND = ROOT / "build/windows/found"
SECONDS = 60  # for one document
BATCH = 2000  # documents that one child opens


def damaged(data):
    """Cut at every length; then each byte zero, ones, its top bit the other way, one more, one less."""
    for size in range(len(data)):
        yield lambda size=size: data[:size]
    for change in (lambda _: 0, lambda _: 255, lambda byte: byte ^ 128, lambda byte: byte + 1, lambda byte: byte - 1):
        for at, byte in enumerate(data):
            yield lambda at=at, value=change(byte) & 255: data[:at] + bytes([value]) + data[at + 1:]


def documents(paths, one_of):
    """Where each document comes from, and how to put it at a path."""
    case = 0
    for path in paths:
        for file in sorted(path.rglob("*")) if path.is_dir() else [path]:
            if not file.is_file() or file.name == "stamp":
                continue
            yield file, lambda to, file=file: to.symlink_to(file.resolve())
            for make in damaged(file.read_bytes()) if one_of else ():
                case += 1
                if case % one_of == 0:
                    yield file, lambda to, make=make: to.write_bytes(make())


def run_child(folder):
    """Opens the documents of a folder. Returns the names of those begun, how many were opened, and what went wrong."""
    environment = dict(os.environ, TESSARY_DOCUMENTS=str(folder), TESSARY_ADDRESS_SPACE="6000000",
                       WINEDLLOVERRIDES="winedbg.exe=d")
    child = subprocess.Popen([IN_WINE, PROGRAM, "--gtest_filter=Documents.*"], env=environment, stdout=subprocess.PIPE)
    output, failure, since = b"", None, time.monotonic()
    try:
        while True:
            ended = child.poll() is not None
            if select.select([child.stdout], [], [], 0 if ended else 0.2)[0]:
                piece = os.read(child.stdout.fileno(), 1 << 16)
                if not piece:
                    break
                output, since = output + piece, time.monotonic()
            elif ended:
                break
            elif time.monotonic() - since > SECONDS:
                failure = "stands still"
                break
        if not failure:
            child.wait(SECONDS)  # the output may end before the process does
    except subprocess.TimeoutExpired:
        failure = "does not end"
    finally:
        child.kill()  # nothing when it has ended
        code = child.wait()
        child.stdout.close()
    lines = output.decode(errors="replace").splitlines()
    begun = [line.split(" ", 1)[1] for line in lines if line.startswith("document ")]
    if not failure and not any(line.startswith("[  PASSED  ] 1 test") for line in lines):
        reasons = [line for line in lines if line.startswith("It ")]  # what the test says when it fails
        failure = "; ".join(reasons) or f"the child ended with {code}"
    return begun, lines.count("opened"), failure


def replay(batch):
    """Opens one batch. Returns how many documents were opened and how many failures there were."""
    opened = failures = 0
    with tempfile.TemporaryDirectory() as folder:
        waiting = {}
        for i, (source, put) in enumerate(batch):
            waiting[f"{i:04}.psd"] = source
            put(pathlib.Path(folder, f"{i:04}.psd"))
        while waiting:
            begun, count, failure = run_child(folder)
            opened += count
            if not begun:  # then nothing can be learnt from another child
                raise SystemExit(f"no document was begun: {failure}")
            if failure:
                failures += 1
                last = pathlib.Path(folder, begun[-1])
                kept = FOUND / (hashlib.sha1(last.read_bytes()).hexdigest() + ".psd")
                FOUND.mkdir(exist_ok=True)
                shutil.copyfile(last, kept)
                print(f"{waiting[begun[-1]]}: {failure}; kept as {kept}", flush=True)
            for name in begun:
                del waiting[name]
                pathlib.Path(folder, name).unlink()
            if not failure and waiting:
                raise SystemExit(f"{len(waiting)} documents were not seen")
    return opened, failures


def main():
    parser = argparse.ArgumentParser(usage="replay.py [--damage ONE_OF] PATH...")
    parser.add_argument("--damage", type=int, default=0)
    parser.add_argument("paths", type=pathlib.Path, nargs="+")
    arguments = parser.parse_args()
    missing = [path for path in arguments.paths if not path.exists()]
    if missing:
        print("not there:", *missing, "(the native build makes build/native/small_samples)")
        return 77 if missing == arguments.paths else 2
    # Makes the prefix when there is none, which takes its time.
    subprocess.check_call([IN_WINE, "cmd", "/c", "ver"], stdout=subprocess.DEVNULL)
    total = opened = failures = 0
    batch = []

    def finish():
        nonlocal total, opened, failures
        counts = replay(batch)
        total, opened, failures = total + len(batch), opened + counts[0], failures + counts[1]
        batch.clear()

    for document in documents(arguments.paths, arguments.damage):
        batch.append(document)
        if len(batch) == BATCH:
            finish()
    finish()
    print(f"{total} documents, {opened} opened, {failures} failures")
    return failures != 0 or total == 0


sys.exit(main())
