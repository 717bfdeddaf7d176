#!/usr/bin/env bash
# What a shared library exports, one demangled symbol a line. Left out are the weak copies of other libraries' templates
# and inline functions: compilers add them as they see fit.
#
# usage: exported_symbols.sh LIBRARY          prints the list
#        exported_symbols.sh LIBRARY LIST     compares it with a list that is kept
set -euo pipefail
export LC_ALL=C

symbolsOf() {
    # Strong symbols, whatever they are called; weak ones of our own namespaces.
    nm -D --defined-only -C "$1" | sed -nE \
        -e 's/^[0-9a-f]* [TDBRGS] //p' \
        -e 's/^[0-9a-f]* [VW] (((vtable|typeinfo|VTT) for )?(mxservice|persist|bson|net|sys|utils)::.*)$/\1/p' | sort -u
}

if [ $# -eq 1 ]; then
    symbolsOf "$1"
    exit
fi
symbolsOf "$1" | diff "$2" - || {
    echo "$1 exports something else than $2 says. Where that is meant: ./dev symbols" >&2
    exit 1
}
