# Tests: GoogleTest programs, drivers that only tests load, and the check that
# every public header stands alone.

include(GoogleTest)
find_package(GTest REQUIRED)

# kes_add_test(NAME SOURCES file... [LINK target...])
#
# Adds the program test_NAME and hands each of its tests to ctest. A test that
# runs for two minutes hangs, and fails.
function(kes_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
    set(target test_${name})
    add_executable(${target} ${arg_SOURCES})
    target_include_directories(${target} PRIVATE
        "${PROJECT_SOURCE_DIR}"
        "${PROJECT_SOURCE_DIR}/include"
    )
    target_link_libraries(${target} PRIVATE kes ${arg_LINK} GTest::gtest_main GTest::gmock)
    gtest_discover_tests(${target}
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 60
        # A parameter's printed value may be an address, different in each run.
        NO_PRETTY_VALUES
        PROPERTIES TIMEOUT 120 LABELS ${name}
    )
endfunction()

# kes_add_test_driver(NAME SOURCES file...)
#
# Adds the driver NAME for tests only: found like any other, never installed,
# linked to nothing but the library. The target is called `test_driver_NAME`.
function(kes_add_test_driver name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES")
    kes_add_driver_module(test_driver_${name} ${name} ${arg_SOURCES})
    target_include_directories(test_driver_${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    add_dependencies(drivers test_driver_${name})
endfunction()

# Compiles every public header as the only include of a source file. The list
# is read from the folder, so a new header cannot be forgotten.
function(kes_add_header_checks)
    file(GLOB headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}/include"
        "${PROJECT_SOURCE_DIR}/include/kes/*.h"
    )
    set(sources)
    foreach(header IN LISTS headers)
        string(REPLACE "/" "_" file "${header}")
        set(source "${PROJECT_BINARY_DIR}/header_checks/${file}.cpp")
        # Twice, so a header without a guard fails too.
        file(CONFIGURE OUTPUT "${source}"
            CONTENT "#include <@header@>\n#include <@header@>\n" @ONLY
        )
        list(APPEND sources "${source}")
    endforeach()
    if(sources)
        add_library(header_checks OBJECT ${sources})
        target_link_libraries(header_checks PRIVATE kes)
    endif()
endfunction()
