#!/usr/bin/env bash
# The five pairs on the reference file as whole processes, timed with /usr/bin/time: the file
# check (the C host of code/examples) against one memmem pass, the header repair and the salvage
# into a compound file against `cp --reflink=never`, the analysis and the salvage into a folder
# against `7z x` (skipped when 7z is missing). Each pair runs ours and the peer in turn, one
# warm-up each and then RUNS counted runs; every output is removed before its run, outside the
# timing. Prints, per pair, the median wall and CPU (user + system) seconds of each side, the
# medians of the per-run ratios ours / peer, and the largest peak resident set of ours.
#
# Usage: reference_pairs.sh BIN_DIR [RUNS]   (BIN_DIR: cfbvornak, demo_host, memmem_pass)
#   CFB_REFERENCE_FILE  the reference file (default /dev/shm/cfb_reference/reference.doc,
#                       made by make_reference_file.sh)
#   OUT                 the folder for the outputs (default: beside the reference file)
set -euo pipefail

bin=$(cd "${1:?usage: reference_pairs.sh BIN_DIR [RUNS]}" && pwd)
runs=${2:-7}
ref=${CFB_REFERENCE_FILE:-/dev/shm/cfb_reference/reference.doc}
out=${OUT:-$(dirname "$ref")/pairs_out}
[ -f "$ref" ] || { echo "no reference file $ref: run make_reference_file.sh" >&2; exit 2; }
mkdir -p "$out"
state=$out/state
tool=("$bin/cfbvornak" --log-dir "$state/log" --config-dir "$state/config" --work-dir "$state/work")
times=$(mktemp)
trap 'rm -f "$times" "$times".*' EXIT

# timed FILE CMD...: appends "wall user system peak_kib" of one run of CMD to FILE.
timed() {
    local file=$1
    shift
    /usr/bin/time -f '%e %U %S %M' -o "$file.one" "$@" >/dev/null 2>&1 || true
    tail -n 1 "$file.one" >>"$file"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# pair NAME CLEAN OURS PEER: CLEAN (a shell line) runs before every run of either side.
pair() {
    local name=$1 clean=$2 ours=$3 peer=$4
    : >"$times.ours"
    : >"$times.peer"
    for ((i = 0; i <= runs; i++)); do
        bash -c "$clean"
        timed "$times.ours" bash -c "exec $ours"
        bash -c "$clean"
        timed "$times.peer" bash -c "exec $peer"
    done
    bash -c "$clean"
    # The first run of each side is the warm-up.
    sed -i 1d "$times.ours" "$times.peer"
    paste -d ' ' "$times.ours" "$times.peer" >"$times.both"
    printf '%-16s ours wall %6.3f s cpu %6.3f s | peer wall %6.3f s cpu %6.3f s | ratio wall %5.2f cpu %5.2f | peak %5.1f MB | %d runs\n' \
        "$name" \
        "$(awk '{ print $1 }' "$times.both" | median)" "$(awk '{ print $2 + $3 }' "$times.both" | median)" \
        "$(awk '{ print $5 }' "$times.both" | median)" "$(awk '{ print $6 + $7 }' "$times.both" | median)" \
        "$(awk '{ print $1 / $5 }' "$times.both" | median)" \
        "$(awk '{ print ($2 + $3) / ($6 + $7) }' "$times.both" | median)" \
        "$(awk 'BEGIN { m = 0 } { if ($4 > m) m = $4 } END { print m / 1024 }' "$times.both")" "$runs"
}

echo "$(date -u '+%F %T') UTC, load $(cut -d ' ' -f 1-3 /proc/loadavg), $ref"
pair check "true" "'$bin/demo_host' '$state/log' '$state/config' '$state/work' '$ref'" \
    "'$bin/memmem_pass' '$ref'"
pair repair "rm -f '$out/repaired.doc' '$out/copy.doc'" \
    "${tool[*]} repair --no-verify '$ref' '$out/repaired.doc'" \
    "cp --reflink=never '$ref' '$out/copy.doc'"
pair salvage_out "rm -f '$out/salvaged.doc' '$out/copy.doc'" \
    "${tool[*]} salvage '$ref' --out '$out/salvaged.doc'" \
    "cp --reflink=never '$ref' '$out/copy.doc'"
if command -v 7z >/dev/null; then
    pair analysis "rm -rf '$out/analysis' '$out/7z'" "${tool[*]} analyze '$ref' '$out/analysis'" \
        "7z x -o'$out/7z' '$ref'"
    pair salvage_extract "rm -rf '$out/extract' '$out/7z'" \
        "${tool[*]} salvage '$ref' --extract '$out/extract'" "7z x -o'$out/7z' '$ref'"
else
    echo "7z missing (Debian p7zip-full): the analysis and extraction pairs are skipped"
fi
