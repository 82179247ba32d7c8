#include "framehold/stabilize_batch.h"

#include "common/interruption.h"
#include "framehold/clip_files.h"
#include "framehold/run_summary.h"
#include "framehold/stabilize_clip.h"
#include "report/report_page.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <thread>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

namespace {

/// The name that a pattern option stands for.
std::string fillIn(const std::string& option, const std::string& pattern,
                   const std::string& video) {
    try {
        return nameFor(pattern, video);
    } catch (const std::invalid_argument& error) {
        throw CLI::ValidationError(option, error.what());
    }
}

/// What is written for each clip, named by a pattern.
struct PatternOption {
    const char* name;
    std::string StabilizeOptions::*value;
};

constexpr PatternOption kPatternOptions[] = {{"--output", &StabilizeOptions::output},
                                             {"--export-path", &StabilizeOptions::exportPath},
                                             {"--report", &StabilizeOptions::report},
                                             {"--save-run", &StabilizeOptions::saveRun}};

class Batch {
public:
    explicit Batch(const BatchOptions& options) : options_(options) {
        for (const std::string& video : findClips(options.inputs)) addClip(video);
        results_.resize(clips_.size());
        check();
    }

    void run() {
        makeFolders();
        const size_t count = std::min(static_cast<size_t>(options_.parallel), clips_.size());
        std::vector<std::thread> threads;
        for (size_t i = 1; i < count; ++i) threads.emplace_back([this] { work(); });
        work();
        for (std::thread& thread : threads) thread.join();
        if (options_.json) printSummary();
        finish();
    }

private:
    using End = ClipResult::End;

    bool isSingle() const { return clips_.size() == 1; }

    void addClip(const std::string& video) {
        StabilizeOptions clip = options_.each;
        clip.video = video;
        for (const auto& [name, value] : kPatternOptions) {
            const bool hasDefault = value == &StabilizeOptions::output;
            if (hasDefault || !(clip.*value).empty())
                clip.*value = fillIn(name, clip.*value, video);
        }
        clips_.push_back(clip);
    }

    /// What would spoil the run of all clips is found before the first one is touched.
    void check() const {
        const auto refuse = [](const std::string& option, const std::string& why) {
            throw CLI::ValidationError(option, why);
        };
        const StabilizeOptions& each = options_.each;
        if (!each.report.empty()) {
            requireReports();
            if (each.sideBySide) refuse("--report", "does not go with --side-by-side");
        }
        if (!isSingle()) {
            for (const auto& [option, value] : {std::pair{"--motion", each.motion},
                                                {"--clip", each.clip},
                                                {"--record-session", each.session}}) {
                if (!value.empty()) refuse(option, "goes with one video only");
            }
            for (const auto& [option, value] : kPatternOptions) {
                if (namesEach(each.*value)) continue;
                refuse(option, "several videos need a folder or a pattern such as out/{name}.mp4");
            }
        }
        std::map<std::string, std::string> users;
        for (const StabilizeOptions& clip : clips_) {
            if (clip.output == "-" && options_.json) {
                refuse("--json", "the video takes up standard output");
            }
            if (!clip.report.empty() && (clip.output == "-" || clip.video == "-")) {
                refuse("--report",
                       "needs files that can be read again, not standard input or output");
            }
            const auto [user, isNew] = users.emplace(clip.output, clip.video);
            if (!isNew) {
                refuse("--output", fmt::format("{} would be written for {} and for {}", clip.output,
                                               user->second, clip.video));
            }
            std::error_code ignored;
            for (const StabilizeOptions& other : clips_) {
                if (std::filesystem::equivalent(clip.output, other.video, ignored)) {
                    throw std::runtime_error(clip.output + ": is the input itself");
                }
            }
        }
    }

    /// The folders that patterns ask for.
    void makeFolders() const {
        for (const StabilizeOptions& clip : clips_) {
            for (const PatternOption& option : kPatternOptions) {
                const std::string& pattern = options_.each.*option.value;
                const auto folder = std::filesystem::path(clip.*option.value).parent_path();
                const bool isAsked = !pattern.empty() && namesEach(pattern);
                if (isAsked && !folder.empty()) std::filesystem::create_directories(folder);
            }
        }
    }

    /// Does one clip after the other until there are no more.
    void work() {
        for (size_t i = next_++; i < clips_.size() && !isInterrupted(); i = next_++) {
            stabilize(clips_[i], results_[i]);
            if (!isSingle()) tell(results_[i]);
        }
    }

    void stabilize(StabilizeOptions& clip, ClipResult& result) const {
        RunDisplay display;
        display.label = isSingle() ? "" : clip.video;
        display.showNotes = isSingle();
        display.showProgress = options_.parallel == 1 || isSingle();
        display.observePath = options_.json || !clip.exportPath.empty() || !clip.saveRun.empty() ||
                              !clip.report.empty();
        result.record.input = clip.video;
        result.record.output = clip.output;
        try {
            findMotion(clip);
            stabilizeClip(clip, display, result.record);
            result.end = End::kDone;
        } catch (const Interrupted& error) {
            result.error = error.what();
        } catch (const std::exception& error) {
            result.end = End::kFailed;
            result.error = error.what();
        }
    }

    void tell(const ClipResult& result) const {
        const RunRecord& run = result.record;
        if (result.end == End::kFailed) {
            fmt::print(stderr, "{}: FAILED: {}\n", run.input, result.error);
        } else if (result.end == End::kDone && !options_.each.quiet) {
            fmt::print(stderr, "{}: {} frames in {:.1f} s, written: {}\n", run.input,
                       run.frames.size(), run.secondsTaken, run.output);
        }
    }

    size_t count(End end) const {
        return static_cast<size_t>(
            std::count_if(results_.begin(), results_.end(),
                          [&](const ClipResult& result) { return result.end == end; }));
    }

    void printSummary() const {
        nlohmann::ordered_json summary;
        summary["done"] = count(End::kDone);
        summary["failed"] = count(End::kFailed);
        summary["interrupted"] = count(End::kInterrupted);
        summary["clips"] = nlohmann::ordered_json::array();
        for (const ClipResult& result : results_) summary["clips"].push_back(summaryOf(result));
        const std::string text =
            summary.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
        if (std::puts(text.c_str()) < 0 || std::fflush(stdout) != 0) {
            throw std::runtime_error(
                fmt::format("standard output: cannot be written: {}", std::strerror(errno)));
        }
    }

    /// The last word: what main prints, and the exit code.
    void finish() const {
        const size_t done = count(End::kDone);
        if (isInterrupted() && done < clips_.size()) {
            throw isSingle() ? Interrupted()
                             : Interrupted(fmt::format("interrupted; {} of {} clips were written",
                                                       done, clips_.size()));
        }
        if (isSingle() && done == 0) throw std::runtime_error(results_[0].error);
        const std::string summary = fmt::format("{} of {} clips stabilized", done, clips_.size());
        if (done < clips_.size()) {
            throw std::runtime_error(fmt::format("{}, {} failed", summary, count(End::kFailed)));
        }
        if (!isSingle() && !options_.each.quiet) fmt::print(stderr, "{}\n", summary);
    }

    const BatchOptions& options_;
    std::vector<StabilizeOptions> clips_;
    std::vector<ClipResult> results_;  // of the same index
    std::atomic<size_t> next_{0};
};

}  // namespace

void stabilizeAll(const BatchOptions& options) { Batch(options).run(); }

}  // namespace framehold
