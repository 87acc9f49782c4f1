# One test program per folder of tests/, made of all its *_test.cpp. Natively every TEST is an entry of its own; under
# Wine one program is one entry, for starting a process costs more there than most tests.
find_package(GTest QUIET)
if(WIN32 OR NOT TARGET GTest::gmock OR TESSARY_SANITIZE MATCHES thread)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set(gtest_libraries gmock gtest_main)
else()
  set(gtest_libraries GTest::gmock GTest::gtest_main)
endif()
include(GoogleTest)

# add_test_program(NAME SOURCE...) builds one test program; variable LIBRARIES adds to what it links.
function(add_test_program name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE document_builder ${LIBRARIES} ${gtest_libraries})
  target_compile_definitions(${name} PRIVATE TESSARY_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  if(WIN32)
    add_test(NAME windows.${name} COMMAND ${name})
    set_tests_properties(windows.${name} PROPERTIES FIXTURES_REQUIRED wine RESOURCE_LOCK wine TIMEOUT 900)
  else()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX native. PROPERTIES TIMEOUT 900)
  endif()
endfunction()

foreach(folder document render properties frontend)
  file(GLOB sources CONFIGURE_DEPENDS tests/${folder}/*_test.cpp)
  add_test_program(${folder}_tests ${sources})
endforeach()
add_test_program(whole_tests tests/whole_test.cpp)
target_compile_definitions(whole_tests PRIVATE TESSARY_CORPUS="${TESSARY_CORPUS}")

if(NOT WIN32)
  add_test(NAME native.psdrender_refuses COMMAND psdrender ${PROJECT_SOURCE_DIR}/README.md out.png)
  set_tests_properties(native.psdrender_refuses PROPERTIES PASS_REGULAR_EXPRESSION "README.md is not a Photoshop document\n$")
  add_test(NAME native.psdrender_names COMMAND psdrender in.psd out.jpg)
  set_tests_properties(native.psdrender_names PROPERTIES PASS_REGULAR_EXPRESSION "end in .png.*usage: ")
  add_test(NAME native.hostile_check COMMAND hostile_check ${PROJECT_BINARY_DIR}/small_samples 50)
endif()
if(WIN32)
  add_test(NAME windows.wine_prefix COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} cmd /c ver)
  set_tests_properties(windows.wine_prefix PROPERTIES FIXTURES_SETUP wine TIMEOUT 300)
  add_test(NAME windows.dll
           COMMAND ${PROJECT_SOURCE_DIR}/cmake/check_dll.sh ${CMAKE_OBJDUMP} $<TARGET_FILE:Tessary>)
  # The DLL is tested from outside, through its exports.
  file(GLOB sources CONFIGURE_DEPENDS tests/windows/*_test.cpp)
  foreach(source ${sources})
    get_filename_component(name ${source} NAME_WE)
    set(LIBRARIES ole32 uuid shlwapi psapi shell32 advapi32)
    add_test_program(${name} ${source})
    target_compile_definitions(${name} PRIVATE TESSARY_DLL_DIR="${TESSARY_DLL_DIR}")
    add_dependencies(${name} Tessary)
  endforeach()
  add_test(NAME windows.tools COMMAND ${PROJECT_SOURCE_DIR}/tests/windows/tools_test.sh ${PROJECT_BINARY_DIR})
  set_tests_properties(windows.tools PROPERTIES TIMEOUT 900)
  # The samples of the native build, when there is one.
  add_test(NAME windows.replay COMMAND ${PROJECT_SOURCE_DIR}/tools/replay.py --damage 100
                                       ${PROJECT_SOURCE_DIR}/build/native/small_samples)
  set_tests_properties(windows.replay PROPERTIES FIXTURES_REQUIRED wine RESOURCE_LOCK wine TIMEOUT 900
                                                 SKIP_RETURN_CODE 77)
  # Running one script of the six, or a damaged one, is beyond the exports, and so is what tessary-setup remembers.
  target_link_libraries(registration_test PRIVATE windows_tools)
endif()
