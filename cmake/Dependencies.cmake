# Every part that is not ours, from Debian 12's packages. What a host needs to compile against the installed headers is
# repeated in PmInstrumentCenterConfig.cmake.in.

find_package(Threads REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS filesystem)
find_package(fmt REQUIRED)
find_package(simdjson REQUIRED)
find_package(PkgConfig REQUIRED)
# Package managers that build one kind of library have it under one of the two names.
pkg_search_module(bson REQUIRED IMPORTED_TARGET libbson-1.0 libbson-static-1.0)
if(NOT PM_PLAIN_LOG)
  pkg_check_modules(log4cxx REQUIRED IMPORTED_TARGET liblog4cxx)
endif()
pkg_check_modules(lmdb REQUIRED IMPORTED_TARGET lmdb)
pkg_check_modules(xxhash REQUIRED IMPORTED_TARGET libxxhash)

if(PM_BUILD_SNAPSHOT)
  find_package(ZLIB REQUIRED)
  pkg_check_modules(zstd REQUIRED IMPORTED_TARGET libzstd)
endif()

if(PM_BUILD_TOOL)
  find_package(CLI11 REQUIRED)
  pkg_check_modules(utf8proc REQUIRED IMPORTED_TARGET libutf8proc)
  pkg_check_modules(sqlite REQUIRED IMPORTED_TARGET sqlite3)
  pkg_check_modules(edit QUIET IMPORTED_TARGET libedit)
  if(edit_FOUND)
    message(STATUS "The tool's shell: history and completion by libedit ${edit_VERSION}")
  else()
    message(STATUS "The tool's shell: plain lines, without history and completion (libedit not found)")
  endif()
endif()
