# What phones compile with, for 32-bit ARM: clang of about the NDK's version, with the C library of
# Debian's cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET arm-linux-gnueabi)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabi)
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=softfp")
foreach(tool AR NM RANLIB READELF STRIP)
  string(TOLOWER ${tool} name)
  find_program(CMAKE_${tool} arm-linux-gnueabi-${name} REQUIRED)
endforeach()
# The stable_sort of GCC's library uses what C++17 deprecates.
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -Wno-deprecated-declarations")
# As for Android: pages of 16 KB, the C++ runtime inside.
set(CMAKE_SHARED_LINKER_FLAGS_INIT
  "-Wl,-z,max-page-size=16384 -static-libstdc++ -static-libgcc")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
