#!/usr/bin/env bash
# Installs the build and test dependencies (Debian/Ubuntu). Does nothing when all are present.
set -euo pipefail

packages=(
    build-essential cmake                      # native compiler and build
    clang libclang-rt-14-dev                   # sanitizers and libFuzzer
    clang-tidy clang-format                    # lint and formatting
    googletest libgtest-dev                    # unit tests (built from /usr/src/googletest)
    libbenchmark-dev                           # micro benchmarks
    nlohmann-json3-dev                         # JSON output of the command-line tool
    libcli11-dev                               # the command-line tool's parsing
    parallel                                   # GNU parallel: the README's many-machine run
    librsvg2-bin                               # rsvg-convert: the README's map picture
    g++-mingw-w64-x86-64-posix                 # Windows DLL cross build (posix threads)
    wine wine64                                # running the Windows tests
    python3-olefile libgsf-bin                 # outside readers that check written files
    p7zip-full time                            # optional: 7z, the extraction peer; /usr/bin/time
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: all packages present"
    exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "install-deps: installing ${missing[*]}"
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
