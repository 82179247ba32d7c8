# The target framehold_gstreamer_api: GStreamer with its libraries for elements and video. Missing if
# these are, or older than 1.22.
#
# Not by its pkg-config files: they want a libunwind that libc++'s excludes.
pkg_check_modules(GLIB QUIET IMPORTED_TARGET gobject-2.0)
find_path(GSTREAMER_INCLUDE_DIR gst/video/video.h PATH_SUFFIXES gstreamer-1.0)
foreach(part gstreamer gstbase gstvideo)
  find_library(GSTREAMER_${part}_LIBRARY ${part}-1.0)
  list(APPEND gstreamer_libraries ${GSTREAMER_${part}_LIBRARY})
endforeach()
set(gstreamer_minor 0)
if(GSTREAMER_INCLUDE_DIR)
  file(STRINGS ${GSTREAMER_INCLUDE_DIR}/gst/gstversion.h line REGEX "define GST_VERSION_MINOR")
  string(REGEX MATCH "[0-9]+" gstreamer_minor "${line}")
endif()
if(NOT GLIB_FOUND OR gstreamer_minor LESS 22 OR gstreamer_libraries MATCHES NOTFOUND)
  message(STATUS "No GStreamer plugin is built: libgstreamer-plugins-base1.0-dev is missing")
  return()
endif()
add_library(framehold_gstreamer_api INTERFACE)
target_include_directories(framehold_gstreamer_api SYSTEM INTERFACE ${GSTREAMER_INCLUDE_DIR})
target_link_libraries(framehold_gstreamer_api INTERFACE ${gstreamer_libraries} PkgConfig::GLIB)
