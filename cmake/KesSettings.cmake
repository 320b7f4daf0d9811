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

if(KES_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(KES_COVERAGE)
    # Counted by several threads at once, also in tests.
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
