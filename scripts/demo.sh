#!/usr/bin/env bash
# Builds the shared library and runs a small C host against it: init, a file check, destroy,
# then shows the error dump that VrkCfbDestroy wrote. Everything lands under build/demo.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
jobs=${CFB_JOBS:-$(nproc)}
build="$root/build/demo"
run="$build/run"

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
