# What a host gets: the public headers under their paths in this tree, the libraries, the tool, and the descriptions by
# which CMake and pkg-config find them. Nothing installed names a path of the machine that built it.

include(CMakePackageConfigHelpers)

# A header that is not listed here is private. Public headers include public headers only.
set(PM_PUBLIC_HEADERS
  base/instrumentcenter/CClientInstrumentCenter.h
  base/instrumentcenter/CServerInstrumentCenter.h
  base/instrumentcenter/CatalogueChange.h
  base/instrumentcenter/CenterBase.h
  base/instrumentcenter/CenterStatistics.h
  base/instrumentcenter/Export.h
  base/instrumentcenter/IInstrumentCenter.h
  base/instrumentcenter/InstrumentView.h
  base/instrumentcenter/Version.h
  base/instrumentcenter/vocabulary/TraderType.h
  feed/Export.h
  feed/Feed.h
  platform/Export.h
  platform/bson/BSONObj.h
  platform/net/RPCEngine.h
  platform/persist/CPersistService.h
  platform/persist/RootStatus.h
  platform/persist/StoreEngine.h
  platform/record/IData.h
  platform/record/RecordHelpers.h
  platform/record/RecordType.h
  platform/record/Records.h
  platform/utils/Calendar.h
  platform/utils/Hash.h
  platform/utils/Log.h
  platform/utils/LogCenter.h
  platform/utils/LogLine.h
  platform/utils/MarketRules.h
  platform/utils/Singleton.h
  platform/utils/Utils.h
  snapshot/Export.h
  snapshot/RecordText.h
  snapshot/Snapshot.h)
if(NOT TARGET PmSnapshot)
  list(FILTER PM_PUBLIC_HEADERS EXCLUDE REGEX "^snapshot/")
endif()
if(NOT TARGET PmFeed)
  list(FILTER PM_PUBLIC_HEADERS EXCLUDE REGEX "^feed/")
endif()

foreach(header IN LISTS PM_PUBLIC_HEADERS)
  cmake_path(GET header PARENT_PATH directory)
  install(FILES ${PROJECT_SOURCE_DIR}/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/PmInstrumentCenter/${directory} COMPONENT dev)
endforeach()

# Each set of targets is found by itself, so that who asks for the center alone needs nothing of the others.
function(pm_install_targets export)
  set_target_properties(${ARGN} PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${ARGN}
    EXPORT ${export}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
  install(EXPORT ${export} NAMESPACE PmInstrumentCenter:: DESTINATION ${packageDir} COMPONENT dev)
endfunction()
set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/PmInstrumentCenter)
pm_install_targets(PmInstrumentCenterTargets PmPlatform PmInstrumentCenter)
if(TARGET PmSnapshot)
  pm_install_targets(PmInstrumentCenterSnapshotTargets PmSnapshot)
endif()
if(TARGET PmFeed)
  pm_install_targets(PmInstrumentCenterFeedTargets PmFeed)
endif()

if(TARGET inscenter)
  file(RELATIVE_PATH libdirFromBindir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(inscenter PROPERTIES INSTALL_RPATH "$ORIGIN/${libdirFromBindir}")
  install(TARGETS inscenter RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  if(NOT WIN32)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/inscenter/install/inscenter.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/inscenter/install/inscenter.bash
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME inscenter COMPONENT tool)
  endif()
endif()

# What no Windows has of itself stands beside the programs, here as there.
if(MINGW)
  foreach(dll IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll zlib1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll} OUTPUT_VARIABLE found
      OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    install(PROGRAMS ${found} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library)
    if(CMAKE_RUNTIME_OUTPUT_DIRECTORY)
      file(COPY ${found} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
    endif()
  endforeach()
endif()

# Static libraries leave it to the host to link what shared ones carry along.
set(PM_PC_REQUIRES "liblog4cxx")
set(PM_PC_CFLAGS "")
set(PM_PC_LIBS "")
if(PM_PLAIN_LOG)
  set(PM_PC_REQUIRES "")
  set(PM_PC_CFLAGS "-DPM_PLAIN_LOG")
endif()
if(WIN32)
  set(PM_PC_LIBS "-lws2_32")
endif()
set(PM_PC_SNAPSHOT_REQUIRES "")
set(PM_PC_FEED_REQUIRES "")
if(BUILD_SHARED_LIBS)
  set(PM_STATIC OFF)
else()
  set(PM_STATIC ON)
  string(APPEND PM_PC_REQUIRES " fmt simdjson ${bson_MODULE_NAME} lmdb libxxhash")
  string(APPEND PM_PC_LIBS " -lboost_filesystem")
  set(PM_PC_SNAPSHOT_REQUIRES " fmt simdjson zlib libzstd")
  set(PM_PC_FEED_REQUIRES " fmt libzstd libnats")
endif()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/PmInstrumentCenterConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/PmInstrumentCenterConfig.cmake
  INSTALL_DESTINATION ${packageDir})
# While the major version is 0, a minor version may change the interface; SOVERSION says the same to the loader.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/PmInstrumentCenterConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/PmInstrumentCenterConfig.cmake
  ${PROJECT_BINARY_DIR}/package/PmInstrumentCenterConfigVersion.cmake
  DESTINATION ${packageDir} COMPONENT dev)

file(RELATIVE_PATH includedirFromPc
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_FULL_INCLUDEDIR}/PmInstrumentCenter)
set(pcNames PmInstrumentCenter)
if(TARGET PmSnapshot)
  list(APPEND pcNames PmSnapshot)
endif()
if(TARGET PmFeed)
  list(APPEND pcNames PmFeed)
endif()
foreach(name IN LISTS pcNames)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${PROJECT_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()
