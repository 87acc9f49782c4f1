# The DLL and its tools. The folder of the DLL is named as %PROCESSOR_ARCHITECTURE% is on 64-bit Windows, because
# registration writes the path of the server with that variable in it.
set(TESSARY_DLL_DIR ${PROJECT_BINARY_DIR}/AMD64)
file(GLOB windows_sources CONFIGURE_DEPENDS frontend/*.cpp)
list(REMOVE_ITEM windows_sources ${core_sources})
include(frontend/resources/resources.cmake)  # sets resource_sources, scripts and script_folder
add_library(Tessary SHARED ${windows_sources} ${resource_sources} frontend/resources/tessary.def)
target_link_libraries(Tessary PRIVATE codec_core ole32 uuid shlwapi psapi shell32 advapi32)
set_target_properties(Tessary PROPERTIES PREFIX "" OUTPUT_NAME Tessary
                                         RUNTIME_OUTPUT_DIRECTORY ${TESSARY_DLL_DIR})

add_library(windows_tools STATIC tools/windows/registration_facts.cpp tools/windows/registry_memory.cpp
                                 frontend/registration.cpp frontend/registry_writer.cpp)
target_include_directories(windows_tools PUBLIC ${version_folder})
target_link_libraries(windows_tools PUBLIC codec_core ole32 uuid shlwapi advapi32 shell32 version)
add_executable(wicview tools/windows/wicview.cpp tools/windows/picture_file.cpp tools/windows/doctor.cpp
                       tools/windows/wicview.rc)
add_executable(tessary-setup tools/windows/tessary_setup.cpp tools/windows/tessary_setup.rc)
foreach(tool wicview tessary-setup)
  target_link_libraries(${tool} PRIVATE windows_tools)
endforeach()
# The setup program has the scripts of the DLL, so that it can do without it.
set_source_files_properties(tools/windows/wicview.rc tools/windows/tessary_setup.rc PROPERTIES
                            OBJECT_DEPENDS "${scripts}"
                            INCLUDE_DIRECTORIES "${PROJECT_SOURCE_DIR};${script_folder};${version_folder}")
if(NOT MSVC)
  target_link_options(wicview PRIVATE -municode)
  target_link_options(tessary-setup PRIVATE -municode)
  foreach(program Tessary wicview tessary-setup)
    if(TESSARY_SYMBOLS)
      # What is needed to read the report of a crash goes into a file beside the program. With -p no program gets the
      # time of its copying.
      add_custom_command(TARGET ${program} POST_BUILD
                         COMMAND ${CMAKE_OBJCOPY} -p --only-keep-debug $<TARGET_FILE:${program}>
                                 ${PROJECT_BINARY_DIR}/$<TARGET_FILE_NAME:${program}>.debug
                         COMMAND ${CMAKE_OBJCOPY} -p --strip-all $<TARGET_FILE:${program}> VERBATIM)
    else()
      target_link_options(${program} PRIVATE -s)
    endif()
  endforeach()
endif()
