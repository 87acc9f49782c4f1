#!/usr/bin/env bash
# Everything that tools/run_tests.sh leaves out because it takes longer: fuzzing, time and memory of documents that ask
# for much, large honest documents in full size, the samples under valgrind, clang-tidy and cppcheck, every damage and
# fault, damaged documents through the DLL, the lines that tests reach, and whether tests notice faults. Takes about
# three hours with two processors and 3 GB of memory. Arguments name some of the checks; --list names all.
#   FUZZ_SECONDS   for each fuzz target, 300 when not set
set -euo pipefail
cd "$(dirname "$0")/.."

fuzz() { tools/fuzz.sh "${FUZZ_SECONDS:-300}"; }
bombs() { TIMES_AS_SLOW=${TIMES_AS_SLOW:-4} tools/measure_bombs.py; } # looks for hangs, not for slow machines
honest() {
    build native-release honest_test
    build/native-release/honest_test --gtest_brief=1
}
memory() { tools/memory_check.sh; }
analyse() { tools/analyse.sh; }
damage() {
    build native hostile_check small_samples
    build/native/hostile_check build/native/small_samples
}
replay() {
    build windows Tessary codec_test
    build native small_samples
    tools/replay.py --damage 10 build/native/small_samples
}
threads() {
    build native-tsan all
    ctest --preset native-tsan -j "$(nproc)"
}
coverage() { tools/coverage.sh; }
mutants() { tools/mutate.py; }
checks=(honest bombs damage threads analyse memory fuzz replay coverage mutants)

build() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" --target "${@:2}"
}

if [ "${1:-}" = --list ]; then
    printf '%s\n' "${checks[@]}"
    exit
fi
if [ "${1:-}" = --only ]; then # in a shell of its own, where a failure in the middle ends the check
    "$2"
    exit
fi
[ $# -gt 0 ] || set -- "${checks[@]}"
for check; do [[ " ${checks[*]} " == *" $check "* ]] || { echo "check_all.sh: no check '$check'" >&2 && exit 2; }; done
tools/install_packages.sh
failed=()
for check; do
    echo "== $check"
    "$BASH" tools/check_all.sh --only "$check" || failed+=("$check")
done
if [ ${#failed[@]} -gt 0 ]; then
    echo "failed: ${failed[*]}"
    exit 1
fi
echo "${#} checks passed"
