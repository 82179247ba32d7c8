#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace framehold {

/// Progress of a batch of clips, several at a time: a line on standard error, if that is a terminal,
/// with the remaining time and what is done with each clip that runs. For any threads.
class BatchProgress {
public:
    struct Clip {
        std::string name;
        double size;  // of its work, in any unit
    };

    /// Not enabled, nothing is drawn.
    BatchProgress(std::vector<Clip> clips, bool enabled);
    ~BatchProgress() { clear(); }
    BatchProgress(const BatchProgress&) = delete;
    BatchProgress& operator=(const BatchProgress&) = delete;

    /// step: of the clip's work, for the user. share: of all its work that is done, 0 to 1.
    void show(size_t clip, const std::string& step, double share);

    /// Counts a clip as done with, however it ended.
    void finish(size_t clip);

    /// Prints a line to standard error, enabled or not.
    void print(const std::string& line);

    /// Removes the line from the terminal.
    void clear();

private:
    struct Running {
        std::string step;
        double share;
    };

    void draw();
    void erase();

    std::vector<Clip> clips_;
    const bool visible_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::mutex mutex_;  // of all below
    std::map<size_t, Running> running_;
    double finishedSize_ = 0.0;
    size_t finished_ = 0;
    bool drawn_ = false;
};

/// Where the progress of a clip's work is shown, or of a part of it.
class ProgressTarget {
public:
    using Clock = std::chrono::steady_clock;

    /// A bar of its own, or nothing. Deliberate: converts where nobody shares the line.
    ProgressTarget(bool isShown) : isShown_(isShown) {}

    /// The line of a batch, which is borrowed.
    ProgressTarget(BatchProgress& batch, size_t clip) : batch_(&batch), clip_(clip) {}

    /// The same for a part of the work, by shares of all of it; starts anew at 0.
    ProgressTarget part(double from, double to) const;

    /// Prints a line to standard error, above that of a batch.
    void print(const std::string& line) const;

private:
    friend class Progress;

    bool isShown_ = true;
    BatchProgress* batch_ = nullptr;
    size_t clip_ = 0;
    double from_ = 0.0;
    double to_ = 1.0;
    Clock::time_point start_ = Clock::now();
};

/// Progress bar with frames per second and remaining time on standard error, if that is a terminal;
/// or a part of a batch's line.
class Progress {
public:
    /// total: number of frames, 0 if not known.
    Progress(std::string title, int64_t total, const ProgressTarget& target = true);
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
    using Clock = ProgressTarget::Clock;

    double share() const;
    void draw();

    std::string title_;
    int64_t total_;
    ProgressTarget target_;
    bool visible_;
    bool drawn_ = false;
    int64_t done_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastDrawn_{};
};

}  // namespace framehold
