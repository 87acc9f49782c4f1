# The cross build for 64-bit Windows with clang in place of g++, the headers and libraries of mingw-w64 and its library
# of C++, which clang does not find by itself where Debian has it.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-x86_64.cmake)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-libgcc-file-name OUTPUT_VARIABLE libgcc
                OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(gcc_folder ${libgcc} DIRECTORY)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${gcc_folder}/include/c++ ${gcc_folder}/include/c++/x86_64-w64-mingw32
                                           ${gcc_folder}/include/c++/backward)
# The library of C++ needs threads, which g++ adds by itself; the linker does not mind what comes first.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${gcc_folder} -fuse-ld=lld -lpthread")
endforeach()
