# The Windows side checked on every test run: every source of src/ and tools/ compiled for Windows
# x86-64, syntax only (scripts/check-windows.sh; the README says what it proves). zlib's two headers
# and the suffix sorter's are copied aside so the cross compiler does not see the rest of the Linux
# include folder.
find_file(CORE_ZLIB_H zlib.h HINTS ${ZLIB_INCLUDE_DIRS})
find_file(CORE_ZCONF_H zconf.h HINTS ${ZLIB_INCLUDE_DIRS})
set(WINDOWS_CHECK_INCLUDE ${CMAKE_BINARY_DIR}/windows-check/include)
# The diff engine's suffix sorter: one plain C header, the same for both platforms.
find_file(CORE_DIVSUFSORT_H divsufsort.h)
file(COPY ${CORE_ZLIB_H} ${CORE_ZCONF_H} ${CORE_DIVSUFSORT_H} DESTINATION ${WINDOWS_CHECK_INCLUDE})
# libsodium's headers likewise: sodium.h and the folder of the headers it includes.
file(COPY ${SODIUM_INCLUDE_DIR}/sodium.h ${SODIUM_INCLUDE_DIR}/sodium DESTINATION ${WINDOWS_CHECK_INCLUDE})
set(WINDOWS_CHECK_QT_INCLUDES)
foreach(module IN ITEMS Core Network Gui Widgets)
    get_target_property(dirs Qt5::${module} INTERFACE_INCLUDE_DIRECTORIES)
    list(APPEND WINDOWS_CHECK_QT_INCLUDES ${dirs})
endforeach()
# The mkspecs folder describes the Linux compiler; the cross compiler brings its own.
list(FILTER WINDOWS_CHECK_QT_INCLUDES EXCLUDE REGEX "/mkspecs/")
list(REMOVE_DUPLICATES WINDOWS_CHECK_QT_INCLUDES)
set(WINDOWS_CHECK_COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/check-windows.sh
    ${CMAKE_SOURCE_DIR} ${WINDOWS_CHECK_INCLUDE} ${WINDOWS_CHECK_QT_INCLUDES})
add_custom_target(check-windows COMMAND ${WINDOWS_CHECK_COMMAND} USES_TERMINAL VERBATIM)
add_test(NAME windows COMMAND ${WINDOWS_CHECK_COMMAND})
# One compiler run per source, one after another: on two busy cores this outgrows the suite's
# default time-out, and it has no wait of its own to cut short.
set_tests_properties(windows PROPERTIES TIMEOUT 900)
