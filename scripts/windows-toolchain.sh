#!/usr/bin/env bash
# Prepares everything the Windows x86-64 build and its run under Wine need, in a cache folder outside
# the build tree, and does nothing when that folder is complete:
#   qt5-mingw/   Qt 5.15 for Windows (MinGW-w64, posix threads): Core, Network, Gui, Widgets, Test
#   7zip/7z.exe  7-Zip's standalone console program, what the unpack stage runs on Windows
#   prefix/      libdivsufsort and libsodium cross-built (include/, lib/, bin/ for the DLLs)
# Qt and 7-Zip come from ../shared/toolchains/ (beside the project) when it holds them ready-built;
# otherwise they, like the two libraries, are built from Debian's own source packages.
#
# Usage: windows-toolchain.sh [CACHE]   (default: $CORE_WINDOWS_CACHE, else /var/cache/core-windows)
# Prints the cache folder on its last line.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cache=${1:-${CORE_WINDOWS_CACHE:-/var/cache/core-windows}}
# A worktree of the project lies deeper than its main checkout: the ready builds are also looked
# for beside the main checkout.
ready=${CORE_WINDOWS_READY:-$root/../shared/toolchains}
if [ ! -d "$ready" ] && common=$(git -C "$root" rev-parse --path-format=absolute --git-common-dir 2>/dev/null); then
    ready=$(dirname "$common")/../shared/toolchains
fi
qt_archive=qt5.15.8-mingw-w64-x86_64.tar.xz
host=x86_64-w64-mingw32
jobs=$(nproc)

SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"

say() { echo "windows-toolchain: $*" >&2; }

# --- Debian packages --------------------------------------------------------------------------
# locales: the zh_CN source from which the Windows suite makes its code page 936 locale.
packages=(g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix wine64 libz-mingw-w64-dev
    dpkg-dev make cmake xz-utils autoconf automake libtool locales)
install_packages() {
    local missing=() p
    for p in "${packages[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        say "installing ${missing[*]}"
        export DEBIAN_FRONTEND=noninteractive
        $SUDO apt-get update -qq
        $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
    # Qt's threads and std::thread need the posix flavour of the compilers; the win32 flavour has
    # no std::mutex in this GCC.
    local tool
    for tool in gcc g++; do
        if [ "$(readlink -f "/usr/bin/$host-$tool")" != "/usr/bin/$host-$tool-posix" ]; then
            $SUDO update-alternatives --set "$host-$tool" "/usr/bin/$host-$tool-posix" >/dev/null
        fi
    done
}

