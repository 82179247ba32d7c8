# What phones compile with, for 64-bit ARM: clang of about the NDK's version, with the C library of
# Debian's cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
foreach(tool AR NM RANLIB READELF STRIP)
  string(TOLOWER ${tool} name)
  find_program(CMAKE_${tool} aarch64-linux-gnu-${name} REQUIRED)
endforeach()
# The stable_sort of GCC's library uses what C++17 deprecates.
set(CMAKE_CXX_FLAGS_INIT "-Wno-deprecated-declarations")
# As for Android: pages of 16 KB, the C++ runtime inside.
set(CMAKE_SHARED_LINKER_FLAGS_INIT
  "-Wl,-z,max-page-size=16384 -static-libstdc++ -static-libgcc")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;/usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
