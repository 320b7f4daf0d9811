# Settings that every target of the project shares: language, visibility,
# output folders, warnings, sanitizers and the compiler cache.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Kind of build" FORCE)
endif()

# The build tree has the layout of an installed one, so run paths relative to
# the file that carries them are the same in both.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(KES_CCACHE ccache)
    mark_as_advanced(KES_CCACHE)
    if(KES_CCACHE)
        set(CMAKE_CXX_COMPILER_LAUNCHER "${KES_CCACHE}")
    endif()
endif()

# For all targets at once, since a target that forgot to ask for them would go
# unnoticed. Projects that use Kes do not inherit them.
add_compile_options(
    -Wall
    -Wextra
    -Wpedantic
    -Wshadow
    -Wconversion
    # GCC 12 sees overlapping copies inside std::string where there are none.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    $<$<BOOL:${KES_WERROR}>:-Werror>
)

if(KES_SANITIZE)
    if(KES_SANITIZE STREQUAL "thread")
        add_compile_options(-fsanitize=thread)
        add_link_options(-fsanitize=thread)
    else()
        add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined)
        add_link_options(-fsanitize=address,undefined)
    endif()
    add_compile_options(-fno-omit-frame-pointer)
endif()

# kes_guide_fuzzers(target)
#
# Has the target tell fuzzers which of its paths a case takes. Tests and tools are
# not looked into, so they are not slowed down either.
function(kes_guide_fuzzers target)
    if(KES_FUZZ)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()

# Precompiled headers, and a compiler cache that may be used with them: GCC's
# have to be named to it, and Clang's must not depend on the time of day.
if(KES_PRECOMPILE)
    add_compile_options(
        $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>
        "$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>"
    )
endif()
set(KES_STANDARD_HEADERS
    <algorithm>
    <atomic>
    <chrono>
    <cstdint>
    <cstdlib>
    <cstring>
    <filesystem>
    <fstream>
    <functional>
    <limits>
    <map>
    <memory>
    <set>
    <sstream>
    <stdexcept>
    <string>
    <thread>
    <unordered_map>
    <utility>
    <vector>
)

# kes_precompile(target)
#
# Compiles what the target includes of the standard library once. Only a build
# without it proves that each source includes what it uses.
function(kes_precompile target)
    if(KES_PRECOMPILE STREQUAL "all" AND NOT KES_UNITY)
        target_precompile_headers(${target} PRIVATE ${KES_STANDARD_HEADERS})
    endif()
endfunction()

# Sources that are compiled as one see the names of those before them. What has names
# of its own in common with others of its target is compiled alone, see below. Only a
# build without this proves that each source includes what it uses.
if(KES_UNITY)
    set(CMAKE_UNITY_BUILD ON)
    set(CMAKE_UNITY_BUILD_BATCH_SIZE 8)
    # GCC takes a source that is included for a header, of which several sources
    # could see the unnamed namespace.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()

# Targets whose sources are compiled one by one all the same. scripts/check names
# those here of which a unit did not compile: two sources may have come to use the
# same name, which is no fault of theirs.
set(KES_UNITY_NOT "" CACHE STRING "Targets whose sources are not compiled as one")

# kes_compile_alone(target source...)
function(kes_compile_alone target)
    list(TRANSFORM ARGN PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
    set_source_files_properties(${ARGN} TARGET_DIRECTORY ${target}
        PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON
    )
endfunction()

# kes_compile_quickly(target)
#
# With sanitizers to optimise a program takes longer than it gains when it runs.
function(kes_compile_quickly target)
    if(KES_SANITIZE)
        target_compile_options(${target} PRIVATE -O0)
    endif()
endfunction()

# kes_tell_sanitizer(target)
#
# Defines KES_SANITIZED_ADDRESS or KES_SANITIZED_THREAD for what does less, or
# measures something else, under a sanitizer. Compilers tell of it each in its own
# way.
function(kes_tell_sanitizer target)
    if(KES_SANITIZE STREQUAL "thread")
        target_compile_definitions(${target} PRIVATE KES_SANITIZED_THREAD)
    elseif(KES_SANITIZE)
        target_compile_definitions(${target} PRIVATE KES_SANITIZED_ADDRESS)
    endif()
endfunction()

if(KES_COVERAGE)
    # Counted by several threads at once, also in tests.
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
