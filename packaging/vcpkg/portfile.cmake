# A port beside the sources that it builds: vcpkg install pminstrumentcenter --overlay-ports=packaging/vcpkg
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)

vcpkg_check_features(OUT_FEATURE_OPTIONS featureOptions
  FEATURES
    snapshot PM_BUILD_SNAPSHOT
    tool PM_BUILD_TOOL)

# Several dependencies are known to pkg-config alone; vcpkg brings its own.
vcpkg_find_acquire_program(PKGCONFIG)

vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    ${featureOptions}
    -DBUILD_TESTING=OFF
    -DPM_BUILD_FEED=OFF
    -DPM_WARNINGS_AS_ERRORS=OFF
    "-DPKG_CONFIG_EXECUTABLE=${PKGCONFIG}")
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME PmInstrumentCenter CONFIG_PATH lib/cmake/PmInstrumentCenter)
vcpkg_fixup_pkgconfig()
if("tool" IN_LIST FEATURES)
  vcpkg_copy_tools(TOOL_NAMES inscenter AUTO_CLEAN)
endif()

# Headers and documents are those of the release build.
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share"
  "${CURRENT_PACKAGES_DIR}/share/doc")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
