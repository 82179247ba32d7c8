#pragma once

#include <chrono>

namespace framehold::bench {

class Stopwatch {
public:
    double ms() const {
        return std::chrono::duration<double, std::milli>(Clock::now() - start_).count();
    }

    /// Milliseconds since the start or the last lap.
    double lap() {
        const double passed = ms();
        start_ = Clock::now();
        return passed;
    }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};

}  // namespace framehold::bench
