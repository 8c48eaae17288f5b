# Installation: the two libraries, their headers, the CMake package and the pkg-config file.

include(CMakePackageConfigHelpers)

set(kip_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/kip")

install(TARGETS kip kip_services EXPORT kipTargets
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT kipTargets NAMESPACE kip:: DESTINATION "${kip_package_dir}")

configure_package_config_file(cmake/kipConfig.cmake.in "${PROJECT_BINARY_DIR}/kipConfig.cmake"
    INSTALL_DESTINATION "${kip_package_dir}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kipConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/kipConfig.cmake" "${PROJECT_BINARY_DIR}/kipConfigVersion.cmake"
    DESTINATION "${kip_package_dir}")

# The prefix is told from the file's own place, so that the installed tree can be moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(KIP_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH KIP_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" KIP_PC_PREFIX "\${pcfiledir}/${KIP_PC_PREFIX}")
endif()
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE KIP_PC_LIBDIR)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE KIP_PC_INCLUDEDIR)
# An archive cannot tell what it needs: the runtime of C++ and threads. Nothing is left for Libs.private, since a program
# that asks without --static has no other libraries to get.
if(KIP_LIBRARY_TYPE STREQUAL "STATIC")
    set(kip_runtime ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
    list(REMOVE_ITEM kip_runtime ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
    list(TRANSFORM kip_runtime PREPEND " -l")
    list(JOIN kip_runtime "" KIP_PC_LIBS)
    string(APPEND KIP_PC_LIBS " -pthread")
    set(KIP_PC_CFLAGS " -DKIP_STATIC")
endif()
configure_file(cmake/kip.pc.in "${PROJECT_BINARY_DIR}/kip.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kip.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DATADIR}/licenses/kip")
