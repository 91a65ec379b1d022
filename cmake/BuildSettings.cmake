# Settings that every target of this project shares. They stay with the project's own targets: nothing here
# reaches a consumer.

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
    if(NOT CMAKE_BUILD_TYPE)
        set(CMAKE_BUILD_TYPE Release CACHE STRING "Kind of build" FORCE)
    endif()
endif()

add_library(businterfaces_settings INTERFACE)
target_compile_features(businterfaces_settings INTERFACE cxx_std_20)
target_compile_options(businterfaces_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Wcast-align -Wformat=2 -Wundef -Wunused
    $<$<BOOL:${BUSINTERFACES_WERROR}>:-Werror>)
if(BUSINTERFACES_SANITIZE)
    target_compile_options(businterfaces_settings INTERFACE
        -fsanitize=${BUSINTERFACES_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
        -g1) # line tables are all that a report needs, and cost half the time of a build
    target_link_options(businterfaces_settings INTERFACE -fsanitize=${BUSINTERFACES_SANITIZE})
endif()
if(BUSINTERFACES_FUZZ)
    # Coverage for the engine in everything that is fuzzed; only the fuzz targets themselves link the engine.
    target_compile_options(businterfaces_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(BUSINTERFACES_THREAD_SAFETY)
    target_compile_definitions(businterfaces_settings INTERFACE VQ_THREAD_SAFETY_ANALYSIS)
    target_compile_options(businterfaces_settings INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()
