#pragma once

#include "report/report_page.h"

#include <nlohmann/json.hpp>

namespace framehold {

/// What page.js shows, as it wants it.
nlohmann::ordered_json pageData(const ReportContent& content);

}  // namespace framehold
