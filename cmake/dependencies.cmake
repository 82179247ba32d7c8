# What the folders around the library link. The library itself needs threads alone.

if(FRAMEHOLD_BUILD_TOOLS OR FRAMEHOLD_BUILD_TESTS)
  # Headers only, so it serves builds for ARM as well.
  find_package(Eigen3 3.4 REQUIRED NO_MODULE)
endif()
if(FRAMEHOLD_BUILD_TOOLS OR FRAMEHOLD_BUILD_BENCH)
  find_package(CLI11 REQUIRED)
  find_package(fmt REQUIRED)
  find_package(PkgConfig REQUIRED)
endif()
if(FRAMEHOLD_BUILD_TOOLS)
  find_package(nlohmann_json REQUIRED)
  pkg_check_modules(LIBAV REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswscale)
  find_opencv(core imgproc video calib3d features2d)
  # Not by Ceres' own CMake package: through glog it wants a libunwind that libc++'s excludes.
  find_path(CERES_INCLUDE_DIR ceres/ceres.h REQUIRED)
  find_library(CERES_LIBRARY ceres REQUIRED)
  find_library(GLOG_LIBRARY glog REQUIRED)
endif()
if(FRAMEHOLD_BUILD_BENCH)
  pkg_check_modules(VIDSTAB REQUIRED IMPORTED_TARGET vidstab)
  find_opencv(core imgproc)
endif()
