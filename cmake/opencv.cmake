# find_opencv(MODULE...): an imported target opencv::MODULE for each. Not by OpenCV's own CMake
# package: Debian ships that with all of OpenCV only.
function(find_opencv)
  find_path(OPENCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
  foreach(module ${ARGN})
    if(NOT TARGET opencv::${module})
      find_library(OPENCV_${module} opencv_${module} REQUIRED)
      add_library(opencv::${module} UNKNOWN IMPORTED GLOBAL)
      set_target_properties(opencv::${module} PROPERTIES
        IMPORTED_LOCATION ${OPENCV_${module}}
        INTERFACE_INCLUDE_DIRECTORIES ${OPENCV_INCLUDE_DIR})
    endif()
  endforeach()
endfunction()
