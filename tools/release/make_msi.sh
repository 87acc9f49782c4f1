#!/usr/bin/env bash
# Packs the files of a folder into an installer package: make_msi.sh FOLDER VERSION OUT.msi. The same files and version
# give the same bytes.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
folder=$(realpath "$1")
version=$2
out=$(realpath -m "$3")
# Every version is a product of its own, every content a package of its own.
identifier() {
    python3 - "$1" <<'END'
import sys
import uuid

print(str(uuid.uuid5(uuid.UUID("6b1d5f0e-93c2-4e57-a6b4-2f8c70d1e935"), sys.argv[1])).upper())
END
}
content=$(cd "$folder" && find . -type f -print0 | sort -z | xargs -0 sha256sum; cat "$here/tessary.wxs" "$here/make_msi.sh")
cd "$folder"
rm -f "$out"
wixl -a x64 -D "Version=$version" -D "ProductCode=$(identifier "product $version")" -o "$out" "$here/tessary.wxs"

# What wixl does not do: actions that roll back, and the version of the DLL, without which no repair replaces it.
msibuild "$out" \
    -q "UPDATE CustomAction SET Type=3410 WHERE Action='UndoRegister'" \
    -q "UPDATE CustomAction SET Type=3410 WHERE Action='UndoUnregister'" \
    -q "UPDATE File SET Version='$version.0' WHERE File='Dll'" \
    -q "UPDATE File SET Version='$version.0' WHERE File='Setup'" \
    -q "UPDATE File SET Version='$version.0' WHERE File='Viewer'" \
    -s "Tessary $version" "The Tessary developers" "x64;1033" "{$(identifier "package $version $content")}"

# The order of things is what everything hangs on.
sequence=$(msiinfo export "$out" InstallExecuteSequence | tr -d '\r' | cut -f 1,3)
last=0
for action in FindRelatedProducts LaunchConditions InstallInitialize RemoveExistingProducts ProcessComponents \
    UndoUnregister Unregister RemoveFiles InstallFiles UndoRegister Register InstallFinalize; do
    number=$(sed -n "s/^$action\t//p" <<<"$sequence")
    if [ "${number:-0}" -le $last ]; then
        echo "make_msi.sh: $action stands at ${number:-no place}, after $last" >&2
        exit 1
    fi
    last=$number
done

# The two times of the summary are the only bytes that differ from one run to the next.
python3 - "$out" "${SOURCE_DATE_EPOCH:-315532800}" <<'END'
import re
import struct
import sys

path, seconds = sys.argv[1], int(sys.argv[2])
data = open(path, "rb").read()
time = struct.pack("<Q", (seconds + 11644473600) * 10000000)
pattern = re.compile(rb"\x40\0\0\0.{6}[\xc0-\xef]\x01", re.DOTALL)
data, count = pattern.subn(lambda found: b"\x40\0\0\0" + time, data)
if count != 2:
    sys.exit(f"make_msi.sh: {count} times in the summary instead of 2")
open(path, "wb").write(data)
END
