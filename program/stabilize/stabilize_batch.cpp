#include "stabilize/stabilize_batch.h"

#include "cli/exit_codes.h"
#include "common/interruption.h"
#include "common/text_fields.h"
#include "stabilize/run_summary.h"
#include "stabilize/stabilize_clip.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

class Batch {
public:
    Batch(const BatchOptions& options, const SettingsSaver& save)
        : options_(options), save_(save), clips_(planBatch(options)), summaries_(clips_.size()),
          progress_(progressClips(), !isSingle() && !options.each.quiet) {
        for (size_t i = 0; i < clips_.size(); ++i) {
            summaries_[i].record.input = clips_[i].options.files.video;
            summaries_[i].record.output = clips_[i].options.output;
        }
    }

    void run() {
        makeFolders(options_, clips_);
        if (save_ && !savesFindings()) save_(std::nullopt);
        const size_t count = std::min(static_cast<size_t>(options_.parallel), clips_.size());
        std::vector<std::future<void>> others;
        for (size_t i = 1; i < count; ++i) {
            others.push_back(std::async(std::launch::async, [this] { work(); }));
        }
        work();
        for (std::future<void>& other : others) other.get();
        progress_.clear();
        if (options_.json) printSummary();
        finish();
    }

private:
    using End = RunSummary::End;

    bool isSingle() const { return clips_.size() == 1; }

    bool savesFindings() const {
        return isSingle() && options_.each.findsUnknown && !clips_[0].isSkipped;
    }

    /// Does one clip after the other until there are no more.
    void work() {
        for (size_t i = next_++; i < clips_.size() && !isInterrupted(); i = next_++) {
            stabilize(i);
            progress_.finish(i);
            if (!isSingle() || summaries_[i].end == End::kSkipped) print(summaries_[i]);
        }
    }

    void stabilize(size_t number) {
        PlannedClip& planned = clips_[number];
        RunSummary& summary = summaries_[number];
        if (planned.isSkipped) {
            summary.end = End::kSkipped;
            return;
        }
        const StabilizeOptions& clip = planned.options;
        RunDisplay display;
        display.label = isSingle() ? "" : clip.files.video;
        display.showNotes = isSingle() && !clip.quiet;
        display.progress =
            isSingle() ? ProgressTarget(!clip.quiet) : ProgressTarget(progress_, number);
        try {
            if (planned.error) std::rethrow_exception(planned.error);
            const ClipMetadata ofCamera =
                stabilizeClip(clip, std::move(planned.found), display, summary.record);
            if (save_ && savesFindings()) save_(ofCamera);
            summary.end = End::kDone;
        } catch (const Interrupted& error) {
            summary.error = error.what();
        } catch (const std::exception& error) {
            summary.end = End::kFailed;
            summary.error = error.what();
        }
    }

    /// The clips by their folder and name, with the sizes of their files for the work.
    std::vector<BatchProgress::Clip> progressClips() const {
        std::vector<BatchProgress::Clip> clips;
        for (const PlannedClip& clip : clips_) {
            const fs::path video = fs::absolute(clip.options.files.video);
            std::error_code unknown;
            const auto size = static_cast<double>(fs::file_size(video, unknown));
            clips.push_back(
                {(video.parent_path().filename() / video.filename()).string(), clip.isSkipped ? 0.0
                                                                               : unknown      ? 1.0
                                                                                         : size});
        }
        return clips;
    }

    void print(const RunSummary& summary) {
        const bool isShown = summary.end == End::kFailed ||
                             (summary.end != End::kInterrupted && !options_.each.quiet);
        if (isShown) progress_.print(escaped(lineOf(summary)));
    }

    size_t count(End end) const {
        return static_cast<size_t>(
            std::count_if(summaries_.begin(), summaries_.end(),
                          [&](const RunSummary& summary) { return summary.end == end; }));
    }

    size_t countLosses() const {
        return static_cast<size_t>(
            std::count_if(summaries_.begin(), summaries_.end(), [](const RunSummary& summary) {
                return summary.end == End::kDone && !summary.record.losses.empty();
            }));
    }

    void printSummary() const {
        nlohmann::ordered_json json;
        json["done"] = count(End::kDone);
        json["with_losses"] = countLosses();
        json["skipped"] = count(End::kSkipped);
        json["failed"] = count(End::kFailed);
        json["interrupted"] = count(End::kInterrupted);
        json["clips"] = nlohmann::ordered_json::array();
        for (const RunSummary& summary : summaries_) json["clips"].push_back(jsonOf(summary));
        const std::string text =
            json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
        if (std::puts(text.c_str()) < 0 || std::fflush(stdout) != 0) {
            throw std::runtime_error(
                fmt::format("standard output: cannot be written: {}", std::strerror(errno)));
        }
    }

    /// The last word: what main prints, and the exit code.
    void finish() const {
        const size_t done = count(End::kDone);
        const size_t skipped = count(End::kSkipped);
        const size_t left = clips_.size() - done - skipped;
        if (isInterrupted() && left > 0) {
            if (!isSingle()) {
                throw Interrupted(
                    fmt::format("interrupted; {} of {} clips were written", done, clips_.size()));
            }
            throw clips_[0].options.output == "-"
                ? Interrupted("interrupted; the result ends early")
                : Interrupted();
        }
        if (isSingle() && left > 0) throw std::runtime_error(summaries_[0].error);
        std::string summary = fmt::format("{} of {} clips stabilized", done, clips_.size());
        if (skipped > 0) summary += fmt::format(", {} skipped", skipped);
        if (left > 0) {
            throw std::runtime_error(fmt::format("{}, {} failed", summary, count(End::kFailed)));
        }
        if (const size_t losses = countLosses(); losses > 0) {
            throw DoneWithLosses(isSingle() ? "done, with losses"
                                            : fmt::format("{}, {} with losses", summary, losses));
        }
        if (!isSingle() && !options_.each.quiet) fmt::print(stderr, "{}\n", summary);
    }

    const BatchOptions& options_;
    const SettingsSaver& save_;
    std::vector<PlannedClip> clips_;
    std::vector<RunSummary> summaries_;  // of the same index
    std::atomic<size_t> next_{0};
    BatchProgress progress_;
};

}  // namespace

void stabilizeAll(const BatchOptions& options, const SettingsSaver& save) {
    Batch(options, save).run();
}

}  // namespace framehold
