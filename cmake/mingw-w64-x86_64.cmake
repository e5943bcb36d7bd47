# Cross-builds for Windows x86-64 with MinGW-w64 (posix threads), against the Qt, 7-Zip and libraries
# scripts/windows-toolchain.sh lays out in its cache folder. Test programs run under Wine.
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The cache folder: a -D value, else the environment's, else the script's default. Checks of the
# compiler run in projects of their own, which are handed the same value.
if(NOT CORE_WINDOWS_CACHE)
    if(DEFINED ENV{CORE_WINDOWS_CACHE})
        set(CORE_WINDOWS_CACHE "$ENV{CORE_WINDOWS_CACHE}")
    else()
        set(CORE_WINDOWS_CACHE /var/cache/core-windows)
    endif()
endif()
set(CORE_WINDOWS_CACHE "${CORE_WINDOWS_CACHE}" CACHE PATH "Folder prepared by scripts/windows-toolchain.sh")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CORE_WINDOWS_CACHE)

set(CORE_MINGW_TRIPLE x86_64-w64-mingw32)
# The posix flavour: the win32 one has no std::thread or std::mutex in this GCC, and Qt was built
# with the posix one.
set(CMAKE_C_COMPILER ${CORE_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${CORE_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${CORE_MINGW_TRIPLE}-windres)

set(CORE_WINDOWS_QT ${CORE_WINDOWS_CACHE}/qt5-mingw)
set(CMAKE_FIND_ROOT_PATH /usr/${CORE_MINGW_TRIPLE} ${CORE_WINDOWS_CACHE}/prefix ${CORE_WINDOWS_QT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs run under Wine, in a prefix of the build tree's own.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh)
