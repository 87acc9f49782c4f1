# Cross build for 64-bit Windows. What it builds runs through Wine in a prefix of the build's own.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
# Also where another compiler would take its own: their words are read, and their copies of programs compared.
set(CMAKE_OBJDUMP x86_64-w64-mingw32-objdump CACHE FILEPATH "Prints what a program is made of")
set(CMAKE_OBJCOPY x86_64-w64-mingw32-objcopy CACHE FILEPATH "Copies programs and their symbols")
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run_in_wine.sh)
