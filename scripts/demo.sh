#!/usr/bin/env bash
# The main job on generated samples: a C host against the shared library (init, check,
# destroy, the error dump), then the command-line tool: sound and damaged sample documents
# checked, a damaged one repaired and its copy checked and analysed, and a badly damaged one
# salvaged and read back by python3-olefile. Everything lands under build/demo.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
jobs=${CFB_JOBS:-$(nproc)}
build="$root/build/demo"
run="$build/run"

bash scripts/install-deps.sh

echo "== building the library (Release, no tests, no tool)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCFB_BUILD_TESTS=OFF -DCFB_BUILD_TOOLS=OFF \
    >/dev/null
cmake --build "$build" -j "$jobs" --target cfb_vornak >/dev/null
cc -std=c11 -Wall -Wextra -I code/src code/examples/demo_host.c -L "$build/bin" -lcfb_vornak \
    -Wl,-rpath,"$build/bin" -o "$build/demo_host"

echo "== running the C host in $run"
rm -rf "$run"
mkdir -p "$run"
cd "$run"
printf 'this is not a compound file\n' >not_a_cfb.doc
"$build/demo_host" logs config work not_a_cfb.doc

echo "== logs/occur_error_when_fixing_file.log (the error dump)"
cat logs/occur_error_when_fixing_file.log

echo "== the command-line tool: a sound sample document and damaged copies, checked"
cmake -S "$root" -B "$build" -DCFB_BUILD_TOOLS=ON >/dev/null
cmake --build "$build" -j "$jobs" --target cfbvornak >/dev/null
"$build/bin/cfbvornak" --work-dir tool_work build-sample check_samples
# Exit status 1 says that some files are damaged, which is the point here.
"$build/bin/cfbvornak" --work-dir tool_work check --recursive check_samples || [ $? -eq 1 ]

cmake -S "$root" -B "$build" -DCFB_BUILD_TOOLS=ON >/dev/null
cmake --build "$build" -j "$jobs" --target cfbvornak >/dev/null
tool="$build/bin/cfbvornak"
"$tool" --work-dir tool_work build-sample samples >/dev/null

echo "== repair: the sample whose header says minor version 0x003B, then a check of the copy"
"$tool" --work-dir tool_work repair samples/wrong-minor-version.doc repaired/sample.doc
repaired=$(ls repaired/* | head -n 1)
"$tool" --work-dir tool_work check "$repaired"

echo "== analysing the repaired copy (reports in $run/analysis)"
"$tool" --work-dir tool_work analyze "$repaired" analysis
echo "-- first lines of the header report"
head -n 8 "analysis/头部信息分析/原始头部分析.log"
echo "-- first lines of the directory tree report"
head -n 12 "analysis/cfb_directory_tree信息分析/原始cfb_directory_tree分析.log"

echo "== salvage: a sample document with its header zeroed and its directory chain broken"
# The SAT entry of the first directory sector becomes FREESECT, then the header is zeroed.
/usr/bin/python3 - samples/sample.doc damaged.doc <<'PY'
import struct, sys
data = bytearray(open(sys.argv[1], "rb").read())
first_dir, first_sat = struct.unpack_from("<I", data, 48)[0], struct.unpack_from("<I", data, 76)[0]
struct.pack_into("<I", data, (first_sat + 1) * 512 + 4 * first_dir, 0xFFFFFFFF)
data[0:512] = bytes(512)
open(sys.argv[2], "wb").write(data)
PY
"$tool" --work-dir tool_work salvage damaged.doc --out salvaged.cfb --extract salvaged
echo "== python3-olefile reads salvaged.cfb: every stream against the undamaged sample"
/usr/bin/python3 - samples/sample.doc salvaged.cfb <<'PY'
import sys, olefile
original, salvaged = olefile.OleFileIO(sys.argv[1]), olefile.OleFileIO(sys.argv[2])
streams = original.listdir()
for path in streams:
    same = original.openstream(path).read() == salvaged.openstream(path).read()
    print(("intact  " if same else "DIFFERS ") + "/".join(path).encode("unicode_escape").decode())
    if not same:
        sys.exit(1)
print(f"{len(streams)} of {len(streams)} streams intact")
PY
