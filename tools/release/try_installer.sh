#!/usr/bin/env bash
# Tries what tools/release.sh has made under Wine: installing from the zip and from the package, repair, upgrade, refused
# downgrade and removal, on a registry in which another program owns documents: try_installer.sh ZIP MSI NEWER.msi.
# After each removal the registry has to be what it was before.
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
zip=$(realpath "$1") package=$(realpath "$2") newer=$(realpath "$3")
work=$(mktemp -d "$here/build/try.XXXXXX")
export WINEPREFIX=$work/prefix
in_wine() { "$here/cmake/run_in_wine.sh" "$@"; }
trap 'wineserver -k || true; wineserver -w || true; rm -rf "$work"' EXIT
windows_path() { printf 'Z:%s' "${1//\//\\}"; }
fail() { echo "try_installer.sh: $*" >&2 && exit 1; }
# Runs a command that has to end with success or, behind "!", without it.
expect() {
    local wanted=0 code=0
    if [ "$1" = ! ]; then wanted=1 && shift; fi
    in_wine "$@" >"$work/output" 2>&1 || code=1
    [ $code -eq $wanted ] || { cat "$work/output" >&2 && fail "$* ended with $code"; }
}
folder="$WINEPREFIX/drive_c/Program Files/Tessary"
doctor() { expect 'C:\Program Files\Tessary\wicview.exe' --doctor; }
add() { expect reg add "$1" "${@:2}" /f; }
# Everything but the places where the installer itself keeps its books.
export_registry() {
    for root in HKLM HKCU; do
        expect reg export "$root\\Software" "$(windows_path "$work/$root.reg")" /y
        iconv -f utf-16 -t utf-8 "$work/$root.reg"
    done | tr -d '\r' | grep -vE '^$|^\[.*\\Installer(\\|\])' >"$1"
}
unchanged() {
    export_registry "$work/after"
    diff "$work/before" "$work/after" || fail "the registry is not what it was before: $1"
    echo "ok: $1"
}

machine='HKLM\Software\Classes'
properties='HKLM\Software\Microsoft\Windows\CurrentVersion\PropertySystem\PropertyHandlers\.psd'
add "$machine\\.psd" /ve /d Foreign.Document
add "$machine\\.psd" /v 'Content Type' /d image/foreign
add "$machine\\.psd\\shellex\\{e357fccd-a995-4576-b01f-234630154e96}" /ve /d '{11111111-2222-3333-4444-555555555555}'
add "$machine\\.psd\\shellex\\Other" /v Number /t REG_DWORD /d 7
add "$machine\\SystemFileAssociations\\.psd\\Shell\\Foreign" /ve /t REG_EXPAND_SZ /d '%X%'
add "$properties" /ve /d '{99999999-2222-3333-4444-555555555555}'
add 'HKCU\Software\Classes\.pdd' /ve /d Foreign.User
export_registry "$work/before"

python3 -m zipfile -e "$zip" "$work/unpacked"
setup=$(find "$work/unpacked" -name tessary-setup.exe)
for scope in "" --user; do
    # shellcheck disable=SC2086
    expect "$setup" install $scope
    if [ -z "$scope" ]; then expect "$(dirname "$setup")/wicview.exe" --doctor; fi # Wine shows decoders of the machine only
    # shellcheck disable=SC2086
    expect "$setup" install $scope
    # shellcheck disable=SC2086
    expect "$setup" uninstall $scope
    unchanged "installed and removed with tessary-setup $scope"
done
expect "$setup" install
rm "$(find "$work/unpacked" -name Tessary.dll)"
expect ! "$setup" repair
expect "$setup" uninstall
unchanged "removed without the DLL"

expect msiexec /i "$(windows_path "$package")" /qn
doctor
echo "ok: installed from the package"
rm "$folder/AMD64/Tessary.dll"
expect reg delete "$machine\\.psd" /ve /f
expect msiexec /i "$(windows_path "$package")" REINSTALL=ALL REINSTALLMODE=omus /qn
doctor
echo "ok: repaired"
expect msiexec /i "$(windows_path "$newer")" /qn
doctor
expect ! msiexec /i "$(windows_path "$package")" /qn
doctor
in_wine reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall' /s >"$work/programs"
[ "$(grep -c 'DisplayName.*Tessary' "$work/programs")" -eq 1 ] || fail "not one entry among the programs"
version=$(msiinfo export "$newer" Property | tr -d '\r' | sed -n 's/^ProductVersion\t//p')
grep -q "DisplayVersion.*$version" "$work/programs" || fail "$version is not among the programs"
echo "ok: upgraded to $version, and not back"
expect msiexec /x "$(windows_path "$newer")" /qn
[ ! -e "$folder" ] || fail "files are left in $folder"
unchanged "removed with the package"
