#!/usr/bin/env bash
# Does with an installed package what a host does: finds it through CMake and through pkg-config, builds and runs the
# examples as C++17, compiles every public header alone. The tree is moved after the installation, so that nothing can
# lean on where it was built or installed.
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

expectServerAnswers() {
    expectAnswers "$@" <<'TEXT'
Bank stock
SH600001 is unknown
DCEm2605 is a main contract: Meal May
after 100 reloads: Bank stock, renamed; still held: Bank stock; wrong answers: 0
load 101 brought 1 record
TEXT
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

echo "-- find_package: the examples, and a version check that refuses"
"$cmake" -S "$sourceDir/examples" -B "$work/examples" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$prefix"
"$cmake" --build "$work/examples"
expectServerAnswers "$work/examples/server_host"
expectAnswers "$work/examples/client_host" "$work/store" <<'TEXT'
before the load, HK10000 is unknown
HK: received 1000, restored 0, stored 1000, not written 0
HK10005, HK10005, HK10005, 1 read, 2 from memory, 1 cached
1000 records in the list
TEXT
expectAnswers "$work/examples/client_host" "$work/store" <<'TEXT'
before the load, HK10000 is unknown
HK: received 10, restored 1000, stored 1000, not written 0
HGT10005, HGT10005, HGT10005, 1 read, 2 from memory, 1 cached
1000 records in the list
TEXT
expectAnswers "$work/examples/updates_host" "$work/store" <<'TEXT'
in memory: I1 changed, I3 third, C1 first, P1 changed
persisted: I1 changed, I3 third, C1 changed, P1 first
TEXT

# A day of two files, packed and not, with a line that cannot be used.
mkdir -p "$work/day"
printf '%s\n' '{"market":"SH","code":"600000","name":"Bank stock","lotSize":100}' '{"market":"SH"}' >"$work/day/instruments.ndjson"
printf 'exchid,etfcode\nSH,510050\n' | gzip >"$work/day/etfs.csv.gz"
expectDayAnswers() {
    expectAnswers "$@" "$work/day" "$work/days" <<TEXT
$work/day/instruments.ndjson:2: code: missing
1 instruments, 1 ETFs, skipped: 1 lines, 0 files
in memory, SH600000: {"market":"SH","code":"600000","name":"Bank stock","lotSize":100}
persisted, SH600000: {"market":"SH","code":"600000","name":"Bank stock","lotSize":100}
TEXT
}
expectDayAnswers "$work/examples/day_from_files"

echo "-- every public header alone, as C++17"
"$cmake" -S "$sourceDir/tests/install/headers" -B "$work/headers" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$prefix"
"$cmake" --build "$work/headers"

echo "-- pkg-config"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
read -r -a flags <<<"$(pkg-config --cflags --libs PmInstrumentCenter)"
"$cxx" -std=c++17 "$sourceDir/examples/server_host.cpp" "${flags[@]}" -o "$work/server_host"
LD_LIBRARY_PATH=$prefix/$libdir expectServerAnswers "$work/server_host"
read -r -a flags <<<"$(pkg-config --cflags --libs PmSnapshot)"
"$cxx" -std=c++17 "$sourceDir/examples/day_from_files.cpp" "${flags[@]}" -o "$work/day_from_files"
LD_LIBRARY_PATH=$prefix/$libdir expectDayAnswers "$work/day_from_files"
