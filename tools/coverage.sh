#!/usr/bin/env bash
# Counts the lines of the engine and of the portable front end that the native tests, the hostile checks and what the
# fuzzers have learnt reach; needs clang and llvm. Prints each file's share and each line that nothing reaches, and
# fails below 95 %. INPUTS names folders of documents beside build/fuzz/learnt.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install_packages.sh clang llvm
build=build/coverage
cmake --preset coverage >/dev/null
cmake --build --preset coverage
rm -rf $build/profiles && mkdir $build/profiles
export LLVM_PROFILE_FILE=$build/profiles/%p.profraw
programs=($build/{document,render,properties,frontend,whole}_tests $build/hostile_check)
for program in "${programs[@]:0:5}"; do
    "$program" --gtest_brief=1
done
$build/hostile_check $build/small_samples 10
for folder in build/fuzz/learnt/{open,render,com} ${INPUTS:-}; do
    # Each document once as it is.
    if [ -d "$folder" ]; then
        # Learnt inputs need not obey what holds for sound documents (1), but nothing may crash.
        $build/hostile_check "$folder" 1000000000 || [ $? -eq 1 ]
    fi
done
profdata=$(command -v llvm-profdata || command -v llvm-profdata-14)
cov=$(command -v llvm-cov || command -v llvm-cov-14)
"$profdata" merge -sparse $build/profiles/*.profraw -o $build/all.profdata
"$cov" export "${programs[0]}" "${programs[@]/#/-object=}" -instr-profile=$build/all.profdata -format=lcov \
    document render properties frontend >$build/lines.info
python3 - $build/lines.info <<'END'
import os
import sys

hit = all_lines = 0
files = []
for line in open(sys.argv[1]):
    word, _, rest = line.strip().partition(":")
    if word == "SF":
        name, lines = os.path.relpath(rest), {}
    elif word == "DA":
        number, count = (int(part) for part in rest.split(",")[:2])
        lines[number] = lines.get(number, 0) + count
    elif word == "end_of_record" and lines and name.startswith(("document/", "render/", "properties/", "frontend/")):
        missed = [number for number, count in sorted(lines.items()) if count == 0]
        files.append((100 - 100 * len(missed) / len(lines), name, len(lines), missed))
for share, name, count, missed in sorted(files):
    print(f"{share:6.2f} % of {count:4} {name}", *missed)
    all_lines += count
    hit += count - len(missed)
print(f"{100 * hit / all_lines:6.2f} % of {all_lines} lines")
sys.exit(hit < 0.95 * all_lines)
END
