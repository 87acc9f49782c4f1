#!/usr/bin/env bash
# What has to pass before anything lands: style and include checks, both builds, the native tests with sanitizers, the
# Windows tests under Wine. Ends on ctest's own summary. tools/check_all.sh runs what takes longer.
set -euo pipefail
cd "$(dirname "$0")/.."
echo "run_tests.sh: at most 6 minutes of processor time where everything is built, or 3 minutes with two processors;"
echo "building everything takes about half an hour of processor time more"
tools/install_packages.sh

tools/check_format.sh
python3 tools/check_includes.py

for preset in native windows; do
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
done

# One test directory over both builds, so that one summary counts everything.
mkdir -p build/all
printf 'subdirs("../native" "../windows")\n' > build/all/CTestTestfile.cmake
exec ctest --test-dir build/all --output-on-failure -j "$(nproc)"
