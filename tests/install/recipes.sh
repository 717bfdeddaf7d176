#!/usr/bin/env bash
# The recipes in packaging/ without the package managers: the port of vcpkg run with stand-ins for its functions, hosts
# built statically against what it installed, both recipes' promises compared with it. Compiles the libraries, so it is
# not among the tests but in ./dev check.
#
# usage: recipes.sh WORK_DIR
set -euo pipefail
source=$(readlink -f "$(dirname "$0")/../..")
rm -rf "$1"
mkdir -p "$1"
work=$(readlink -f "$1")
prefix=$work/packages

unset CXXFLAGS LDFLAGS PKG_CONFIG_PATH CMAKE_PREFIX_PATH DESTDIR
echo "-- the port of vcpkg, with the feature snapshot"
cmake -DPORT_FILE="$source/packaging/vcpkg/portfile.cmake" -DWORK="$work" -DFEATURES="core;snapshot" \
    -P "$source/tests/install/vcpkg_functions.cmake" || { tail -n 20 "$work/log.txt" >&2; exit 1; }
for file in share/pminstrumentcenter/{copyright,usage} lib/lib{PmPlatform,PmInstrumentCenter,PmSnapshot}.a \
    include/PmInstrumentCenter/{snapshot/Snapshot,base/instrumentcenter/CenterBase}.h; do
    [ -s "$prefix/$file" ] || { echo "FAILED: $file is not there" >&2; exit 1; }
done
[ ! -e "$prefix/share/doc" ] || { echo "FAILED: documents are there" >&2; exit 1; }

echo "-- static hosts by CMake and by pkg-config"
cmake -S "$source/examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$work/log.txt"
cmake --build "$work/examples" --target option_chain derived_center >>"$work/log.txt" || { cat "$work/log.txt" >&2; exit 1; }
"$work/examples/option_chain" "$source/samples" SH 510050 | grep -q '9 options'
"$work/examples/derived_center" | grep -q 'DESKB1 is known'
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
read -r -a flags <<<"$(pkg-config --cflags --libs PmSnapshot)"
g++ -std=c++17 "$source/examples/option_chain.cpp" "${flags[@]}" -o "$work/option_chain"
"$work/option_chain" "$source/samples" SH 510050 | grep -q '9 options'
! ldd "$work/option_chain" | grep libPm || { echo "FAILED: the host asks for shared libraries of ours" >&2; exit 1; }

echo "-- what the recipes promise"
PYTHONDONTWRITEBYTECODE=1 python3 "$source/tests/install/check_recipes.py" "$source" "$prefix" "$work/features.txt"
