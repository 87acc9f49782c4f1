#!/usr/bin/env bash
# Makes what people download, in build/release/: a zip, an installer package, the symbols of both for reading reports of
# crashes, and SHA256SUMS. The same commit gives the same bytes with the same compilers. Then tries both under Wine;
# --untried leaves that out.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install_packages.sh wixl msitools
version=$(sed -nE 's/^project\(Tessary VERSION ([0-9.]+) .*/\1/p' CMakeLists.txt)
# All dates are the commit's.
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null || echo 315532800)
export SOURCE_DATE_EPOCH
build=build/windows-release
out=build/release
name=Tessary-$version

echo "Building Tessary $version"
log=build/release.log
mkdir -p build
{ cmake --preset windows-release && cmake --build --preset windows-release; } >"$log" 2>&1 || {
    tail -n 30 "$log" >&2
    exit 1
}
cmake/check_dll.sh x86_64-w64-mingw32-objdump $build/AMD64/Tessary.dll
grep -q "^## $version" CHANGELOG.md || { echo "release.sh: CHANGELOG.md says nothing about $version" >&2 && exit 1; }

# Texts with the ends of lines, and without the pictures, that a plain editor wants.
stage=$build/stage
rm -rf "$stage" "$out"
mkdir -p "$stage/AMD64" "$out"
cp $build/AMD64/Tessary.dll "$stage/AMD64/"
cp $build/{wicview,tessary-setup}.exe "$stage/"
for text in README.md LICENSE NOTICE CHANGELOG.md; do
    sed -E '/^!\[/d; s/$/\r/' "$text" >"$stage/${text%.md}.txt"
done
find "$stage" -type f -exec chmod 644 {} + -exec touch -d "@$SOURCE_DATE_EPOCH" {} +

# Packs the files of a folder, in order and all with one date: pack FOLDER OUT.zip NAME-OF-FOLDER.
pack() {
    python3 - "$@" "$SOURCE_DATE_EPOCH" <<'END'
import pathlib
import sys
import time
import zipfile

folder, out, name, seconds = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3], int(sys.argv[4])
with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
    for file in sorted(path for path in folder.rglob("*") if path.is_file()):
        entry = zipfile.ZipInfo(f"{name}/{file.relative_to(folder).as_posix()}", time.gmtime(seconds)[:6])
        entry.compress_type, entry.external_attr = zipfile.ZIP_DEFLATED, 0o644 << 16
        archive.writestr(entry, file.read_bytes())
END
}
symbols=$build/symbols
rm -rf $symbols
mkdir -p $symbols
cp $build/*.debug $symbols/
pack "$stage" "$out/$name.zip" "$name"
pack $symbols "$out/$name-symbols.zip" "$name-symbols"
tools/release/make_msi.sh "$stage" "$version" "$out/$name.msi"
(cd "$out" && sha256sum ./* | sed 's| \./| |' >../SHA256SUMS && mv ../SHA256SUMS .)

if [ "${1:-}" != --untried ]; then
    tools/release/make_msi.sh "$stage" "${version%%.*}.999.0" $build/newer.msi
    tools/release/try_installer.sh "$out/$name.zip" "$out/$name.msi" $build/newer.msi
fi
cat "$out/SHA256SUMS"
