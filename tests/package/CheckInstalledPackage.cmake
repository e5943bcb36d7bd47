# Installs the built library into a folder of the build tree, then configures, builds and runs a small
# program against that installed tree only, as a launcher's build would.
# Usage: cmake -DBUILD_DIR=<build> -DCONSUMER_DIR=<tests/package/consumer> [-DEXE_SUFFIX=.exe] -P CheckInstalledPackage.cmake
set(work "${BUILD_DIR}/package-check")
set(prefix "${work}/prefix")
file(REMOVE_RECURSE "${work}")

function(run what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${output}")
    endif()
endfunction()

run("install" "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")
set(cross)
if(TOOLCHAIN_FILE)
    # The toolchain's find roots hide the prefix from a search: the package's folder is named.
    set(cross "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE}" "-DCORE_WINDOWS_CACHE=${CORE_WINDOWS_CACHE}"
        "-DCore_DIR=${prefix}/lib/cmake/Core")
    # The installed Core.dll first, then the build's Qt and compiler runtime DLLs.
    set(ENV{WINEPATH} "Z:${prefix}/bin;Z:${BUILD_DIR}/bin")
    set(ENV{WINEPREFIX} "${BUILD_DIR}/wine-prefix")
endif()
run("configure" "${CMAKE_COMMAND}" -S "${CONSUMER_DIR}" -B "${work}/consumer" "-DCMAKE_PREFIX_PATH=${prefix}"
    -DCMAKE_BUILD_TYPE=Release ${cross})
run("build" "${CMAKE_COMMAND}" --build "${work}/consumer")
run("run" ${EMULATOR} "${work}/consumer/consumer${EXE_SUFFIX}")
file(REMOVE_RECURSE "${work}")
