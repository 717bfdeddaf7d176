#!/usr/bin/env bash
# Does with an installed package what a host does: finds it through CMake and through pkg-config, builds the examples that
# came with it as C++17 and runs them, compiles every public header alone. The tree is moved after the installation, so
# that nothing can lean on where it was built or installed.
#
# usage: installed_package.sh SOURCE_DIR BUILD_DIR LIBDIR CMAKE CXX
set -euo pipefail
sourceDir=$1 buildDir=$2 libdir=$3 cmake=$4 cxx=$5
work=$buildDir/installed_package
prefix=$work/moved

# shellcheck source-path=SCRIPTDIR
source "$(dirname "${BASH_SOURCE[0]}")/expected_answers.sh"

# The outer build's settings must not leak into what stands for a host's own build.
unset CXXFLAGS LDFLAGS LD_LIBRARY_PATH PKG_CONFIG_PATH CMAKE_PREFIX_PATH DESTDIR

rm -rf "$work"
mkdir -p "$work"
"$cmake" --install "$buildDir" --prefix "$work/installed" >"$work/install.log" || fail "$(cat "$work/install.log")"
mv "$work/installed" "$prefix"

echo "-- nothing installed names the machine that built it"
! grep -rlI -e "$sourceDir" -e "$buildDir" "$prefix" || fail "the files above do"
while read -r binary; do
    dynamic=$(readelf -d "$binary")
    [[ $dynamic =~ RUNPATH[^$'\n']*'[$ORIGIN'[^:]*']' ]] || fail "$binary looks for libraries elsewhere than beside it"
done < <(find "$prefix" -type f \( -name '*.so*' -o -path '*/bin/*' \))

echo "-- the tool finds its libraries"
if [ -e "$buildDir/tools/inscenter/inscenter" ]; then
    "$prefix/bin/inscenter" --help >/dev/null || fail "inscenter does not start"
    for file in man/man1/inscenter.1 bash-completion/completions/inscenter; do
        [ -s "$prefix/share/$file" ] || fail "$file is not installed"
    done
fi

echo "-- guide and examples are there"
docs=$prefix/share/doc/libpminstrumentcenter-dev
for page in guide/index.md guide/deriving.md guide/linking.md persistence.md examples/README.md; do
    [ -s "$docs/$page" ] || fail "$page is not installed"
done

echo "-- find_package: the examples as they are installed"
"$cmake" -S "$docs/examples" -B "$work/examples" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Werror"
"$cmake" --build "$work/examples"
expectExamples "$work/examples"

echo "-- every public header alone, as C++17"
"$cmake" -S "$sourceDir/tests/install/headers" -B "$work/headers" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$prefix"
"$cmake" --build "$work/headers"

echo "-- pkg-config: the examples, with the path of the libraries in them"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
read -r -a flags <<<"$(pkg-config --cflags PmInstrumentCenter)"
for compiler in "$cxx" clang++; do
    ! command -v "$compiler" >/dev/null || "$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Werror \
        "${flags[@]}" -fsyntax-only "$sourceDir/tests/install/headers/Host.cpp" || fail "$compiler refuses a host's source"
done
mkdir "$work/pkg-config"
for example in "$docs"/examples/*.cpp; do
    package=PmInstrumentCenter
    ! grep -q '"snapshot/' "$example" || package=PmSnapshot
    ! grep -q '"feed/' "$example" || package=PmFeed
    pkg-config --exists $package || continue # which this build has left out
    read -r -a flags <<<"$(pkg-config --cflags --libs $package)"
    "$cxx" -std=c++17 "$example" "${flags[@]}" -Wl,-rpath,"$prefix/$libdir" -o "$work/pkg-config/$(basename "$example" .cpp)"
done
expectExamples "$work/pkg-config"
