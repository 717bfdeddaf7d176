#!/usr/bin/env bash
# same_answers.sh TOOL WINDOWS_TOOL WINE DIRECTORY DAY: asks both tools the same about a day and compares what they answer
# byte for byte. DIRECTORY keeps the answers of both.
# Left out: times and memory of "summary"; of a report the readings of Chinese letters, which a build without ICU has not,
# and its size; the sizes of files of "store ls". Of messages, also those that a report holds, \ is taken for /.
set -euo pipefail

declare -A tools=([linux]=$(realpath "$1") [windows]="$3 $(realpath "$2")")
out=$4 day=$(realpath "$5")
rm -rf "$out"

# answer NAME WORD...: by the tool of $side, in its directory; with its exit code at the end.
answer() {
    local name=$1 code=0
    shift
    # shellcheck disable=SC2086 # the runner and its program
    ${tools[$side]} "$@" >"$name.out" 2>"$name.err" || code=$?
    echo "exit $code" >>"$name.out"
    sed -i 's|\\|/|g' "$name.err"
}

withoutCosts() {
    grep -vE '"(loadMs|timeMs)"|"(reading|loading), ms"|"memory (now|at most), MB"' "$1.out" >"$1.kept"
    mv "$1.kept" "$1.out"
}

askAll() {
    local center arguments
    answer generate generate --size 600 --seed 2 --date 20260227 older
    cat older/* >older.out
    for center in server client; do
        arguments=(--data "$day" --center "$center")
        [ "$center" = server ] || arguments+=(--store 库)
        answer "$center-summary" "${arguments[@]}" --jsonl summary
        withoutCosts "$center-summary"
        answer "$center-get" "${arguments[@]}" get SH510050 SH600000 DCEm2607 HGT00094 SZ000001 nothing
        answer "$center-list" "${arguments[@]}" list --market SH,HK,DCE
        answer "$center-csv" "${arguments[@]}" --format csv list --market SZ --sort -code --limit 100
        answer "$center-all" "${arguments[@]}" --jsonl list --trader-type 4
        answer "$center-find" "${arguments[@]}" find 银行 --limit 20
        answer "$center-report" "${arguments[@]}" report --html "$center-日.html" --against older
        if [ -e "$center-日.html" ]; then # else the answers differ, and show why
            sed -i -E 's/"readings":\[(\[[^]]*\],?)*\]/"readings":[]/; s|\\\\|/|g' "$center-日.html"
        fi
        sed -i -E 's|html +[0-9]+$|html|' "$center-report.out"
        answer "$center-shell" "${arguments[@]}" shell < <(printf 'get SH600000\r\nfind 银行 > 银行.txt\nlist --market\n')
    done
    answer diff diff older "$day"
    answer diff-store --jsonl diff 库 older
    answer piped --data - --jsonl list --market SH < <(gzip -c "$day/instruments.ndjson")
    answer tour --data "$day" --store tour tour
    answer check store check 库
    answer documents store dump 库
    # Whoever reads has seen enough: no message, and no failure.
    {
        local code=0
        # shellcheck disable=SC2086
        ${tools[$side]} --data "$day" --jsonl list --trader-type 4 2>closed.err || code=$?
        echo "exit $code" >closed.code
        sed -i 's|\\|/|g' closed.err
    } | head -n 1 >closed.out
}

for side in linux windows; do
    mkdir -p "$out/$side"
    (cd "$out/$side" && askAll)
done
# Each reads what the other has stored.
side=linux other=windows
for _ in 1 2; do
    (cd "$out/$side" && answer foreign store dump "../$other/库" && cmp documents.out foreign.out)
    side=windows other=linux
done

failed=0 equal=0
for file in "$out"/linux/*.*; do
    if cmp -s "$file" "$out/windows/${file##*/}"; then
        equal=$((equal + 1))
    else
        failed=1
        echo "== ${file##*/}" >&2
        diff -a "$file" "$out/windows/${file##*/}" | head -n 10 | cut -c 1-200 >&2 || true
    fi
done
echo "$equal answers about $day are equal on both systems"
exit "$failed"
