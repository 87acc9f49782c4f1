#!/usr/bin/env bash
# Decodes all samples, small, damaged and whole, under valgrind: no byte may be used or written out that nothing was
# stored in, and nothing may leak. Folders named as arguments are decoded, too.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install_packages.sh valgrind
build=build/native-release
cmake --preset native-release >/dev/null
cmake --build --preset native-release --target psdrender make_samples
$build/make_samples $build/samples && $build/make_samples $build/small_samples --small
count=0
failed=0
for file in $(find $build/samples $build/small_samples "$@" -type f ! -name stamp); do
    for layers in "" --layers; do
        # Bytes that are written to the file are looked at as well.
        code=0
        # shellcheck disable=SC2086
        valgrind -q --error-exitcode=99 --leak-check=full $build/psdrender $layers "$file" $build/checked.bgra \
            >/dev/null 2>$build/valgrind.log || code=$?
        count=$((count + 1))
        if [ $code -gt 1 ]; then
            failed=$((failed + 1))
            echo "$file $layers" && head -n 20 $build/valgrind.log
        fi
    done
done
echo "$count pictures, $failed with faults"
[ $failed -eq 0 ]
