# get_plot_library(RESULT): runs `npm ci` for toolkit/report in the build folder, again whenever the
# lock file changes, and sets RESULT to uPlot's folder, or to nothing where that does not work.
function(get_plot_library result)
  set(${result} "" PARENT_SCOPE)
  set(source ${PROJECT_SOURCE_DIR}/toolkit/report)
  set(folder ${PROJECT_BINARY_DIR}/report_npm)
  foreach(file package.json package-lock.json .npmrc)
    configure_file(${source}/${file} ${folder}/${file} COPYONLY)
  endforeach()
  file(SHA256 ${source}/package-lock.json wanted)
  set(installed "")
  if(EXISTS ${folder}/installed)
    file(READ ${folder}/installed installed)
  endif()
  if(NOT installed STREQUAL wanted)
    find_program(NPM npm)
    if(NOT NPM)
      message(STATUS "Reports are off: Node's npm is missing")
      return()
    endif()
    execute_process(
      COMMAND ${NPM} ci --ignore-scripts --no-audit --no-fund --fetch-retries=1
      WORKING_DIRECTORY ${folder}
      RESULT_VARIABLE failure OUTPUT_VARIABLE said ERROR_VARIABLE said TIMEOUT 180)
    if(failure)
      message(STATUS "Reports are off: npm ci failed (${failure}) in ${folder}")
      return()
    endif()
    file(WRITE ${folder}/installed ${wanted})
  endif()
  set(${result} ${folder}/node_modules/uplot PARENT_SCOPE)
endfunction()

# add_report_assets(TARGET): gives a library the page's parts as report/report_page.h has them, and
# sets FRAMEHOLD_HAS_REPORTS for the tests.
function(add_report_assets target)
  set(plots "")
  if(FRAMEHOLD_REPORTS)
    get_plot_library(plots)
  else()
    message(STATUS "Reports are off: FRAMEHOLD_REPORTS is")
  endif()
  set(FRAMEHOLD_HAS_REPORTS OFF CACHE INTERNAL "Whether the program writes reports")
  if(plots)
    set(FRAMEHOLD_HAS_REPORTS ON CACHE INTERNAL "Whether the program writes reports")
  endif()
  set(page ${PROJECT_SOURCE_DIR}/toolkit/report)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/page_assets.cpp)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -D OUTPUT=${output} -D PAGE=${page} -D "PLOTS=${plots}"
      -P ${PROJECT_SOURCE_DIR}/cmake/embed_report.cmake
    DEPENDS ${PROJECT_SOURCE_DIR}/cmake/embed_report.cmake
      ${page}/page.html ${page}/page.css ${page}/page.js ${page}/package-lock.json
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
endfunction()
