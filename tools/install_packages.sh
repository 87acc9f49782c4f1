#!/usr/bin/env bash
# Installs what building and testing need on Debian 12 or 13 and is not there yet. Needs root (or sudo) only then.
# Arguments name more packages.
set -euo pipefail
# The run-time libraries of clang's sanitizers are called after the version of clang that Debian 12 has.
sanitizers=libclang-rt-dev
if grep -q '^VERSION_ID="12"' /etc/os-release; then sanitizers=libclang-rt-14-dev; fi
packages=(cmake ninja-build g++ g++-mingw-w64-x86-64-posix libz-mingw-w64-dev zlib1g-dev libpng-dev
    googletest libgtest-dev libgmock-dev wine wine64 python3 clang-format ccache clang "$sanitizers")
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
