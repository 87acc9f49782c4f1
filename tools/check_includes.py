#!/usr/bin/env python3
"""Checks that includes go one way: a file includes only files of lower rank (or its own header, or its own rank).

Every product file has a rank. Files of the same rank may include each other's headers. One file is allowed to include
upwards: the reader of tagged blocks calls the readers of properties. Only document/platform.{h,cpp} may include
headers of the system beyond the C++ library, zlib and the compiler's SSE2, and two files those of wider processors.
"""
import pathlib
import re
import sys

LEAVES = {
    "document": {"platform", "checked_math", "big_endian", "psd_result", "plane_format", "allowance"},
    "render": {"pixel", "image_ops", "integer_hsl", "color_convert"},
}
BASE = {"psd_document", "byte_reader"}
CORE = {"document_pixels", "exif_graft", "float_environment", "header_probe", "pixel_copy", "read_ahead",
        "registry_script", "stream_position", "thumbnail_image"}
EXCEPTIONS = {("document/tagged_blocks.cpp", "properties/property_readers.h")}
PROCESSOR = {("render/pixel_vectors.h", "immintrin.h"), ("render/kernels.cpp", "immintrin.h"),
             ("render/kernels.cpp", "intrin.h"), ("render/kernels.cpp", "cpuid.h")}
STANDARD = re.compile(r"^[a-z_0-9]+$")


def rank(path):
    folder, name = path.split("/")[0], pathlib.PurePosixPath(path).stem
    if name in LEAVES.get(folder, ()):
        return 0
    if folder == "document":
        return 1 if name in BASE else 2
    if folder == "render":
        return 5 if name in ("render", "streamed_render") else 3
    if folder == "properties":
        return 4
    if folder == "frontend":
        return 6 if name in CORE else 7
    return None


def check(path, text):
    own = rank(path)
    for number, line in enumerate(text.splitlines(), 1):
        match = re.match(r'\s*#\s*include\s*([<"])([^>"]+)[>"]', line)
        if not match:
            continue
        bracket, included = match.groups()
        if bracket == "<":
            portable = STANDARD.match(included) or included in ("zlib.h", "emmintrin.h")
            portable = portable or (path, included) in PROCESSOR
            if own < 7 and not portable and not path.startswith("document/platform."):
                yield f"{path}:{number}: only the platform files may include <{included}>"
            continue
        other = rank(included)
        if other is None:
            if included.startswith(("tests/", "tools/", "fuzz/", "bench/")):
                yield f"{path}:{number}: product code includes {included}"
        elif other > own and (path, included) not in EXCEPTIONS:
            yield f"{path}:{number}: rank {own} includes {included} of rank {other}"


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    faults = []
    for folder in ("document", "render", "properties", "frontend"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix in (".h", ".cpp"):
                path = file.relative_to(root).as_posix()
                faults += check(path, file.read_text())
    print("\n".join(faults) if faults else "includes go one way")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
