# framehold_read_version(RESULT): the library's version, MAJOR.MINOR.BUILD, from the public header,
# the one place where it stands.
function(framehold_read_version result)
  file(READ ${CMAKE_CURRENT_SOURCE_DIR}/include/zpr_framehold.h header)
  set(numbers "")
  foreach(part MAJOR MINOR BUILD)
    if(NOT header MATCHES "#define ZPR_VERSION_${part} ([0-9]+)")
      message(FATAL_ERROR "include/zpr_framehold.h does not define ZPR_VERSION_${part}")
    endif()
    list(APPEND numbers ${CMAKE_MATCH_1})
  endforeach()
  list(JOIN numbers "." version)
  set(${result} ${version} PARENT_SCOPE)
  set_property(DIRECTORY APPEND PROPERTY
    CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/include/zpr_framehold.h)
endfunction()
