#!/usr/bin/env bash
# Writes the benchmarks' reference file: about 1 GB written by libgsf (`gsf createole`) from
# 2,180 files of random bytes (sizes log-uniform from 64 bytes to 5 MiB, the smallest going into
# the mini stream; the first two named WordDocument and 1Table, so that the file reads as a
# word-processing document the repair accepts), all the same from one run to the next (seeded
# contents, fixed times). Needs python3 and gsf (libgsf-bin).
# Usage: make_reference_file.sh [OUT]   (default /dev/shm/cfb_reference/reference.doc)
set -euo pipefail

out=${1:-/dev/shm/cfb_reference/reference.doc}
folder=$(dirname "$out")/reference_streams
mkdir -p "$folder"
rm -f "$folder"/*

/usr/bin/python3 - "$folder" <<'PY'
import math, random, sys
folder = sys.argv[1]
rng = random.Random(2180)
for index in range(2180):
    size = int(math.exp(rng.uniform(math.log(64), math.log(5 << 20))))
    name = ["WordDocument", "1Table"][index] if index < 2 else f"s{index:04d}.bin"
    with open(f"{folder}/{name}", "wb") as stream:
        stream.write(rng.randbytes(size))
PY

touch -d '2026-01-01 00:00:00 UTC' "$folder"/*
rm -f "$out"
(cd "$folder" && gsf createole "$out" WordDocument 1Table s*.bin >/dev/null 2>&1)
rm -rf "$folder"
sync
echo "$out: $(stat -c %s "$out") bytes"
