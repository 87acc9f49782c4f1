#!/usr/bin/env bash
# Runs a Windows program in the Wine prefix of the cross build: run_in_wine.sh PROGRAM.exe [ARGUMENT]...
# WINEPREFIX, when set, names another prefix. Makes the prefix when there is none. TESSARY_ADDRESS_SPACE, when set, is
# how many KiB the program may reserve.
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${WINEPREFIX:-$here/build/windows/wine-prefix}
export WINEDEBUG=${WINEDEBUG:--all}
export DISPLAY=
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$WINEPREFIX} # newer versions of Wine complain when it is not set
wine=/usr/lib/wine/wine64 # the program itself, for Debian's "wine" asks for 32-bit parts that nothing here needs
[ -x "$wine" ] || wine=$(command -v wine64 || command -v wine)
if [ ! -e "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    make_prefix() { "$wine" wineboot -i >/dev/null 2>&1; }
    # Now and then the first attempt fails on a busy machine; a second one takes up what it left.
    make_prefix || { wineserver -w && make_prefix; } || {
        echo "run_in_wine.sh: Wine cannot make the prefix $WINEPREFIX" >&2
        exit 1
    }
    wineserver -w
fi
if [ -n "${TESSARY_ADDRESS_SPACE:-}" ]; then ulimit -v "$TESSARY_ADDRESS_SPACE"; fi
exec "$wine" "$@"
