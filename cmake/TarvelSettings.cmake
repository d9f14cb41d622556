# Compiler settings shared by every target: link tarvel_settings and nothing else.
add_library(tarvel_settings INTERFACE)
target_compile_features(tarvel_settings INTERFACE cxx_std_20)
target_compile_definitions(tarvel_settings INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CONTEXTLESS_CONNECT
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
)
target_compile_options(tarvel_settings INTERFACE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor)
if(TARVEL_WERROR)
    target_compile_options(tarvel_settings INTERFACE -Werror)
endif()
target_include_directories(tarvel_settings INTERFACE ${PROJECT_SOURCE_DIR})

# Instrumented builds, each in a build folder of its own. TARVEL_SANITIZE ("address,undefined")
# builds every target with those sanitizers; a report ends the program, so a test with one fails.
# TARVEL_FUZZ (clang only) adds libFuzzer's coverage to every target and builds the fuzz targets.
if(TARVEL_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "TARVEL_FUZZ needs clang's libFuzzer: configure with -DCMAKE_CXX_COMPILER=clang++.")
    endif()
    if(NOT TARVEL_SANITIZE)
        set(TARVEL_SANITIZE address,undefined)
    endif()
    target_compile_options(tarvel_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(TARVEL_SANITIZE)
    target_compile_options(tarvel_settings INTERFACE
        -fsanitize=${TARVEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    target_link_options(tarvel_settings INTERFACE -fsanitize=${TARVEL_SANITIZE})
endif()
