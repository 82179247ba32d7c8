#pragma once

#include "report/run_record.h"

#include <string>

namespace framehold {

/// Judgement of a result, for its user.
struct Verdict {
    enum class Kind { kSteady, kPartly, kShaky, kUnknown };

    Kind kind;
    std::string sentence;
    std::string advice;  // the one setting that would help most; empty: none, or not known
};

/// Judges a run by the shake of source and result, the margin that was used and what was found
/// wrong with the motion log. A record without an engine, of a result that is made otherwise, gets
/// no advice.
Verdict verdictOf(const RunRecord& run);

/// The verdict's sentence with its advice.
std::string textOf(const Verdict& verdict);

}  // namespace framehold
