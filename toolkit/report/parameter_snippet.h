#pragma once

#include "zpr_framehold.h"

#include <string>

namespace framehold {

/// C source that fills a parameter record as `param` is, for an application that uses the library.
/// Rows are taken to have no padding.
std::string parameterSnippet(const ZPR_Param& param);

}  // namespace framehold
