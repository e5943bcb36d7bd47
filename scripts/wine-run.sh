#!/usr/bin/env bash
# Runs a Windows program of the Windows build tree under Wine (CTest's emulator there): a private
# prefix in the tree, no display, no debug chatter. The prefix is made by the first run (about 15 s);
# runs started at once wait for it rather than making it twice.
# Usage: wine-run.sh PROGRAM.exe [ARGUMENT...]   (WINEPREFIX overrides the prefix)
set -euo pipefail

program=$1
tree=$(cd "$(dirname "$program")" && pwd)
while [ "$tree" != / ] && [ ! -f "$tree/CMakeCache.txt" ]; do
    tree=$(dirname "$tree")
done
[ "$tree" = / ] && tree=$(cd "$(dirname "$program")" && pwd)

export WINEPREFIX=${WINEPREFIX:-$tree/wine-prefix}
export WINEDEBUG=-all
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
export QT_QPA_PLATFORM=offscreen
wine=${WINE:-/usr/lib/wine/wine64}

if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$(dirname "$WINEPREFIX")"
    (
        flock 9
        if [ ! -f "$WINEPREFIX/system.reg" ]; then
            "$wine" wineboot --init >/dev/null 2>&1
            "$(dirname "$wine")/wineserver" -w
        fi
    ) 9>"$WINEPREFIX.lock"
fi
exec "$wine" "$@"
