#include "watch/watch_folder.h"

#include "cli/exit_codes.h"
#include "common/interruption.h"
#include "common/text_fields.h"
#include "media/results.h"
#include "stabilize/stabilize_batch.h"
#include "watch/folder_changes.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

/// Size and time of change of each file of a recording.
using Stamps = std::map<std::string, std::pair<uintmax_t, fs::file_time_type>>;

void addStamp(Stamps& stamps, const fs::path& file) {
    std::error_code error;
    const uintmax_t size = fs::file_size(file, error);
    const fs::file_time_type time = fs::last_write_time(file, error);
    if (!error) stamps[file.string()] = {size, time};
}

/// Of the files whose names start with the video's, and of those that it names or is known to have.
Stamps stampsOf(const std::string& video) {
    Stamps stamps;
    const fs::path path(video);
    const std::string stem = path.stem().string();
    std::error_code error;
    for (fs::directory_iterator i(path.parent_path(), error), end; !error && i != end;
         i.increment(error)) {
        if (i->path().filename().string().compare(0, stem.size(), stem) == 0) {
            addStamp(stamps, i->path());
        }
    }
    try {
        ClipFiles files;
        files.video = video;
        const FoundClip found = findClipFiles(files);
        for (const std::string& file : filesRead(files, found)) addStamp(stamps, file);
    } catch (const std::exception&) {
        // Deliberate: what is wrong with them is said when the clip is taken.
    }
    return stamps;
}

class Watcher {
public:
    explicit Watcher(const WatchOptions& options)
        : o_(options), settle_(static_cast<int64_t>(1000.0 * options.settleSeconds)),
          changes_(options.folder) {}

    void run() {
        using namespace std::chrono_literals;
        if (!o_.batch.each.quiet) {
            fmt::print(stderr, "watching {}{}; Ctrl-C ends it\n", escaped(o_.folder),
                       changes_.isTold() ? "" : ", by looking every few seconds");
        }
        while (!isInterrupted()) {
            const bool isUnsettled = look();
            // What the system does not tell of is found, too, just later.
            const auto longest = isUnsettled || !changes_.isTold() ? settle_ : 60s;
            if (!isInterrupted()) changes_.wait(longest);
        }
        if (!failed_.empty())
            throw std::runtime_error("ended; some recordings could not be stabilized");
    }

private:
    struct Recording {
        Stamps stamps;
        Clock::time_point since;
        bool isTaken = false;
    };

    /// Takes the recordings that have settled. Returns true if others have not.
    bool look() {
        bool isUnsettled = false;
        std::vector<std::string> settled;
        for (const std::string& clip : clipsInFolder()) {
            Recording& recording = recordings_[clip];
            Stamps stamps = stampsOf(clip);
            if (recording.stamps != stamps) recording = {std::move(stamps), Clock::now(), false};
            if (recording.isTaken) continue;
            if (Clock::now() - recording.since < settle_) {
                isUnsettled = true;
            } else {
                recording.isTaken = true;
                settled.push_back(clip);
            }
        }
        take(settled);
        return isUnsettled;
    }

    std::vector<std::string> clipsInFolder() const {
        // What is no folder would be taken for a clip.
        if (!fs::is_directory(o_.folder)) throw std::runtime_error(o_.folder + ": is gone");
        try {
            return findClips({o_.folder});
        } catch (const std::runtime_error&) {
            return {};  // there are none, or one has gone just now
        }
    }

    void take(const std::vector<std::string>& clips) {
        BatchOptions batch = o_.batch;
        batch.inputs.clear();
        batch.saveSettings.clear();  // which was done before
        for (const std::string& clip : clips) {
            if (isInterrupted()) return;
            if (isReady(clip)) batch.inputs.push_back(clip);
        }
        if (batch.inputs.empty()) return;
        try {
            stabilizeAll(batch);
        } catch (const Interrupted&) {
            throw;
        } catch (const DoneWithLosses& losses) {
            say(losses.what());
        } catch (const std::exception& error) {
            // Which of them is said above, if there are several.
            failed_.insert(batch.inputs.begin(), batch.inputs.end());
            fmt::print(stderr, "framehold: {}\n", escaped(error.what()));
        }
    }

    /// Tries a clip's plan alone, so that what is wrong with one does not keep others from being done.
    bool isReady(const std::string& clip) {
        BatchOptions one = o_.batch;
        one.inputs = {clip};
        failed_.erase(clip);
        try {
            if (planBatch(one).front().isSkipped) return false;
            if (isCompleteVideo(clip)) return true;
            fail(clip, clip + ": is not complete; it is tried again when it changes");
        } catch (const Interrupted&) {
            throw;
        } catch (const std::exception& error) {
            fail(clip, error.what());
        }
        return false;
    }

    void say(const std::string& text) const {
        if (!o_.batch.each.quiet) fmt::print(stderr, "{}\n", escaped(text));
    }

    void fail(const std::string& clip, const std::string& text) {
        failed_.insert(clip);
        fmt::print(stderr, "framehold: {}\n", escaped(text));
    }

    const WatchOptions& o_;
    const std::chrono::milliseconds settle_;
    FolderChanges changes_;
    std::map<std::string, Recording> recordings_;
    std::set<std::string> failed_;  // clips
};

}  // namespace

void watchFolder(const WatchOptions& options) {
    requirePatterns(options.batch.each);
    Watcher(options).run();
}

}  // namespace framehold
