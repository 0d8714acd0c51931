# One static library a subsystem, its sources found by pattern, and one unit test program a folder.

# Flags that every target of the project is built with.
add_library(vdk_flags INTERFACE)
target_compile_options(vdk_flags INTERFACE -Wall -Wextra -Wpedantic -Werror)
target_include_directories(vdk_flags INTERFACE ${CMAKE_SOURCE_DIR}/src)
if(VDK_SANITIZE)
    target_compile_definitions(vdk_flags INTERFACE VDK_SANITIZED)
    target_compile_options(vdk_flags INTERFACE -fsanitize=${VDK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(vdk_flags INTERFACE -fsanitize=${VDK_SANITIZE})
endif()
if(VDK_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Faults of headers that are not ours and that do no harm.
    target_compile_options(vdk_flags INTERFACE
        -fsanitize-ignorelist=${CMAKE_SOURCE_DIR}/cmake/sanitizer-ignore.txt)
endif()
if(VDK_BUILD_FUZZERS AND VDK_SANITIZE MATCHES "address")
    # Coverage for the fuzz targets; the address sanitizer's runtime has what other programs need.
    target_compile_options(vdk_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# vdk_subsystem(name DEPS targets... [EXCLUDE files...] [SOURCES files...] [RECURSE]): all *.cpp of the
# current folder, of its subfolders too with RECURSE, or those named.
function(vdk_subsystem name)
    cmake_parse_arguments(ARG "RECURSE" "" "DEPS;EXCLUDE;SOURCES" ${ARGN})
    if(ARG_SOURCES)
        set(sources ${ARG_SOURCES})
    elseif(ARG_RECURSE)
        file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    else()
        file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    endif()
    foreach(file IN LISTS ARG_EXCLUDE)
        list(REMOVE_ITEM sources ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    endforeach()
    if(sources)
        add_library(${name} STATIC ${sources})
        target_link_libraries(${name} PUBLIC vdk_flags ${ARG_DEPS})
    else()
        add_library(${name} INTERFACE)
        target_link_libraries(${name} INTERFACE vdk_flags ${ARG_DEPS})
    endif()
endfunction()

# Everything that the unit test run needs, and nothing else.
add_custom_target(vdk_tests)

# vdk_unit_tests(folder DEPS targets...): tests/unit/<folder>/*Test.cpp as one program.
function(vdk_unit_tests folder)
    cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    if(NOT sources)
        return()
    endif()
    set(name unit_${folder})
    add_executable(${name} ${sources})
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE vdk_flags ${ARG_DEPS} GTest::gmock GTest::gtest_main)
    add_dependencies(vdk_tests ${name})
    # Both limits are for tests that hang; a busy machine under a sanitizer must stay far below.
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 300
        PROPERTIES TIMEOUT 900 ENVIRONMENT VDK_SOURCE_FOLDER=${CMAKE_SOURCE_DIR})
endfunction()
