#!/usr/bin/env bash
# Turns a Photoshop document into a PNG through the Windows Imaging Component, starting from nothing but a checkout:
#   tools/first_picture.sh [DOCUMENT.psd [PICTURE.png]]
# Installs what is missing, builds the codec, registers it in a Wine prefix of its own (build/demo-prefix) and lets the
# command-line client, which knows nothing of the codec, convert the document. Without one it takes a sample.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
document=$(realpath -m -- "${1:-$here/build/native-release/samples/picture.psd}")
picture=$(realpath -m -- "${2:-$here/build/picture.png}")
if [ $# -gt 0 ] && [ ! -r "$document" ]; then
    echo "first_picture.sh: cannot read $document" >&2
    exit 1
fi
export WINEPREFIX=$here/build/demo-prefix
in_wine() { "$here/cmake/run_in_wine.sh" "$@"; }
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

cd "$here"
tools/install_packages.sh
echo "Building the codec"
log=$here/build/first_picture.log
mkdir -p build
{
    cmake --preset native-release -DTESSARY_BENCHMARKS=OFF
    cmake --build --preset native-release --target samples
    cmake --preset windows
    cmake --build --preset windows --target Tessary wicview
} >"$log" 2>&1 || {
    tail -n 30 "$log" >&2
    exit 1
}

echo "Registering it in $WINEPREFIX"
# The codec is unloaded and the registry written back when the last program of the prefix has ended.
trap 'wineserver -w' EXIT
in_wine regsvr32 /s "$(windows_path "$here/build/windows/AMD64/Tessary.dll")"
in_wine build/windows/wicview.exe --doctor

mkdir -p "$(dirname "$picture")"
in_wine build/windows/wicview.exe "$(windows_path "$document")" "$(windows_path "$picture")"
echo "Document: $document"
echo "Picture:  $picture"
