# What `cmake --install` puts where: the library with what its users' builds look for; the program
# with its manual pages and completions, the Python package and the GStreamer plugin, where they are
# built; documents and examples.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zpr_framehold)
install(TARGETS zpr_framehold zpr_framehold_static EXPORT zpr_framehold)
install(FILES ${PROJECT_SOURCE_DIR}/include/zpr_framehold.h
    ${PROJECT_SOURCE_DIR}/include/zpr_smoothing_policy.h
  TYPE INCLUDE)
install(EXPORT zpr_framehold NAMESPACE zpr_framehold:: DESTINATION ${package_folder}
  FILE zpr_framehold-targets.cmake)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/zpr_framehold-config.cmake.in zpr_framehold-config.cmake
  INSTALL_DESTINATION ${package_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(zpr_framehold-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zpr_framehold-config.cmake
    ${PROJECT_BINARY_DIR}/zpr_framehold-config-version.cmake
  DESTINATION ${package_folder})

# The folders from where the file lies, so that an installed tree can be moved.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE library_folder)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${library_folder}/pkgconfig
  OUTPUT_VARIABLE pc_prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/zpr_framehold.pc.in zpr_framehold.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zpr_framehold.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md TYPE DOC)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples TYPE DOC
  PATTERN results EXCLUDE)

if(FRAMEHOLD_BUILD_TOOLS)
  install(TARGETS framehold)
  if(TARGET manual_pages)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
  if(TARGET completions)
    set(completions ${PROJECT_BINARY_DIR}/completions)
    install(FILES ${completions}/framehold.bash RENAME framehold
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${completions}/framehold.zsh RENAME _framehold
      DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES ${completions}/framehold.fish
      DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  endif()
endif()

# Where a Python looks; each has folders of its own.
set(FRAMEHOLD_PYTHON_FOLDER "" CACHE STRING
  "Folder for packages of Python's to install the Python package in; empty: it is not installed")
if(TARGET framehold_python AND FRAMEHOLD_PYTHON_FOLDER)
  install(TARGETS framehold_python DESTINATION ${FRAMEHOLD_PYTHON_FOLDER}/framehold)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/bindings/python/framehold
    DESTINATION ${FRAMEHOLD_PYTHON_FOLDER}
    FILES_MATCHING PATTERN *.py PATTERN *.pyi PATTERN py.typed PATTERN __pycache__ EXCLUDE)
endif()
if(TARGET framehold_gstreamer_plugin)
  install(TARGETS framehold_gstreamer_plugin DESTINATION ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0)
endif()
