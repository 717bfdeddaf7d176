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

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# expectAnswers PROGRAM [ARG...] <expected output
expectAnswers() {
    "$@" >"$work/answers.txt" || fail "$1 exits with $?"
    diff - "$work/answers.txt" || fail "$1 answers something else"
}

sorted() {
    "$@" | LC_ALL=C sort
}

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

# expectExamples DIRECTORY: what those that were built there print. Run twice, the persisted host finds its store.
expectExamples() {
    local store=$work/store day=$work/day
    rm -rf "$store"
    expectAnswers "$1/server_host" <<'TEXT'
Bank stock
SH600001 is unknown
DCEm2605 is a main contract: Meal May
after 100 reloads: Bank stock, renamed; still held: Bank stock; wrong answers: 0
load 101 brought 1 record
TEXT
    expectAnswers "$1/client_host" "$store" <<'TEXT'
before the load, HK10000 is unknown
HK: received 1000, restored 0, stored 1000, not written 0
HK10005, HK10005, HK10005, 1 read, 2 from memory, 1 cached
1000 records in the list
TEXT
    expectAnswers "$1/client_host" "$store" <<'TEXT'
before the load, HK10000 is unknown
HK: received 10, restored 1000, stored 1000, not written 0
HGT10005, HGT10005, HGT10005, 1 read, 2 from memory, 1 cached
1000 records in the list
TEXT
    expectAnswers "$1/updates_host" "$store" <<'TEXT'
in memory: I1 changed, I3 third, C1 first, P1 changed
persisted: I1 changed, I3 third, C1 changed, P1 first
TEXT
    # Items of a change come in no particular order.
    expectAnswers sorted "$1/replace_and_subscribe" <<'TEXT'
  changed  SH600000 lotSize
  changed  SH600006 name
  delisted SH600004 Airport
  listed   SH600006 Motors
SH600004 is no longer listed
version 2, markets brought: SH
version 3, markets brought: SH
TEXT
    expectAnswers "$1/consistent_view" <<'TEXT'
version 1, 2 of 3 positions known
  DCEm2607-C-2850 exposed to m2607 by 56300
  DCEm2609 exposed to m2609 by -28750
  DCEm2611 is not listed
version 2, 2 of 3 positions known
  DCEm2607-C-2850 exposed to m2607 by 58000
  DCEm2609 exposed to m2609 by -29600
  DCEm2611 is not listed
one lot of everything in the former listing: 30 tons
TEXT
    expectAnswers "$1/derived_center" <<'TEXT'
DESKB1 is known: Basket
SH600000 is known: Bank stock
SH600001 is unknown
1 listed by DESK
TEXT
    expectAnswers "$1/day_from_files" "$day" "$store" <<TEXT
$day/instruments.ndjson:2: code: missing
1 instruments, 1 ETFs, skipped: 1 lines, 0 files
in memory, SH600000: {"market":"SH","code":"600000","name":"Bank stock","lotSize":100}
persisted, SH600000: {"market":"SH","code":"600000","name":"Bank stock","lotSize":100}
TEXT
    expectAnswers "$1/option_chain" "$sourceDir/samples" DCE m2605 <<'TEXT'
DCEm2605 豆粕2605: 8 options
expiry      strike  call              put
20260413      2850  m2605-C-2850      m2605-P-2850
20260413      2900  m2605-C-2900      m2605-P-2900
20260413      2950  m2605-C-2950      m2605-P-2950
20260413      3000  m2605-C-3000      m2605-P-3000
of all markets 27 instruments end on 20260413, 31 are new on 20260302
contracts of m: m888 m2605 m2607* m2609   * main contract
TEXT
}

echo "-- guide and examples are there"
docs=$prefix/share/doc/libpminstrumentcenter-dev
for page in guide/index.md guide/deriving.md guide/linking.md persistence.md examples/README.md; do
    [ -s "$docs/$page" ] || fail "$page is not installed"
done

# A day of two files, packed and not, with a line that cannot be used.
mkdir -p "$work/day"
printf '%s\n' '{"market":"SH","code":"600000","name":"Bank stock","lotSize":100}' '{"market":"SH"}' >"$work/day/instruments.ndjson"
printf 'exchid,etfcode\nSH,510050\n' | gzip >"$work/day/etfs.csv.gz"

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
