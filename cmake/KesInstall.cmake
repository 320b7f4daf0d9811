# What `cmake --install` puts where, and how other projects find it.

include(CMakePackageConfigHelpers)

set(package "${CMAKE_INSTALL_LIBDIR}/cmake/Kes")

install(TARGETS kes EXPORT KesTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/kes"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    FILES_MATCHING PATTERN "*.h"
)
# What one has to know to write a driver, beside the tools that check it.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs/"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}"
    FILES_MATCHING PATTERN "*.md"
)
install(EXPORT KesTargets NAMESPACE Kes:: DESTINATION "${package}")

configure_package_config_file(cmake/KesConfig.cmake.in
    "${PROJECT_BINARY_DIR}/KesConfig.cmake"
    INSTALL_DESTINATION "${package}"
    PATH_VARS CMAKE_INSTALL_LIBDIR
)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KesConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion
)
install(FILES
    "${PROJECT_BINARY_DIR}/KesConfig.cmake"
    "${PROJECT_BINARY_DIR}/KesConfigVersion.cmake"
    DESTINATION "${package}"
)

# The prefix in kes.pc is taken relative to the file, so an installed tree may
# be moved as a whole.
file(RELATIVE_PATH KES_PC_TO_PREFIX
    "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig"
    "${CMAKE_INSTALL_PREFIX}"
)
string(REGEX REPLACE "/$" "" KES_PC_TO_PREFIX "${KES_PC_TO_PREFIX}")
configure_file(cmake/kes.pc.in "${PROJECT_BINARY_DIR}/kes.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kes.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
)
