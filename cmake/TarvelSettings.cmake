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
