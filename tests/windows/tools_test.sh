#!/usr/bin/env bash
# What the Windows tools say and how they end: tools_test.sh BUILD. In a prefix of its own, for it registers the codec.
set -euo pipefail
build=$(realpath "$1")
here=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d "$build/tools.XXXXXX")
export WINEPREFIX=$build/tools-prefix
in_wine() { "$here/cmake/run_in_wine.sh" "$@"; }
trap 'in_wine "$work/tessary-setup.exe" uninstall >/dev/null || true; wineserver -w; rm -rf "$work"' EXIT
mkdir "$work/AMD64"
cp "$build"/{wicview,tessary-setup}.exe "$work"
cp "$build/AMD64/Tessary.dll" "$work/AMD64"
cd "$work"
# Red and green, and half of the same.
printf '8BPS\0\1\0\0\0\0\0\0\0\3\0\0\0\1\0\0\0\2\0\10\0\3\0\0\0\0\0\0\0\0\0\0\0\0\0\0\377\0\0\377\0\0' >sound.psd
head -c 20 sound.psd >cut.psd
sed 's/^8BPS.\x01/8BPS\x00\x02/' sound.psd >large.psd
echo text >text.psd
printf 'MZ%58s\100\0\0\0PE\0\0\114\1' '' >x86.exe
failures=0
# expect CODE PATTERN PROGRAM ARGUMENT...: how the program ends, and what a line that it prints has.
expect() {
    local code=0
    in_wine "./$3.exe" "${@:4}" >output 2>&1 || code=$?
    if [ $code -ne "$1" ] || ! grep -qE -- "$2" output; then
        failures=$((failures + 1))
        echo "$3 ${*:4} ended with $code instead of $1, or said nothing of '$2':"
        cat output
    fi
}
registry() { in_wine reg "$@" /f >/dev/null; }

for tool in wicview tessary-setup; do
    expect 0 '^usage: ' $tool --help
    expect 0 "^$tool [0-9.]+" $tool --version
    expect 2 '^usage: ' $tool --nonsense
done
expect 2 'end in \.png' wicview sound.psd out.jpg
expect 1 'no such file' wicview missing.psd
expect 1 'is not registered: run "tessary-setup install"' wicview --doctor
other='HKU\S-1-5-21-1-1-1-1001'
registry add "$other\Software\Classes\CLSID\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}" /ve /d Tessary
expect 1 'is registered for another user only \(S-1-5-21-1-1-1-1001\)' wicview --doctor
registry delete "$other"
expect 1 'not registered' tessary-setup status
expect 1 'use "tessary-setup install"' tessary-setup repair
expect 0 'not registered' tessary-setup uninstall

# Nothing in this folder's name may be taken for a quote, a variable or a letter of another code page.
strange="it's 100% é中 %%x/AMD64"
mkdir -p "$strange"
cp AMD64/Tessary.dll "$strange"
for folder in AMD64 "$strange"; do
    expect 1 'cannot open' wicview sound.psd
    in_wine regsvr32 /s "Z:$PWD/$folder/Tessary.dll"
    expect 0 'Photoshop Document Decoder' wicview sound.psd
    in_wine regsvr32 /s /u "Z:$PWD/$folder/Tessary.dll"
done

registry add 'HKLM\Software\Classes\.psd' /ve /d Foreign.Document
registry add 'HKLM\Software\Classes\Foreign.Document\ShellEx\{E357FCCD-A995-4576-B01F-234630154E96}' /ve /d '{1}'
expect 0 'registered for this machine' tessary-setup install
expect 0 '^  HKLM.*"Foreign.Document"' tessary-setup status
expect 0 '^All is well' wicview --doctor sound.psd
expect 1 'cut.psd is not a Photoshop document' wicview --doctor cut.psd
expect 1 'text.psd is not a Photoshop document' wicview --doctor text.psd
expect 1 'large.psd is a large document' wicview --doctor large.psd
expect 1 'x86.exe is a program that Tessary cannot serve' wicview --doctor x86.exe
expect 0 '^3 files, 0 failed' wicview sound.psd sound.psd 's?und*' --to .
[ -s sound.png ] || { echo "sound.png was not written" && failures=$((failures + 1)); }
expect 1 '^5 files, 3 failed' wicview sound.psd '*.psd'
registry add 'HKLM\Software\Classes\.psd' /ve /d Foreign.Document
expect 1 'has taken thumbnails of \.psd: \{1\}' wicview --doctor
mv AMD64 x64
expect 1 'its folder has to be called AMD64' wicview --doctor
expect 1 'there is no Tessary.dll' tessary-setup repair
mv x64 AMD64
decoders='HKLM\Software\Classes\CLSID\{7ED96837-96F0-4812-B211-F13C24117ED3}\Instance'
registry delete "$decoders\{3D6A1E52-7C41-4B9F-A0D3-5E8B24C91F07}"
expect 1 'not listed' wicview --doctor
expect 0 'registered for this machine' tessary-setup repair
cp AMD64/Tessary.dll whole.dll
echo damaged >AMD64/Tessary.dll
expect 1 'the file is damaged.*The registry is as it was' tessary-setup repair
expect 0 '^  HKLM.*"Foreign.Document"' tessary-setup status
rm AMD64/Tessary.dll
mv whole.dll Tessary.dll
expect 0 'registered for this machine' tessary-setup install
expect 0 'no longer registered' tessary-setup uninstall
expect 0 'registered for this user' tessary-setup install --user
expect 1 'uninstall --user' tessary-setup uninstall
expect 0 'no longer registered' tessary-setup uninstall --user
[ $failures -eq 0 ]
