#!/usr/bin/env bash
# Compiles every source of src/ and tools/ for Windows x86-64 with the MinGW-w64 cross compiler,
# syntax only, so that the code behind Q_OS_WIN is at least parsed and type-checked on every test
# run. Qt's headers are the same for both platforms; under this compiler they define Q_OS_WIN.
# Stops at the first source that does not compile and names it.
#
# Usage: check-windows.sh SOURCE_ROOT EXTRA_INCLUDE_DIR QT_INCLUDE_DIR...
#   EXTRA_INCLUDE_DIR holds the copy of zlib's headers made at configure time.
set -euo pipefail

compiler=${WINDOWS_CXX:-x86_64-w64-mingw32-g++-posix}
if ! command -v "$compiler" >/dev/null; then
    echo "check-windows: $compiler not found (scripts/setup.sh installs g++-mingw-w64-x86-64-posix)" >&2
    exit 1
fi

root=$1
extra=$2
shift 2

# Warnings fail the check as well: the Linux build keeps none, and the Windows branches are held to
# the same rule.
flags=(-std=c++17 -fsyntax-only -Wall -Wextra -Werror -I"$root/src" -isystem "$extra")
for dir in "$@"; do
    flags+=(-isystem "$dir")
done

# The folders are listed at every run, so a new source is checked without any edit here.
mapfile -t library < <(find "$root/src" -name '*.cpp' | sort)
mapfile -t programs < <(find "$root/tools" -name '*.cpp' | sort)

# A program that stands in on Linux for one shipped ready-made on Windows is not built there; it
# says so with a line of its own, "// check-windows: not built for Windows (why)", and is named
# here as skipped rather than checked.
skipped=0
check() {
    local source=$1
    shift
    if grep -q '^// check-windows: not built for Windows' "$source"; then
        echo "check-windows: skipped ${source#"$root"/}: $(sed -n 's|^// check-windows: ||p' "$source" | head -n 1)"
        skipped=$((skipped + 1))
        return
    fi
    if ! "$compiler" "${flags[@]}" "$@" "$source"; then
        echo "check-windows: ${source#"$root"/} does not compile for Windows x86-64" >&2
        exit 1
    fi
}

# The library exports its interface; the programs import it, as in a real Windows build.
for source in "${library[@]}"; do
    check "$source" -DCORE_LIBRARY
done
for source in "${programs[@]}"; do
    check "$source"
done
echo "check-windows: $((${#library[@]} + ${#programs[@]} - skipped)) sources compile for Windows x86-64"
