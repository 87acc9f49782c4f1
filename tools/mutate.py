#!/usr/bin/env python3
"""Puts small faults into the product, one by one, and tells which no test notices.

Usage: mutate.py [--jobs N] [WORD...]

The faults are the rows of tools/mutants.py: a file, what stands in it, and what is put there instead. With words only
those rows are tried whose file or text contains one of them; words like 7 and 20-29 are numbers of rows. The sources
are copied to build/mutate, where each fault is built incrementally without sanitizers; the native tests run
until one fails. Rows that are marked as equivalent must survive, and all others must not. Prints what does not keep
to that, with the row's number. Takes about half a minute of processor time for each fault.
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

import mutants

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build/mutate"
TREE = WORK / "tree"
BUILD = WORK / "build"
SECONDS = 240  # for one program: whatever stands still has been noticed
# Fastest first, but that of the fault's own folder before all others.
PROGRAMS = ["frontend_tests", "whole_tests", "document_tests", "properties_tests", "render_tests"]
FLAGS = ["-DCMAKE_CXX_FLAGS=-O1", "-DTESSARY_ROW_LEVEL=-O1", "-DTESSARY_FAULT_INJECTION=ON"]


def run(command, seconds=None):
    """The code a command ended with, None when it did not end, and what it said."""
    with open(WORK / "output", "wb") as log:
        try:
            code = subprocess.run(command, cwd=WORK, stdout=log, stderr=subprocess.STDOUT, timeout=seconds).returncode
        except subprocess.TimeoutExpired:
            code = None
    return code, (WORK / "output").read_text(errors="replace")


def copy_sources():
    """Only what differs is written, so that what has been built stays."""
    names = subprocess.check_output(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, text=True).split("\n")
    names = {name for name in names if name and (ROOT / name).is_file()}
    for name in names:
        source, copy = ROOT / name, TREE / name
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    for copy in TREE.rglob("*"):
        if copy.is_file() and copy.relative_to(TREE).as_posix() not in names:
            copy.unlink()


def noticed(programs, jobs):
    """Builds and runs one program after the other. What notices the fault that is built in; None when all pass."""
    for program in programs:
        code, said = run(["cmake", "--build", BUILD, "-j", str(jobs), "--target", program])
        if code != 0:
            return "it is not built:\n" + "\n".join(line for line in said.splitlines() if "error" in line)[:600]
        code, said = run([BUILD / program, "--gtest_brief=1", "--gtest_fail_fast"], SECONDS)
        if code != 0:
            test = re.search(r"\[  FAILED  \] ([\w.]+)", said)
            return test[1] if test else f"{program}, which ends with {code}"
    return None


def try_row(row, jobs):
    """What became of a fault: "caught by ...", "survives", or what is wrong with its row."""
    file, before, after = row[:3]
    copy = TREE / file
    text = copy.read_text() if copy.exists() else ""
    if text.count(before) != 1 or before == after:
        return f"stands {text.count(before)} times in {file}, or changes nothing"
    own = file.split("/")[0] + "_tests"
    copy.write_text(text.replace(before, after))
    try:
        test = noticed(sorted(PROGRAMS, key=lambda program: program != own), jobs)
        if test and test.startswith("it is not built"):
            return test
        return f"caught by {test}" if test else "survives"
    finally:
        copy.write_text(text)


def wanted(words):
    spans = [word.split("-") for word in words if re.fullmatch(r"\d+(-\d+)?", word)]
    numbers = {number for span in spans for number in range(int(span[0]), int(span[-1]) + 1)}
    texts = [word for word in words if not re.fullmatch(r"\d+(-\d+)?", word)]
    return [(n, row) for n, row in enumerate(mutants.ROWS, 1)
            if not words or n in numbers or any(text in part for text in texts for part in row[:3])]


def main():
    parser = argparse.ArgumentParser(usage="mutate.py [--jobs N] [WORD...]")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("words", nargs="*")
    arguments = parser.parse_args()
    TREE.mkdir(parents=True, exist_ok=True)
    copy_sources()
    code, said = run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", *FLAGS])
    test = noticed(PROGRAMS, arguments.jobs) if code == 0 else said
    if test:
        raise SystemExit(f"without a fault: {test}")
    faults = []
    rows = wanted(arguments.words)
    for number, row in rows:
        start = time.monotonic()
        outcome = try_row(row, arguments.jobs)
        is_right = outcome == "survives" if len(row) > 3 else outcome.startswith("caught")
        before, after = (" ".join(text.split())[:60] for text in row[1:3])
        print(f"{number:3} {row[0]}: {before} -> {after}: {outcome}{', as equivalent' if len(row) > 3 else ''} "
              f"({time.monotonic() - start:.0f} s)", flush=True)
        if not is_right:
            faults.append(number)
    print(f"{len(rows)} faults tried, {len(faults)} not as they should be: {faults}")
    return 1 if faults or not rows else 0


sys.exit(main())
