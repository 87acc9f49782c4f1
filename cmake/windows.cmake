# The DLL and the command-line client. The folder of the DLL is named as %PROCESSOR_ARCHITECTURE% is on 64-bit
# Windows, because registration writes the path of the server with that variable in it.
set(TESSARY_DLL_DIR ${PROJECT_BINARY_DIR}/AMD64)
file(GLOB windows_sources CONFIGURE_DEPENDS frontend/*.cpp)
list(REMOVE_ITEM windows_sources ${core_sources})
include(frontend/resources/resources.cmake)  # sets resource_sources
add_library(Tessary SHARED ${windows_sources} ${resource_sources} frontend/resources/tessary.def)
target_link_libraries(Tessary PRIVATE codec_core ole32 uuid shlwapi psapi shell32 advapi32)
set_target_properties(Tessary PROPERTIES PREFIX "" OUTPUT_NAME Tessary
                                         RUNTIME_OUTPUT_DIRECTORY ${TESSARY_DLL_DIR})
add_executable(wicview tools/wicview.cpp)
target_link_libraries(wicview PRIVATE tessary_flags ole32 uuid shlwapi advapi32 shell32)
if(NOT MSVC)  # there these are the defaults
  target_link_options(Tessary PRIVATE -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va -s)
  target_link_options(wicview PRIVATE -municode)
endif()
