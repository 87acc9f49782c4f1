#!/usr/bin/env python3
"""Makes what the fuzz targets start from: usage first_inputs.py WORK [DOCUMENTS].

Takes the samples in WORK/samples and, the documents in the folder DOCUMENTS. Writes WORK/first/TARGET and the
dictionary WORK/keys.dict, whose words are the keys and resource numbers in the sources.
"""
import hashlib
import pathlib
import re
import sys

LARGEST = 65536
BLOCK = re.compile(rb"8BIM[A-Za-z][A-Za-z0-9]{3}(....)", re.DOTALL)


def write(folder, data):
    folder.mkdir(parents=True, exist_ok=True)
    (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def tagged_blocks(document):
    for match in BLOCK.finditer(document):
        length = int.from_bytes(match[1], "big")
        if length <= min(8000, len(document) - match.end()):
            yield document[match.start() : match.end() + length + length % 2]


def main(work, *folders):
    work = pathlib.Path(work)
    first = work / "first"
    for path in [*work.glob("samples/**/*.psd"), *(path for folder in folders for path in pathlib.Path(folder).glob("*.psd"))]:
        data = path.read_bytes()
        if len(data) <= LARGEST:
            write(first / "open", data)
            write(first / "render", data)
            write(first / "com", data + bytes(32))
        for block in tagged_blocks(data):
            write(first / "descriptor", b"\3\0" + block)
    for path in pathlib.Path("frontend/resources").glob("*.rgs.in"):
        write(first / "script", path.read_bytes())

    words = set()
    for folder in ("document", "properties", "frontend"):
        for path in pathlib.Path(folder).glob("*.cpp"):
            text = path.read_text()
            words.update(re.findall(r'(?:FourCC\(|\{L?|= L?|Keyword\(L)"([^"\\]+)"', text))
            # Resources have numbers.
            words.update(r"\x%02x\x%02x" % divmod(int(id), 256) for id in re.findall(r"\n    \{(\d{4,5}), k", text))
    (work / "keys.dict").write_text("".join(f'"{word}"\n' for word in sorted(words)))


main(*sys.argv[1:])
