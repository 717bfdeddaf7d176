# What the installed examples print, whichever system they were built for. Sourced; needs sourceDir and work. `runner`
# starts a program, and `suffix` ends its name.
runner=()
suffix=

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# answersOf PROGRAM [ARG...]: in the letters and paths of this system.
answersOf() {
    "${runner[@]}" "$1$suffix" "${@:2}" | sed 's/\r$//; s|\\|/|g'
}

# expectAnswers PROGRAM [ARG...] <expected output
expectAnswers() {
    answersOf "$@" >"$work/answers.txt" || fail "$1 exits with $?"
    diff - "$work/answers.txt" || fail "$1 answers something else"
}

# expectClientHost DIRECTORY STORE LOADED KEY
expectClientHost() {
    expectAnswers "$1/client_host" "$2" <<TEXT
before the load, HK10000 is unknown
HK: $3, stored 1000, not written 0
$4, $4, $4, 1 read, 2 from memory, 1 cached
1000 records in the list
TEXT
}

# expectExamples DIRECTORY: what those that were built there print. Run twice, the persisted host finds its store.
expectExamples() {
    local store=$work/store day=$work/day
    rm -rf "$store" "$day"
    mkdir -p "$day"
    # Two files, packed and not, with a line that cannot be used.
    printf '%s\n' '{"market":"SH","code":"600000","name":"Bank stock","lotSize":100}' '{"market":"SH"}' >"$day/instruments.ndjson"
    printf 'exchid,etfcode\nSH,510050\n' | gzip >"$day/etfs.csv.gz"
    expectAnswers "$1/server_host" <<'TEXT'
Bank stock
SH600001 is unknown
DCEm2605 is a main contract: Meal May
after 100 reloads: Bank stock, renamed; still held: Bank stock; wrong answers: 0
load 101 brought 1 record
TEXT
    expectClientHost "$1" "$store" 'received 1000, restored 0' HK10005
    expectClientHost "$1" "$store" 'received 10, restored 1000' HGT10005
    expectAnswers "$1/updates_host" "$store" <<'TEXT'
in memory: I1 changed, I3 third, C1 first, P1 changed
persisted: I1 changed, I3 third, C1 changed, P1 first
TEXT
    # Items of a change come in no particular order.
    answersOf "$1/replace_and_subscribe" | LC_ALL=C sort >"$work/items.txt" || fail "replace_and_subscribe exits with $?"
    diff - "$work/items.txt" <<'TEXT' || fail "replace_and_subscribe answers something else"
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
