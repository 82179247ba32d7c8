# framehold_folder(NAME [TOGETHER] SOURCES FILES... [USES NAMES...] [PUBLIC LIBRARIES...]
#   [PRIVATE LIBRARIES...]):
# makes the current folder the static library framehold_NAME. Its headers are included as
# "FOLDER/header.h", like those of its siblings.
# TOGETHER: its sources are compiled as one, which is far quicker where all include CLI11 or the JSON
# library: each would make its own of what these consist of.
# USES: what its files may include beside its own folder and third parties, each a sibling's name,
# a folder of src/ or a header of include/. The test `includes` holds every include against it.
function(framehold_folder name)
  cmake_parse_arguments(ARG "TOGETHER" "" "SOURCES;USES;PUBLIC;PRIVATE" ${ARGN})
  set(target framehold_${name})
  add_library(${target} STATIC ${ARG_SOURCES})
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${ARG_TOGETHER})
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR PARENT_PATH root)
  target_include_directories(${target} PUBLIC ${root})
  target_link_libraries(${target} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE} framehold_flags)
  if(FRAMEHOLD_SANITIZE MATCHES undefined AND NOT FRAMEHOLD_LIBFUZZER)
    # A third of the compile time with Eigen; what reads bytes of files is fuzzed with these checks.
    target_compile_options(${target} PRIVATE -fno-sanitize=null,alignment)
  endif()
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
  framehold_include_rule(${CMAKE_CURRENT_SOURCE_DIR} ${folder} ${ARG_USES})
  foreach(used ${ARG_USES})
    if(EXISTS ${PROJECT_SOURCE_DIR}/src/${used})
      target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src)
      target_link_libraries(${target} PUBLIC zpr_framehold_static)
    elseif(used MATCHES "^zpr_.*\\.h$")
      target_link_libraries(${target} PUBLIC zpr_framehold_static)
    else()
      target_link_libraries(${target} PUBLIC framehold_${used})
    endif()
  endforeach()
endfunction()

# framehold_include_rule(FOLDER NAMES...): files below FOLDER may include headers of these names.
function(framehold_include_rule folder)
  cmake_path(RELATIVE_PATH folder BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
  list(JOIN ARGN " " names)
  set_property(GLOBAL APPEND PROPERTY FRAMEHOLD_INCLUDE_RULES "${folder} ${names}")
endfunction()

# framehold_write_include_rules(FILE): one line for each folder, the folder first.
function(framehold_write_include_rules file)
  get_property(rules GLOBAL PROPERTY FRAMEHOLD_INCLUDE_RULES)
  list(JOIN rules "\n" text)
  file(WRITE ${file} "${text}\n")
endfunction()
