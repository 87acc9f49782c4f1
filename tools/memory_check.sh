#!/usr/bin/env bash
# No byte may be used or handed out that nothing was stored in, and nothing may leak. Decodes all samples, small and
# whole, under valgrind; then these and all files of the folders named as arguments with memory that is filled with one
# pattern and with another, which must give the same pictures. Dissolved layers differ with the clock: a picture that
# may have one does not count when it differs. --small is a short form: of the samples only the small ones, under
# valgrind as clients decode them.
set -euo pipefail
cd "$(dirname "$0")/.."
only_small=
if [ "${1:-}" = --small ]; then only_small=yes && shift; fi
for folder; do [ -d "$folder" ] || { echo "no folder $folder" >&2 && exit 2; }; done
tools/install_packages.sh valgrind
build=build/native-release
cmake --preset native-release >/dev/null
cmake --build --preset native-release --target psdrender make_samples
$build/make_samples $build/samples && $build/make_samples $build/small_samples --small
folders=($build/small_samples)
watched=("")
if [ -z "$only_small" ]; then
    folders+=($build/samples)
    watched+=(--layers)
fi
count=0
failed=0
pictures=0
while IFS= read -r file; do
    for layers in "${watched[@]}"; do
        # Bytes that are written to the file are looked at as well.
        code=0
        rm -f $build/checked.bgra
        # shellcheck disable=SC2086
        valgrind -q --error-exitcode=99 --leak-check=full $build/psdrender $layers "$file" $build/checked.bgra \
            >/dev/null 2>$build/valgrind.log || code=$?
        count=$((count + 1))
        [ ! -s $build/checked.bgra ] || pictures=$((pictures + 1))
        if [ $code -gt 1 ]; then
            failed=$((failed + 1))
            echo "$file $layers" && head -n 20 $build/valgrind.log
        fi
    done
done < <(find "${folders[@]}" -type f ! -name stamp)
echo "$count decoded under valgrind, $pictures pictures, $failed with faults"
[ $pictures -gt 0 ] # else valgrind did not run

# Decodes with memory filled with a byte. A refused document has no picture.
filled() {
    local code=0
    rm -f "$2"
    # shellcheck disable=SC2086
    MALLOC_PERTURB_=$1 $build/psdrender $layers "$file" "$2" >/dev/null 2>&1 || code=$?
    touch "$2"
    [ $code -le 1 ] || { failed=$((failed + 1)) && echo "$file $layers ended with $code"; }
}
count=0
pictures=0
dissolved=0
while IFS= read -r file; do
    for layers in "" --layers; do
        filled 165 $build/checked.bgra
        filled 90 $build/other.bgra
        count=$((count + 1))
        [ ! -s $build/checked.bgra ] || pictures=$((pictures + 1))
        cmp -s $build/checked.bgra $build/other.bgra && continue
        if grep -qaE 'diss|Dslv' "$file"; then
            dissolved=$((dissolved + 1))
        else
            failed=$((failed + 1))
            echo "$file $layers depends on memory"
        fi
    done
done < <(find "${folders[@]}" "$@" -type f ! -name stamp)
echo "$count decoded with two fillings, $pictures pictures, $dissolved of them dissolved; $failed faults in all"
[ $failed -eq 0 ] && [ $pictures -gt 0 ]
