# Cross compilation to Windows x64 with Debian's g++-mingw-w64-x86-64-posix; programs run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
# The libraries that cmake/windows/CMakeLists.txt has installed, and those that Debian builds.
set(CMAKE_FIND_ROOT_PATH ${PM_WINDOWS_LIBRARIES} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${PM_WINDOWS_LIBRARIES}/lib/pkgconfig)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PM_WINDOWS_LIBRARIES)
set(CMAKE_CXX_FLAGS_INIT -D_WIN32_WINNT=0x0A00)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)  # building starts no program
