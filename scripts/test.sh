#!/usr/bin/env bash
# The whole test run: native Release build + ctest, a sanitized build + ctest, the Windows
# cross build with its export check + ctest under Wine, and a short fuzz smoke run.
# Build folders are kept under build/ so that a second run is incremental.
# Exits non-zero when any step fails; prints one summary line per step at the end.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
jobs=${CFB_JOBS:-$(nproc)}
logs="$root/build/logs"
mkdir -p "$logs"

summary=()
failed_steps=()
failed=0

# Records a step's result; the step's output also goes to build/logs/<name>.log.
run_step() {
    local name=$1
    shift
    echo "==== $name"
    if "$@" 2>&1 | tee "$logs/$name.log"; then
        summary+=("PASS  $name  $(ctest_line "$logs/$name.log")")
    else
        summary+=("FAIL  $name  $(ctest_line "$logs/$name.log")")
        failed_steps+=("$name")
        failed=1
    fi
}

# The step's ctest result line, with the names of the tests that failed.
ctest_line() {
    local line failed
    line=$(grep -E "tests passed|No tests were found" "$1" | tail -n 1 || true)
    failed=$(sed -n '/The following tests FAILED:/,$p' "$1" | sed -nE 's/^[[:space:]]+[0-9]+ - (.*)$/\1/p' |
        paste -sd ';' - || true)
    echo "$line${failed:+  failed: $failed}"
}

# Where each failed test of a step went wrong, as gtest and ctest printed it; the end of the
# run's output is often all that is kept.
failure_lines() {
    local name
    for name in "$@"; do
        grep -E -A4 ": Failure|\*\*\*(Failed|Timeout|Exception)|Sanitizer" \
            "$logs/$name.log" | head -n 40 | sed "s/^/$name| /"
    done
}

configure_and_build() {
    local dir=$1
    shift
    cmake -S . -B "$dir" "$@" >/dev/null && cmake --build "$dir" -j "$jobs"
}

native() {
    configure_and_build build/release -DCMAKE_BUILD_TYPE=Release -DCFB_WERROR=ON &&
        (cd build/release && ctest --output-on-failure -j "$jobs")
}

sanitized() {
    local compilers=()
    if command -v clang++ >/dev/null; then
        compilers=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)
    fi
    configure_and_build build/asan -DCMAKE_BUILD_TYPE=Debug "${compilers[@]}" \
        -DCFB_SANITIZE=address,undefined || return 1
    (
        cd build/asan
        export ASAN_OPTIONS=halt_on_error=1:abort_on_error=1:detect_leaks=1:strict_string_checks=1
        export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
        ctest --output-on-failure -j "$jobs"
    ) || return 1
    # A report that did not fail its test still fails the run.
    if grep -E "runtime error:|ERROR: (Address|Leak|UndefinedBehavior)Sanitizer" \
        build/asan/Testing/Temporary/LastTest.log; then
        echo "sanitizer report found"
        return 1
    fi
}

windows() {
    configure_and_build build/win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
        -DCMAKE_BUILD_TYPE=Release || return 1
    sh code/tests/export_table_test.sh build/win/bin/cfb_vornak.dll || return 1
    sh code/tests/export_table_test.sh build/win/lib/cfb_vornak.lib || return 1
    (
        export WINEPREFIX="$root/build/win/wineprefix" LANG=C.UTF-8 WINEDEBUG=-all
        export WINEDLLOVERRIDES="mscoree,mshtml,winedbg.exe=d"
        mkdir -p "$WINEPREFIX"
        trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
        wineserver -p
        # Wine's helper processes keep inherited pipes open: never pipe wineboot's output.
        wineboot -i </dev/null >"$logs/wineboot.log" 2>&1
        (cd build/win && ctest --output-on-failure) || exit 1
        # Files written by the Windows build, checked by outside readers natively.
        if [ -x build/win/bin/builder_sample_writer.exe ]; then
            local samples="$root/build/win/samples"
            rm -rf "$samples"
            wine build/win/bin/builder_sample_writer.exe "$samples" </dev/null || exit 1
            /usr/bin/python3 code/tests/olefile_check.py "$samples" || exit 1
        fi
    )
}

fuzz_smoke() {
    local targets=()
    local source
    for source in code/fuzz/fuzz_*.cpp; do
        [ -e "$source" ] || continue
        grep -q LLVMFuzzerTestOneInput "$source" && targets+=("$(basename "$source" .cpp)")
    done
    if [ ${#targets[@]} -eq 0 ]; then
        echo "no fuzz targets"
        return 0
    fi
    configure_and_build build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DCFB_SANITIZE=address,undefined -DCFB_BUILD_FUZZ=ON -DCFB_BUILD_TESTS=OFF \
        -DCFB_BUILD_TOOLS=OFF || return 1
    local target
    for target in "${targets[@]}"; do
        local binary="build/fuzz/bin/$target"
        if [ ! -x "$binary" ]; then
            echo "fuzz target $target was not built"
            return 1
        fi
        local corpus="build/fuzz/corpus/$target"
        mkdir -p "$corpus"
        local seeds=()
        [ -d "code/fuzz/corpus/$target" ] && seeds=("code/fuzz/corpus/$target")
        echo "-- $target"
        (cd build/fuzz && ASAN_OPTIONS=detect_leaks=1 "$root/$binary" -max_total_time=30 \
            -timeout=10 -print_final_stats=1 "$root/$corpus" "${seeds[@]/#/$root/}") || return 1
    done
}

run_step install-deps bash scripts/install-deps.sh
run_step native native
run_step sanitized sanitized
run_step windows windows
run_step fuzz-smoke fuzz_smoke

echo
if [ ${#failed_steps[@]} -gt 0 ]; then
    echo "==== failures"
    failure_lines "${failed_steps[@]}"
fi
echo "==== summary"
printf '%s\n' "${summary[@]}"
exit "$failed"
