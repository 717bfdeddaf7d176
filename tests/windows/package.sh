#!/usr/bin/env bash
# Does with the unpacked archive what a host does: finds it through CMake and through pkg-config, builds the examples that
# came with it and runs them under Wine, with no library of the build in sight.
#
# usage: package.sh ARCHIVE TOOLCHAIN_FILE LIBRARIES WINE SOURCE_DIR WORK_DIR; of LIBRARIES the headers of Boost are taken
set -euo pipefail
archive=$1 toolchain=$2 libraries=$3 wine=$4 sourceDir=$5 work=$6
# shellcheck source-path=SCRIPTDIR/../install
source "$(dirname "${BASH_SOURCE[0]}")/../install/expected_answers.sh"
# shellcheck disable=SC2034 # of the file above
runner=("$wine") suffix=.exe
unset CXXFLAGS LDFLAGS PKG_CONFIG_PATH CMAKE_PREFIX_PATH

rm -rf "$work"
mkdir -p "$work/unpacked" "$work/boost/include"
(cd "$work/unpacked" && cmake -E tar xf "$archive")
prefix=$(echo "$work"/unpacked/*)
ln -s "$libraries/include/boost" "$work/boost/include/boost"

# Nothing names the machine that built it.
! grep -rlI -e "$sourceDir" "$prefix" || fail "the files above do"

# Programs look beside themselves first, and then where this says.
export WINEPATH="Z:${prefix//\//\\}\\bin"
"$wine" "$prefix/bin/inscenter.exe" --version | grep -q '^inscenter [0-9]' || fail "the tool does not start"

examples=$prefix/share/doc/libpminstrumentcenter-dev/examples
cmake -S "$examples" -B "$work/examples" -G Ninja --toolchain "$toolchain" -DPM_WINDOWS_LIBRARIES="$prefix" \
    -DCMAKE_PREFIX_PATH="$prefix" -DBoost_INCLUDE_DIR="$work/boost/include" \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror -D_WIN32_WINNT=0x0A00" >"$work/cmake.log" || fail "$(cat "$work/cmake.log")"
cmake --build "$work/examples" >"$work/build.log" || fail "$(cat "$work/build.log")"
expectExamples "$work/examples"

read -r -a flags <<<"$(PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig pkg-config --cflags --libs PmSnapshot)"
x86_64-w64-mingw32-g++-posix -std=c++17 -D_WIN32_WINNT=0x0A00 -isystem "$work/boost/include" "$examples/option_chain.cpp" \
    "${flags[@]}" -o "$work/option_chain.exe" || fail "pkg-config's flags do not do"
x86_64-w64-mingw32-g++-posix -std=c++17 "${flags[@]}" -fsyntax-only -x c++ - <<<'#include "platform/utils/Log.h"' ||
    fail "pkg-config's flags ask for another log"
answersOf "$work/option_chain" "$sourceDir/samples" DCE m2605 >/dev/null || fail "option_chain exits with $?"
echo "the archive serves hosts that CMake or pkg-config builds: ${archive##*/}, $(du -h "$archive" | cut -f 1)"
