# Flags of all our own targets, as one interface library.
add_library(tessary_flags INTERFACE)
target_include_directories(tessary_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_features(tessary_flags INTERFACE cxx_std_20)
if(MSVC)
  target_compile_options(tessary_flags INTERFACE /W4 /WX /fp:precise)
else()
  # Table builders need the same floats everywhere: no contraction into fused operations.
  target_compile_options(tessary_flags INTERFACE -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Werror
                                                 -ffp-contract=off)
endif()
if(TESSARY_SANITIZE)
  add_compile_options(-fsanitize=${TESSARY_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TESSARY_SANITIZE})
  if(TESSARY_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=all)
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
      # Whatever loses a value is a fault, unsigned sums included; sums that wrap on purpose say so.
      add_compile_options(-fsanitize=float-cast-overflow,integer,implicit-conversion
                          -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/wraps_allowed.txt)
    endif()
  endif()
endif()
if(TESSARY_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # the fuzzer steers by the branches that are taken
  target_compile_definitions(tessary_flags INTERFACE TESSARY_SLOWED_DOWN=20)  # watched code takes as many times as long
endif()
if(TESSARY_FAULT_INJECTION)
  target_compile_definitions(tessary_flags INTERFACE TESSARY_FAULT_INJECTION)
endif()
if(WIN32 AND NOT MSVC)  # there these are the defaults
  # What makes attacks hard; check_dll.sh looks for it. And no time stamps: the same sources give the same bytes.
  add_compile_options(-fstack-protector-strong)
  add_link_options(-fstack-protector-strong -Wl,--dynamicbase,--nxcompat,--high-entropy-va,--no-insert-timestamp)
  # Control-flow guard takes a compiler, a linker and a run-time library that know it; Debian's mingw-w64 is built
  # without, so that this stays off there.
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_FLAGS -mguard=cf)
  set(CMAKE_REQUIRED_LINK_OPTIONS -mguard=cf -Wl,--fatal-warnings)
  check_cxx_source_compiles("extern \"C\" const int _load_config_used; int main() { return _load_config_used; }"
                            TESSARY_HAS_GUARD)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(TESSARY_HAS_GUARD)
    add_compile_options(-mguard=cf)
    add_link_options(-mguard=cf)
  endif()
endif()
if(WIN32)
  target_compile_definitions(tessary_flags INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX
                                                     _WIN32_WINNT=0x0601
                             PSAPI_VERSION=1)  # the names of later versions are not in every system that is served
endif()
