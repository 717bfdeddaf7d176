# What every target of ours has in common. PRIVATE throughout: nobody who links us inherits our warnings.

function(pm_target_defaults target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Woverloaded-virtual -Wformat=2
    # GCC 12 alone: false alarms on string concatenation (GCC bug 105329), and a remark on a fence inside Boost.Asio in
    # builds with the thread sanitizer.
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-restrict;-Wno-tsan>")
  # Behind a sanitizer's checks GCC loses sight of what is initialized, in std::regex among others.
  if(CMAKE_CXX_FLAGS MATCHES "-fsanitize" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
  if(PM_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# For tool and tests, of which most of the time goes into the same headers again and again.
function(pm_join_units target)
  if(PM_JOIN_UNITS)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
  endif()
endfunction()

function(pm_library target)
  add_library(${target} ${ARGN})
  add_library(PmInstrumentCenter::${target} ALIAS ${target})
  pm_target_defaults(${target})
  target_compile_features(${target} INTERFACE cxx_std_17)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/PmInstrumentCenter>)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endfunction()
