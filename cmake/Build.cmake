# How everything here is compiled, and the few shapes of target that the folders use.

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set_property(CACHE CMAKE_BUILD_TYPE PROPERTY VALUE Release)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)

if(STAGEMGR_SANITIZE)
    # Everything, the shared library included, so that a fault is seen on whichever side it lies.
    add_compile_options(-fsanitize=${STAGEMGR_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${STAGEMGR_SANITIZE})
endif()

if(STAGEMGR_COVERAGE)
    add_compile_options(-fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc)
    add_link_options(-fprofile-instr-generate)
endif()

# Another checkout, or a build folder made anew, compiles what it has in common with the last only
# once. The sloppiness is what precompiled headers need.
find_program(STAGEMGR_CCACHE ccache)
mark_as_advanced(STAGEMGR_CCACHE)
if(PROJECT_IS_TOP_LEVEL AND STAGEMGR_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros ${STAGEMGR_CCACHE})
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
        add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
    endif()
endif()

# Includes are written from the root ("model/Config.h"), inside the tree and, installed, outside.
add_library(StageMgr-headers INTERFACE)
target_include_directories(StageMgr-headers INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_features(StageMgr-headers INTERFACE cxx_std_20)

add_library(StageMgr-warnings INTERFACE)
target_compile_options(StageMgr-warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)

# stagemgr_sources(VAR FOLDER [EXCEPT PATTERN]): every source and header of a folder. New files are
# noticed by the next build.
function(stagemgr_sources variable folder)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "EXCEPT" "")
    file(GLOB found CONFIGURE_DEPENDS ${folder}/*.cpp ${folder}/*.h)
    if(arg_EXCEPT)
        list(FILTER found EXCLUDE REGEX "${arg_EXCEPT}")
    endif()
    set(${variable} "${found}" PARENT_SCOPE)
endfunction()

# stagemgr_layer(TARGET): the sources of this folder as one layer of the shared library.
function(stagemgr_layer target)
    stagemgr_sources(sources ${CMAKE_CURRENT_SOURCE_DIR})
    # CMakeLists.txt: a target needs a source, and a folder may be empty for a while.
    add_library(${target} OBJECT CMakeLists.txt ${sources})
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${target} PRIVATE StageMgr-headers StageMgr-warnings)
    if(STAGEMGR_TOGETHER)
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
    endif()
endfunction()
