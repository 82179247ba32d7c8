# What phones compile with, for 32-bit ARM: clang, with the C library of Debian's cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_TARGET arm-linux-gnueabi)
  set(CMAKE_${language}_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=softfp")
endforeach()
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
# As for Android: pages of 16 KB, the C++ runtime inside.
set(CMAKE_SHARED_LINKER_FLAGS_INIT
  "-Wl,-z,max-page-size=16384 -static-libstdc++ -static-libgcc")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
