#!/usr/bin/env bash
# Fuzzes each target for SECONDS (60 when not given) from inputs made here, and fails on a crash, a hang, a leak or too
# much memory. What the targets learn stays in the build directory, so that runs go on where the last one ended, and so
# does what they find. TARGETS names some of the targets; the documents in the folder "files" of TESSARY_CORPUS, which is
# a variable or an option of the build, are first inputs, too. With 0 seconds nothing is fuzzed: what has been learnt is reduced to the inputs that are needed for
# it, in build/fuzz/learnt/least/TARGET.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build=build/fuzz
learnt=$build/learnt

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target make_samples {open,render,com,descriptor,script}_fuzzer
corpus=${TESSARY_CORPUS:-$(sed -n 's/^TESSARY_CORPUS:PATH=//p' $build/CMakeCache.txt)}
mkdir -p "$learnt/samples" "$learnt/found"
$build/make_samples "$learnt/samples"
python3 fuzz/first_inputs.py "$learnt" ${corpus:+"$corpus/files"}

export ASAN_OPTIONS=allocator_may_return_null=1:quarantine_size_mb=32:detect_stack_use_after_return=0
status=0
for target in ${TARGETS:-open render com descriptor script}; do
    case $target in
    open | render | com) max_length=65536 ;;
    *) max_length=8192 ;;
    esac
    mkdir -p "$learnt/$target"
    echo "== $target"
    if [ "$seconds" -eq 0 ]; then
        rm -rf "$learnt/least/$target" && mkdir -p "$learnt/least/$target"
        $build/${target}_fuzzer -merge=1 "$learnt/least/$target" "$learnt/$target" "$learnt/first/$target" \
            -max_len=$max_length >"$learnt/$target.log" 2>&1 || status=1
        echo "$(find "$learnt/least/$target" -type f | wc -l) inputs"
        continue
    fi
    $build/${target}_fuzzer "$learnt/$target" "$learnt/first/$target" -max_total_time="$seconds" \
        -max_len=$max_length -rss_limit_mb=2048 -timeout=60 -dict="$learnt/keys.dict" \
        -artifact_prefix="$learnt/found/$target-" -print_final_stats=1 >"$learnt/$target.log" 2>&1 || status=1
    grep -E 'DONE|ERROR|SUMMARY|runtime error|stat::number_of_executed_units|stat::peak_rss' "$learnt/$target.log" || true
done
exit $status
