# SPDX-License-Identifier: Apache-2.0
# The install target: headers, library, find_package(norvane) and pkg-config.
include(CMakePackageConfigHelpers)

set(norvane_config_dir "${CMAKE_INSTALL_LIBDIR}/cmake/norvane")

install(TARGETS norvane EXPORT norvaneTargets
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
if(TARGET norvane_fastdds)
    # Unless it was asked for, what is built is installed without it: a tree in which only a program was built has no module.
    if(NORVANE_FASTDDS STREQUAL "AUTO")
        set(norvane_module_optional OPTIONAL)
    endif()
    install(TARGETS norvane_fastdds LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" ${norvane_module_optional})
endif()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/norvane" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.hpp")
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(EXPORT norvaneTargets NAMESPACE norvane:: DESTINATION "${norvane_config_dir}")

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/norvaneConfig.cmake.in" "${PROJECT_BINARY_DIR}/norvaneConfig.cmake"
                              INSTALL_DESTINATION "${norvane_config_dir}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/norvaneConfigVersion.cmake" COMPATIBILITY ${norvane_compatibility})
install(FILES "${PROJECT_BINARY_DIR}/norvaneConfig.cmake" "${PROJECT_BINARY_DIR}/norvaneConfigVersion.cmake"
        DESTINATION "${norvane_config_dir}")

# Relative to the file itself: the tree may be installed with another prefix, or moved.
set(norvane_pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${norvane_pc_dir}" OUTPUT_VARIABLE norvane_prefix_from_pc)
configure_file("${PROJECT_SOURCE_DIR}/cmake/norvane.pc.in" "${PROJECT_BINARY_DIR}/norvane.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/norvane.pc" DESTINATION "${norvane_pc_dir}")

# Last, below the list of headers.
if(TARGET norvane_fastdds)
    install(CODE "if(NOT EXISTS \"$<TARGET_FILE:norvane_fastdds>\")
        message(STATUS \"Installed without the engine on Fast DDS: it is not built yet; build the target norvane_fastdds, and install again\")
    endif()")
else()
    install(CODE "message(STATUS \"Installed without the engine on Fast DDS: ${norvane_fastdds_reason}\")")
endif()
