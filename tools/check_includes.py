#!/usr/bin/env python3
"""Checks that includes go one way: a file includes only files of lower rank, its own header, or others of its rank.

Every product file has a rank, and a new file of document/ or render/ has to be given one here. Only
document/platform.{h,cpp} may include headers of the system beyond the C++ library, zlib and the compiler's SSE2. What
is allowed beside that stands in EXCEPTIONS with its reason; they are counted and named, and fail when not needed.
"""
import pathlib
import re
import sys

RANKS = {
    "document": [
        (0, "platform checked_math big_endian psd_result plane_format allowance"),
        (1, "psd_document byte_reader"),
        (2, "section_source inflater packbits prediction plane_decoder pixel_assembly descriptor blend_keys "
            "image_resources layer_record layer_pixels layer_section merged_image patterns tagged_blocks read_driver"),
    ],
    "render": [
        (0, "pixel image_ops integer_hsl color_convert lab_convert"),  # these know no document
        (3, "pixel_vectors hsl_vectors blend_functions blend_loops blend_rows kernels coverage composite noise_map "
            "painted_tiles"),
        (5, "render streamed_render"),
    ],
    "properties": [(4, "")],
    "frontend": [
        (6, "document_pixels exif_graft float_environment header_probe pixel_copy read_ahead registry_script "
            "stream_position thumbnail_image"),  # portable; the others want Windows
        (7, ""),
    ],
}
NUMBER_OF = {f"{folder}/{name}": rank
             for folder, rows in RANKS.items() for rank, names in rows for name in names.split()}
OTHERS = {folder: rank for folder, rows in RANKS.items() for rank, names in rows if not names}

EXCEPTIONS = {
    ("document/tagged_blocks.cpp", "properties/property_readers.h"): "the blocks of a layer hold its properties",
    ("render/pixel_vectors.h", "immintrin.h"): "wide registers, where they were asked for",
    ("render/kernels.cpp", "immintrin.h"): "whether the system saves wide registers",
    ("render/kernels.cpp", "intrin.h"): "what the processor is, with one compiler",
    ("render/kernels.cpp", "cpuid.h"): "what the processor is, with the others",
}
STANDARD = re.compile(r"^[a-z_0-9]+$")


def rank(path):
    """None for what is no product file, and for one that nobody has given a rank."""
    folder, name = path.split("/")[0], pathlib.PurePosixPath(path).stem
    return NUMBER_OF.get(f"{folder}/{name}", OTHERS.get(folder))


def check(path, text, needed):
    own = rank(path)
    if own is None:
        yield f"{path}: has no rank in tools/check_includes.py"
        return
    for number, line in enumerate(text.splitlines(), 1):
        match = re.match(r'\s*#\s*include\s*([<"])([^>"]+)[>"]', line)
        if not match:
            continue
        bracket, included = match.groups()
        fault = None
        if bracket == "<":
            portable = STANDARD.match(included) or included in ("zlib.h", "emmintrin.h")
            if own < 7 and not portable and not path.startswith("document/platform."):
                fault = f"only the platform files may include <{included}>"
        else:
            other = rank(included)
            if other is None and included.startswith(("tests/", "tools/", "fuzz/", "bench/")):
                fault = f"product code includes {included}"
            elif other is not None and other > own:
                fault = f"rank {own} includes {included} of rank {other}"
        if fault and (path, included) in EXCEPTIONS:
            needed.add((path, included))
        elif fault:
            yield f"{path}:{number}: {fault}"


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    faults, needed = [], set()
    for folder in RANKS:
        for file in sorted((root / folder).rglob("*")):
            if file.suffix in (".h", ".cpp"):
                faults += check(file.relative_to(root).as_posix(), file.read_text(), needed)
    faults += [f"{path}: the exception for {included} is not needed" for path, included in EXCEPTIONS.keys() - needed]
    if faults:
        print("\n".join(faults))
        return 1
    print(f"includes go one way, but for {len(needed)} exceptions:")
    for path, included in EXCEPTIONS:
        print(f"  {path} includes {included}: {EXCEPTIONS[path, included]}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
