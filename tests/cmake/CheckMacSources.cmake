# Checks the macOS build's source lists without a Mac:
#   cmake -DTARVEL_SOURCE_DIR=<repository> -P CheckMacSources.cmake
# Every source platform/macos/sources.cmake lists exists; no Linux source or Linux-only library
# is among them; every platform target the rest of the tree links is defined for the Mac, and
# every bundle file it names from dist/macos exists; the Mac's CMakeLists.txt builds only from
# the lists.
cmake_minimum_required(VERSION 3.25)

if(NOT TARVEL_SOURCE_DIR)
    message(FATAL_ERROR "Pass -DTARVEL_SOURCE_DIR=<the repository>.")
endif()
set(mac_dir "${TARVEL_SOURCE_DIR}/platform/macos")
set(problems "")
macro(problem text)
    string(APPEND problems "  ${text}\n")
endmacro()

include("${mac_dir}/sources.cmake")
set(mac_targets ${TARVEL_MAC_SHARED_TARGETS} ${TARVEL_MAC_OWN_TARGETS})

# What Linux builds and links that the Mac must not: its own sources and pkg-config modules.
file(READ "${TARVEL_SOURCE_DIR}/platform/linux/CMakeLists.txt" linux_cmake)
string(REGEX MATCHALL "[A-Za-z0-9_]+\\.(cpp|h)" linux_sources "${linux_cmake}")
string(REGEX MATCHALL "pkg_check_modules\\([A-Za-z0-9_]+" linux_modules "${linux_cmake}")
list(TRANSFORM linux_modules REPLACE "pkg_check_modules\\(" "PkgConfig::")
set(linux_only_libraries ${linux_modules} Qt6::DBus Qt6::Multimedia xcb xcb-keysyms)

foreach(target IN LISTS mac_targets)
    if(NOT TARVEL_MAC_${target}_SOURCES)
        problem("${target} lists no sources.")
    endif()
    foreach(source IN LISTS TARVEL_MAC_${target}_SOURCES)
        get_filename_component(path "${source}" ABSOLUTE BASE_DIR "${mac_dir}")
        get_filename_component(name "${source}" NAME)
        if(NOT EXISTS "${path}")
            problem("${target}: ${source} does not exist.")
        endif()
        if(path MATCHES "/platform/linux/" OR (name IN_LIST linux_sources AND NOT source MATCHES "^\\.\\./"))
            problem("${target}: ${source} is a Linux source.")
        endif()
    endforeach()
    foreach(library IN LISTS TARVEL_MAC_${target}_PUBLIC TARVEL_MAC_${target}_PRIVATE)
        if(library IN_LIST linux_only_libraries OR library MATCHES "PkgConfig::|xcb|X11")
            problem("${target} links ${library}, which exists on Linux only.")
        endif()
    endforeach()
endforeach()

# The platform targets of both systems (platform/CMakeLists.txt) and the Mac's own must cover
# every platform target that any CMakeLists.txt outside platform/linux, tests and bench names.
file(READ "${TARVEL_SOURCE_DIR}/platform/CMakeLists.txt" shared_cmake)
string(REGEX MATCHALL "add_library\\(TarvelPlatform[A-Za-z]+" shared_targets "${shared_cmake}")
list(TRANSFORM shared_targets REPLACE "add_library\\(" "")
foreach(target IN LISTS TARVEL_MAC_SHARED_TARGETS)
    if(NOT target IN_LIST shared_targets)
        problem("${target} is not defined in platform/CMakeLists.txt, so the Mac cannot add to it.")
    endif()
endforeach()
if(shared_cmake MATCHES "(PkgConfig|pkg_check_modules|xcb|Qt6::DBus)")
    problem("platform/CMakeLists.txt names ${CMAKE_MATCH_1}, which belongs in platform/linux.")
endif()

file(GLOB_RECURSE tree_cmake_files RELATIVE "${TARVEL_SOURCE_DIR}" "${TARVEL_SOURCE_DIR}/*/CMakeLists.txt")
foreach(file IN LISTS tree_cmake_files)
    if(file MATCHES "^(platform/linux|tests|bench|build[^/]*|fuzz)/")
        continue()
    endif()
    file(READ "${TARVEL_SOURCE_DIR}/${file}" content)
    # The bundle's files (Info.plist template, icon) named from dist/macos.
    string(REGEX MATCHALL "\\$\\{PROJECT_SOURCE_DIR\\}/dist/macos/[A-Za-z0-9_.]+" bundle_files "${content}")
    foreach(bundle_file IN LISTS bundle_files)
        string(REPLACE "\${PROJECT_SOURCE_DIR}" "${TARVEL_SOURCE_DIR}" path "${bundle_file}")
        if(NOT EXISTS "${path}")
            problem("${file} names ${bundle_file}, which does not exist.")
        endif()
    endforeach()
    string(REGEX MATCHALL "TarvelPlatform[A-Za-z]+" used "${content}")
    list(REMOVE_DUPLICATES used)
    foreach(target IN LISTS used)
        if(NOT target IN_LIST shared_targets AND NOT target IN_LIST TARVEL_MAC_OWN_TARGETS)
            problem("${file} links ${target}, which the Mac does not define.")
        endif()
    endforeach()
endforeach()

# The Mac's CMakeLists.txt builds from the lists alone, so this check sees all it builds.
file(READ "${mac_dir}/CMakeLists.txt" mac_cmake)
string(REGEX MATCHALL "[A-Za-z0-9_]+\\.(mm|cpp|h)" unlisted "${mac_cmake}")
if(unlisted)
    problem("platform/macos/CMakeLists.txt names ${unlisted} outside sources.cmake.")
endif()

if(problems)
    message(FATAL_ERROR "The macOS source lists have problems:\n${problems}")
endif()
list(LENGTH mac_targets target_count)
message(STATUS "The macOS source lists of ${target_count} targets are complete.")
