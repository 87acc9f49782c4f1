#!/usr/bin/env bash
# Installs what building and testing need on Debian 12 and is not there yet. Needs root (or sudo) only then.
set -euo pipefail
packages=(cmake ninja-build g++ g++-mingw-w64-x86-64-posix libz-mingw-w64-dev zlib1g-dev libpng-dev
    googletest libgtest-dev libgmock-dev wine wine64 python3 clang-format ccache clang libclang-rt-14-dev)
missing=()
for package in "${packages[@]}" "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0
as_root=(env)
if [ "$(id -u)" -ne 0 ]; then
    as_root=(sudo env)
    command -v sudo >/dev/null || {
        echo "install_packages.sh: needs root or sudo to install ${missing[*]}" >&2
        exit 1
    }
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
# sudo clears the environment: the variable has to be set behind it.
"${as_root[@]}" DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
