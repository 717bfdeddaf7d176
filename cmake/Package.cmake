# Debian packages, one a component: the libraries, what one needs to build against them, the tool, the Python package.
# ./dev package makes them from a build that is configured for /usr; dependencies of binaries are those that
# dpkg-shlibdeps finds. For Windows one archive of the first three, which ./dev windows makes.

set(PM_ABI ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pminstrumentcenter)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "PmInstrumentCenter maintainers")
set(CPACK_PACKAGE_CONTACT "PmInstrumentCenter maintainers <root@localhost>")
if(WIN32)  # one archive of all components, which may be unpacked anywhere
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGING_INSTALL_PREFIX /)
else()
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL library dev tool)
if(TARGET inscenter_native)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/base ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/snapshot
  ${PROJECT_BINARY_DIR}/feed)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libpminstrumentcenter${PM_ABI})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "Catalogue of tradable instruments
 Answers what a trading platform's processes ask about instruments, from memory
 or from a local store, and reads their days from files.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libpminstrumentcenter-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# Boost as built with: its types cross the boundary. pkg-config also serves the CMake package.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION}), \
libboost${Boost_VERSION_MAJOR}.${Boost_VERSION_MINOR}-dev, liblog4cxx-dev, pkg-config")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Catalogue of tradable instruments, headers
 Headers, CMake package, pkg-config files, guide and examples for hosts of
 libpminstrumentcenter.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME inscenter)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "Catalogue of tradable instruments, command line
 Loads a snapshot of a market day and answers questions about it.")

if(TARGET inscenter_native)
  # The extension is for the interpreter that it was built with; frames and arrays import what they need when asked for.
  math(EXPR nextPython "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-inscenter)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION}), \
python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), python3 (<< ${Python_VERSION_MAJOR}.${nextPython})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "python3-numpy, python3-pandas, inscenter")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Catalogue of tradable instruments, Python package
 Days, centers and stores for Python, as records and as columns.")
endif()

include(CPack)

# What Debian expects of every package.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} name)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME}
    COMPONENT ${component} RENAME copyright)
endforeach()

# What a host's engineer reads, where Debian puts it; other installations have it in the same place.
set(devDocs ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_DEV_PACKAGE_NAME})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/guide ${PROJECT_SOURCE_DIR}/examples DESTINATION ${devDocs} COMPONENT dev)
foreach(page IN ITEMS docs/persistence.md docs/feed.md docs/market-rules.md)
  install(FILES ${PROJECT_SOURCE_DIR}/${page} DESTINATION ${devDocs} COMPONENT dev)
endforeach()
