# Shows that CheckMacSources.cmake catches real faults: on copies of the build files it must
# pass as they are and fail, naming the fault, once one is brought in.
#   cmake -DTARVEL_SOURCE_DIR=<repository> -DWORK_DIR=<scratch folder> -P CheckMacSourcesSelfTest.cmake
cmake_minimum_required(VERSION 3.25)

set(check "${CMAKE_CURRENT_LIST_DIR}/CheckMacSources.cmake")
set(failures "")

# A copy of platform/ and of every CMakeLists.txt the check reads.
function(make_copy copy)
    file(REMOVE_RECURSE "${copy}")
    file(COPY "${TARVEL_SOURCE_DIR}/platform" DESTINATION "${copy}")
    file(COPY "${TARVEL_SOURCE_DIR}/dist/macos" DESTINATION "${copy}/dist")
    file(GLOB_RECURSE lists RELATIVE "${TARVEL_SOURCE_DIR}" "${TARVEL_SOURCE_DIR}/*/CMakeLists.txt")
    foreach(file IN LISTS lists)
        if(NOT file MATCHES "^(platform|build[^/]*)/")
            get_filename_component(folder "${copy}/${file}" DIRECTORY)
            file(COPY "${TARVEL_SOURCE_DIR}/${file}" DESTINATION "${folder}")
        endif()
    endforeach()
endfunction()

# Runs the check on the copy; expected is "pass" or the text the failure must contain.
function(expect name copy expected)
    execute_process(COMMAND ${CMAKE_COMMAND} -DTARVEL_SOURCE_DIR=${copy} -P ${check}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(expected STREQUAL "pass")
        if(NOT result EQUAL 0)
            set(failures "${failures}  ${name}: the check failed:\n${output}\n" PARENT_SCOPE)
        endif()
    elseif(result EQUAL 0)
        set(failures "${failures}  ${name}: the check passed.\n" PARENT_SCOPE)
    else()
        string(FIND "${output}" "${expected}" at)
        if(at EQUAL -1)
            set(failures "${failures}  ${name}: the failure does not name \"${expected}\":\n${output}\n" PARENT_SCOPE)
        endif()
    endif()
endfunction()

set(copy "${WORK_DIR}/tree")
set(mac_sources "${copy}/platform/macos/sources.cmake")

make_copy("${copy}")
expect("as it is" "${copy}" pass)

file(REMOVE "${copy}/platform/macos/MacWindowSystem.mm")
expect("a listed source is missing" "${copy}" "MacWindowSystem.mm does not exist")

make_copy("${copy}")
file(APPEND "${mac_sources}" "list(APPEND TARVEL_MAC_TarvelPlatformDesktop_PRIVATE PkgConfig::XCB)\n")
expect("a pkg-config module of Linux" "${copy}" "links PkgConfig::XCB")

make_copy("${copy}")
file(APPEND "${mac_sources}" "list(APPEND TARVEL_MAC_TarvelPlatformCore_SOURCES ../linux/DBusContract.cpp)\n")
expect("a Linux source" "${copy}" "../linux/DBusContract.cpp is a Linux source")

make_copy("${copy}")
file(APPEND "${copy}/app/CMakeLists.txt" "target_link_libraries(tarvel PRIVATE TarvelPlatformScreens)\n")
expect("a platform target only Linux could define" "${copy}" "links TarvelPlatformScreens")

make_copy("${copy}")
file(APPEND "${copy}/platform/macos/CMakeLists.txt" "target_sources(TarvelPlatformCore PRIVATE Extra.mm)\n")
expect("a source outside the lists" "${copy}" "Extra.mm outside sources.cmake")

make_copy("${copy}")
file(REMOVE_RECURSE "${copy}/dist")
expect("the bundle's Info.plist template is missing" "${copy}" "dist/macos/Info.plist.in, which does not exist")

file(REMOVE_RECURSE "${copy}")
if(failures)
    message(FATAL_ERROR "CheckMacSources.cmake missed faults:\n${failures}")
endif()
message(STATUS "CheckMacSources.cmake passes the build files and catches each fault brought in.")
