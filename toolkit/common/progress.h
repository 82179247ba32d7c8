#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace framehold {

/// Progress bar with frames per second and remaining time on standard error, if that is a terminal.
class Progress {
public:
    /// total: number of frames, 0 if not known. Not enabled, nothing is drawn.
    Progress(std::string title, int64_t total, bool enabled = true);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Counts one frame.
    void advance() { reach(done_ + 1); }

    /// Notes that this many frames are done.
    void reach(int64_t done);

    /// Removes the bar from the terminal.
    void clear();

    /// Number of frames so far.
    int64_t done() const { return done_; }

    /// Frames per second since the start.
    double perSecond() const;

private:
    using Clock = std::chrono::steady_clock;

    void draw();

    std::string title_;
    int64_t total_;
    bool visible_;
    bool drawn_ = false;
    int64_t done_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastDrawn_{};
};

}  // namespace framehold
