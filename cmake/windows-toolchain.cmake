# Clang as the cross-compiler for 64-bit Windows, on top of the headers and the C++ library that
# the MinGW packages bring. Clang rather than MinGW's GCC, because it knows __try/__except, writes
# a PDB, and its linker writes an import library that every Windows linker accepts.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-windows-gnu)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-windows-gnu)
find_program(CMAKE_RC_COMPILER NAMES x86_64-w64-mingw32-windres REQUIRED)
find_program(CMAKE_AR NAMES llvm-ar-14 llvm-ar REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib-14 llvm-ranlib REQUIRED)
find_program(CMAKE_STRIP NAMES llvm-strip-14 llvm-strip REQUIRED)

# The folders of Debian's MinGW carry the thread model in their names, which hides the C++ library
# from clang. The win32 model is preferred: it makes the smaller DLL.
file(GLOB tavu_mingw_folders LIST_DIRECTORIES true
     /usr/lib/gcc/x86_64-w64-mingw32/*-win32 /usr/lib/gcc/x86_64-w64-mingw32/*-posix)
list(FILTER tavu_mingw_folders INCLUDE REGEX "[0-9]+-(win32|posix)$")
set(tavu_mingw_folder "")
foreach(folder IN LISTS tavu_mingw_folders)
  if(EXISTS ${folder}/include/c++ AND (NOT tavu_mingw_folder OR folder MATCHES "-win32$"))
    set(tavu_mingw_folder ${folder})
  endif()
endforeach()
if(NOT tavu_mingw_folder)
  message(FATAL_ERROR "No MinGW C++ library was found; scripts/setup installs it.")
endif()

set(tavu_cxx_headers "-nostdinc++ -isystem ${tavu_mingw_folder}/include/c++ \
-isystem ${tavu_mingw_folder}/include/c++/x86_64-w64-mingw32 \
-isystem ${tavu_mingw_folder}/include/c++/backward")
set(CMAKE_CXX_FLAGS_INIT "${tavu_cxx_headers}")
set(tavu_link "-fuse-ld=lld -static -L${tavu_mingw_folder} -Wno-unused-command-line-argument")
if(tavu_mingw_folder MATCHES "-posix$")
  string(APPEND tavu_link " -lwinpthread")
endif()
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "${tavu_link}")
endforeach()

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
