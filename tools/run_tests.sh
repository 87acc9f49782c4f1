#!/usr/bin/env bash
# Builds everything both ways and runs all tests: style and include checks, a short fuzz run, time and memory of
# documents that ask for much, the small samples under valgrind, cppcheck, the lines that tests reach, the native tests
# with sanitizers, the Windows tests under Wine. Ends on ctest's own summary.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install_packages.sh

tools/check_format.sh
python3 tools/check_includes.py

for preset in native windows; do
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
done

tools/fuzz.sh 15
TIMES_AS_SLOW=4 tools/measure_bombs.py # looks for hangs only, so that a slow machine does not fail
tools/memory_check.sh --small
tools/analyse.sh --short
tools/coverage.sh

# One test directory over both builds, so that one summary counts everything.
mkdir -p build/all
printf 'subdirs("../native" "../windows")\n' > build/all/CTestTestfile.cmake
exec ctest --test-dir build/all --output-on-failure -j "$(nproc)"
