#include "common/progress.h"

#include "common/text_fields.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace framehold {

namespace {

constexpr int kBarWidth = 30;

double seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

/// "  01:05 left" if everything goes on as so far; empty where nothing is known.
std::string remainingText(std::chrono::steady_clock::time_point start, double share) {
    if (share <= 0.0) return "";
    const double taken = seconds(std::chrono::steady_clock::now() - start);
    const auto left = static_cast<int64_t>(taken * (1.0 - share) / share);
    const std::string hours = left >= 3600 ? fmt::format("{}:", left / 3600) : "";
    return fmt::format("  {}{:02}:{:02} left", hours, left / 60 % 60, left % 60);
}

/// As much of a line of UTF-8 as the terminal shows without going on to the next one.
std::string fitted(std::string line) {
    winsize terminal{};
    constexpr size_t kUsualColumns = 80;
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 0;
    size_t columns = (isKnown ? terminal.ws_col : kUsualColumns) - 1;
    const auto isInside = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    for (size_t i = 0; i < line.size(); ++i) {
        if (isInside(line[i])) continue;
        if (columns-- == 0) return line.substr(0, i);
    }
    return line;
}

}  // namespace

BatchProgress::BatchProgress(std::vector<Clip> clips, bool enabled)
    : clips_(std::move(clips)), visible_(enabled && isatty(STDERR_FILENO) != 0) {}

void BatchProgress::show(size_t clip, const std::string& step, double share) {
    const std::lock_guard lock(mutex_);
    running_[clip] = {step, share};
    draw();
}

void BatchProgress::finish(size_t clip) {
    const std::lock_guard lock(mutex_);
    running_.erase(clip);
    finishedSize_ += clips_[clip].size;
    ++finished_;
    draw();
}

void BatchProgress::print(const std::string& line) {
    const std::lock_guard lock(mutex_);
    const bool wasDrawn = drawn_;
    erase();
    fmt::print(stderr, "{}\n", line);
    if (wasDrawn) draw();
}

void BatchProgress::draw() {
    if (!visible_) return;
    double all = 0.0;
    for (const Clip& clip : clips_) all += clip.size;
    double done = finishedSize_;
    std::string steps;
    for (const auto& [clip, running] : running_) {
        done += running.share * clips_[clip].size;
        steps += fmt::format(" | {} {} {:.0f} %", escaped(clips_[clip].name), running.step,
                             100.0 * running.share);
    }
    const double share = all > 0.0 ? std::min(1.0, done / all) : 0.0;
    const std::string line = fmt::format("{} of {} clips{}{}", finished_, clips_.size(),
                                         remainingText(start_, share), steps);
    fmt::print(stderr, "\r{}\x1b[K", fitted(line));
    std::fflush(stderr);
    drawn_ = true;
}

void BatchProgress::clear() {
    const std::lock_guard lock(mutex_);
    erase();
}

void BatchProgress::erase() {
    if (drawn_) fmt::print(stderr, "\r\x1b[K");
    drawn_ = false;
}

ProgressTarget ProgressTarget::part(double from, double to) const {
    ProgressTarget part = *this;
    part.from_ = from_ + (to_ - from_) * from;
    part.to_ = from_ + (to_ - from_) * to;
    if (from <= 0.0) part.start_ = Clock::now();
    return part;
}

void ProgressTarget::print(const std::string& line) const {
    if (batch_ != nullptr) return batch_->print(line);
    fmt::print(stderr, "{}\n", line);
}

Progress::Progress(std::string title, int64_t total, const ProgressTarget& target)
    : title_(escaped(title)), total_(total), target_(target),
      visible_(target.batch_ != nullptr || (target.isShown_ && isatty(STDERR_FILENO) != 0)) {}

double Progress::perSecond() const {
    const double elapsed = seconds(Clock::now() - start_);
    return elapsed > 0.0 ? static_cast<double>(done_) / elapsed : 0.0;
}

/// Share of all the target's work.
double Progress::share() const {
    if (total_ <= 0) return target_.from_;
    const double done = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
    return target_.from_ + (target_.to_ - target_.from_) * done;
}

void Progress::reach(int64_t done) {
    done_ = done;
    if (!visible_) return;
    const auto now = Clock::now();
    if (seconds(now - lastDrawn_) < 0.1 && done_ != total_) return;
    lastDrawn_ = now;
    if (target_.batch_ != nullptr) {
        target_.batch_->show(target_.clip_, title_, share());
    } else {
        draw();
    }
}

void Progress::draw() {
    std::string line = fmt::format("{} {}", title_, done_);
    if (total_ > 0) {
        const int64_t filled = std::min<int64_t>(kBarWidth, kBarWidth * done_ / total_);
        line = fmt::format("{} [{:=<{}}{: <{}}] {}/{}", title_, "", filled, "", kBarWidth - filled,
                           done_, total_);
        line += remainingText(target_.start_, share());
    }
    fmt::print(stderr, "\r{}  {:.1f} fps\x1b[K", line, perSecond());
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::clear() {
    if (drawn_) fmt::print(stderr, "\r\x1b[K");
    drawn_ = false;
}

}  // namespace framehold
