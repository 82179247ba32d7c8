#pragma once

#include "report/report_page.h"

#include <nlohmann/json.hpp>

namespace framehold {

/// Data that page.js shows, in its format.
nlohmann::ordered_json pageData(const ReportContent& content);

}  // namespace framehold
