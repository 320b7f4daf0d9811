# Database drivers: libraries that are loaded at run time and export one
# function, gdd.

# kes_add_driver(NAME SOURCES file... [CLIENT target...])
#
# Adds the driver NAME as the target `driver_NAME`, which makes the file
# NAME.dll in the folder where the library looks for drivers. The driver is
# linked to the library, to what all SQL drivers share (kes_sql) and to the
# database's client libraries.
function(kes_add_driver name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;CLIENT")
    kes_add_driver_module(driver_${name} ${name} ${arg_SOURCES})
    target_include_directories(driver_${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    target_link_libraries(driver_${name} PRIVATE kes_sql ${arg_CLIENT})
    kes_guide_fuzzers(driver_${name})
    kes_precompile(driver_${name})
    add_dependencies(drivers driver_${name})
    install(TARGETS driver_${name}
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/kes"
    )
endfunction()

# kes_add_driver_module(target name file...)
#
# What every driver library needs, also those that only tests load: the file
# name, the one exported symbol and the way back to the library.
function(kes_add_driver_module target name)
    set(exports "${PROJECT_SOURCE_DIR}/cmake/driver.map")
    add_library(${target} MODULE ${ARGN})
    target_link_libraries(${target} PRIVATE kes)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${exports}")
    set_target_properties(${target} PROPERTIES
        PREFIX ""
        OUTPUT_NAME "${name}"
        SUFFIX ".dll"
        LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib/kes"
        LINK_DEPENDS "${exports}"
        BUILD_WITH_INSTALL_RPATH ON
        INSTALL_RPATH "$ORIGIN/.."
    )
endfunction()
