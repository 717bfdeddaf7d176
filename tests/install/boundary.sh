#!/usr/bin/env bash
# What base/ knows of platform/: headers of it in its one room alone, but for the records that the interface is made of;
# and, given a build for the platform's named operations, what its library takes from the platform's.
#
# usage: boundary.sh SOURCE_DIR
#        boundary.sh SOURCE_DIR CENTER_LIBRARY PLATFORM_LIBRARY LIST
set -euo pipefail
export LC_ALL=C

center=base/instrumentcenter
grep -rq '#include "platform/' "$1/$center/boundary" || { echo "$1/$center/boundary includes nothing" >&2; exit 1; }
elsewhere=$(cd "$1" && grep -rn '#include "platform/' base |
    grep -vE "^$center/boundary/|^$center/IInstrumentCenter\.h:.*/record/Records\.h\"") || true
[ -z "$elsewhere" ] || { printf 'included outside of base/instrumentcenter/boundary:\n%s\n' "$elsewhere" >&2; exit 1; }
[ $# -gt 1 ] || exit 0

# Demangled, without parameters; a class stands for its constructors, destructor, type and table.
named() {
    c++filt | sed -E 's/@.*//; s/\(.*//; s/\[abi:[a-z0-9]*\]//g; s/^(vtable|typeinfo|typeinfo name) for //; s/::~.*//; s/(^|::)([A-Za-z0-9_]+)::\2$/\1\2/' | sort -u
}
given=$(nm -D --defined-only "$3" | sed 's/.* //' | sort -u)
taken=$(nm -D --undefined-only "$2" | sed 's/.* //' | sort -u)
imports=$(comm -12 <(echo "$given") <(echo "$taken") | named)
[ -n "$imports" ] || { echo "$2 takes nothing from $3" >&2; exit 1; }
foreign=$(comm -23 <(echo "$imports") <(sort -u "$4"))
[ -z "$foreign" ] || { printf '%s takes from the platform what is no named operation:\n%s\n' "$2" "$foreign" >&2; exit 1; }
