#include "common/progress.h"

#include "common/text_fields.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>
#include <unistd.h>

namespace framehold {

namespace {

constexpr int kBarWidth = 30;

double seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

}  // namespace

Progress::Progress(std::string title, int64_t total, bool enabled)
    : title_(escaped(title)), total_(total), visible_(enabled && isatty(STDERR_FILENO) != 0) {}

double Progress::perSecond() const {
    const double elapsed = seconds(Clock::now() - start_);
    return elapsed > 0.0 ? static_cast<double>(done_) / elapsed : 0.0;
}

void Progress::reach(int64_t done) {
    done_ = done;
    if (!visible_) return;
    const auto now = Clock::now();
    if (seconds(now - lastDrawn_) < 0.1 && done_ != total_) return;
    lastDrawn_ = now;
    draw();
}

void Progress::draw() {
    const double rate = perSecond();
    std::string line = fmt::format("{} {}", title_, done_);
    if (total_ > 0) {
        const int64_t filled = std::min<int64_t>(kBarWidth, kBarWidth * done_ / total_);
        const auto left = static_cast<int64_t>(
            static_cast<double>(std::max<int64_t>(0, total_ - done_)) / std::max(rate, 1e-3));
        line = fmt::format("{} [{:=<{}}{: <{}}] {}/{}", title_, "", filled, "", kBarWidth - filled,
                           done_, total_);
        line += fmt::format("  {:02}:{:02} left", left / 60, left % 60);
    }
    fmt::print(stderr, "\r{}  {:.1f} fps\x1b[K", line, rate);
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::clear() {
    if (drawn_) fmt::print(stderr, "\r\x1b[K");
    drawn_ = false;
}

}  // namespace framehold
