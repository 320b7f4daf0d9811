# Tests: GoogleTest programs, drivers that only tests load, and the check that
# every public header stands alone.

include(GoogleTest)
find_package(GTest REQUIRED)

# Tests are large and run for moments; to optimise them as the library takes
# more than half of the time that a sanitizer build takes.
function(kes_set_test_options target)
    kes_tell_sanitizer(${target})
    if(KES_SANITIZE)
        target_compile_options(${target} PRIVATE -O0)
    else()
        target_compile_options(${target} PRIVATE "$<$<CONFIG:Release>:-O1>")
    endif()
endfunction()

# What most tests include of other libraries, compiled once: it is half of the
# work on a test. No header of the project stands here, for a precompiled one is
# taken for a system's and no warning comes out of it.
if(KES_PRECOMPILE)
    file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/precompiled/tests.cpp" CONTENT "")
    add_library(kes_test_headers OBJECT "${PROJECT_BINARY_DIR}/precompiled/tests.cpp")
    target_link_libraries(kes_test_headers PRIVATE GTest::gtest GTest::gmock)
    target_precompile_headers(kes_test_headers PRIVATE
        ${KES_STANDARD_HEADERS} <gmock/gmock.h> <gtest/gtest.h>
    )
    kes_set_test_options(kes_test_headers)
endif()

# kes_add_test(NAME SOURCES file... [LINK target...] [SERVER name [ALONE]]
#              [TOGETHER parts])
#
# Adds the program test_NAME and hands each of its tests to ctest, which has the
# server run meanwhile, for one of them at a time where they need it ALONE. A
# test that runs for two minutes hangs, and fails.
#
# With sanitizers a process costs more to start than most tests to run. Tests that
# may run TOGETHER do so there, in a process for each of so many parts, unless all
# is asked for; elsewhere each has a process of its own, which proves that it needs
# no other.
function(kes_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "ALONE" "SERVER;TOGETHER" "SOURCES;LINK")
    kes_add_suite(${name} SOURCES ${arg_SOURCES} LINK ${arg_LINK})
    set(lock)
    if(arg_ALONE)
        # One after the other, so the first of them starts as early as possible.
        set(lock RESOURCE_LOCK ${arg_SERVER} COST 200)
    endif()
    set(parts "${arg_TOGETHER}")
    kes_discover_tests(${name} "" ${arg_SERVER} ${lock})
endfunction()

# kes_add_suite(NAME SOURCES file... [LINK target...])
#
# Adds the program test_NAME, whose tests ctest learns of with kes_run_suite.
function(kes_add_suite name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
    set(target test_${name})
    add_executable(${target} ${arg_SOURCES})
    target_include_directories(${target} PRIVATE
        "${PROJECT_SOURCE_DIR}"
        "${PROJECT_SOURCE_DIR}/include"
    )
    target_link_libraries(${target} PRIVATE
        kes ${arg_LINK} $<TARGET_NAME_IF_EXISTS:kes_test_progress>
        GTest::gtest_main GTest::gmock
    )
    kes_set_test_options(${target})
    if(KES_PRECOMPILE)
        target_precompile_headers(${target} REUSE_FROM kes_test_headers)
    endif()
endfunction()

# kes_run_suite(NAME DRIVER [SERVER name [ALONE]] [TESTS filter] [TOGETHER parts])
#
# Hands the tests of the program test_NAME to ctest once more, for a driver, or
# those of them that the filter names. The names of its tests begin with the
# driver's.
function(kes_run_suite name driver)
    cmake_parse_arguments(PARSE_ARGV 2 arg "ALONE" "SERVER;TESTS;TOGETHER" "")
    set(lock)
    if(arg_ALONE)
        # One after the other, so the first of them starts as early as possible.
        set(lock RESOURCE_LOCK ${arg_SERVER} COST 200)
    endif()
    set(filter "${arg_TESTS}")
    set(parts "${arg_TOGETHER}")
    kes_discover_tests(${name} ${driver} ${arg_SERVER} ${lock})
endfunction()

# kes_discover_tests(NAME DRIVER [server [property value]...])
#
# Of the tests it takes those that the variable filter names, all when it is empty,
# and has them run together in as many parts as the variable parts says.
function(kes_discover_tests name driver)
    set(prefix)
    set(chosen)
    if(filter)
        set(chosen TEST_FILTER "${filter}")
    endif()
    # Counting makes every line several times as slow.
    set(limit 120)
    if(KES_COVERAGE)
        set(limit 600)
    endif()
    set(properties TIMEOUT ${limit} LABELS ${name})
    if(driver)
        set(prefix "${driver}.")
        list(APPEND properties ENVIRONMENT "KES_TEST_DRIVER=${driver}")
    endif()
    if(ARGN)
        list(APPEND properties FIXTURES_REQUIRED ${ARGN})
    endif()
    if(parts AND KES_SANITIZE AND NOT KES_TEST_FULL AND UNIX)
        foreach(part RANGE 1 ${parts})
            set(test "${prefix}${name}.${part}")
            add_test(NAME ${test} COMMAND "${PROJECT_SOURCE_DIR}/tests/support/run-together"
                $<TARGET_FILE:test_${name}> "${PROJECT_BINARY_DIR}/together" ${test}
                ${part} ${parts} "${filter}"
            )
            set_tests_properties(${test} PROPERTIES ${properties} TIMEOUT 900 COST 50)
        endforeach()
        return()
    endif()
    gtest_discover_tests(test_${name}
        TEST_PREFIX "${prefix}"
        ${chosen}
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 60
        # A parameter's printed value may be an address, different in each run.
        NO_PRETTY_VALUES
        PROPERTIES ${properties}
    )
endfunction()

# kes_add_server(NAME FOLDER)
#
# Has ctest start the server NAME in the folder before the first test that needs
# it, and remove it after the last one. Sets KES_SERVER_name, for all folders, to
# false where the server's programs are not installed; its tests have to be left
# out then.
function(kes_add_server name folder)
    set(script "${PROJECT_SOURCE_DIR}/tests/engines/${name}.sh")
    execute_process(COMMAND "${script}" programs RESULT_VARIABLE missing ERROR_QUIET)
    if(missing)
        message(STATUS "The server ${name} is not installed: its tests are left out")
        set(KES_SERVER_${name} NO CACHE INTERNAL "Its programs are installed")
        return()
    endif()
    set(KES_SERVER_${name} YES CACHE INTERNAL "Its programs are installed")
    add_test(NAME ${name}.start COMMAND "${script}" start "${folder}")
    add_test(NAME ${name}.stop COMMAND "${script}" remove "${folder}")
    set_tests_properties(${name}.start PROPERTIES FIXTURES_SETUP ${name} TIMEOUT 120)
    set_tests_properties(${name}.stop PROPERTIES FIXTURES_CLEANUP ${name} TIMEOUT 120)
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
        set_target_properties(header_checks PROPERTIES UNITY_BUILD OFF)
    endif()
endfunction()
