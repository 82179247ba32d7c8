# Hardening of what we compile, as far as compiler and linker have it. None of it changes a result.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

# A compiler that takes a flag without having a use for it says so in a warning.
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
  string(MAKE_C_IDENTIFIER has${flag} name)
  check_cxx_compiler_flag(${flag} ${name})
  if(${name})
    target_compile_options(framehold_flags INTERFACE ${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)
foreach(flag -Wl,-z,relro -Wl,-z,now)
  string(MAKE_C_IDENTIFIER has${flag} name)
  check_linker_flag(CXX ${flag} ${name})
  if(${name})
    target_link_options(framehold_flags INTERFACE ${flag})
  endif()
endforeach()
# It needs optimization.
target_compile_options(framehold_flags INTERFACE
  $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=2>)
