#!/usr/bin/env bash
# Reads all product code and tools that build natively with clang-tidy and cppcheck and fails on what they find. With
# --short it leaves out clang-tidy, which takes minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install_packages.sh cppcheck
if [ "${1:-}" != --short ]; then
    tools/install_packages.sh clang clang-tidy
    cmake --preset coverage >/dev/null
    mapfile -t sources < <(git ls-files 'document/*.cpp' 'render/*.cpp' 'properties/*.cpp' 'tools/*.cpp' ':!tools/windows/*'
        python3 -c 'import json; [print(entry["file"]) for entry in json.load(open("build/coverage/compile_commands.json"))]' |
            sed "s|^$PWD/||" | grep '^frontend/')
    printf '%s\n' "${sources[@]}" | sort -u | xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p build/coverage
fi
# What is not asked of cppcheck: the initialisers of members, which it does not see in records; values that its parser
# loses at templates behind "<" (constStatement, uninitvar, syntaxError, each only where it does); kernels that take
# small records by value, so that they stay in registers; strings that are cut at their zero by c_str; word of what
# newer versions leave out for speed.
cppcheck --quiet --error-exitcode=1 --std=c++20 --language=c++ --inline-suppr -I . \
    --enable=warning,performance,portability --suppress=missingIncludeSystem --suppress=uninitMemberVar --suppress=constStatement --suppress=stlcstrReturn --suppress=normalCheckLevelMaxBranches \
    --suppress={uninitvar,legacyUninitvar}:properties/effect_blur.cpp --suppress=passedByValue:render/* \
    --suppress=syntaxError:properties/apply_adjustment.cpp \
    document render properties frontend/{document_pixels,exif_graft,header_probe,pixel_copy,read_ahead}.cpp \
    frontend/{registry_script,thumbnail_image}.cpp tools
