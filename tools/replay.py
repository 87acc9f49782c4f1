#!/usr/bin/env python3
"""Opens documents through the DLL under Wine as clients do: usage replay.py [--damage ONE_OF] PATH...

The paths are documents or folders of them. With --damage every ONE_OF-th of all ways to cut a document or to damage
one of its bytes is opened as well. All are opened by a child process that may reserve 6 GB. When it ends at a document,
or stands still there for a minute, that is a failure, and another child goes on behind it; an object that is left
after a document is a failure, too. Such documents are kept in build/windows/found. Needs the windows build; ends with
77 when there is nothing to open.
"""
import argparse
import os
import pathlib
import re
import select
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
PROGRAM = ROOT / "build/windows/codec_test.exe"
FOUND = ROOT / "build/windows/found"
SECONDS = 60  # for one document
BATCH = 2000  # documents that one child opens


def damaged(data):
    """The lengths to cut at, then for each byte: zero, ones, the top bit the other way, one more, one less."""
    for size in range(len(data)):
        yield lambda size=size: data[:size]
    for at, byte in enumerate(data):
        for value in (0, 255, byte ^ 128, byte + 1 & 255, byte - 1 & 255):
            yield lambda at=at, value=value: data[:at] + bytes([value]) + data[at + 1:]


def documents(paths, one_of):
    """Names, and how to put the document at a path."""
    case = 0
    for path in paths:
        for file in sorted(path.rglob("*")) if path.is_dir() else [path]:
            if not file.is_file() or file.name == "stamp":
                continue
            yield file.stem, lambda to, file=file: to.symlink_to(file.resolve())
            for make in damaged(file.read_bytes()) if one_of else ():
                case += 1
                if case % one_of == 0:
                    yield file.stem, lambda to, make=make: to.write_bytes(make())


def run_child(folder):
    """Opens the documents of a folder. Returns the names of those begun, how many were opened, and what failed where."""
    environment = dict(os.environ, TESSARY_DOCUMENTS=str(folder), TESSARY_ADDRESS_SPACE="6000000")
    child = subprocess.Popen([ROOT / "cmake/run_in_wine.sh", PROGRAM, "--gtest_filter=Documents.*"],
                             env=environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    output, failure = b"", None
    while True:
        if not select.select([child.stdout], [], [], SECONDS)[0]:
            child.kill()
            failure = "stands still"
            break
        piece = os.read(child.stdout.fileno(), 1 << 16)
        if not piece:
            break
        output += piece
    lines = output.decode(errors="replace").splitlines()
    begun = [line.split(" ", 1)[1] for line in lines if line.startswith("document ")]
    opened = sum(line == "opened" for line in lines)
    code = child.wait()
    if code != 0 and not failure:
        left = re.search(r'left behind by ".*?([^\\/"]+)"', output.decode(errors="replace"))
        if left:
            return begun, opened, ("objects are left", left[1])
        failure = f"the child ended with {code}"
    return begun, opened, failure and (failure, begun[-1] if begun else None)


def replay(batch):
    """Opens one batch. Returns how many documents were opened and how many failures there were."""
    opened = failures = 0
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        for i, (name, put) in enumerate(batch):
            put(folder / f"{i:04}-{name}")
        while any(folder.iterdir()):
            begun, count, failure = run_child(folder)
            opened += count
            if failure:
                failures += 1
                print(*failure, flush=True)
                if failure[1]:
                    FOUND.mkdir(exist_ok=True)
                    (FOUND / failure[1]).write_bytes((folder / failure[1]).read_bytes())
            if not begun:  # then nothing can be learnt from another child
                return opened, failures or 1
            for name in begun:
                (folder / name).unlink()
    return opened, failures


def main():
    parser = argparse.ArgumentParser(usage="replay.py [--damage ONE_OF] PATH...")
    parser.add_argument("--damage", type=int, default=0)
    parser.add_argument("paths", type=pathlib.Path, nargs="+")
    arguments = parser.parse_args()
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
    return 77 if total == 0 else failures != 0


sys.exit(main())
