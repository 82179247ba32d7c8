# Writes the C++ source OUTPUT that holds the page's parts: those in the folder PAGE, and of the
# plotting library in the folder PLOTS; if that is empty, there are no parts.
set(assets "nullptr")
set(definition "")
if(PLOTS)
  file(READ ${PAGE}/page.html html)
  file(READ ${PLOTS}/dist/uPlot.min.css plotStyle)
  file(READ ${PAGE}/page.css style)
  file(READ ${PLOTS}/LICENSE licence)
  file(READ ${PLOTS}/dist/uPlot.iife.min.js plotScript)
  file(READ ${PAGE}/page.js script)
  set(assets "&assets")
  set(definition "static constexpr PageAssets assets{
R\"embedded(${html})embedded\",
R\"embedded(${plotStyle}${style})embedded\",
R\"embedded(/* ${licence}*/
${plotScript}${script})embedded\"};
")
endif()
file(WRITE ${OUTPUT} "// Made by cmake/embed_report.cmake.
#include \"report/report_page.h\"

namespace framehold {

const PageAssets* pageAssets() {
${definition}return ${assets};
}

}  // namespace framehold
")
