# Lays beside every program of a Windows build what it needs to start, as a launcher ships it: Core.dll,
# the Qt DLLs and plugins, the compiler's runtime DLLs, zlib and the cache's libraries, and 7z.exe
# beside the programs a launcher ships (the unpack stage looks beside the program first; the tests find
# it on their search path, so a stand-in copied beside a test program is the only one there).
set(CORE_DEPLOY_FILES)
foreach(module IN ITEMS Core Gui Network Widgets Test)
    list(APPEND CORE_DEPLOY_FILES $<TARGET_FILE:Qt5::${module}>)
endforeach()

# The compiler's runtime: the C++ library, the unwinder and the threads.
foreach(dll IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${path}" OR NOT EXISTS "${path}")
        find_file(path_${dll} ${dll} PATHS /usr/${CORE_MINGW_TRIPLE}/lib NO_DEFAULT_PATH)
        set(path ${path_${dll}})
    endif()
    if(NOT EXISTS "${path}")
        message(FATAL_ERROR "${dll} not found beside the cross compiler")
    endif()
    list(APPEND CORE_DEPLOY_FILES ${path})
endforeach()
list(GET ZLIB_LIBRARIES 0 zlib_import)
get_filename_component(zlib_dir "${zlib_import}" DIRECTORY)
find_file(CORE_ZLIB_DLL zlib1.dll PATHS ${zlib_dir} ${zlib_dir}/../bin NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
list(APPEND CORE_DEPLOY_FILES ${CORE_ZLIB_DLL})
file(GLOB CORE_PREFIX_DLLS ${CORE_WINDOWS_CACHE}/prefix/bin/*.dll)
list(APPEND CORE_DEPLOY_FILES ${CORE_PREFIX_DLLS})
find_program(CORE_7Z_EXE 7z.exe PATHS ${CORE_WINDOWS_CACHE}/7zip NO_DEFAULT_PATH REQUIRED)

set(CORE_DEPLOY_PLATFORMS $<TARGET_FILE:Qt5::QWindowsIntegrationPlugin>
    $<TARGET_FILE:Qt5::QOffscreenIntegrationPlugin> $<TARGET_FILE:Qt5::QMinimalIntegrationPlugin>)

# One copying target per folder that holds programs; each program there depends on it.
function(core_deploy_beside target)
    get_target_property(folder ${target} RUNTIME_OUTPUT_DIRECTORY)
    if(NOT folder)
        get_target_property(binary_dir ${target} BINARY_DIR)
        set(folder ${binary_dir})
    endif()
    string(MAKE_C_IDENTIFIER "deploy_${folder}" deploy)
    if(NOT TARGET ${deploy})
        add_custom_target(${deploy}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}/platforms
            COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CORE_DEPLOY_FILES} $<TARGET_FILE:Core> ${folder}
            COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CORE_DEPLOY_PLATFORMS} ${folder}/platforms
            VERBATIM)
        if(folder STREQUAL "${CMAKE_BINARY_DIR}/bin")
            add_custom_command(TARGET ${deploy} POST_BUILD
                COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CORE_7Z_EXE} ${folder} VERBATIM)
        endif()
        add_dependencies(${deploy} Core)
    endif()
    add_dependencies(${target} ${deploy})
endfunction()

# Every program of the tree, wherever it was added.
function(core_deploy_programs dir)
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "EXECUTABLE")
            core_deploy_beside(${target})
        endif()
    endforeach()
    get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
    foreach(subdir IN LISTS subdirs)
        core_deploy_programs(${subdir})
    endforeach()
endfunction()
core_deploy_programs(${PROJECT_SOURCE_DIR})
