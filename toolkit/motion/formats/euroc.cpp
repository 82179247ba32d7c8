#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr std::string_view kColumns[] = {
    "#timestamp [ns]",   "w_RS_S_x [rad s^-1]", "w_RS_S_y [rad s^-1]", "w_RS_S_z [rad s^-1]",
    "a_RS_S_x [m s^-2]", "a_RS_S_y [m s^-2]",   "a_RS_S_z [m s^-2]"};

}  // namespace

bool detectEuroc(std::string_view content) {
    const auto fields = splitFields(firstLine(content));
    return fields.size() > 1 && fields[0] == kColumns[0] && fields[1] == kColumns[1];
}

MotionLog parseEuroc(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    lines.next();
    const auto fields = splitFields(lines.line());
    RowLayout layout;
    for (size_t i = 0; i < std::size(kColumns); ++i) {
        if (i >= fields.size() || fields[i] != kColumns[i]) {
            lines.fail(fmt::format("column {} is not {}", i + 1, kColumns[i]));
        }
        layout.names.emplace_back(kColumns[i]);
    }
    MotionLog log;
    log.format = "EuRoC";
    log.detectedBy = fmt::format("the columns {}, {}, ...", kColumns[0], kColumns[1]);
    constexpr TimeSource time = {0, 1e-9};
    readRows(lines, layout,
             {vectorReading(time, {1, 2, 3}, 1.0, log.rates),
              vectorReading(time, {4, 5, 6}, 1.0, log.gravity)},
             log.notes);
    log.sortByTime();
    return log;
}

}  // namespace framehold
