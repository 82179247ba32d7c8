#pragma once

#include "report/report_page.h"

#include <nlohmann/json.hpp>

namespace framehold {

/// Shake of both clips as it was measured; none if it is not known.
std::optional<ShakeAmounts> shakeIn(const ReportContent& content);

/// Data that page.js shows, in its format.
nlohmann::ordered_json pageData(const ReportContent& content);

}  // namespace framehold