# --- Debian source packages, without touching the machine's source lists ----------------------
# apt-get source needs deb-src lines; a private list and state folder give them to this call only.
work=""
apt_private=()
prepare_sources() {
    [ ${#apt_private[@]} -gt 0 ] && return
    local state=$work/apt
    mkdir -p "$state/lists/partial" "$state/archives/partial"
    : >"$state/sources.list"
    # The deb lines of the machine's own sources (one-line or deb822 form), turned into deb-src.
    if compgen -G "/etc/apt/sources.list.d/*.sources" >/dev/null; then
        awk '/^Types:/ {print "Types: deb-src"; next} {print}' /etc/apt/sources.list.d/*.sources \
            >"$state/debian.sources"
    fi
    if [ -f /etc/apt/sources.list ]; then
        sed -n 's/^deb \(.*\)$/deb-src \1/p' /etc/apt/sources.list >>"$state/sources.list"
    fi
    if [ ! -s "$state/sources.list" ] && [ ! -s "$state/debian.sources" ]; then
        echo "deb-src http://deb.debian.org/debian bookworm main" >"$state/sources.list"
    fi
    mkdir -p "$state/parts"
    [ -s "$state/debian.sources" ] && mv "$state/debian.sources" "$state/parts/"
    apt_private=(-o "Dir::Etc::SourceList=$state/sources.list" -o "Dir::Etc::SourceParts=$state/parts"
        -o "Dir::State::Lists=$state/lists" -o "Dir::Cache::Archives=$state/archives"
        -o "Dir::Cache::pkgcache=" -o "Dir::Cache::srcpkgcache=" -o "Debug::NoLocking=1" -o "APT::Sandbox::User=root")
    say "reading Debian's source lists (private copy)"
    apt-get "${apt_private[@]}" update -qq
}

# Unpacks Debian's source package $1 (with Debian's patches) into $work and prints its folder.
# prepare_sources comes first, outside the command substitution that calls this.
debian_source() {
    local package=$1
    (cd "$work" && apt-get "${apt_private[@]}" source -qq "$package" >/dev/null)
    find "$work" -mindepth 1 -maxdepth 1 -type d -name "$package*" ! -name '*.orig' | head -n 1
}

# --- Qt --------------------------------------------------------------------------------------------
qt_ready() { [ -f "$cache/qt5-mingw/lib/cmake/Qt5/Qt5Config.cmake" ] && [ -f "$cache/qt5-mingw/bin/Qt5Test.dll" ]; }

prepare_qt() {
    qt_ready && return
    rm -rf "$cache/qt5-mingw"
    if [ -f "$ready/$qt_archive" ]; then
        say "unpacking $qt_archive"
        tar -xJf "$ready/$qt_archive" -C "$cache"
    else
        build_qt
    fi
    qt_ready || { say "Qt for Windows is incomplete in $cache/qt5-mingw"; exit 1; }
}

build_qt() {
    say "building Qt for Windows from Debian's source package (about 80 minutes on two cores)"
    export DEBIAN_FRONTEND=noninteractive
    $SUDO apt-get install -y -qq --no-install-recommends perl python3 >/dev/null
    local src
    prepare_sources
    src=$(debian_source qtbase-opensource-src)
    # Debian's source leaves out the wintab headers (their licence): the Windows platform plugin
    # is built without tablet support, nothing else changes.
    sed -i 's|^#if QT_CONFIG(tabletevent)|#if 0 // wintab is not in this source package|' \
        "$src/src/plugins/platforms/windows/qwindowscontext.cpp"
    sed -i 's|^qtConfig(tabletevent) {|false {  # wintab is not in this source package|' \
        "$src/src/plugins/platforms/windows/windows.pri"
    mkdir -p "$work/qt-build"
    (cd "$work/qt-build" &&
        "$src/configure" -prefix "$cache/qt5-mingw" -xplatform win32-g++ \
            -device-option CROSS_COMPILE=$host- -opensource -confirm-license -release -shared \
            -nomake examples -nomake tests -no-opengl -no-openssl -no-dbus -no-icu -qt-zlib \
            -qt-pcre -qt-libpng -qt-libjpeg -qt-freetype -qt-harfbuzz -no-feature-sql \
            -no-feature-testlib_selfcover >"$work/qt-configure.log" 2>&1 &&
        make -j"$jobs" >"$work/qt-make.log" 2>&1 &&
        make install >"$work/qt-install.log" 2>&1) ||
        { say "the Qt build failed; its logs are in $work"; work=""; exit 1; }
}

# --- 7-Zip -------------------------------------------------------------------------------------
prepare_7zip() {
    [ -f "$cache/7zip/7z.exe" ] && return
    mkdir -p "$cache/7zip"
    if [ -f "$ready/7zip-26.02-windows-x86_64/7z.exe" ]; then
        say "taking the ready 7z.exe"
        cp "$ready/7zip-26.02-windows-x86_64/7z.exe" "$cache/7zip/7z.exe.tmp"
    else
        say "building 7z.exe from Debian's 7zip source package (about 5 minutes on two cores)"
        local src
        src=$(debian_source 7zip)
        # The standalone console bundle carries its codecs, so no DLL has to ship beside it.
        # Debian's source leaves the RAR code out, as Debian's own build does.
        make -C "$src/CPP/7zip/Bundles/Alone2" -f makefile.gcc -j"$jobs" IS_MINGW=1 SystemDrive=C: \
            DISABLE_RAR=1 CC=$host-gcc CXX=$host-g++ RC=$host-windres >"$work/7zip.log" 2>&1 ||
            { say "the 7-Zip build failed; its log is $work/7zip.log"; work=""; exit 1; }
        cp "$src/CPP/7zip/Bundles/Alone2/_o/7zz.exe" "$cache/7zip/7z.exe.tmp"
    fi
    mv "$cache/7zip/7z.exe.tmp" "$cache/7zip/7z.exe"
}

# --- Libraries other branches link ------------------------------------------------------------
prefix_ready() {
    [ -f "$cache/prefix/include/divsufsort.h" ] && [ -f "$cache/prefix/lib/libdivsufsort.dll.a" ] &&
        [ -f "$cache/prefix/include/sodium.h" ] && [ -f "$cache/prefix/lib/libsodium.dll.a" ]
}

build_divsufsort() {
    [ -f "$cache/prefix/lib/libdivsufsort.dll.a" ] && return
    say "building libdivsufsort from Debian's source package"
    local src
    prepare_sources
    src=$(debian_source libdivsufsort)
    cmake -S "$src" -B "$work/divsufsort-build" -DCMAKE_SYSTEM_NAME=Windows \
        -DCMAKE_C_COMPILER=$host-gcc -DCMAKE_RC_COMPILER=$host-windres \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$cache/prefix" \
        -DBUILD_SHARED_LIBS=ON -DBUILD_DIVSUFSORT64=ON -DBUILD_EXAMPLES=OFF -DUSE_OPENMP=OFF \
        >"$work/divsufsort.log" 2>&1
    cmake --build "$work/divsufsort-build" -j"$jobs" >>"$work/divsufsort.log" 2>&1
    cmake --install "$work/divsufsort-build" >>"$work/divsufsort.log" 2>&1
}

build_sodium() {
    [ -f "$cache/prefix/lib/libsodium.dll.a" ] && return
    say "building libsodium from Debian's source package"
    local src
    prepare_sources
    src=$(debian_source libsodium)
    # The source package carries no generated configure script; Debian's own build makes it too.
    (cd "$src" && autoreconf -fi >"$work/sodium.log" 2>&1 && ./configure --host=$host --prefix="$cache/prefix" --disable-dependency-tracking \
        >>"$work/sodium.log" 2>&1 &&
        make -j"$jobs" >>"$work/sodium.log" 2>&1 && make install >>"$work/sodium.log" 2>&1)
}

prepare_prefix() {
    prefix_ready && return
    mkdir -p "$cache/prefix"
    build_divsufsort || { say "the libdivsufsort build failed; its log is $work/divsufsort.log"; work=""; exit 1; }
    build_sodium || { say "the libsodium build failed; its log is $work/sodium.log"; work=""; exit 1; }
    prefix_ready || { say "the libraries are incomplete in $cache/prefix"; exit 1; }
}

# --- main --------------------------------------------------------------------------------------
complete() { qt_ready && [ -f "$cache/7zip/7z.exe" ] && prefix_ready; }

install_packages
if ! complete; then
    if [ ! -d "$cache" ]; then
        $SUDO mkdir -p "$cache"
        $SUDO chown "$(id -u):$(id -g)" "$cache"
    fi
    work=$(mktemp -d "${TMPDIR:-/tmp}/core-windows.XXXXXX")
    # A failed step clears $work to keep its logs; a finished run leaves nothing behind.
    trap '[ -n "$work" ] && rm -rf "$work"' EXIT
    prepare_qt
    prepare_7zip
    prepare_prefix
fi
echo "$cache"
