# Linux programs: the renderer for the command line, the writer of samples, benchmarks and fuzz targets.
find_package(PNG REQUIRED)
add_executable(psdrender tools/psdrender.cpp)
target_link_libraries(psdrender PRIVATE codec_core PNG::PNG)
target_include_directories(psdrender PRIVATE ${version_folder})

add_executable(make_samples tools/make_samples.cpp tools/bombs.cpp)
target_link_libraries(make_samples PRIVATE document_builder)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/samples/stamp
                   COMMAND make_samples ${PROJECT_BINARY_DIR}/samples
                   COMMAND ${CMAKE_COMMAND} -E touch ${PROJECT_BINARY_DIR}/samples/stamp
                   DEPENDS make_samples)
add_custom_target(samples ALL DEPENDS ${PROJECT_BINARY_DIR}/samples/stamp)

add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/small_samples/stamp
                   COMMAND make_samples ${PROJECT_BINARY_DIR}/small_samples --small
                   COMMAND ${CMAKE_COMMAND} -E touch ${PROJECT_BINARY_DIR}/small_samples/stamp
                   DEPENDS make_samples)
add_custom_target(small_samples ALL DEPENDS ${PROJECT_BINARY_DIR}/small_samples/stamp)
add_executable(hostile_check tests/hostile_check.cpp tests/support/document_sections.cpp)
target_link_libraries(hostile_check PRIVATE document_builder)

if(TESSARY_BENCHMARKS)
  add_executable(floor bench/floor.cpp)
  target_link_libraries(floor PRIVATE tessary_flags ZLIB::ZLIB)
  add_executable(make_bench_documents tools/make_bench_documents.cpp)
  target_link_libraries(make_bench_documents PRIVATE document_builder)
  find_package(benchmark QUIET)
  if(benchmark_FOUND)
    add_executable(composite_bench bench/composite_bench.cpp)
    target_link_libraries(composite_bench PRIVATE document_builder benchmark::benchmark)
  endif()
endif()

if(TESSARY_FUZZ)
  file(GLOB fuzz_sources CONFIGURE_DEPENDS fuzz/*_fuzzer.cpp)
  foreach(source ${fuzz_sources})
    get_filename_component(name ${source} NAME_WE)
    add_executable(${name} ${source})
    target_link_libraries(${name} PRIVATE document_builder)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  endforeach()
  foreach(name open_fuzzer render_fuzzer com_fuzzer)
    target_sources(${name} PRIVATE fuzz/document_mutator.cpp tests/support/document_sections.cpp)
  endforeach()
endif()
