# Stand-ins for the functions of vcpkg that the port calls, and then the port itself. They do what the port is told by
# vcpkg's documentation that they do, as far as files are concerned.
#
# usage: cmake -DPORT_FILE=... -DWORK=... -DFEATURES=... -P vcpkg_functions.cmake
cmake_minimum_required(VERSION 3.25)

set(PORT pminstrumentcenter)
set(VCPKG_LIBRARY_LINKAGE static)
set(CURRENT_PACKAGES_DIR ${WORK}/packages)
set(buildDir ${WORK}/build)

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_FILE ${WORK}/log.txt)
endfunction()

function(vcpkg_check_features)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "OUT_FEATURE_OPTIONS" "FEATURES")
  set(options "")
  while(arg_FEATURES)
    list(POP_FRONT arg_FEATURES feature option)
    if(feature IN_LIST FEATURES)
      list(APPEND options -D${option}=ON)
    else()
      list(APPEND options -D${option}=OFF)
    endif()
    file(APPEND ${WORK}/features.txt "${feature}\n")
  endwhile()
  set(${arg_OUT_FEATURE_OPTIONS} ${options} PARENT_SCOPE)
endfunction()

function(vcpkg_find_acquire_program variable)
  find_program(${variable} NAMES pkg-config pkgconf REQUIRED)
endfunction()

function(vcpkg_cmake_configure)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "SOURCE_PATH" "OPTIONS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "vcpkg_cmake_configure does not take ${arg_UNPARSED_ARGUMENTS}")
  endif()
  # An option that the tree does not know is an error, as it is in vcpkg, which looks for that very sentence.
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${arg_SOURCE_PATH} -B ${buildDir} -G Ninja -DCMAKE_BUILD_TYPE=Release
    -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_INSTALL_PREFIX=${CURRENT_PACKAGES_DIR} ${arg_OPTIONS}
    COMMAND_ERROR_IS_FATAL ANY OUTPUT_FILE ${WORK}/log.txt ERROR_VARIABLE errors)
  if(errors MATCHES "Manually-specified variables were not used by the project")
    message(FATAL_ERROR "${errors}")
  endif()
endfunction()

function(vcpkg_cmake_install)
  run(${CMAKE_COMMAND} --build ${buildDir})
  run(${CMAKE_COMMAND} --install ${buildDir})
endfunction()

# vcpkg moves the files to share/ and mends the paths in them; here they stay.
function(vcpkg_cmake_config_fixup)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "PACKAGE_NAME;CONFIG_PATH" "")
  if(NOT EXISTS ${CURRENT_PACKAGES_DIR}/${arg_CONFIG_PATH}/${arg_PACKAGE_NAME}Config.cmake)
    message(FATAL_ERROR "No ${arg_PACKAGE_NAME}Config.cmake in ${arg_CONFIG_PATH}")
  endif()
endfunction()

function(vcpkg_fixup_pkgconfig)
  file(GLOB descriptions ${CURRENT_PACKAGES_DIR}/lib/pkgconfig/*.pc)
  if(NOT descriptions)
    message(FATAL_ERROR "No description for pkg-config in lib/pkgconfig")
  endif()
endfunction()

function(vcpkg_copy_tools)
  cmake_parse_arguments(PARSE_ARGV 0 arg "AUTO_CLEAN" "" "TOOL_NAMES")
  foreach(tool IN LISTS arg_TOOL_NAMES)
    file(INSTALL ${CURRENT_PACKAGES_DIR}/bin/${tool} DESTINATION ${CURRENT_PACKAGES_DIR}/tools/${PORT}
      USE_SOURCE_PERMISSIONS)
  endforeach()
endfunction()

function(vcpkg_install_copyright)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "FILE_LIST")
  file(INSTALL ${arg_FILE_LIST} DESTINATION ${CURRENT_PACKAGES_DIR}/share/${PORT} RENAME copyright)
endfunction()

file(MAKE_DIRECTORY ${WORK})
include(${PORT_FILE})
