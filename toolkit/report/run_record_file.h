#pragma once

#include "report/run_record.h"

#include <string>

namespace framehold {

/// Keeps a run for a report that is made later, as JSON. Throws std::runtime_error.
void saveRunRecord(const std::string& path, const RunRecord& run);

/// Throws std::runtime_error with the file and the field.
RunRecord loadRunRecord(const std::string& path);

}  // namespace framehold
