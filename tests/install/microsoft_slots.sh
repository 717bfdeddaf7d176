#!/usr/bin/env bash
# Whether the virtual operations have the same slots where the Microsoft compiler lays them out: clang, which knows its
# rules, prints the tables of hosts' classes for both systems. What the slots are on Linux is InterfaceSlotsTest's to say.
#
# usage: microsoft_slots.sh SOURCE_DIR
set -euo pipefail
export LC_ALL=C

command -v clang++ >/dev/null || { echo "skipped: there is no clang++ to ask" >&2; exit 77; }
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

# The slots of a class, first to last, an operation a line, whoever implements it.
slotsOf() {
    sed -nE "/^V(FT|t)able for ('.*' in )?'$1' /,/^\$/ s/^ +[0-9]+ \| (.* )?[A-Za-z:]*::([A-Za-z]+\(.*\)).*/\1\2/p" "$2"
}

cat >"$directory/host.cpp" <<'CPP'
#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
struct OwnHost : mxservice::IInstrumentCenter { OwnHost(); };
struct ServerHost : mxservice::CServerInstrumentCenter { ServerHost(); };
struct ClientHost : mxservice::CClientInstrumentCenter { ClientHost(); };
OwnHost::OwnHost() {}
ServerHost::ServerHost() : CServerInstrumentCenter(std::string()) {}
ClientHost::ClientHost() : CClientInstrumentCenter(std::string(), 1, 1, 1) {}
CPP

# There are no headers of Microsoft's here, and none are needed for tables: this machine's serve, told what they would
# find out on a system where long has 32 bits.
mapfile -t headers < <(clang++ -E -v -xc++ - </dev/null 2>&1 | sed -n '/^#include </,/^End/ s/^ /-isystem/p')
mkdir "$directory/gnu"
touch "$directory/gnu/stubs-x32.h"
tables() {
    clang++ "$@" -std=c++17 -w -S -emit-llvm -o /dev/null -Xclang -fdump-vtable-layouts -nostdinc -I"$source" \
        -isystem"$directory" "${headers[@]}" "$directory/host.cpp"
}
source=$1
tables --target=x86_64-linux-gnu >"$directory/linux"
tables --target=x86_64-pc-windows-msvc -D__ILP32__ -D__GCC_ATOMIC_TEST_AND_SET_TRUEVAL=1 >"$directory/microsoft"

for class in OwnHost:73 ServerHost:75 ClientHost:75; do
    slotsOf "${class%:*}" "$directory/linux" >"$directory/expected"
    [ "$(wc -l <"$directory/expected")" -eq "${class#*:}" ] || { echo "clang does not list ${class#*:} slots" >&2; exit 1; }
    slotsOf "${class%:*}" "$directory/microsoft" | diff "$directory/expected" - || {
        echo "${class%:*}: other slots where the Microsoft compiler gives them" >&2
        exit 1
    }
done
