// The small logs of tests/toolkit/data/motion. All hold ten readings of the same made-up motion, in
// their own units, axes and times.
#pragma once

#include "motion/motion_log.h"

#include <string>

#include <gtest/gtest.h>

namespace zpr_test {

inline const std::string kSampleLogs = FRAMEHOLD_TEST_DATA "/motion/";
inline const framehold::Vec3 kFirstRate = {0.1, -0.2, 0.05};
inline const framehold::Vec3 kLastRate = {0.19, -0.02, 0.005};
inline const framehold::Vec3 kFirstGravity = {0.4, 9.78, 0.3};
inline const framehold::Vec3 kLastGravity = {0.58, 9.69, 0.75};

inline void expectNear(const framehold::Vec3& got, const framehold::Vec3& expected,
                       double tolerance, const char* what) {
    for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(got[i], expected[i], tolerance) << what << " " << i;
}

}  // namespace zpr_test
